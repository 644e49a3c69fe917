#include "platform/process/resource_word.h"

#include <algorithm>
#include <charconv>

namespace Orbane {
namespace {

constexpr std::string_view kGroup = "group=";
constexpr std::string_view kMemory = "mem=";
constexpr std::size_t kMaxGroupName = 64;
/// 16 TiB: far beyond any host, and its bytes fit 64 bits.
constexpr unsigned kMaxMegabytes = 16U * 1024 * 1024;

bool StartsWith(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

bool ParseMemory(std::string_view text, ResourceRequest& request) {
  if (request.memoryMegabytes || request.memoryOfGroup) {
    return false;
  }
  if (text == "groupMax") {
    request.memoryOfGroup = true;
    return true;
  }
  unsigned megabytes = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), megabytes);
  if (error != std::errc() || end != text.data() + text.size() || megabytes == 0 ||
      megabytes > kMaxMegabytes) {
    return false;
  }
  request.memoryMegabytes = megabytes;
  return true;
}

bool ParsePart(std::string_view part, ResourceRequest& request) {
  if (StartsWith(part, kGroup)) {
    if (!request.group.empty()) {
      return false;
    }
    request.group = part.substr(kGroup.size());
    return IsGroupName(request.group);
  }
  if (StartsWith(part, kMemory)) {
    return ParseMemory(part.substr(kMemory.size()), request);
  }
  if (part == "stats" && !request.stats) {
    request.stats = true;
    return true;
  }
  return false;
}

}  // namespace

bool IsGroupName(std::string_view name) {
  return !name.empty() && name.size() <= kMaxGroupName && name.front() != '.' &&
         std::all_of(name.begin(), name.end(), [](char c) {
           return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                  c == '_' || c == '.';
         });
}

bool ParseResourceWord(std::string_view word, ResourceRequest& request) {
  request = {};
  if (!IsResourceWord(word)) {
    return false;
  }
  std::string_view rest = word.substr(2);
  for (;;) {
    std::size_t const comma = rest.find(',');
    if (!ParsePart(rest.substr(0, comma), request)) {
      return false;
    }
    if (comma == std::string_view::npos) {
      break;
    }
    rest.remove_prefix(comma + 1);
  }
  return !request.memoryOfGroup || !request.group.empty();
}

}  // namespace Orbane
