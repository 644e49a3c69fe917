// Requests: each is either refused with one of three errors or visited once with everything that an answer
// needs.
#include <cstddef>
#include <cstdint>

#include "runtime/json/error_code.h"
#include "tests/fuzz/json_fuzz.h"

namespace {

using namespace Lumo;

class Visitor : public Core::ApiRequestVisitor {
 public:
  std::error_code Visit(std::string const& requestId,
                        std::shared_ptr<Core::MethodIdentifier const> const& method,
                        Data::DataValuePtr const& input,
                        std::shared_ptr<Core::ExecutionContext> const& context) override {
    ++calls;
    Fuzz::Require(!method->service().empty() && !method->operation().empty() && context);
    Fuzz::Require(Data::As<Data::StructValue>(input.get()) != nullptr);
    // The answer echoes the input and is one document.
    std::string answer;
    std::shared_ptr<Data::ErrorValue const> error;
    Protocol::Json::JsonApiResponseSerializer<0>().SerializeInvoke(
        requestId, std::make_shared<Core::MethodResult const>(input, nullptr, false), answer, error, false);
    Fuzz::Require(!error && Fuzz::IsJson(answer));
    return {};
  }

  int calls = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string_view const text(reinterpret_cast<char const*>(data), size);
  Visitor visitor;
  std::shared_ptr<Data::ErrorValue const> error;
  if (Protocol::Json::JsonApiRequestDeserializer().Deserialize(text, visitor, error)) {
    Fuzz::Require(visitor.calls == 1 && !error);
    return 0;
  }
  Fuzz::Require(visitor.calls == 0);
  Fuzz::RequireError(error);
  int const code = Protocol::Json::RpcCode(error->name());
  Fuzz::Require(code == -32700 || code == -32600 || code == -32602);
  std::string answer;
  std::shared_ptr<Data::ErrorValue const> failure;
  Protocol::Json::JsonApiDirectResponseSerializer<0>().SerializeError(error, answer, failure);
  Fuzz::Require(!failure && Fuzz::IsJson(answer));
  return 0;
}
