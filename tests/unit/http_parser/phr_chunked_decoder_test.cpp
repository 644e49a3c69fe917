#include "transport/phr_chunked_decoder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Lumo::Transport::PicoHttp {
namespace {

constexpr long kMalformed = -1;
constexpr long kMore = -2;

struct Decoded {
  long result = kMore;
  std::string body;
  std::string left;
};

/// Feeds `pieces` one after the other; what is behind the body's end in the last one fed is `left`.
Decoded Feed(std::vector<std::string> const& pieces) {
  PhrChunkedDecoder decoder;
  Decoded all;
  for (std::string piece : pieces) {
    if (all.result >= 0) {
      all.left += piece;
      continue;
    }
    auto const [result, count] = decoder.Decode(boost::asio::buffer(piece));
    all.result = result;
    all.body += piece.substr(0, count);
    if (result == kMalformed) {
      break;
    }
    if (result >= 0) {
      all.left = piece.substr(count, static_cast<std::size_t>(result));
    }
  }
  if (all.result >= 0) {
    all.result = static_cast<long>(all.left.size());
  }
  return all;
}

struct BodyCase {
  std::string name;
  std::string wire;
  long result;
  std::string body;
  std::string left;
};

std::string const kLongTrailers = "A: " + std::string(PhrChunkedDecoder::kMaxTrailers, 'x') + "\r\n\r\n";
std::string const kLongExtension = ";" + std::string(PhrChunkedDecoder::kMaxChunkLine, 'x') + "\r\n";

std::vector<BodyCase> const kBodies = {
    {"OneChunk", "3\r\nabc\r\n0\r\n\r\n", 0, "abc", ""},
    {"SeveralChunks", "3\r\nabc\r\nA\r\n0123456789\r\n0\r\n\r\n", 0, "abc0123456789", ""},
    {"Empty", "0\r\n\r\n", 0, "", ""},
    {"ZeroOfManyDigits", "000\r\n\r\n", 0, "", ""},
    {"BareLineFeeds", "3\nabc\n0\n\n", 0, "abc", ""},
    {"LowerAndUpperDigits", "a\r\n0123456789\r\nB\r\n0123456789a\r\n0\r\n\r\n", 0, "01234567890123456789a",
     ""},
    {"Extensions", "3;name=value\r\nabc\r\n0;x\r\n\r\n", 0, "abc", ""},
    {"BlanksBeforeAnExtension", "3 \t;x\r\nabc\r\n0\r\n\r\n", 0, "abc", ""},
    {"Trailers", "3\r\nabc\r\n0\r\nA: b\r\nC: d\r\n\r\n", 0, "abc", ""},
    {"TrailersOfBareLineFeeds", "0\nA: b\n\n", 0, "", ""},
    {"LeftOver", "3\r\nabc\r\n0\r\n\r\nPOST / HTTP/1.1", 15, "abc", "POST / HTTP/1.1"},
    {"LineEndsInTheData", "4\r\n\r\n\r\n\r\n0\r\n\r\n", 0, "\r\n\r\n", ""},
    {"NoDigits", "\r\nabc", kMalformed, "", ""},
    {"NoDigitsBeforeExtension", ";x\r\n", kMalformed, "", ""},
    {"NoDigit", "x\r\n", kMalformed, "", ""},
    {"Sign", "+3\r\nabc\r\n", kMalformed, "", ""},
    {"Prefix", "0x3\r\nabc\r\n", kMalformed, "", ""},
    {"BlankInFront", " 3\r\nabc\r\n", kMalformed, "", ""},
    {"BlankBehindSize", "3 \r\nabc\r\n", kMalformed, "", ""},
    {"SizeBeyond64Bits", "10000000000000000\r\n", kMalformed, "", ""},
    {"ReturnWithoutLineFeedBehindSize", "3\rXabc\r\n", kMalformed, "", ""},
    {"ReturnWithoutLineFeedInExtension", "3;a\rb\r\nabc\r\n", kMalformed, "", ""},
    {"DataLongerThanItsSize", "3\r\nabcd\r\n0\r\n\r\n", kMalformed, "abc", ""},
    {"ReturnWithoutLineFeedBehindData", "3\r\nabc\rX", kMalformed, "abc", ""},
    {"ReturnWithoutLineFeedInTrailer", "0\r\nA\rb\r\n\r\n", kMalformed, "", ""},
    {"ReturnWithoutLineFeedAtTheEnd", "0\r\n\rX", kMalformed, "", ""},
    {"TrailersTooLong", "0\r\n" + kLongTrailers, kMalformed, "", ""},
    {"ExtensionTooLong", "3" + kLongExtension + "abc\r\n", kMalformed, "", ""},
    {"Unfinished", "3\r\nab", kMore, "ab", ""},
    {"UnfinishedAtTheEnd", "3\r\nabc\r\n0\r\n\r", kMore, "abc", ""},
    {"Nothing", "", kMore, "", ""},
};

class ChunkedTable : public testing::TestWithParam<BodyCase> {
 protected:
  static void Expect(Decoded const& decoded, std::string const& how) {
    EXPECT_EQ(decoded.result, GetParam().result) << how;
    EXPECT_EQ(decoded.body, GetParam().body) << how;
    EXPECT_EQ(decoded.left, GetParam().left) << how;
  }
};

TEST_P(ChunkedTable, InOnePiece) {
  Expect(Feed({GetParam().wire}), "in one piece");
}

TEST_P(ChunkedTable, CutAtEveryOffset) {
  std::string const& wire = GetParam().wire;
  for (std::size_t cut = 0; cut < wire.size(); ++cut) {
    Expect(Feed({wire.substr(0, cut), wire.substr(cut)}), "cut at " + std::to_string(cut));
  }
}

TEST_P(ChunkedTable, ByteByByte) {
  std::vector<std::string> bytes;
  for (char c : GetParam().wire) {
    bytes.emplace_back(1, c);
  }
  Expect(Feed(bytes), "byte by byte");
}

INSTANTIATE_TEST_SUITE_P(Bodies, ChunkedTable, testing::ValuesIn(kBodies),
                         [](testing::TestParamInfo<BodyCase> const& param) { return param.param.name; });

TEST(PhrChunkedDecoder, TheLargestSizeIsTaken) {
  Decoded const decoded = Feed({"ffffffffffffffff\r\nabc"});
  EXPECT_EQ(decoded.result, kMore);
  EXPECT_EQ(decoded.body, "abc");
}

TEST(PhrChunkedDecoder, ChunksOfOneByteAreTaken) {
  std::string wire;
  for (int i = 0; i < 20000; ++i) {
    wire += "1\r\nx\r\n";
  }
  Decoded const decoded = Feed({wire + "0\r\n\r\n"});
  EXPECT_EQ(decoded.result, 0);
  EXPECT_EQ(decoded.body, std::string(20000, 'x'));
}

TEST(PhrChunkedDecoder, FramingOutOfProportionIsRefused) {
  std::string wire;
  for (int i = 0; i < 1000; ++i) {
    wire += "1;" + std::string(500, 'e') + "\r\nx\r\n";
  }
  EXPECT_EQ(Feed({wire}).result, kMalformed);
}

}  // namespace
}  // namespace Lumo::Transport::PicoHttp
