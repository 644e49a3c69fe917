// One request as it is read: the head's bytes, what they parse to, and what they decide.
#pragma once

#include <array>
#include <boost/asio/buffer.hpp>

#include <boost/system/error_code.hpp>
#include <boost/utility/string_view.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "transport/header.h"
#include "transport/phr_request.h"

namespace Lumo::Transport::PicoHttp {

/// Bytes of the longest head that is taken.
inline constexpr std::size_t kHeadBufferSize = 4096;

namespace ServerDetail {

/// One object a request, never used again. All views point into `head`.
struct Request {
  Request() noexcept;
  Request(Request const&) = delete;
  Request& operator=(Request const&) = delete;

  PhrRequest phr;
  std::array<char, kHeadBufferSize> head;
  /// Bytes read into `head` so far, and how many of them are the head once it is complete.
  std::size_t bytesRead = 0;
  std::size_t headLength = 0;

  std::uint64_t contentLength = 0;
  boost::string_view contentType;
  boost::string_view accept;
  boost::string_view transferEncoding;
  bool chunked = false;
  bool hasContentLength = false;
  bool keepAlive = true;
  bool streamContent = false;
  bool streamAccept = false;
  bool expectPresent = false;
  bool expectContinue = false;
  bool invalid = false;

  /// The free part of the head buffer.
  boost::asio::mutable_buffer FreeHead();
  /// What was read behind the head. Valid after a complete head.
  boost::asio::const_buffer BehindHead() const;
};

/// A new request. Its memory is recycled, so that busy connections do not take and give back kilobytes with
/// each request. Any thread.
std::shared_ptr<Request> MakeRequest();

/// Takes `count` bytes that were read into FreeHead(). No value: more bytes are needed. Otherwise the head is
/// complete and classified (no error), or refused (the error; `invalid` is not set here).
std::optional<boost::system::error_code> TakeHeadBytes(Request& request, std::size_t count);

/// Decides from the parsed and sorted headers, and gives methods their defaults. Called by TakeHeadBytes.
boost::system::error_code ClassifyHead(Request& request);

}  // namespace ServerDetail

/// The answer to a head that is refused with `error`: head and text as they go out, then the connection ends.
std::string BadRequestAnswer(boost::system::error_code const& error);

/// The answer to an expectation that isn't 100-continue.
extern boost::string_view const kExpectationFailedAnswer;

/// A request as the protocol layer sees it. Keeps the request alive.
class HttpRequest {
 public:
  explicit HttpRequest(std::shared_ptr<ServerDetail::Request> request) : request_(std::move(request)) {}
  /// A new range over the headers: ":method" first, then the headers sorted by name.
  std::shared_ptr<Http::HeaderRange> headersPtr() const;

 private:
  std::shared_ptr<ServerDetail::Request> request_;
};

/// The range that HttpRequest gives.
class HeaderRequestRange final : public Http::HeaderRange {
 public:
  explicit HeaderRequestRange(std::shared_ptr<ServerDetail::Request> request);

  Header const& current() const override { return view_; }
  void advance() override;
  bool atEnd() const override;
  void reset() override;

 private:
  void Load();

  std::shared_ptr<ServerDetail::Request> request_;
  /// 0 is ":method", then the headers.
  std::size_t cursor_ = 0;
  Http::HeaderView view_;
};

}  // namespace Lumo::Transport::PicoHttp
