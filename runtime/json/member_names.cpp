#include "runtime/json/member_names.h"

#include <algorithm>
#include <numeric>
#include <string_view>

namespace Lumo::Protocol::Json {
namespace {

using Members = std::span<Data::Arena::NamedChild const>;

// Up to this many members all pairs are compared: twelve comparisons a member at most, no more than sorting
// takes.
constexpr std::size_t kFewMembers = 24;

std::size_t FindDuplicateAmongFew(Members members) {
  for (std::size_t later = 1; later < members.size(); ++later) {
    std::string_view const name = members[later].name;
    for (std::size_t earlier = 0; earlier < later; ++earlier) {
      if (members[earlier].name == name)
        return later;
    }
  }
  return members.size();
}

}  // namespace

std::size_t FindDuplicate(Members members, std::vector<std::uint32_t>& scratch) {
  if (members.size() <= kFewMembers)
    return FindDuplicateAmongFew(members);
  scratch.resize(members.size());
  std::iota(scratch.begin(), scratch.end(), 0U);
  std::sort(scratch.begin(), scratch.end(), [members](std::uint32_t a, std::uint32_t b) {
    std::string_view const x = members[a].name;
    std::string_view const y = members[b].name;
    if (x.size() != y.size())
      return x.size() < y.size();
    int const order = x.compare(y);
    return order != 0 ? order < 0 : a < b;
  });
  std::size_t first = members.size();
  for (std::size_t at = 1; at < scratch.size(); ++at) {
    if (members[scratch[at]].name == members[scratch[at - 1]].name)
      first = std::min<std::size_t>(first, scratch[at]);
  }
  return first;
}

}  // namespace Lumo::Protocol::Json
