#include "series_service.h"

#include <utility>

#include "bindings/com/orbane/lumo/std/errors.h"
#include "runtime/data/error_factory.h"

namespace TestService {

namespace {

using Lumo::Core::AsyncApiResultCb;
using Lumo::Core::MethodResult;
namespace Errors = Com::Orbane::Lumo::Std::Errors;

/// One call; held by the continuation of its pending result.
struct Series : std::enable_shared_from_this<Series> {
  std::shared_ptr<SeriesLog> log;
  long long next = 1;
  long long to = 0;
  bool withFinal = false;

  void Deliver(AsyncApiResultCb const& callback) {
    std::shared_ptr<MethodResult const> result;
    if (next <= to) {
      result = MethodResult::GetInstance(Lumo::Data::IntegerValue::GetInstance(next));
    } else {
      result = std::make_shared<MethodResult const>(nullptr, nullptr, true);
    }
    bool const more = next < to || (next == to && withFinal);
    ++next;
    ++log->delivered;
    AsyncApiResultCb::Continuation continuation;
    if (more) {
      continuation = [self = shared_from_this()](std::shared_ptr<AsyncApiResultCb> const& receiver) {
        if (receiver) {
          self->Deliver(*receiver);
        } else {
          ++self->log->stopped;
        }
      };
    }
    callback(result, Lumo::Progress{0, to, next - 1}, std::move(continuation));
  }
};

class CountMethod final : public Lumo::Provider::AsyncApiMethod {
 public:
  CountMethod(std::shared_ptr<std::string const> const& service, std::shared_ptr<SeriesLog> log)
      : identifier_(std::make_shared<Lumo::Core::MethodIdentifier const>(service, "count")),
        log_(std::move(log)) {
    definition_.input = {{"to", "integer"}, {"final", "optional<boolean>"}};
    definition_.output = "integer";
  }
  std::shared_ptr<Lumo::Core::MethodIdentifier const> const& identifier() const override {
    return identifier_;
  }
  Lumo::Provider::MethodDefinition const& definition() const override { return definition_; }
  void Invoke(Lumo::Data::DataValuePtr const& input,
              std::shared_ptr<Lumo::Core::AsyncActivation> const& /*activation*/,
              AsyncApiResultCb const& callback) const override {
    using Lumo::Data::As;
    auto const* fields = As<Lumo::Data::CompoundValue>(input.get());
    auto const* to = fields ? As<Lumo::Data::IntegerValue>(fields->Find("to")) : nullptr;
    auto const* withFinal = fields ? As<Lumo::Data::BooleanValue>(fields->Find("final")) : nullptr;
    if (to == nullptr || to->value() <= 0) {
      callback(
          MethodResult::GetErrorInstance(Lumo::Data::ErrorFactory::GetError<Errors::InvalidArgument>({})),
          Lumo::Progress(), {});
      return;
    }
    auto const series = std::make_shared<Series>();
    series->log = log_;
    series->to = to->value();
    series->withFinal = withFinal != nullptr && withFinal->value();
    series->Deliver(callback);
  }

 private:
  std::shared_ptr<Lumo::Core::MethodIdentifier const> identifier_;
  Lumo::Provider::MethodDefinition definition_;
  std::shared_ptr<SeriesLog> log_;
};

class SeriesInterface final : public Lumo::Provider::AsyncApiInterface {
 public:
  explicit SeriesInterface(std::shared_ptr<SeriesLog> log)
      : identifier_(std::make_shared<std::string const>("com.orbane.test.series")),
        count_(std::make_shared<CountMethod const>(identifier_, std::move(log))) {}
  std::shared_ptr<std::string const> const& identifier() const override { return identifier_; }
  std::vector<std::string> OperationNames() const override { return {"count"}; }
  bool Find(std::string const& operation, std::shared_ptr<Lumo::Provider::AsyncApiMethod const>& method,
            Lumo::MessageList& errors) const override {
    if (operation != "count") {
      errors.push_back(
          Lumo::Message<Lumo::CoreTag>::Make("lumo.provider.operation.not.found", *identifier_, operation));
      return false;
    }
    method = count_;
    return true;
  }

 private:
  std::shared_ptr<std::string const> identifier_;
  std::shared_ptr<Lumo::Provider::AsyncApiMethod const> count_;
};

}  // namespace

std::shared_ptr<Lumo::Provider::AsyncApiInterface const> MakeSeriesService(std::shared_ptr<SeriesLog> log) {
  return std::make_shared<SeriesInterface const>(std::move(log));
}

}  // namespace TestService
