#include "runtime/introspection/services.h"

#include "bindings/com/orbane/lumo/std/errors.h"
#include "platform/text/text.h"
#include "runtime/data/error_factory.h"

namespace Lumo::Provider::Introspection {
namespace {

using InterfacePtr = std::shared_ptr<AsyncApiInterface const>;
using MethodPtr = std::shared_ptr<AsyncApiMethod const>;

std::shared_ptr<Data::ErrorValue const> NotFound(MessageList const& reasons) {
  return Data::ErrorFactory::GetError<Com::Orbane::Lumo::Std::Errors::NotFound>(reasons);
}

bool FindService(Container const& interfaces, std::string const& service, InterfacePtr& api,
                 MessageList& errors) {
  return interfaces.Find(std::make_shared<std::string const>(service), api, errors);
}

std::set<std::string> OperationSet(AsyncApiInterface const& api) {
  std::vector<std::string> const names = api.OperationNames();
  return {names.begin(), names.end()};
}

/// One line: the operation's full name, its parameters, output and errors.
void AppendSignature(AsyncApiMethod const& method, std::string& out) {
  MethodDefinition const& definition = method.definition();
  out += method.identifier()->ToString();
  for (MethodDefinition::Field const& field : definition.input) {
    out.append(1, ' ').append(field.name).append(1, ':').append(field.type);
  }
  out.append(definition.task ? " task " : " -> ").append(definition.output);
  for (std::string const& error : definition.errors) {
    out.append(" !").append(error);
  }
  out += '\n';
}

/// SHA-256 in hexadecimal over the signatures of all operations, in order of their names.
std::string Checksum(Container const& interfaces) {
  std::string signatures;
  MessageList ignored;
  for (std::string const& service : interfaces.ServiceNames()) {
    InterfacePtr api;
    if (!FindService(interfaces, service, api, ignored)) {
      continue;
    }
    for (std::string const& operation : OperationSet(*api)) {
      MethodPtr method;
      if (api->Find(operation, method, ignored)) {
        AppendSignature(*method, signatures);
      }
    }
  }
  constexpr std::size_t kDigestSize = 32;
  std::uint8_t digest[kDigestSize] = {};
  CryptoHash_ComputeSHA256(signatures.data(), signatures.size(), digest);
  constexpr char kHex[] = "0123456789abcdef";
  std::string text;
  text.reserve(2 * kDigestSize);
  for (std::uint8_t const byte : digest) {
    text += kHex[byte >> 4];
    text += kHex[byte & 15];
  }
  return text;
}

}  // namespace

namespace Impl::OperationSvc {

namespace Svc = Bindings::OperationSvc;

void AsyncServiceImpl::List(std::shared_ptr<Svc::ListInput const> const& input,
                            AsyncResult<std::set<std::string>> const& result) {
  InterfacePtr api;
  MessageList errors;
  if (!FindService(interfaces_, input->service, api, errors)) {
    result.error(NotFound(errors));
    return;
  }
  result(OperationSet(*api));
}

void AsyncServiceImpl::Get(std::shared_ptr<Svc::GetInput const> const& input,
                           AsyncResult<std::shared_ptr<Svc::Info const>> const& result) {
  InterfacePtr api;
  MethodPtr method;
  MessageList errors;
  if (!FindService(interfaces_, input->service, api, errors) ||
      !api->Find(input->operation, method, errors)) {
    result.error(NotFound(errors));
    return;
  }
  MethodDefinition const& definition = method->definition();
  auto info = std::make_shared<Svc::Info>();
  for (MethodDefinition::Field const& parameter : definition.input) {
    auto field = std::make_shared<Svc::Field>();
    field->name = parameter.name;
    field->type = parameter.type;
    info->parameters.push_back(std::move(field));
  }
  info->output = definition.output;
  info->errors.assign(definition.errors.begin(), definition.errors.end());
  info->task = definition.task;
  result(info);
}

}  // namespace Impl::OperationSvc

namespace Impl::ProviderSvc {

namespace Svc = Bindings::ProviderSvc;

void AsyncServiceImpl::Get(std::shared_ptr<Svc::GetInput const> const& /*input*/,
                           AsyncResult<std::shared_ptr<Svc::Info const>> const& result) {
  auto info = std::make_shared<Svc::Info>();
  info->id = name_;
  if (checksum_.empty()) {
    checksum_ = Checksum(interfaces_);
  }
  info->checksum = checksum_;
  result(info);
}

}  // namespace Impl::ProviderSvc

namespace Impl::ServiceSvc {

namespace Svc = Bindings::ServiceSvc;

void AsyncServiceImpl::List(std::shared_ptr<Svc::ListInput const> const& /*input*/,
                            AsyncResult<std::set<std::string>> const& result) {
  std::vector<std::string> const names = interfaces_.ServiceNames();
  result(std::set<std::string>(names.begin(), names.end()));
}

void AsyncServiceImpl::Get(std::shared_ptr<Svc::GetInput const> const& input,
                           AsyncResult<std::shared_ptr<Svc::Info const>> const& result) {
  InterfacePtr api;
  MessageList errors;
  if (!FindService(interfaces_, input->service, api, errors)) {
    result.error(NotFound(errors));
    return;
  }
  auto info = std::make_shared<Svc::Info>();
  info->operations = OperationSet(*api);
  result(info);
}

}  // namespace Impl::ServiceSvc

std::list<InterfacePtr> BindServices(Container const& interfaces, std::string const& providerName,
                                     std::shared_ptr<L10n::Localizer const> const& localizer) {
  return {
      Bindings::OperationSvc::AsyncServiceBinder::BindImplementation(
          std::make_shared<Impl::OperationSvc::AsyncServiceImpl>(interfaces), localizer),
      Bindings::ProviderSvc::AsyncServiceBinder::BindImplementation(
          std::make_shared<Impl::ProviderSvc::AsyncServiceImpl>(interfaces, providerName), localizer),
      Bindings::ServiceSvc::AsyncServiceBinder::BindImplementation(
          std::make_shared<Impl::ServiceSvc::AsyncServiceImpl>(interfaces), localizer),
  };
}

}  // namespace Lumo::Provider::Introspection
