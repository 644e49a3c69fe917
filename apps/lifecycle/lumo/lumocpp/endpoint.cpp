#include "apps/lifecycle/lumo/lumocpp/endpoint.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>

#include <boost/system/system_error.hpp>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "platform/features/features.h"
#include "platform/logging/logging.h"
#include "runtime/l10n/localizer.h"
#include "tasks/task_schedular.h"

namespace Host::Settings::SettingsApi {

namespace {

using Lumo::Transport::PicoHttp::ServerConfig;

constexpr std::uint64_t kBodySizeLimit = 2500000;

/// The port of an address, 0 for none.
std::uint32_t PortOf(addrinfo const& entry) {
  if (entry.ai_addr == nullptr) {
    return 0;
  }
  if (entry.ai_family == AF_INET) {
    return ntohs(reinterpret_cast<sockaddr_in const*>(entry.ai_addr)->sin_port);
  }
  if (entry.ai_family == AF_INET6) {
    return ntohs(reinterpret_cast<sockaddr_in6 const*>(entry.ai_addr)->sin6_port);
  }
  return 0;
}

/// The port of the services database; 0 when there is none.
std::uint32_t LookUpPort() {
  addrinfo hints{};
  hints.ai_flags = AI_ADDRCONFIG;
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  int const failure = getaddrinfo(nullptr, "keeld", &hints, &found);
  if (failure != 0) {
    CSLogger::LogText(0, LookUpFailure(failure, errno));
    return 0;
  }
  std::uint32_t const port = found == nullptr ? 0 : PortOf(*found);
  if (found != nullptr) {
    freeaddrinfo(found);
  }
  return port;
}

ServerConfig MakeConfig(std::uint32_t port, std::shared_ptr<Lumo::Log::Logger> const& logger) {
  using boost::asio::ip::address_v4;
  using boost::asio::ip::address_v6;
  auto const port16 = static_cast<unsigned short>(port);
  ServerConfig config;
  config.endpoint4 = {address_v4::loopback(), port16};
  config.endpoint6 = {address_v6::loopback(), port16};
  config.logger = logger;
  config.readTimeout = std::chrono::minutes(20);
  config.writeTimeout = std::chrono::minutes(30);
  config.httpBodySizeLimitInBytes = kBodySizeLimit;
  config.localizer = Lumo::L10n::LocalizerHelpers::GetDefaultLocalizer();
  return config;
}

}  // namespace

std::string LookUpFailure(int code, int systemError) {
  std::string text = "getaddrinfo failed. Error: ";
  text += gai_strerror(code);
  if (code == EAI_SYSTEM) {
    text += " system error: ";
    text += std::strerror(systemError);
  }
  return text;
}

Endpoint::Endpoint(std::shared_ptr<Lumo::Core::AsyncApiProvider> const& provider, boost::asio::io_context& io,
                   std::shared_ptr<Lumo::Log::Logger> const& logger)
    : port_(LookUpPort()), server_(provider, io, MakeConfig(port_, logger)), io_(io), logger_(logger) {
  constexpr int kInfo = 2;
  Lumo::Log::Write(logger_, kInfo, server_.config().ToString());
  VERIFY(port_ != 0);
}

int Endpoint::Start() {
  FeatureState_InitDeltaMode();
  // What fails is logged there; without any listener the daemon stays up all the same.
  static_cast<void>(server_.Start());
  ioThread_ = std::thread([&io = io_] {
    boost::system::error_code error;
    io.run(error);
    if (error) {
      throw boost::system::system_error(error);
    }
  });
  static_cast<void>(LifeCycle::TaskSchedular::GetInstance().Initialize());
  CSLogger::Log(2, "HTTP endpoint listening on TCP port %d", static_cast<int>(port_));
  return 0;
}

void Endpoint::Stop() {
  io_.stop();
  if (ioThread_.joinable()) {
    ioThread_.join();
  }
  LifeCycle::TaskSchedular::GetInstance().Stop();
}

}  // namespace Host::Settings::SettingsApi
