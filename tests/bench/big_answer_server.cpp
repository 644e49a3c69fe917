// The daemon's own transport, filters and logging around one service of the benchmark's own, whose method
// "big" answers with the JSON of a file as a value tree. Argument: that file. Stops on SIGTERM.
#include <utility>  // before Asio, which forgets it

#include <boost/asio.hpp>
#include <csignal>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <list>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "apps/lifecycle/lumo/lumocpp/endpoint.h"
#include "apps/lifecycle/lumo/lumocpp/lumo_logger_wrapper.h"
#include "platform/logging/logging.h"
#include "platform/poll/poll.h"
#include "runtime/json/serializers.h"
#include "runtime/provider/async_local_provider.h"
#include "runtime/provider/interface.h"
#include "runtime/provider/localizing_provider.h"
#include "security/error_annotator_filter.h"
#include "security/host_input_filter.h"
#include "security/log_filter.h"

namespace {

char volatile stopRequested = 0;

using Lumo::Core::AsyncApiResultCb;
using Lumo::Core::MethodIdentifier;
using Lumo::Core::MethodResult;
using Lumo::Provider::AsyncApiInterface;
using Lumo::Provider::AsyncApiMethod;

class BigMethod : public AsyncApiMethod {
 public:
  explicit BigMethod(Lumo::Data::DataValuePtr value) : value_(std::move(value)) {}
  std::shared_ptr<MethodIdentifier const> const& identifier() const override { return identifier_; }
  Lumo::Provider::MethodDefinition const& definition() const override { return definition_; }
  void Invoke(Lumo::Data::DataValuePtr const& /*input*/,
              std::shared_ptr<Lumo::Core::AsyncActivation> const& /*activation*/,
              AsyncApiResultCb const& callback) const override {
    callback(MethodResult::GetInstance(value_), Lumo::Progress{}, {});
  }

 private:
  std::shared_ptr<MethodIdentifier const> identifier_ =
      std::make_shared<MethodIdentifier const>("bench", "big");
  Lumo::Provider::MethodDefinition definition_;
  Lumo::Data::DataValuePtr value_;
};

class BenchService : public AsyncApiInterface {
 public:
  explicit BenchService(Lumo::Data::DataValuePtr value)
      : big_(std::make_shared<BigMethod>(std::move(value))) {}
  std::shared_ptr<std::string const> const& identifier() const override {
    return big_->identifier()->servicePtr();
  }
  std::vector<std::string> OperationNames() const override { return {"big"}; }
  bool Find(std::string const& operation, std::shared_ptr<AsyncApiMethod const>& method,
            Lumo::MessageList& /*errors*/) const override {
    method = big_;
    return operation == "big";
  }

 private:
  std::shared_ptr<BigMethod const> big_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: bench_big_answer_server JSON_FILE\n";
    return 2;
  }
  std::ifstream in(argv[1], std::ios::binary);
  std::string const text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  std::shared_ptr<Lumo::Data::ErrorValue const> error;
  Lumo::Data::DataValuePtr const value =
      Lumo::Protocol::Json::JsonDirectDataDeserializer::Deserialize(text, error);
  if (!value) {
    std::cerr << "not JSON: " << argv[1] << '\n';
    return 1;
  }
  LogOutput* const output = Log_NewSyslogOutput("keeld", "syslog", 0, Log_CfgInterface());
  Log_SetOutputLevel(output, 7);
  Log_AddOutput(output);
  std::signal(SIGTERM, [](int) { stopRequested = 1; });

  namespace Filter = Host::Settings::SettingsApi::Filter;
  boost::asio::io_context context;
  auto const logger = std::make_shared<Host::Settings::SettingsApi::LumoLoggerWrapper>();
  std::function<void(std::function<void()>)> const post = [&context](std::function<void()> work) {
    boost::asio::post(context, std::move(work));
  };
  using Container = Lumo::Provider::AsyncApiInterfaceConcurrentContainer<Lumo::DummyMutex>;
  auto const container = Container::GetInstance({std::make_shared<BenchService const>(value)});
  std::shared_ptr<Lumo::Core::AsyncApiProvider> provider =
      std::make_shared<Lumo::Provider::AsyncLocalProvider<Lumo::DummyMutex>>(post, container);
  provider = std::make_shared<Filter::ErrorAnnotatorFilter>(provider);
  provider = std::make_shared<Filter::HostInputFilter>(post, std::set<std::string>{}, provider);
  provider = std::make_shared<Filter::LogFilter>(provider);
  Host::Settings::SettingsApi::Endpoint endpoint(provider, context, logger);
  endpoint.Start();
  Poll_Loop(true, &stopRequested, 0);
  endpoint.Stop();
  return 0;
}
