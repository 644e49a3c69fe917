#include "software/ryncli_command_line.h"

#include <regex>

#include "support/argument_filter.h"

namespace Com::Orbane::Ryn::KeelDaemon::DataProcessingUnit::RyncliSvc {
namespace {

// The matcher that the library takes by default calls itself once a character, and a text as long as a
// request would overflow the stack. The one that follows all ways at once gives the same answers and doesn't.
constexpr auto kSyntax = std::regex::ECMAScript | std::regex_constants::__polynomial;

std::regex const& DepotUrlPattern() {
  static std::regex const pattern(R"(^http:[a-zA-Z0-9\-\.\/]+xml$)", kSyntax);
  return pattern;
}

std::regex const& SpecUrlPattern() {
  static std::regex const pattern(R"(^http:[a-zA-Z0-9\-\.\/]+json$)", kSyntax);
  return pattern;
}

std::regex const& TwoPartValuePattern() {
  static std::regex const pattern(R"(^[A-Za-z0-9_\-]+:[A-Za-z0-9_\-\.]+$)", kSyntax);
  return pattern;
}

std::regex const& ThreePartValuePattern() {
  static std::regex const pattern(R"(^[A-Za-z0-9_\-]+:[A-Za-z0-9_\-]+:[A-Za-z0-9\-\.]+$)", kSyntax);
  return pattern;
}

}  // namespace

std::string PrefixText(Prefix const& prefix) {
  switch (prefix.value()) {
    case Prefix::RYNCLI:
      return "/bin/ryncli --formatter=xml software";
    case Prefix::NEARCLI:
      return "/bin/nearcli --formatter=xml software";
    case Prefix::NEARCLI_INTERNAL:
      return "/bin/nearcli --formatter=xml "
             "--plugin=/usr/lib/orbane/ryncli/int/ext/ryncli-softwareinternal.xml softwareinternal";
    case Prefix::UNKNOWN:
      break;
  }
  return {};
}

std::string CommandText(Command const& command) {
  switch (command.value()) {
    case Command::ACCEPTANCE_GET:
      return "acceptance get";
    case Command::ACCEPTANCE_SET:
      return "acceptance set";
    case Command::ADDON_GET:
      return "addon get";
    case Command::APPLY:
      return "apply";
    case Command::BASEIMAGE_GET:
      return "baseimage get";
    case Command::COMPONENT_APPLY:
      return "component apply";
    case Command::COMPONENT_GET:
      return "component get";
    case Command::COMPONENT_LIST:
      return "component list";
    case Command::COMPONENT_REMOVE:
      return "component remove";
    case Command::COMPONENT_SIGNATURE_VERIFY:
      return "component signature verify";
    case Command::COMPONENT_PAK_LIST:
      return "component pak list";
    case Command::PROFILE_GET:
      return "profile get";
    case Command::PROFILE_INSTALL:
      return "profile install";
    case Command::PROFILE_UPDATE:
      return "profile update";
    case Command::PROFILE_VALIDATE:
      return "profile validate";
    case Command::PAK_INSTALL:
      return "pak install";
    case Command::PAK_GET:
      return "pak get";
    case Command::PAK_LIST:
      return "pak list";
    case Command::PAK_REMOVE:
      return "pak remove";
    case Command::PAK_SIGNATURE_VERIFY:
      return "pak signature verify";
    case Command::PAK_UPDATE:
      return "pak update";
    case Command::UNKNOWN:
      break;
  }
  return {};
}

bool IsValidDepots(std::list<std::string> const& depots, std::string& command) {
  bool valid = false;
  for (std::string const& depot : depots) {
    valid = std::regex_match(depot, DepotUrlPattern());
    if (!valid) {
      return false;
    }
    command += " --depot " + depot;
  }
  return valid;
}

bool IsValidSpecUrl(std::string const& value) {
  return !value.empty() && std::regex_match(value, SpecUrlPattern());
}

bool IsValidArgument(std::string const& text, bool allowColonForms) {
  if (LifeCycle::IsBlank(text)) {
    return false;
  }
  if (allowColonForms && text.find(':') != std::string::npos) {
    return std::regex_match(text, TwoPartValuePattern()) || std::regex_match(text, ThreePartValuePattern());
  }
  return LifeCycle::IsSafeArgument(text);
}

}  // namespace Com::Orbane::Ryn::KeelDaemon::DataProcessingUnit::RyncliSvc
