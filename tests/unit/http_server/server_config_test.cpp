#include "transport/server_config.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Lumo::Transport::PicoHttp {
namespace {

TEST(DurationToString, TakesTheFirstUnitThatFits) {
  struct Case {
    long long nanoseconds;
    std::string text;
  };
  for (Case const& row : std::vector<Case>{
           {0, "0 nanoseconds"},
           {999, "999 nanoseconds"},
           {1000, "1 microseconds"},
           {999999, "999 microseconds"},
           {1000000, "1 milliseconds"},
           {999999999, "999 milliseconds"},
           {1000000000, "1 seconds"},
           {59999999999, "59 seconds"},
           {60000000000, "1 minutes"},
           {61999999999, "1 minutes and 1 seconds"},
           {90000000000, "1 minutes and 30 seconds"},
           {1200000000000, "20 minutes"},
           {1800000000000, "30 minutes"},
           {7261000000000, "121 minutes and 1 seconds"},
       }) {
    EXPECT_EQ(DurationToString(std::chrono::nanoseconds(row.nanoseconds)), row.text);
  }
}

ServerConfig DaemonConfig() {
  ServerConfig config;
  config.endpoint4 = {boost::asio::ip::address_v4::loopback(), 7433};
  config.endpoint6 = {boost::asio::ip::address_v6::loopback(), 7433};
  config.readTimeout = std::chrono::minutes(20);
  config.writeTimeout = std::chrono::minutes(30);
  config.httpBodySizeLimitInBytes = 2500000;
  config.localizer = L10n::LocalizerHelpers::GetDefaultLocalizer();
  return config;
}

TEST(ServerConfig, PrintsTheDaemonsLine) {
  EXPECT_EQ(
      DaemonConfig().ToString(),
      "ServerConfig{endpoint4:127.0.0.1:7433;endpoint6:[::1]:7433;readTimeout:20 minutes;"
      "writeTimeout:30 minutes;httpBodySizeLimitInBytes:2500000;ProtocolHandlerSpec::extractors not set}");
}

TEST(ServerConfig, PrintsTheOtherBranches) {
  ServerConfig config = DaemonConfig();
  config.wildcard = true;
  config.localizer = nullptr;
  config.extractorCount = 2;
  EXPECT_EQ(config.ToString(),
            "ServerConfig{port:7433;Localizer not set;readTimeout:20 minutes;writeTimeout:30 minutes;"
            "httpBodySizeLimitInBytes:2500000;ProtocolHandlerSpec::extractors count:2}");
}

}  // namespace
}  // namespace Lumo::Transport::PicoHttp
