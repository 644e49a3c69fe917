#include "runtime/provider/async_local_provider.h"

#include <gtest/gtest.h>

#include <deque>
#include <stdexcept>

#include "runtime/core/call_observer.h"
#include "runtime/provider/notify.h"

namespace {

using namespace Lumo;
using namespace Lumo::Provider;
using Container = AsyncApiInterfaceConcurrentContainer<DummyMutex>;

/// Answers with its input, but throws at the text "throw".
class EchoMethod final : public AsyncApiMethod {
 public:
  explicit EchoMethod(std::string const& service)
      : identifier_(std::make_shared<Core::MethodIdentifier const>(service, "echo")) {}
  std::shared_ptr<Core::MethodIdentifier const> const& identifier() const override { return identifier_; }
  MethodDefinition const& definition() const override { return definition_; }
  void Invoke(Data::DataValuePtr const& input, std::shared_ptr<Core::AsyncActivation> const& /*activation*/,
              Core::AsyncApiResultCb const& callback) const override {
    if (Data::As<Data::StringValue>(input.get())->value() == "throw") {
      throw std::runtime_error("from the method");
    }
    callback(Core::MethodResult::GetInstance(input), Progress(), {});
  }

 private:
  std::shared_ptr<Core::MethodIdentifier const> identifier_;
  MethodDefinition definition_;
};

/// A service with the one operation "echo".
class EchoInterface final : public AsyncApiInterface {
 public:
  explicit EchoInterface(std::string const& name)
      : name_(std::make_shared<std::string const>(name)), method_(std::make_shared<EchoMethod const>(name)) {}
  std::shared_ptr<std::string const> const& identifier() const override { return name_; }
  std::vector<std::string> OperationNames() const override { return {"echo"}; }
  bool Find(std::string const& operation, std::shared_ptr<AsyncApiMethod const>& method,
            MessageList& errors) const override {
    if (operation != "echo") {
      errors.push_back(Message<CoreTag>::Make("lumo.provider.operation.not.found", *name_, operation));
      return false;
    }
    method = method_;
    return true;
  }

 private:
  std::shared_ptr<std::string const> name_;
  std::shared_ptr<AsyncApiMethod const> method_;
};

/// Counts how often the operation of its call was reached.
class CountingObserver final : public Api::CallObserver {
 public:
  void SetCallKind(std::uint32_t) override {}
  void SetCallTarget(std::string&) override {}
  void SetCallScope(std::string&) override {}
  void SetCallUser(std::string&) override {}
  bool PrepareAudit() override { return false; }
  void SetCallStatus(std::uint32_t) override {}
  void SetPeer(std::pair<std::string, std::uint32_t>&) override {}
  void OnInvoke() override { ++invoked; }
  int invoked = 0;
};

/// A provider with the service "a.b" whose closures wait in a queue.
class AsyncLocalProviderTest : public testing::Test {
 protected:
  void Call(std::string const& service, std::string const& operation) {
    provider->Invoke(
        std::make_shared<Core::MethodIdentifier const>(service, operation), input, activation,
        Core::AsyncApiResultCb([this](std::shared_ptr<Core::MethodResult const> const& got,
                                      Progress const& howFar, Core::AsyncApiResultCb::Continuation&& next) {
          ++answers;
          result = got;
          progress = howFar;
          continues = static_cast<bool>(next);
        }));
  }

  void RunQueue() {
    while (!queue.empty()) {
      auto const closure = std::move(queue.front());
      queue.pop_front();
      closure();
    }
  }

  std::deque<std::function<void()>> queue;
  std::shared_ptr<Container> container =
      Container::GetInstance({std::make_shared<EchoInterface const>("a.b")});
  std::shared_ptr<AsyncLocalProvider<DummyMutex>> provider = std::make_shared<AsyncLocalProvider<DummyMutex>>(
      [this](std::function<void()> closure) { queue.push_back(std::move(closure)); }, container);
  std::shared_ptr<Core::AsyncActivation> activation =
      Core::AsyncActivation::GetInstance(std::make_shared<Core::ExecutionContext>());
  Data::DataValuePtr input = Data::StringValue::GetInstance("hello");

  int answers = 0;
  std::shared_ptr<Core::MethodResult const> result;
  Progress progress{5, 5, 5};
  bool continues = true;
};

TEST_F(AsyncLocalProviderTest, HasAName) {
  EXPECT_EQ(provider->ToString(), "AsyncLocalProvider");
}

TEST_F(AsyncLocalProviderTest, RunsTheOperationAfterInvokeReturned) {
  Call("a.b", "echo");
  EXPECT_EQ(answers, 0);
  RunQueue();
  ASSERT_EQ(answers, 1);
  EXPECT_EQ(result->output(), input);
  EXPECT_EQ(result->error(), nullptr);
}

TEST_F(AsyncLocalProviderTest, UnknownServiceOrOperationIsOneError) {
  struct Case {
    char const* service;
    char const* operation;
    char const* messageId;
  };
  for (Case const& c : {Case{"a.c", "echo", "lumo.provider.service.not.found"},
                        Case{"a.b", "shout", "lumo.provider.operation.not.found"}}) {
    answers = 0;
    Call(c.service, c.operation);
    EXPECT_EQ(answers, 0) << "answered inside Invoke";
    RunQueue();
    ASSERT_EQ(answers, 1);
    EXPECT_EQ(result->output(), nullptr);
    ASSERT_NE(result->error(), nullptr);
    EXPECT_EQ(result->error()->name(), "com.orbane.lumo.std.errors.operation_not_found");
    EXPECT_TRUE(result->final());
    EXPECT_EQ(progress.min, 0);
    EXPECT_EQ(progress.max, 1);
    EXPECT_EQ(progress.current, 1);
    EXPECT_FALSE(continues);
    auto const* messages = Data::As<Data::ListValue>(result->error()->Find("messages"));
    ASSERT_NE(messages, nullptr);
    ASSERT_EQ(messages->size(), 1U);
    auto const* message = Data::As<Data::StructValue>(messages->Item(0));
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(Data::As<Data::StringValue>(message->Find("id"))->value(), c.messageId);
  }
}

TEST_F(AsyncLocalProviderTest, WhatAMethodThrowsIsNotCaught) {
  input = Data::StringValue::GetInstance("throw");
  Call("a.b", "echo");
  EXPECT_THROW(RunQueue(), std::runtime_error);
  EXPECT_EQ(answers, 0);
}

TEST_F(AsyncLocalProviderTest, TellsTheObserverOnceOfAReachedOperation) {
  auto const observer = std::make_shared<CountingObserver>();
  activation->callObserver(observer);
  Call("a.b", "shout");
  Call("a.c", "echo");
  RunQueue();
  EXPECT_EQ(observer->invoked, 0);
  Call("a.b", "echo");
  EXPECT_EQ(observer->invoked, 0);
  RunQueue();
  EXPECT_EQ(observer->invoked, 1);
}

TEST_F(AsyncLocalProviderTest, QueuedCallKeepsTheProviderAlive) {
  std::weak_ptr<AsyncLocalProvider<DummyMutex>> const watch = provider;
  Call("a.b", "echo");
  provider.reset();
  container.reset();
  EXPECT_FALSE(watch.expired());
  RunQueue();
  EXPECT_EQ(answers, 1);
  EXPECT_TRUE(watch.expired());
}

TEST_F(AsyncLocalProviderTest, FindsServicesThatAreAddedLater) {
  MessageList errors;
  container->Add(std::make_shared<EchoInterface const>("late"), errors);
  EXPECT_TRUE(errors.empty());
  Call("late", "echo");
  RunQueue();
  EXPECT_EQ(result->output(), input);
}

TEST_F(AsyncLocalProviderTest, NotHeldByASharedPointerThrows) {
  AsyncLocalProvider<DummyMutex> unheld([](std::function<void()> const& /*closure*/) {}, container);
  EXPECT_THROW(unheld.Invoke(nullptr, nullptr, nullptr, Core::AsyncApiResultCb()), std::bad_weak_ptr);
}

TEST_F(AsyncLocalProviderTest, WithoutAPostFunctionThrows) {
  provider = std::make_shared<AsyncLocalProvider<DummyMutex>>(PostFunction(), container);
  EXPECT_THROW(Call("a.b", "echo"), std::bad_function_call);
}

TEST(InterfaceContainer, KeepsTheFirstOfTwo) {
  auto const first = std::make_shared<EchoInterface const>("a");
  auto const second = std::make_shared<EchoInterface const>("a");
  auto const container = Container::GetInstance({first, second});
  std::shared_ptr<AsyncApiInterface const> found;
  MessageList errors;
  ASSERT_TRUE(container->Find(first->identifier(), found, errors));
  EXPECT_EQ(found, first);

  container->Add(second, errors);
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_EQ(errors.front().id(), "lumo.provider.interface.duplicate");
  ASSERT_TRUE(container->Find(first->identifier(), found, errors));
  EXPECT_EQ(found, first);
}

TEST(InterfaceContainer, NamesItsServicesInOrder) {
  auto const container = Container::GetInstance(
      {std::make_shared<EchoInterface const>("b"), std::make_shared<EchoInterface const>("a")});
  EXPECT_EQ(container->ServiceNames(), (std::vector<std::string>{"a", "b"}));
}

TEST(NotifyOnInvoke, WithoutAnObserverDoesNothing) {
  Provider::Detail::NotifyOnInvoke(Core::AsyncActivation::GetInstance(nullptr));
}

}  // namespace
