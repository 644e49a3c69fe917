// A minimal JSON-RPC server of stock parts: Beast for HTTP, RapidJSON documents for the bodies, no filters,
// no logs. It reads the request into a document, looks the method up in a table and writes a document as the
// answer. Arguments: port, file with the JSON of the big answer's result (method "big"; all others answer a
// small text).
#include <utility>  // before Asio, which forgets it

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using Tcp = asio::ip::tcp;
using Method = std::function<rapidjson::Value(rapidjson::Value const&, rapidjson::Document::AllocatorType&)>;
using Methods = std::unordered_map<std::string, Method>;

class Session : public std::enable_shared_from_this<Session> {
 public:
  Session(Tcp::socket socket, Methods const& methods) : stream_(std::move(socket)), methods_(methods) {}

  void Read() {
    parser_.emplace();
    parser_->body_limit(2500000);
    http::async_read(stream_, buffer_, *parser_, [self = shared_from_this()](auto ec, std::size_t /*count*/) {
      if (!ec) {
        self->Answer();
      }
    });
  }

 private:
  void Answer() {
    rapidjson::Document request;
    std::string const& body = parser_->get().body();
    request.Parse<rapidjson::kParseValidateEncodingFlag>(body.data(), body.size());
    if (request.HasParseError() || !request.IsObject() || !request.HasMember("method")) {
      return;
    }
    rapidjson::Document answer(rapidjson::kObjectType);
    auto& memory = answer.GetAllocator();
    auto const method = methods_.find(request["method"].GetString());
    auto const& run = method != methods_.end() ? method->second : methods_.at("small");
    answer.AddMember("jsonrpc", "2.0", memory);
    answer.AddMember("id", rapidjson::Value(request["id"], memory), memory);
    auto const params = request.FindMember("params");
    answer.AddMember("result", run(params != request.MemberEnd() ? params->value : request, memory), memory);
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    answer.Accept(writer);
    response_.emplace(http::status::ok, 11);
    response_->set(http::field::content_type, "application/json");
    response_->body().assign(text.GetString(), text.GetSize());
    response_->prepare_payload();
    http::async_write(stream_, *response_, [self = shared_from_this()](auto ec, std::size_t /*count*/) {
      if (!ec) {
        self->Read();
      }
    });
  }

  beast::tcp_stream stream_;
  Methods const& methods_;
  beast::flat_buffer buffer_;
  std::optional<http::request_parser<http::string_body>> parser_;
  std::optional<http::response<http::string_body>> response_;
};

void Accept(Tcp::acceptor& acceptor, Methods const& methods) {
  acceptor.async_accept([&acceptor, &methods](auto ec, Tcp::socket socket) {
    if (!ec) {
      socket.set_option(Tcp::no_delay(true));
      std::make_shared<Session>(std::move(socket), methods)->Read();
    }
    Accept(acceptor, methods);
  });
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: bench_beast_peer PORT BIG_JSON_FILE\n";
    return 2;
  }
  std::ifstream in(argv[2], std::ios::binary);
  std::string const text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  rapidjson::Document big;
  big.Parse(text.c_str());
  Methods methods;
  methods["small"] = [](auto const& /*params*/, auto& /*memory*/) { return rapidjson::Value("ok"); };
  methods["big"] = [&big](auto const& /*params*/, auto& memory) { return rapidjson::Value(big, memory); };
  asio::io_context context(1);
  auto const port = static_cast<unsigned short>(std::atoi(argv[1]));
  Tcp::acceptor acceptor(context, {asio::ip::address_v4::loopback(), port});
  Accept(acceptor, methods);
  context.run();
  return 0;
}
