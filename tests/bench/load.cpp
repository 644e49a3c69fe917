// Load for a server on 127.0.0.1: one thread, epoll, keep-alive connections with one request in flight each.
// Prints one JSON line. Every answer has to be as long as the first one, which is parsed in full.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void Fail(std::string const& text) {
  std::fprintf(stderr, "load: %s\n", text.c_str());
  std::exit(1);
}

struct Options {
  int port = 7433;
  int connections = 64;
  long requests = 100000;
  int idle = 0;            // connections that stay open and silent
  bool holdIdle = false;   // open the idle ones, print, and wait for end of input
  std::string body;        // file with the request's JSON
  std::string headers;     // file with further header lines, each with its line end
  std::string background;  // file with a body that one further connection posts over and over
};

std::string ReadFile(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    Fail("cannot read " + path);
  }
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string Request(std::string const& headers, std::string const& body) {
  return "POST / HTTP/1.1\r\nHost: localhost\r\n" + headers +
         "Content-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
         body;
}

int Connect(int port) {
  int const fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    Fail(std::string("socket: ") + std::strerror(errno));
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    Fail(std::string("connect: ") + std::strerror(errno));
  }
  int const on = 1;
  ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return fd;
}

// Length of the one whole answer at the start of `bytes`, 0 while it is incomplete.
std::size_t AnswerLength(std::string_view bytes) {
  std::size_t const head = bytes.find("\r\n\r\n");
  if (head == std::string_view::npos) {
    return 0;
  }
  std::size_t at = head + 4;
  std::string_view const headers = bytes.substr(0, at);
  if (std::size_t const length = headers.find("Content-Length: "); length != std::string_view::npos) {
    at += std::strtoul(headers.data() + length + 16, nullptr, 10);
    return at <= bytes.size() ? at : 0;
  }
  for (;;) {
    std::size_t const line = bytes.find("\r\n", at);
    if (line == std::string_view::npos) {
      return 0;
    }
    unsigned long const size = std::strtoul(std::string(bytes.substr(at, line - at)).c_str(), nullptr, 16);
    at = line + 2 + size + 2;
    if (at > bytes.size()) {
      return 0;
    }
    if (size == 0) {
      return at;
    }
  }
}

std::string Ask(int fd, std::string const& request) {
  for (std::size_t sent = 0; sent < request.size();) {
    ssize_t const n = ::send(fd, request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) {
      Fail("send failed");
    }
    sent += static_cast<std::size_t>(n);
  }
  std::string answer;
  std::vector<char> buffer(1 << 20);
  while (AnswerLength(answer) == 0) {
    ssize_t const n = ::recv(fd, buffer.data(), buffer.size(), 0);
    if (n <= 0) {
      Fail("the server closed the connection; got " + std::to_string(answer.size()) + " bytes");
    }
    answer.append(buffer.data(), static_cast<std::size_t>(n));
  }
  return answer;
}

struct Connection {
  int fd = -1;
  std::string const* request = nullptr;
  std::size_t answerLength = 0;
  std::size_t sent = 0;
  std::size_t received = 0;
  bool background = false;
  bool wantsWrite = false;
  Clock::time_point start;
};

class Load {
 public:
  explicit Load(Options options) : options_(std::move(options)), epoll_(::epoll_create1(EPOLL_CLOEXEC)) {}

  void Run() {
    for (int i = 0; i < options_.idle; ++i) {
      idle_.push_back(Connect(options_.port));
    }
    if (options_.holdIdle) {
      std::printf("{\"idle\": %d}\n", options_.idle);
      std::fflush(stdout);
      char byte = 0;
      while (::read(0, &byte, 1) > 0) {
      }
      return;
    }
    std::string const headers = options_.headers.empty() ? "" : ReadFile(options_.headers);
    small_ = Request(headers, ReadFile(options_.body));
    int const first = Connect(options_.port);
    std::string const answer = Ask(first, small_);
    ::close(first);
    if (answer.compare(0, 12, "HTTP/1.1 200") != 0) {
      Fail("first answer: " + answer.substr(0, 200));
    }
    connections_.resize(static_cast<std::size_t>(options_.connections) +
                        (options_.background.empty() ? 0 : 1));
    for (Connection& connection : connections_) {
      connection.request = &small_;
      connection.answerLength = answer.size();
    }
    if (!options_.background.empty()) {
      big_ = Request(headers, ReadFile(options_.background));
      int const fd = Connect(options_.port);
      connections_.back().request = &big_;
      connections_.back().answerLength = Ask(fd, big_).size();
      connections_.back().background = true;
      ::close(fd);
    }
    latencies_.reserve(static_cast<std::size_t>(options_.requests));
    Clock::time_point const begin = Clock::now();
    for (Connection& connection : connections_) {
      Open(connection);
    }
    Loop();
    double const seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    std::sort(latencies_.begin(), latencies_.end());
    std::printf(
        "{\"rate\": %.1f, \"p50_us\": %.1f, \"p99_us\": %.1f, \"answer_bytes\": %zu, \"requests\": %zu}\n",
        static_cast<double>(latencies_.size()) / seconds, Percentile(0.50), Percentile(0.99), answer.size(),
        latencies_.size());
  }

 private:
  double Percentile(double share) const {
    return latencies_.empty()
               ? 0.0
               : latencies_[static_cast<std::size_t>(share * static_cast<double>(latencies_.size() - 1))];
  }

  void Open(Connection& connection) {
    connection.fd = Connect(options_.port);
    ::fcntl(connection.fd, F_SETFL, ::fcntl(connection.fd, F_GETFL) | O_NONBLOCK);
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = &connection;
    ::epoll_ctl(epoll_, EPOLL_CTL_ADD, connection.fd, &event);
    Start(connection);
  }

  void Start(Connection& connection) {
    connection.sent = 0;
    connection.received = 0;
    connection.start = Clock::now();
    Send(connection);
  }

  void Send(Connection& connection) {
    while (connection.sent < connection.request->size()) {
      ssize_t const n = ::send(connection.fd, connection.request->data() + connection.sent,
                               connection.request->size() - connection.sent, MSG_NOSIGNAL);
      if (n < 0 && errno == EAGAIN) {
        break;
      }
      if (n <= 0) {
        Fail("send failed under load");
      }
      connection.sent += static_cast<std::size_t>(n);
    }
    bool const wants = connection.sent < connection.request->size();
    if (wants != connection.wantsWrite) {
      connection.wantsWrite = wants;
      epoll_event event{};
      event.events =
          wants ? static_cast<std::uint32_t>(EPOLLIN | EPOLLOUT) : static_cast<std::uint32_t>(EPOLLIN);
      event.data.ptr = &connection;
      ::epoll_ctl(epoll_, EPOLL_CTL_MOD, connection.fd, &event);
    }
  }

  void Receive(Connection& connection) {
    ssize_t const n = ::recv(connection.fd, buffer_.data(), buffer_.size(), 0);
    if (n < 0 && errno == EAGAIN) {
      return;
    }
    if (n <= 0) {
      Fail("the server closed a connection under load");
    }
    connection.received += static_cast<std::size_t>(n);
    if (connection.received < connection.answerLength) {
      return;
    }
    if (connection.received > connection.answerLength) {
      Fail("an answer differs in length from the first one");
    }
    if (!connection.background) {
      latencies_.push_back(
          std::chrono::duration<double, std::micro>(Clock::now() - connection.start).count());
    }
    if (latencies_.size() + 0U < static_cast<std::size_t>(options_.requests)) {
      Start(connection);
    }
  }

  void Loop() {
    std::vector<epoll_event> events(256);
    while (latencies_.size() < static_cast<std::size_t>(options_.requests)) {
      int const count = ::epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), 10000);
      if (count == 0) {
        Fail("no answer for 10 seconds");
      }
      for (int i = 0; i < count && latencies_.size() < static_cast<std::size_t>(options_.requests); ++i) {
        auto& connection = *static_cast<Connection*>(events[static_cast<std::size_t>(i)].data.ptr);
        if ((events[static_cast<std::size_t>(i)].events & EPOLLOUT) != 0) {
          Send(connection);
        }
        if ((events[static_cast<std::size_t>(i)].events & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0) {
          Receive(connection);
        }
      }
    }
  }

  Options options_;
  int epoll_;
  std::string small_;
  std::string big_;
  std::vector<int> idle_;
  std::vector<Connection> connections_;
  std::vector<double> latencies_;
  std::vector<char> buffer_ = std::vector<char>(1 << 20);
};

}  // namespace

int main(int argc, char** argv) {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
  Options options;
  for (int i = 1; i < argc; ++i) {
    std::string const name = argv[i];
    if (name == "--hold-idle") {
      options.holdIdle = true;
      continue;
    }
    if (i + 1 >= argc) {
      Fail("a value is missing behind " + name);
    }
    char const* const value = argv[++i];
    if (name == "--port") {
      options.port = std::atoi(value);
    } else if (name == "--connections") {
      options.connections = std::atoi(value);
    } else if (name == "--requests") {
      options.requests = std::atol(value);
    } else if (name == "--idle") {
      options.idle = std::atoi(value);
    } else if (name == "--body") {
      options.body = value;
    } else if (name == "--headers") {
      options.headers = value;
    } else if (name == "--background") {
      options.background = value;
    } else {
      Fail("unknown option " + name);
    }
  }
  Load(options).Run();
  return 0;
}
