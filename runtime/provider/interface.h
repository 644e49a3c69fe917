// What the local provider dispatches on: bound services and their methods.
#pragma once

#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "runtime/core/activation.h"
#include "runtime/core/method.h"
#include "runtime/message.h"

namespace Lumo {

/// A mutex for code that one thread runs.
struct DummyMutex {
  void lock() {}
  void unlock() {}
  bool try_lock() { return true; }
};

namespace Provider {

/// What introspection tells of a method; see generator/ for how it is filled. Types are definition texts such
/// as "string" or "list<com.orbane.halo.task.info>".
struct MethodDefinition {
  struct Field {
    std::string name;
    std::string type;
  };
  std::vector<Field> input;
  std::string output;
  std::vector<std::string> errors;
  bool task = false;
};

/// One operation of a bound service.
class AsyncApiMethod {
 public:
  virtual std::shared_ptr<Core::MethodIdentifier const> const& identifier() const = 0;
  virtual MethodDefinition const& definition() const = 0;
  /// Runs the operation; the outcome arrives through the callback, whose exceptions may pass. The generated
  /// binder lets no other std::exception out.
  virtual void Invoke(Data::DataValuePtr const& input,
                      std::shared_ptr<Core::AsyncActivation> const& activation,
                      Core::AsyncApiResultCb const& callback) const = 0;
  virtual ~AsyncApiMethod() = default;
};

/// One bound service. Immutable; any thread.
class AsyncApiInterface {
 public:
  virtual std::shared_ptr<std::string const> const& identifier() const = 0;
  virtual std::vector<std::string> OperationNames() const = 0;
  /// False, with a message added, when there is no such operation.
  virtual bool Find(std::string const& operation, std::shared_ptr<AsyncApiMethod const>& method,
                    MessageList& errors) const = 0;
  virtual ~AsyncApiInterface() = default;
};

/// All bound services by identifier. `Mutex` guards the table; DummyMutex where one thread uses it.
template <typename Mutex>
class AsyncApiInterfaceConcurrentContainer {
 public:
  /// A service that is listed twice: the first stays.
  static std::shared_ptr<AsyncApiInterfaceConcurrentContainer> GetInstance(
      std::list<std::shared_ptr<AsyncApiInterface const>> const& interfaces);

  virtual void Add(std::shared_ptr<AsyncApiInterface const> const& api, MessageList& errors);
  virtual bool Find(std::shared_ptr<std::string const> const& service,
                    std::shared_ptr<AsyncApiInterface const>& api, MessageList& errors) const;
  virtual ~AsyncApiInterfaceConcurrentContainer() = default;
  std::vector<std::string> ServiceNames() const;

 private:
  mutable Mutex mutex_;
  std::map<std::string, std::shared_ptr<AsyncApiInterface const>, std::less<>> interfaces_;
};

extern template class AsyncApiInterfaceConcurrentContainer<DummyMutex>;

}  // namespace Provider
}  // namespace Lumo
