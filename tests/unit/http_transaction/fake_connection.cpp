#include "tests/unit/http_transaction/fake_connection.h"

#include "transport/async_transaction_protocol_handler_impl.h"

namespace Lumo::Transport::PicoHttp {
template class Connection<TestSupport::FakeStream>;
}

namespace Lumo::Transport::TestSupport {

ConnectionTest::ConnectionTest() {
  service_ = [](ReceivedCall const& call) { call.callback(TextResult("ok"), {}, {}); };
  spec_->logger = logger_;
  spec_->provider = std::make_shared<FakeProvider>(
      [this](Core::MethodIdentifier const& method, Data::DataValuePtr const& input,
             std::shared_ptr<Core::AsyncActivation> const& activation,
             Core::AsyncApiResultCb const& callback) {
        calls_.push_back({method.ToString(), input, activation, callback});
        ReceivedCall const call = calls_.back();
        boost::asio::post(io_, [this, call] { service_(call); });
      });
}

ConnectionTest::~ConnectionTest() {
  calls_.clear();
  for (std::shared_ptr<FakeWire> const& wire : wires_) {
    wire->Drop();
  }
  Poll();
}

void ConnectionTest::Connect() {
  auto stream = FakeStream::Create(io_.get_executor(), kReadTimeout, kWriteTimeout);
  wire_ = stream->lowest().socket().wire();
  wires_.push_back(wire_);
  PicoHttp::PicoHttpApiRequestHandler<FakeStream> const handler(spec_);
  handler(std::move(stream));
}

void ConnectionTest::Poll() {
  io_.restart();
  io_.poll();
}

void ConnectionTest::Advance(std::chrono::nanoseconds step) {
  FakeClock::Advance(step);
  Poll();
}

std::string ConnectionTest::Exchange(std::string const& input) {
  Connect();
  wire_->Feed(input);
  Poll();
  return wire_->output;
}

std::string Call(std::string const& headers, std::string const& body) {
  return "POST / HTTP/1.1\r\nContent-Type: application/json\r\n" + headers +
         "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::string Chunk(std::string const& body) {
  std::ostringstream size;
  size << std::hex << body.size();
  return size.str() + "\r\n" + body + "\r\n";
}

std::string Answer(std::string const& connection, std::string const& body, std::string const& moreHeaders,
                   std::string const& type) {
  return "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nContent-Type: " + type +
         "\r\nConnection: " + connection + "\r\n" + moreHeaders + "Server: Lumo-PicoHttp\r\n\r\n" +
         Chunk(body) + "0\r\n\r\n";
}

std::shared_ptr<Core::MethodResult const> TextResult(std::string const& text, bool final) {
  return std::make_shared<Core::MethodResult const>(Data::StringValue::GetInstance(text), nullptr, final);
}

std::shared_ptr<Core::MethodResult const> ErrorResult(std::string const& name, bool final) {
  return std::make_shared<Core::MethodResult const>(nullptr, Data::ErrorValue::Create(name, {}), final);
}

}  // namespace Lumo::Transport::TestSupport
