// Interface metadata: what clients and their tools can ask about commands, types and authentication of the
// services.
#pragma once

#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "runtime/data/value.h"
#include "runtime/provider/interface.h"

namespace Lumo::Provider::Metadata {

/// The documents of one kind of metadata by component. Filled at start, read-only afterwards.
class DocumentContainer {
 public:
  /// False when the component is there already; its document stays.
  bool Add(std::string const& component, std::shared_ptr<Data::StructValue const> const& document) {
    return documents_.emplace(component, document).second;
  }
  /// Null for an unknown component.
  std::shared_ptr<Data::StructValue const> Find(std::string const& component) const;
  std::vector<std::string> Components() const;

 private:
  std::map<std::string, std::shared_ptr<Data::StructValue const>> documents_;
};

namespace Cli {
class MetadataContainer final : public DocumentContainer {
 public:
  static std::shared_ptr<MetadataContainer> GetInstance();
};
}  // namespace Cli

namespace Metamodel {
class MetadataContainer final : public DocumentContainer {
 public:
  static std::shared_ptr<MetadataContainer> GetInstance();
};
}  // namespace Metamodel

namespace Authentication {
class MetadataContainer final : public DocumentContainer {
 public:
  static std::shared_ptr<MetadataContainer> GetInstance();
};
}  // namespace Authentication

namespace ProviderHelper {

/// Each loads one file into a container: a JSON object whose member `component` is the component's document.
/// Null on success; else an error that says what is wrong: the file cannot be read, is no JSON object, has no
/// such object in it, or the component was loaded before.
std::shared_ptr<Data::ErrorValue const> LoadCliMetadataFile(
    std::string const& component, std::string const& path,
    std::shared_ptr<Cli::MetadataContainer> const& container);
std::shared_ptr<Data::ErrorValue const> LoadMetamodelMetadataFile(
    std::string const& component, std::string const& path,
    std::shared_ptr<Metamodel::MetadataContainer> const& container);
std::shared_ptr<Data::ErrorValue const> LoadAuthnMetadataFile(
    std::string const& component, std::string const& path,
    std::shared_ptr<Authentication::MetadataContainer> const& container);

/// The metadata services over a container. No interface is defined for them: the lists are empty, and the
/// documents only prove at start that the installation is whole.
std::list<std::shared_ptr<AsyncApiInterface const>> CliInterfaces(
    std::shared_ptr<Cli::MetadataContainer> const& container);
std::list<std::shared_ptr<AsyncApiInterface const>> MetamodelInterfaces(
    std::shared_ptr<Metamodel::MetadataContainer> const& container);
std::list<std::shared_ptr<AsyncApiInterface const>> AuthnInterfaces(
    std::shared_ptr<Authentication::MetadataContainer> const& container);

/// Names of the metadata services, which may be called without a user. Empty as the lists above.
std::set<std::string> MetadataAnonSvcNames();

}  // namespace ProviderHelper
}  // namespace Lumo::Provider::Metadata
