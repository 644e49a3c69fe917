#include "runtime/introspection/metadata.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "runtime/json/serializers.h"

namespace Lumo::Provider::Metadata {
namespace {

using ErrorPtr = std::shared_ptr<Data::ErrorValue const>;

template <typename... Args>
ErrorPtr Failure(char const* messageId, Args const&... args) {
  return Data::ErrorValue::Create("com.orbane.lumo.std.errors.internal_server_error",
                                  {Message<CoreTag>::Make(messageId, args...)});
}

bool ReadWhole(std::string const& path, std::string& text, int& error) {
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  // A folder opens but cannot be read; an empty file sets no bits but those of the target.
  if (file && (file.peek() == std::ifstream::traits_type::eof() || content << file.rdbuf()) && !file.bad()) {
    text = std::move(content).str();
    return true;
  }
  error = errno != 0 ? errno : EIO;
  return false;
}

ErrorPtr LoadFile(std::string const& component, std::string const& path, DocumentContainer& container) {
  std::string text;
  int readError = 0;
  if (!ReadWhole(path, text, readError)) {
    return Failure("lumo.metadata.file.unreadable", path, std::string(std::strerror(readError)));
  }
  ErrorPtr malformed;
  Data::DataValuePtr const value = Protocol::Json::JsonDirectDataDeserializer::Deserialize(text, malformed);
  if (malformed) {
    return Failure("lumo.metadata.file.malformed", path, malformed->ToString());
  }
  auto const file = Data::As<Data::StructValue>(value);
  auto const* const document = file ? Data::As<Data::StructValue>(file->Find(component)) : nullptr;
  if (!document) {
    return Failure("lumo.metadata.component.missing", path, component);
  }
  if (!container.Add(component, std::shared_ptr<Data::StructValue const>(file, document))) {
    return Failure("lumo.metadata.component.duplicate", path, component);
  }
  return nullptr;
}

}  // namespace

std::shared_ptr<Data::StructValue const> DocumentContainer::Find(std::string const& component) const {
  auto const found = documents_.find(component);
  return found == documents_.end() ? nullptr : found->second;
}

std::vector<std::string> DocumentContainer::Components() const {
  std::vector<std::string> names;
  names.reserve(documents_.size());
  for (auto const& [name, document] : documents_) {
    names.push_back(name);
  }
  return names;
}

std::shared_ptr<Cli::MetadataContainer> Cli::MetadataContainer::GetInstance() {
  return std::make_shared<MetadataContainer>();
}

std::shared_ptr<Metamodel::MetadataContainer> Metamodel::MetadataContainer::GetInstance() {
  return std::make_shared<MetadataContainer>();
}

std::shared_ptr<Authentication::MetadataContainer> Authentication::MetadataContainer::GetInstance() {
  return std::make_shared<MetadataContainer>();
}

namespace ProviderHelper {

std::shared_ptr<Data::ErrorValue const> LoadCliMetadataFile(
    std::string const& component, std::string const& path,
    std::shared_ptr<Cli::MetadataContainer> const& container) {
  return LoadFile(component, path, *container);
}

std::shared_ptr<Data::ErrorValue const> LoadMetamodelMetadataFile(
    std::string const& component, std::string const& path,
    std::shared_ptr<Metamodel::MetadataContainer> const& container) {
  return LoadFile(component, path, *container);
}

std::shared_ptr<Data::ErrorValue const> LoadAuthnMetadataFile(
    std::string const& component, std::string const& path,
    std::shared_ptr<Authentication::MetadataContainer> const& container) {
  return LoadFile(component, path, *container);
}

std::list<std::shared_ptr<AsyncApiInterface const>> CliInterfaces(
    std::shared_ptr<Cli::MetadataContainer> const& /*container*/) {
  return {};
}

std::list<std::shared_ptr<AsyncApiInterface const>> MetamodelInterfaces(
    std::shared_ptr<Metamodel::MetadataContainer> const& /*container*/) {
  return {};
}

std::list<std::shared_ptr<AsyncApiInterface const>> AuthnInterfaces(
    std::shared_ptr<Authentication::MetadataContainer> const& /*container*/) {
  return {};
}

std::set<std::string> MetadataAnonSvcNames() {
  return {};
}

}  // namespace ProviderHelper
}  // namespace Lumo::Provider::Metadata
