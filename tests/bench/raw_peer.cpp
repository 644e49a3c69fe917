// The floor: a plain Asio server that reads to the end of each request and answers with fixed bytes in one
// write. Arguments: port, file with the answer's bytes.
#include <array>
#include <utility>  // before Asio, which forgets it

#include <boost/asio.hpp>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>

namespace {

namespace asio = boost::asio;
using Tcp = asio::ip::tcp;

class Session : public std::enable_shared_from_this<Session> {
 public:
  Session(Tcp::socket socket, std::string const& answer) : socket_(std::move(socket)), answer_(answer) {}

  void Read() {
    socket_.async_read_some(asio::buffer(buffer_), [self = shared_from_this()](auto ec, std::size_t count) {
      if (!ec) {
        self->Received(count);
      }
    });
  }

 private:
  // Requests come one at a time, so all that is needed is the end of the head and the length.
  void Received(std::size_t count) {
    if (left_ == 0) {
      std::string_view const bytes(buffer_.data(), count);
      std::size_t const end = bytes.find("\r\n\r\n");
      std::size_t const length = bytes.find("Content-Length: ");
      if (end == std::string_view::npos || length == std::string_view::npos) {
        return;
      }
      left_ = end + 4 + std::strtoul(bytes.data() + length + 16, nullptr, 10);
    }
    left_ -= count;
    if (left_ != 0) {
      Read();
      return;
    }
    asio::async_write(socket_, asio::buffer(answer_),
                      [self = shared_from_this()](auto ec, std::size_t /*count*/) {
                        if (!ec) {
                          self->Read();
                        }
                      });
  }

  Tcp::socket socket_;
  std::string const& answer_;
  std::array<char, 65536> buffer_{};
  std::size_t left_ = 0;
};

void Accept(Tcp::acceptor& acceptor, std::string const& answer) {
  acceptor.async_accept([&acceptor, &answer](auto ec, Tcp::socket socket) {
    if (!ec) {
      socket.set_option(Tcp::no_delay(true));
      std::make_shared<Session>(std::move(socket), answer)->Read();
    }
    Accept(acceptor, answer);
  });
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: bench_raw_peer PORT ANSWER_FILE\n";
    return 2;
  }
  std::ifstream in(argv[2], std::ios::binary);
  std::string const answer{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  asio::io_context context(1);
  auto const port = static_cast<unsigned short>(std::atoi(argv[1]));
  Tcp::acceptor acceptor(context, {asio::ip::address_v4::loopback(), port});
  Accept(acceptor, answer);
  context.run();
  return 0;
}
