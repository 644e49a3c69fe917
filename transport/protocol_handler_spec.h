// What every transaction of a server has in common.
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/optional.hpp>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "runtime/core/activation.h"
#include "runtime/core/method.h"
#include "runtime/l10n/localizer.h"
#include "runtime/log/logger.h"
#include "transport/response_head.h"
#include "transport/update_execution_ctx_helper.h"

namespace Lumo::Transport::Http {

/// Fills a call's context with what the connection knows.
using ContextHook = std::function<void(std::shared_ptr<Core::ExecutionContext> const&)>;
using PeerInfo = std::pair<std::string, unsigned>;
using PeerInfoHook = std::function<boost::optional<PeerInfo>(boost::asio::ip::tcp::endpoint const&)>;
using ErrToHeadersHook = std::function<std::shared_ptr<ResponseHeaders>(
    std::shared_ptr<Data::ErrorValue const> const&, ParamsToHead const&)>;

/// Immutable once a server runs; shared by its transactions.
struct ProtocolHandlerSpec {
  /// With the default localizer and the functions of this library.
  ProtocolHandlerSpec();

  std::shared_ptr<Core::AsyncApiProvider> provider;
  std::shared_ptr<L10n::Localizer const> localizer;
  std::shared_ptr<Provider::JsonRpc1_1::ContextUpdate const> contextUpdate;
  /// Bytes.
  std::uint64_t httpBodySizeLimitInBytes;
  /// May be null: then nothing is logged.
  std::shared_ptr<Log::Logger> logger;
  ErrToHeadersHook errToHeaders;
  PeerInfoHook peerInfo;
};

}  // namespace Lumo::Transport::Http
