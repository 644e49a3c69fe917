// What the metadata files say about who may call what.
#pragma once

#include <list>
#include <map>
#include <set>
#include <string>

namespace Lumo::Authz {

/// The security scheme of operations that anybody may call.
inline constexpr char kNoAuthenticationScheme[] = "com.orbane.lumo.std.security.no_authentication";

/// A package of the interface and its services, by full identifier.
struct Package {
  std::string name;
  std::list<std::string> services;

  bool operator==(Package const&) const = default;
};

/// Operations go by their full identifier everywhere.
struct AuthzInfo {
  std::list<Package> packages;
  std::string noAuthenticationScheme = kNoAuthenticationScheme;
  std::set<std::string> noAuthenticationOperations;
  std::map<std::string, std::list<std::string>> serviceOperations;
  std::map<std::string, std::list<std::string>> operationSchemes;
  std::map<std::string, std::list<std::string>> operationPrivileges;

  bool operator==(AuthzInfo const&) const = default;
};

}  // namespace Lumo::Authz
