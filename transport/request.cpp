#include "transport/request.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "runtime/core/recycled.h"
#include "runtime/errors/transport_categories.h"
#include "transport/text.h"

namespace Lumo::Transport::PicoHttp {

namespace {

using boost::system::error_code;

bool Holds(boost::string_view text, boost::string_view part) noexcept {
  return text.find(part) != boost::string_view::npos;
}

/// Takes a "content-length". One that is repeated must say the same.
error_code TakeContentLength(ServerDetail::Request& request, boost::string_view value) {
  std::uint64_t length = 0;
  if (std::error_code const bad = Detail::ParseUnsigned(value, length)) {
    if (bad == Detail::ConversionErrc::OutOfRange) {
      return Http::Error::Errc::MessageTooLong;
    }
    return Error::Errc::InvalidRequest;
  }
  if (request.hasContentLength && request.contentLength != length) {
    return Error::Errc::InvalidRequest;
  }
  request.contentLength = length;
  request.hasContentLength = true;
  return {};
}

error_code TakeHeader(ServerDetail::Request& request, PhrHeader const& header) {
  if (header.name == "content-type") {
    request.contentType = header.value;
    request.streamContent |= Holds(header.value, ".stream.json") || Holds(header.value, ".framed");
  } else if (header.name == "accept") {
    request.accept = header.value;
    request.streamAccept |= Holds(header.value, ".stream.json");
  } else if (header.name == "content-length") {
    return TakeContentLength(request, header.value);
  } else if (header.name == "transfer-encoding") {
    request.transferEncoding = header.value;
    request.chunked |= Holds(header.value, "chunked");
  } else if (header.name == "connection") {
    InplaceLower(header.value);
    request.keepAlive &= !Holds(header.value, "close");
  } else if (header.name == "expect") {
    request.expectPresent = true;
    request.expectContinue |= StrICmp(header.value, "100-continue") == 0;
  }
  return {};
}

/// The bodies of these are of no account, whatever the headers say.
bool MethodHasNoBody(boost::string_view method) noexcept {
  constexpr boost::string_view kMethods[] = {"get", "head", "connect", "options", "trace"};
  return std::any_of(std::begin(kMethods), std::end(kMethods),
                     [method](boost::string_view name) { return StrICmp(method, name) == 0; });
}

}  // namespace

namespace ServerDetail {

// The head buffer is not cleared: nothing behind `bytesRead` is ever looked at.
Request::Request() noexcept : phr() {
  phr.headers.count = kMaxHeaders;
}

std::shared_ptr<Request> MakeRequest() {
  return Core::MakeRecycled<Request>();
}

boost::asio::mutable_buffer Request::FreeHead() {
  return boost::asio::buffer(head) + bytesRead;
}

boost::asio::const_buffer Request::BehindHead() const {
  return boost::asio::const_buffer(head.data() + headLength, bytesRead - headLength);
}

std::optional<error_code> TakeHeadBytes(Request& request, std::size_t count) {
  std::size_t const seen = request.bytesRead;
  request.bytesRead = std::min(seen + count, request.head.size());
  int const length =
      PhrParse(boost::asio::const_buffer(request.head.data(), request.bytesRead), request.phr, seen);
  if (length == kPhrMalformed) {
    return error_code(Error::Errc::HeadersParse);
  }
  if (length == kPhrIncomplete) {
    if (request.bytesRead == request.head.size()) {
      return error_code(Error::Errc::HeadersTooLong);
    }
    return std::nullopt;
  }
  request.headLength = static_cast<std::size_t>(length);
  return ClassifyHead(request);
}

error_code ClassifyHead(Request& request) {
  TolowerAndSortHeaders(request.phr.headers);
  for (PhrHeader const& header : request.phr.headers) {
    if (error_code const refused = TakeHeader(request, header)) {
      return refused;
    }
  }
  if (request.chunked) {
    request.contentLength = 0;
    request.hasContentLength = false;
  }
  boost::string_view const method = request.phr.method;
  if (method.empty()) {
    return Error::Errc::InvalidRequest;
  }
  bool const noBody = MethodHasNoBody(method);
  if (noBody || (StrICmp(method, "delete") == 0 && !request.hasContentLength)) {
    request.contentLength = 0;
    request.hasContentLength = true;
  }
  InplaceLower(method);
  return {};
}

}  // namespace ServerDetail

std::string BadRequestAnswer(error_code const& error) {
  return "HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\nConnection: close\r\nServer: "
         "Lumo-PicoHttp\r\n\r\n" +
         Error::transport_category::Instance().message(error.value());
}

boost::string_view const kExpectationFailedAnswer =
    "HTTP/1.1 417 Expectation Failed\r\nConnection: close\r\nContent-Length: 0\r\n";

std::shared_ptr<Http::HeaderRange> HttpRequest::headersPtr() const {
  return Core::MakeRecycled<HeaderRequestRange>(request_);
}

HeaderRequestRange::HeaderRequestRange(std::shared_ptr<ServerDetail::Request> request)
    : request_(std::move(request)) {
  Load();
}

void HeaderRequestRange::advance() {
  ++cursor_;
  Load();
}

bool HeaderRequestRange::atEnd() const {
  return cursor_ > request_->phr.headers.count;
}

void HeaderRequestRange::reset() {
  cursor_ = 0;
  Load();
}

void HeaderRequestRange::Load() {
  if (cursor_ == 0) {
    view_ = Http::HeaderView(":method", request_->phr.method);
  } else if (!atEnd()) {
    PhrHeader const& header = request_->phr.headers.entries[cursor_ - 1];
    view_ = Http::HeaderView(header.name, header.value);
  }
}

}  // namespace Lumo::Transport::PicoHttp
