#include "security/load_authz_info_metadata.h"

#include <optional>
#include <sstream>
#include <string_view>
#include <utility>

#include "runtime/data/value.h"
#include "runtime/json/serializers.h"

namespace Lumo::Authz::Metadata {
namespace {

using Data::As;
using Data::CompoundValue;
using Data::DataValue;
using Data::StructValue;
using Names = std::list<std::string>;

constexpr int kFailureLevel = 4;  // of Log::Logger

/// The reason why a file is refused; nothing while all is well.
using Problem = std::optional<BaseMessage>;

template <typename... Args>
Problem Say(char const* id, Args const&... args) {
  return Message<CoreTag>::Make(id, args...);
}

Problem Misplaced(std::string_view name) {
  return Say("lumo.authz.metadata.misplaced", name);
}

Problem Twice(std::string_view name) {
  return Say("lumo.authz.metadata.duplicate", name);
}

std::optional<std::string> ReadWhole(std::istream& stream) {
  std::ostringstream text;
  // Without a byte the inserter would call an empty file a failure.
  if (stream && (stream.peek() == std::istream::traits_type::eof() || text << stream.rdbuf()) &&
      !stream.bad()) {
    return std::move(text).str();
  }
  return std::nullopt;
}

/// Texts, one at least and none of them empty.
bool ReadNames(DataValue const* value, Names& names) {
  auto const* const list = As<Data::ListValue>(value);
  for (std::size_t i = 0; list && i < list->size(); ++i) {
    auto const* const name = As<Data::StringValue>(list->Item(i));
    if (!name || name->value().empty()) {
      return false;
    }
    names.emplace_back(name->value());
  }
  return !names.empty();
}

/// Puts a list of names under each member of `object`, whose names are those of operations behind `prefix`.
Problem ReadOperations(CompoundValue const& object, std::string const& prefix,
                       std::map<std::string, Names>& operations) {
  for (std::size_t i = 0; i < object.size(); ++i) {
    std::string const operation = prefix + std::string(object.FieldName(i));
    Names names;
    if (object.FieldName(i).empty() || !ReadNames(object.FieldValue(i), names)) {
      return Misplaced(operation);
    }
    if (!operations.emplace(operation, std::move(names)).second) {
      return Twice(operation);
    }
  }
  return std::nullopt;
}

/// The only member of an object, which is an object itself; null when it is not so.
StructValue const* OnlyMember(DataValue const* value, std::string_view name) {
  auto const* const object = As<StructValue>(value);
  return object && object->size() == 1 ? As<StructValue>(object->Find(name)) : nullptr;
}

Problem ReadService(std::string const& service, DataValue const* content, AuthzInfo& info) {
  auto const* const operations = OnlyMember(content, "operations");
  if (!operations) {
    return Misplaced(service);
  }
  Names known;
  for (std::size_t i = 0; i < operations->size(); ++i) {
    known.push_back(service + "." + std::string(operations->FieldName(i)));
  }
  if (!info.serviceOperations.emplace(service, std::move(known)).second) {
    return Twice(service);
  }
  return ReadOperations(*operations, service + ".", info.operationSchemes);
}

Problem ReadPackage(std::string const& name, DataValue const* content, AuthzInfo& info) {
  auto const* const services = OnlyMember(content, "services");
  if (!services) {
    return Misplaced(name);
  }
  for (Package const& known : info.packages) {
    if (known.name == name) {
      return Twice(name);
    }
  }
  Package package{name, {}};
  for (std::size_t i = 0; i < services->size(); ++i) {
    std::string const service(services->FieldName(i));
    if (Problem problem = ReadService(service, services->FieldValue(i), info)) {
      return problem;
    }
    package.services.push_back(service);
  }
  info.packages.push_back(std::move(package));
  return std::nullopt;
}

Problem ReadMember(std::string_view name, DataValue const* content, AuthzInfo& info) {
  if (name == "operations") {
    auto const* const operations = As<StructValue>(content);
    return operations ? ReadOperations(*operations, {}, info.operationPrivileges) : Misplaced(name);
  }
  auto const* const packages = OnlyMember(content, "packages");
  if (!packages) {
    return Misplaced(name);
  }
  for (std::size_t i = 0; i < packages->size(); ++i) {
    if (Problem problem = ReadPackage(std::string(packages->FieldName(i)), packages->FieldValue(i), info)) {
      return problem;
    }
  }
  return std::nullopt;
}

Problem ReadFile(std::istream& stream, AuthzInfo& info) {
  auto const text = ReadWhole(stream);
  if (!text) {
    return Say("lumo.authz.metadata.unreadable");
  }
  std::shared_ptr<Data::ErrorValue const> malformed;
  auto const value = Protocol::Json::JsonDirectDataDeserializer::Deserialize(*text, malformed);
  if (malformed) {
    return Say("lumo.authz.metadata.malformed", malformed->ToString());
  }
  auto const file = As<StructValue>(value);
  if (!file || file->size() == 0) {
    return Say("lumo.authz.metadata.empty");
  }
  for (std::size_t i = 0; i < file->size(); ++i) {
    if (Problem problem = ReadMember(file->FieldName(i), file->FieldValue(i), info)) {
      return problem;
    }
  }
  return std::nullopt;
}

}  // namespace

bool LoadAuthzInfoMetadata::Load(std::istream& stream, AuthzInfo& info,
                                 std::shared_ptr<Log::Logger> const& logger, MessageList& messages) {
  AuthzInfo merged = info;
  if (Problem const problem = ReadFile(stream, merged)) {
    Log::Write(logger, kFailureLevel, problem->defaultMessage());
    messages.push_back(*problem);
    return false;
  }
  info = std::move(merged);
  return true;
}

}  // namespace Lumo::Authz::Metadata
