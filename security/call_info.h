#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "runtime/core/call_observer.h"

namespace Api {

/// Keeps what an observer is told of its call.
class CallInfo : public CallObserver, public std::enable_shared_from_this<CallInfo> {
 public:
  /// Run when the status has arrived.
  using Completion = std::function<void(CallInfo const*)>;

  /// `completion` may be empty.
  explicit CallInfo(Completion completion = {}) : completion_(std::move(completion)) {}
  CallInfo(CallInfo const&) = delete;
  CallInfo& operator=(CallInfo const&) = delete;

  void SetCallKind(std::uint32_t kind) override { callKind_ = kind; }
  void SetCallTarget(std::string& target) override;
  void SetCallScope(std::string& scope) override;
  void SetCallUser(std::string& user) override;
  bool PrepareAudit() override { return false; }
  void SetCallStatus(std::uint32_t status) override;
  void SetPeer(std::pair<std::string, std::uint32_t>& peer) override;

  std::optional<std::uint32_t> const& callKind() const { return callKind_; }
  std::optional<std::string> const& callTarget() const { return callTarget_; }
  std::optional<std::string> const& callScope() const { return callScope_; }
  std::optional<std::string> const& callUser() const { return callUser_; }
  std::optional<std::uint32_t> const& callStatus() const { return callStatus_; }
  std::optional<std::pair<std::string, std::uint32_t>> const& peer() const { return peer_; }

 private:
  Completion completion_;
  std::optional<std::uint32_t> callKind_;
  std::optional<std::string> callTarget_;
  std::optional<std::string> callScope_;
  std::optional<std::string> callUser_;
  std::optional<std::uint32_t> callStatus_;
  std::optional<std::pair<std::string, std::uint32_t>> peer_;
};

}  // namespace Api
