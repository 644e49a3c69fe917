// What is told to those who watch a call.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace Api {

/// Watches one call. A provider at the outer end of the chain makes it, hangs it on the activation and feeds
/// it; the order of the operations is that in which they are called, but for the peer, which comes before
/// PrepareAudit. I/O thread. Texts and the peer are taken by exchange: the argument holds what stood before,
/// or nothing.
class CallObserver {
 public:
  /// 1: a call from outside.
  virtual void SetCallKind(std::uint32_t kind) = 0;
  /// The full operation identifier.
  virtual void SetCallTarget(std::string& target) = 0;
  /// Whose operation it is.
  virtual void SetCallScope(std::string& scope) = 0;
  /// Who the caller says to be; not verified, and never a secret.
  virtual void SetCallUser(std::string& user) = 0;
  /// All that can be known before the call is known. True when an audit of the call can be made from it.
  virtual bool PrepareAudit() = 0;
  /// How the call ended: 0 success, 2 authentication failed, 3 access denied, 1 any other failure. Once.
  virtual void SetCallStatus(std::uint32_t status) = 0;
  /// Address and port of the peer.
  virtual void SetPeer(std::pair<std::string, std::uint32_t>& peer) = 0;
  virtual ~CallObserver() = default;
  /// The operation was found and is about to run.
  virtual void OnInvoke() {}
};

}  // namespace Api
