// The generated binder, by the service of the test definition.
#include "runtime/provider/service_binder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "bindings/com/orbane/lumo/std/errors.h"
#include "bindings/com/orbane/test/bare_svc.h"
#include "bindings/com/orbane/test/sample_svc.h"
#include "platform/logging/test_only_log_capture.h"
#include "series_service.h"

namespace {

namespace Sample = Com::Orbane::Test::SampleSvc;
namespace Errors = Com::Orbane::Lumo::Std::Errors;
using Lumo::Core::AsyncActivation;
using Lumo::Core::AsyncApiResultCb;
using Lumo::Core::ExecutionContext;
using Lumo::Core::MethodResult;
using Lumo::Data::As;
using Lumo::Data::DataValue;
using Lumo::Data::DataValuePtr;
using Lumo::Data::IntegerValue;
using Lumo::Data::ListValue;
using Lumo::Data::StringValue;
using Lumo::Data::StructValue;
using testing::ElementsAre;
using testing::IsEmpty;

/// An implementation that does what the test says.
struct Implementation final : Sample::AsyncServiceInterface {
  using EchoResult = Lumo::AsyncResult<std::shared_ptr<Sample::Answer const>>;
  using NothingResult = Lumo::AsyncResult<Lumo::Void>;
  using StartResult = Lumo::AsyncTaskResult<std::shared_ptr<Com::Orbane::Test::Leaf const>>;

  std::function<void(std::shared_ptr<Sample::EchoInput const> const&, EchoResult const&)> echo;
  std::function<void(NothingResult const&)> nothing;
  std::function<void(StartResult const&)> start;
  int entered = 0;

  void Echo(std::shared_ptr<Sample::EchoInput const> const& input, EchoResult const& result) override {
    ++entered;
    echo(input, result);
  }
  void Nothing(std::shared_ptr<Sample::NothingInput const> const& /*input*/,
               NothingResult const& result) override {
    ++entered;
    nothing(result);
  }
  void Start(std::shared_ptr<Sample::StartInput const> const& /*input*/, StartResult const& result) override {
    ++entered;
    start(result);
  }
};

struct Answer {
  std::shared_ptr<MethodResult const> result;
  Lumo::Progress progress;
  bool more;
};

class ServiceBinder : public testing::Test {
 protected:
  std::shared_ptr<Lumo::Provider::AsyncApiMethod const> Method(std::string const& operation) {
    std::shared_ptr<Lumo::Provider::AsyncApiMethod const> method;
    Lumo::MessageList errors;
    EXPECT_TRUE(service->Find(operation, method, errors));
    return method;
  }
  void Call(std::string const& operation, DataValuePtr const& input) {
    Method(operation)->Invoke(
        input, activation,
        AsyncApiResultCb([this](std::shared_ptr<MethodResult const> const& result,
                                Lumo::Progress const& progress, AsyncApiResultCb::Continuation&& next) {
          answers.push_back({result, progress, static_cast<bool>(next)});
        }));
  }
  /// The one answer's error identifier, empty for a success.
  std::string Error() {
    EXPECT_EQ(answers.size(), 1U);
    auto const& error = answers.at(0).result->error();
    return error ? std::string(error->name()) : "";
  }
  /// The identifiers of the error's messages.
  std::vector<std::string> Messages() {
    std::vector<std::string> ids;
    auto const* list = As<ListValue>(answers.at(0).result->error()->Find("messages"));
    for (std::size_t index = 0; index < list->size(); ++index) {
      auto const* message = As<StructValue>(list->Item(index));
      ids.push_back(std::string(As<StringValue>(message->Find("id"))->value()) + ":" +
                    std::string(As<StringValue>(message->Find("default_message"))->value()));
    }
    return ids;
  }

  std::shared_ptr<Lumo::L10n::Localizer const> localizer = std::make_shared<Lumo::L10n::Localizer const>();
  std::shared_ptr<Implementation> implementation = std::make_shared<Implementation>();
  std::shared_ptr<Lumo::Provider::AsyncApiInterface const> service =
      Sample::AsyncServiceBinder::BindImplementation(implementation, localizer);
  std::shared_ptr<AsyncActivation> activation =
      AsyncActivation::GetInstance(std::make_shared<ExecutionContext>());
  std::vector<Answer> answers;
  Orbane::TestOnlyLogCapture log;
};

DataValuePtr EchoValue(std::string const& text) {
  auto const input = StructValue::GetInstance("");
  input->SetField("text", StringValue::GetInstance(text));
  return input;
}

TEST_F(ServiceBinder, TellsItsIdentifierAndOperations) {
  EXPECT_EQ(*service->identifier(), "com.orbane.test.sample");
  EXPECT_THAT(service->OperationNames(), ElementsAre("echo", "nothing", "start"));
  EXPECT_EQ(Method("echo")->identifier()->ToString(), "com.orbane.test.sample.echo");
  EXPECT_EQ(Method("echo")->identifier()->servicePtr(), service->identifier());
}

TEST_F(ServiceBinder, TellsTheDefinitionOfAnOperation) {
  auto const& echo = Method("echo")->definition();
  ASSERT_EQ(echo.input.size(), 3U);
  EXPECT_EQ(echo.input[0].name, "text");
  EXPECT_EQ(echo.input[0].type, "string");
  EXPECT_EQ(echo.input[2].type, "optional<com.orbane.test.leaf>");
  EXPECT_EQ(echo.output, "com.orbane.test.sample.answer");
  EXPECT_THAT(echo.errors, ElementsAre("com.orbane.lumo.std.errors.not_found"));
  EXPECT_FALSE(echo.task);
  auto const& start = Method("start")->definition();
  EXPECT_TRUE(start.task);
  EXPECT_EQ(start.output, "com.orbane.test.leaf");
  EXPECT_EQ(Method("nothing")->definition().output, "void");
}

TEST_F(ServiceBinder, AnUnknownOperationIsNotFound) {
  std::shared_ptr<Lumo::Provider::AsyncApiMethod const> method;
  Lumo::MessageList errors;
  EXPECT_FALSE(service->Find("Echo", method, errors));
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_EQ(errors.front().id(), "lumo.provider.operation.not.found");
}

TEST_F(ServiceBinder, ASuccessHasAnOutputAndIsNotFinal) {
  implementation->echo = [](auto const& input, auto const& result) {
    auto answer = std::make_shared<Sample::Answer>();
    answer->text = input->text;
    answer->times = input->times.value_or(1);
    result(answer);
  };
  Call("echo", EchoValue("hello"));
  ASSERT_EQ(answers.size(), 1U);
  ASSERT_TRUE(answers[0].result->output());
  EXPECT_EQ(answers[0].result->output()->ToString(),
            "com.orbane.test.sample.answer{\"text\":\"hello\",\"times\":1}");
  EXPECT_FALSE(answers[0].result->error());
  EXPECT_FALSE(answers[0].result->final());
  EXPECT_FALSE(answers[0].more);
  EXPECT_EQ(answers[0].progress.min, 0);
  EXPECT_EQ(answers[0].progress.max, 1);
  EXPECT_EQ(answers[0].progress.current, 1);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ServiceBinder, AnOperationWithoutOutputAnswersVoid) {
  implementation->nothing = [](auto const& result) { result({}); };
  for (DataValuePtr const& input : {DataValuePtr(StructValue::GetInstance("")), DataValuePtr(),
                                    DataValuePtr(Lumo::Data::VoidValue::GetInstance())}) {
    answers.clear();
    Call("nothing", input);
    ASSERT_EQ(Error(), "");
    EXPECT_EQ(answers[0].result->output()->GetKind(), Lumo::Data::Kind::Void);
  }
}

TEST_F(ServiceBinder, ATaskAnswersWithItsIdentifier) {
  implementation->start = [](auto const& result) { result(std::string("task-1")); };
  auto const spec = StructValue::GetInstance("");
  auto const leaf = StructValue::GetInstance("");
  leaf->SetField("name", StringValue::GetInstance("x"));
  spec->SetField("leaf", leaf);
  for (char const* name : {"leaves", "names", "tags", "colours", "numbers"}) {
    spec->SetField(name, ListValue::GetInstance(ListValue::Form::List));
  }
  spec->SetField("by_name", StructValue::GetInstance(""));
  spec->SetField("grid", StructValue::GetInstance(""));
  auto const input = StructValue::GetInstance("");
  input->SetField("spec", spec);
  Call("start", input);
  ASSERT_EQ(Error(), "");
  EXPECT_EQ(answers[0].result->output()->ToString(), "\"task-1\"");
}

TEST_F(ServiceBinder, AnErrorIsPassedOn) {
  auto const error = Lumo::Data::ErrorFactory::GetError<Errors::NotFound>({});
  implementation->echo = [&error](auto const& /*input*/, auto const& result) { result.error(error); };
  Call("echo", EchoValue("x"));
  ASSERT_EQ(answers.size(), 1U);
  EXPECT_EQ(answers[0].result->error().get(), error.get());
  EXPECT_FALSE(answers[0].result->output());
  EXPECT_TRUE(answers[0].result->final());
}

TEST_F(ServiceBinder, InputThatDoesNotFitIsRefusedByName) {
  auto const surplus = StructValue::GetInstance("");
  surplus->SetField("text", StringValue::GetInstance("x"));
  surplus->SetField("colour", StringValue::GetInstance("x"));
  auto const wrong = StructValue::GetInstance("");
  wrong->SetField("text", IntegerValue::GetInstance(1));
  auto const nested = StructValue::GetInstance("");
  nested->SetField("text", StringValue::GetInstance("x"));
  nested->SetField("leaf", StructValue::GetInstance(""));
  struct Case {
    DataValuePtr input;
    char const* message;
  };
  Case const cases[] = {
      {StructValue::GetInstance(""), "lumo.data.field.missing:The field 'text' is missing."},
      {nullptr, "lumo.data.field.missing:The field 'text' is missing."},
      {surplus, "lumo.data.unknown.field:The field 'colour' is not known."},
      {wrong, "lumo.data.bad.cast:The field 'text' is of the type integer, where string is wanted."},
      {nested, "lumo.data.field.missing:The field 'leaf.name' is missing."},
      {ListValue::GetInstance(ListValue::Form::List),
       "lumo.data.bad.cast:The field '$' is of the type list, where com.orbane.test.sample.echo.input is "
       "wanted."},
  };
  for (Case const& one : cases) {
    answers.clear();
    Call("echo", one.input);
    EXPECT_EQ(Error(), "com.orbane.lumo.std.errors.invalid_argument");
    EXPECT_THAT(Messages(), ElementsAre(one.message));
  }
  EXPECT_EQ(implementation->entered, 0);
}

TEST_F(ServiceBinder, TheHostFieldIsIgnoredEverywhere) {
  implementation->nothing = [](auto const& result) { result({}); };
  auto const input = StructValue::GetInstance("");
  input->SetField("host", IntegerValue::GetInstance(1));
  Call("nothing", input);
  EXPECT_EQ(Error(), "");
}

TEST_F(ServiceBinder, AnExceptionIsLoggedAndAnsweredWithABareError) {
  implementation->echo = [](auto const& /*input*/, auto const& /*result*/) {
    throw std::runtime_error("broken");
  };
  Call("echo", EchoValue("x"));
  EXPECT_EQ(Error(), "com.orbane.lumo.std.errors.internal_server_error");
  EXPECT_THAT(Messages(), IsEmpty());
  EXPECT_THAT(log.texts(0), ElementsAre("[com.orbane.test.sample.echo]: Exception: broken"));
}

TEST_F(ServiceBinder, AnExceptionAfterTheAnswerIsOnlyLogged) {
  implementation->nothing = [](auto const& result) {
    result({});
    throw std::runtime_error("late");
  };
  Call("nothing", StructValue::GetInstance(""));
  EXPECT_EQ(Error(), "");
  EXPECT_THAT(log.texts(), ElementsAre("[com.orbane.test.sample.nothing]: Exception: late"));
}

TEST_F(ServiceBinder, ASecondAnswerIsDropped) {
  implementation->nothing = [](auto const& result) {
    result({});
    result.error(Lumo::Data::ErrorFactory::GetError<Errors::NotFound>({}));
  };
  Call("nothing", StructValue::GetInstance(""));
  EXPECT_EQ(Error(), "");
  EXPECT_THAT(log.texts(1),
              ElementsAre("[com.orbane.test.sample.nothing]: A second answer to the same call was dropped"));
}

TEST_F(ServiceBinder, ACallThatIsDroppedIsAnsweredAllTheSame) {
  implementation->nothing = [](auto const& /*result*/) {};
  Call("nothing", StructValue::GetInstance(""));
  EXPECT_EQ(Error(), "com.orbane.lumo.std.errors.internal_server_error");
  EXPECT_THAT(log.texts(0),
              ElementsAre("[com.orbane.test.sample.nothing]: The call was dropped without an answer"));
}

TEST_F(ServiceBinder, AnAnswerMayComeAfterTheMethodHasReturned) {
  std::vector<Implementation::NothingResult> kept;
  implementation->nothing = [&kept](auto const& result) { kept.push_back(result); };
  Call("nothing", StructValue::GetInstance(""));
  EXPECT_THAT(answers, IsEmpty());
  kept.front()({});
  EXPECT_EQ(Error(), "");
}

TEST_F(ServiceBinder, AResultThatCannotBeAdaptedIsAnInternalError) {
  implementation->echo = [](auto const& /*input*/, auto const& result) { result(nullptr); };
  Call("echo", EchoValue("x"));
  EXPECT_EQ(Error(), "com.orbane.lumo.std.errors.internal_server_error");
  EXPECT_THAT(Messages(), ElementsAre("lumo.data.unset.non.optional.field:A required value of the type "
                                      "com.orbane.test.sample.answer is not set."));
}

TEST_F(ServiceBinder, TheServicesLocalizerTakesThePlaceOfTheTransports) {
  implementation->nothing = [this](auto const& result) {
    EXPECT_EQ(result.activation().get(), activation.get());
    EXPECT_EQ(result.activation()->localizer(), localizer);
    result({});
  };
  Call("nothing", nullptr);
  activation->localizer(std::make_shared<Lumo::L10n::Localizer const>());
  Call("nothing", nullptr);
  EXPECT_EQ(answers.size(), 2U);
}

TEST_F(ServiceBinder, WithoutOneOfTheServiceTheTransportsStays) {
  service = Sample::AsyncServiceBinder::BindImplementation(implementation, nullptr);
  auto const own = std::make_shared<Lumo::L10n::Localizer const>();
  activation->localizer(own);
  implementation->nothing = [&own](auto const& result) {
    EXPECT_EQ(result.activation()->localizer(), own);
    result({});
  };
  Call("nothing", nullptr);
  EXPECT_EQ(answers.size(), 1U);
}

TEST(BareService, HasAnIdentifier) {
  EXPECT_EQ(Lumo::Data::TypeInfo<Com::Orbane::Test::BareSvc::AsyncServiceInterface>::name(),
            "com.orbane.test.bare");
}

TEST(SeriesService, DeliversOneResultAfterTheOther) {
  auto const log = std::make_shared<TestService::SeriesLog>();
  auto const service = TestService::MakeSeriesService(log);
  std::shared_ptr<Lumo::Provider::AsyncApiMethod const> count;
  Lumo::MessageList errors;
  ASSERT_TRUE(service->Find("count", count, errors));
  auto const input = StructValue::GetInstance("");
  input->SetField("to", IntegerValue::GetInstance(3));
  std::vector<std::string> seen;
  AsyncApiResultCb::Continuation next;
  auto const callback = std::make_shared<AsyncApiResultCb>(
      [&](std::shared_ptr<MethodResult const> const& result, Lumo::Progress const& /*progress*/,
          AsyncApiResultCb::Continuation&& more) {
        seen.push_back(result->output()->ToString());
        next = std::move(more);
      });
  count->Invoke(input, nullptr, *callback);
  while (next) {
    auto const take = std::exchange(next, {});
    take(callback);
  }
  EXPECT_THAT(seen, ElementsAre("1", "2", "3"));
  EXPECT_EQ(log->delivered, 3);
  count->Invoke(input, nullptr, *callback);
  next(nullptr);
  EXPECT_EQ(log->stopped, 1);
  EXPECT_EQ(log->delivered, 4);
}

}  // namespace
