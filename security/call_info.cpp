#include "security/call_info.h"

namespace Api {
namespace {

template <typename T>
void Exchange(std::optional<T>& stored, T& given) {
  if (!stored) {
    stored.emplace();
  }
  std::swap(*stored, given);
}

}  // namespace

void CallInfo::SetCallTarget(std::string& target) {
  Exchange(callTarget_, target);
}

void CallInfo::SetCallScope(std::string& scope) {
  Exchange(callScope_, scope);
}

void CallInfo::SetCallUser(std::string& user) {
  Exchange(callUser_, user);
}

void CallInfo::SetCallStatus(std::uint32_t status) {
  callStatus_ = status;
  if (completion_) {
    auto const self = weak_from_this().lock();  // whoever is told may let go of the last reference
    completion_(this);
  }
}

void CallInfo::SetPeer(std::pair<std::string, std::uint32_t>& peer) {
  Exchange(peer_, peer);
}

}  // namespace Api
