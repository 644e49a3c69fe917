#include "transport/buffer_span.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Lumo::Asio {
namespace {

PieceList PiecesOf(std::vector<std::string> const& texts) {
  PieceList pieces;
  for (std::string const& text : texts) {
    pieces.push_back(boost::asio::buffer(text));
  }
  return pieces;
}

std::string TextOf(BufferSpan span) {
  std::string text;
  for (boost::asio::const_buffer const& piece : span) {
    text.append(static_cast<char const*>(piece.data()), piece.size());
  }
  return text;
}

/// Writes everything in steps of which `perStep` bytes get through.
std::vector<std::string> Steps(std::vector<std::string> const& texts, std::size_t first, std::size_t last,
                               std::size_t perStep) {
  auto pieces = PiecesOf(texts);
  WriteCursor cursor(pieces, first, last);
  std::vector<std::string> steps;
  while (!cursor.Done()) {
    std::string const step = TextOf(cursor.Step()).substr(0, perStep);
    steps.push_back(step);
    cursor.Advance(step.size());
  }
  return steps;
}

std::string Joined(std::vector<std::string> const& texts) {
  std::string all;
  for (std::string const& text : texts) {
    all += text;
  }
  return all;
}

TEST(WriteCursor, GivesAllPiecesInOneStepWhenTheyFit) {
  EXPECT_EQ(Steps({"a", "bc", "def"}, 0, 3, 100), (std::vector<std::string>{"abcdef"}));
  EXPECT_EQ(Steps({"a", "bc", "def"}, 1, 2, 100), (std::vector<std::string>{"bc"}));
}

TEST(WriteCursor, GoesOnAfterAnyPartialWrite) {
  std::vector<std::string> const texts = {"a", "bc", "def", "", "ghij"};
  for (std::size_t perStep = 1; perStep <= 10; ++perStep) {
    EXPECT_EQ(Joined(Steps(texts, 0, texts.size(), perStep)), "abcdefghij") << perStep;
  }
}

TEST(WriteCursor, BoundsTheBytesOfAStep) {
  std::vector<std::string> const texts = {"head", std::string(kMaxWrite, 'x'),
                                          std::string(2 * kMaxWrite, 'y'), "end"};
  std::vector<std::string> const steps = Steps(texts, 0, texts.size(), 10 * kMaxWrite);
  ASSERT_EQ(steps.size(), 4U);
  EXPECT_EQ(steps[0].size(), kMaxWrite);
  EXPECT_EQ(steps[1].size(), kMaxWrite);
  EXPECT_EQ(steps[2].size(), kMaxWrite);
  EXPECT_EQ(steps[3].size(), 7U);
  EXPECT_EQ(Joined(steps), Joined(texts));
  EXPECT_EQ(Joined(Steps(texts, 0, texts.size(), 50000)), Joined(texts));
}

TEST(WriteCursor, BoundsThePiecesOfAStep) {
  std::vector<std::string> const texts(kMaxPieces + 1, "x");
  std::vector<std::string> const steps = Steps(texts, 0, texts.size(), 1000);
  ASSERT_EQ(steps.size(), 2U);
  EXPECT_EQ(steps[0].size(), kMaxPieces);
  EXPECT_EQ(steps[1].size(), 1U);
}

}  // namespace
}  // namespace Lumo::Asio
