// Requests in frames: no content type selects them, but a handler that is told of one refuses it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "tests/unit/http_transaction/fake_connection.h"
#include "transport/async_transaction_protocol_handler_impl.h"

namespace Lumo::Transport::TestSupport {
namespace {

/// Takes every request for a framed one.
struct FramedExtractor : Http::RequestSpecExtractor {
  explicit FramedExtractor(Http::RequestSpecExtractor const& spec) : RequestSpecExtractor(spec) {
    isFramed = true;
  }
  static std::shared_ptr<FramedExtractor const> Extract(Http::HeaderRange& headers) {
    return std::make_shared<FramedExtractor>(*RequestSpecExtractor::Extract(headers));
  }
};

using Plain = Asio::StreamHandle<FakeStream>;
using Handler =
    Http::AsyncTransactionProtocolHandler<PicoHttp::HttpServerTransaction<Plain>, FramedExtractor>;

class FramedTest : public ConnectionTest {};

TEST_F(FramedTest, IsRefusedBeforeItsBodyIsRead) {
  auto stream = FakeStream::Create(io_.get_executor(), kReadTimeout, kWriteTimeout);
  wire_ = stream->lowest().socket().wire();
  wires_.push_back(wire_);
  auto const request = PicoHttp::ServerDetail::MakeRequest();
  std::string const head = Call("", "");
  std::memcpy(request->FreeHead().data(), head.data(), head.size());
  ASSERT_EQ(PicoHttp::ServerDetail::TakeHeadBytes(*request, head.size()), boost::system::error_code());

  wire_->Feed("{}");
  bool received = false;
  Http::ErrorPtr outcome;
  auto const handler = std::make_shared<Handler>(spec_, PicoHttp::HttpRequest(request).headersPtr(), nullptr,
                                                 Plain(stream), request);
  handler->Handle([&received] { received = true; },
                  [&outcome](Http::ErrorPtr const& error) { outcome = error; });
  Poll();

  EXPECT_THAT(wire_->output, testing::StartsWith("HTTP/1.1 400 Bad Request\r\n"));
  EXPECT_THAT(wire_->output, testing::HasSubstr(R"("@error":"invalid_request")"));
  EXPECT_THAT(logger_->TakeLines(),
              testing::ElementsAre("0 Request head: [P]", "1 Request is framed. Not supported",
                                   "1 Sent InvalidRequest response:[P]"));
  ASSERT_TRUE(outcome);
  EXPECT_EQ(outcome->name(), "InvalidRequest");
  EXPECT_FALSE(received);
  EXPECT_EQ(wire_->reads, 0);
}

}  // namespace
}  // namespace Lumo::Transport::TestSupport
