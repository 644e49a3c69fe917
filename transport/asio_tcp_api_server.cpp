#include "transport/asio_tcp_api_server.h"

#include <boost/asio/ip/v6_only.hpp>
#include <utility>

#include "runtime/errors/string_of_error.h"
#include "runtime/errors/transport_categories.h"
#include "transport/endpoint_text.h"
#include "transport/stream_server.h"
#include "transport/tcp_connection.h"

namespace Lumo::Transport::PicoHttp {

namespace {

using boost::asio::ip::tcp;
using boost::system::error_code;

constexpr int kBacklog = 128;

using TcpAcceptor =
    Asio::Acceptor<Asio::TcpSocketAcceptor, TcpConnectionStream, AsioTcpApiServer::StreamTuner>;
using TcpStreamServer = Asio::StreamServer<TcpAcceptor, PicoHttpApiRequestHandler<TcpConnectionStream>>;

error_code OpenAndListen(Asio::TcpSocketAcceptor& acceptor, tcp::endpoint const& endpoint) {
  error_code error;
  acceptor.open(endpoint.protocol(), error);
  if (error) {
    return error;
  }
  acceptor.set_option(tcp::acceptor::reuse_address(true), error);
  if (error) {
    return error;
  }
  if (endpoint.protocol() == tcp::v6()) {
    acceptor.set_option(boost::asio::ip::v6_only(true));
  }
  acceptor.bind(endpoint, error);
  if (!error) {
    acceptor.listen(kBacklog, error);
  }
  return error;
}

std::shared_ptr<Http::ProtocolHandlerSpec const> MakeSpec(std::shared_ptr<Core::AsyncApiProvider> provider,
                                                          ServerConfig const& config) {
  auto spec = std::make_shared<Http::ProtocolHandlerSpec>();
  spec->provider = std::move(provider);
  spec->localizer = config.localizer;
  spec->httpBodySizeLimitInBytes = config.httpBodySizeLimitInBytes;
  spec->logger = config.logger;
  return spec;
}

}  // namespace

struct AsioTcpApiServer::Listener {
  Listener(boost::asio::io_context& io, ServerConfig const& config,
           std::shared_ptr<Http::ProtocolHandlerSpec const> const& spec)
      : server(std::make_shared<TcpStreamServer>(
            TcpAcceptor(io.get_executor(), StreamTuner(), config.readTimeout, config.writeTimeout),
            PicoHttpApiRequestHandler<TcpConnectionStream>(spec), config.logger)) {}

  std::shared_ptr<TcpStreamServer> server;
};

void AsioTcpApiServer::StreamTuner::operator()(Asio::TcpSocket& socket) const {
  error_code ignored;
  socket.set_option(tcp::no_delay(true), ignored);
}

AsioTcpApiServer::AsioTcpApiServer(std::shared_ptr<Core::AsyncApiProvider> provider,
                                   boost::asio::io_context& io, ServerConfig config)
    : config_(std::move(config)) {
  auto const spec = MakeSpec(std::move(provider), config_);
  listener4_ = std::make_unique<Listener>(io, config_, spec);
  listener6_ = std::make_unique<Listener>(io, config_, spec);
}

AsioTcpApiServer::~AsioTcpApiServer() = default;

error_code AsioTcpApiServer::Start() {
  if (config_.wildcard) {
    unsigned short const port = config_.endpoint4.port();
    config_.endpoint4 = tcp::endpoint(tcp::v4(), port);
    config_.endpoint6 = tcp::endpoint(tcp::v6(), port);
  }
  error_code const failed4 = Listen(*listener4_, config_.endpoint4, "IPv4");
  error_code const failed6 = Listen(*listener6_, config_.endpoint6, "IPv6");
  return failed4 && failed6 ? error_code(Error::Errc::ListenFailed) : error_code();
}

error_code AsioTcpApiServer::Listen(Listener& listener, tcp::endpoint& endpoint, char const* family) {
  constexpr int kInfo = 2;
  Asio::TcpSocketAcceptor& acceptor = listener.server->acceptor().socket();
  bool const wasOpen = acceptor.is_open();
  error_code error = OpenAndListen(acceptor, endpoint);
  if (!error) {
    tcp::endpoint const bound = acceptor.local_endpoint(error);
    if (!error) {
      endpoint = bound;
      Log::Write(config_.logger, kInfo, "Listening on: ", EndpointToString(endpoint));
      error = listener.server->Start();
    }
  }
  if (error) {
    Log::Write(config_.logger, kInfo, family, " Failed to listen on: ", EndpointToString(endpoint),
               " ec: ", StringOfError(error));
    if (!wasOpen) {
      error_code ignored;
      acceptor.close(ignored);
    }
  }
  return error;
}

void AsioTcpApiServer::Stop() {
  static_cast<void>(listener4_->server->Stop());
  static_cast<void>(listener6_->server->Stop());
}

}  // namespace Lumo::Transport::PicoHttp
