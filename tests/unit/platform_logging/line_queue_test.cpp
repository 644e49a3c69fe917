#include "platform/logging/line_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

using Orbane::LineQueue;
using Batch = LineQueue::Batch;
using Wait = LineQueue::Wait;
using namespace std::chrono_literals;

/// Bytes that a line takes besides its text.
constexpr std::size_t kHeadBytes = 16;

std::vector<std::string> Texts(Batch& batch) {
  std::vector<std::string> texts;
  Batch::Line line;
  while (batch.Next(line)) {
    texts.emplace_back(line.text);
  }
  return texts;
}

TEST(LineQueue, GivesLinesInOrderWithAllTheyHave) {
  LineQueue queue(1000);
  ASSERT_TRUE(queue.Push(2, 77, "[a=b] ", "first"));
  ASSERT_TRUE(queue.Push(4, 78, "", ""));
  Batch batch;
  queue.Take(batch, Wait::Lines, 0ms);
  Batch::Line line;
  ASSERT_TRUE(batch.Next(line));
  EXPECT_EQ(line.priority, 2);
  EXPECT_EQ(line.seconds, 77);
  EXPECT_EQ(line.text, "[a=b] first");
  ASSERT_TRUE(batch.Next(line));
  EXPECT_EQ(line.priority, 4);
  EXPECT_EQ(line.text, "");
  EXPECT_FALSE(batch.Next(line));
  EXPECT_TRUE(batch.empty());
}

TEST(LineQueue, HoldsExactlyItsCapacity) {
  LineQueue queue(2 * (kHeadBytes + 10));
  EXPECT_TRUE(queue.Push(0, 0, "", std::string(10, 'a')));
  EXPECT_TRUE(queue.Push(0, 0, "12345", "12345"));
  EXPECT_FALSE(queue.DropIfFull()) << "full to the last byte, but nobody was refused";
  EXPECT_FALSE(queue.Push(0, 0, "", ""));
  EXPECT_TRUE(queue.DropIfFull());
  EXPECT_FALSE(queue.Push(0, 0, "", ""));
  Batch batch;
  queue.Take(batch, Wait::Lines, 0ms);
  EXPECT_EQ(batch.dropped, 3U);
  EXPECT_EQ(Texts(batch).size(), 2U);
  EXPECT_FALSE(queue.DropIfFull()) << "there is room again";
  EXPECT_TRUE(queue.Push(0, 0, "", "again"));
  queue.Take(batch, Wait::Lines, 0ms);
  EXPECT_EQ(batch.dropped, 0U) << "told once";
  EXPECT_EQ(Texts(batch), std::vector<std::string>{"again"});
}

TEST(LineQueue, NoLineSlipsInAfterARefusedOne) {
  LineQueue queue(kHeadBytes + 10);
  EXPECT_FALSE(queue.Push(0, 0, "", std::string(11, 'a'))) << "one byte too many";
  EXPECT_FALSE(queue.Push(0, 0, "", "small"));
  Batch batch;
  queue.Take(batch, Wait::Lines, 0ms);
  EXPECT_EQ(batch.dropped, 2U);
  EXPECT_TRUE(batch.empty());
  EXPECT_TRUE(queue.Push(0, 0, "", std::string(10, 'a')));
}

TEST(LineQueue, AuditLinesHaveARoomOfTheirOwn) {
  std::size_t const line = kHeadBytes + 10;
  LineQueue queue(line, 2 * line);
  EXPECT_FALSE(queue.Push(0, 0, "", std::string(11, 'a')));
  EXPECT_TRUE(queue.PushAudit(1, 5, std::string(10, 'b'))) << "other lines are refused";
  EXPECT_TRUE(queue.PushAudit(1, 5, std::string(10, 'c')));
  EXPECT_TRUE(queue.PushAudit(1, 5, std::string(10, 'd')));
  EXPECT_FALSE(queue.PushAudit(1, 5, ""));
  Batch batch;
  queue.Take(batch, Wait::Lines, 0ms);
  EXPECT_EQ(batch.dropped, 1U);
  EXPECT_EQ(batch.auditDropped, 1U);
  Batch::Line got;
  ASSERT_TRUE(batch.Next(got));
  EXPECT_TRUE(got.audit);
  EXPECT_EQ(got.priority, 1);
  EXPECT_EQ(got.seconds, 5);
  EXPECT_EQ(got.text, std::string(10, 'b'));
  EXPECT_EQ(Texts(batch), (std::vector<std::string>{std::string(10, 'c'), std::string(10, 'd')}));

  EXPECT_TRUE(queue.PushAudit(1, 5, ""));
  queue.Take(batch, Wait::Lines, 0ms);
  EXPECT_EQ(batch.auditDropped, 0U) << "told once";
}

TEST(LineQueue, AuditLinesLeaveLessForOthers) {
  LineQueue queue(kHeadBytes + 10, kHeadBytes);
  EXPECT_TRUE(queue.PushAudit(0, 0, "audit"));
  EXPECT_FALSE(queue.Push(0, 0, "", ""));
  Batch batch;
  queue.Take(batch, Wait::Lines, 0ms);
  Batch::Line line;
  ASSERT_TRUE(batch.Next(line));
  EXPECT_TRUE(line.audit);
  EXPECT_TRUE(queue.Push(0, 0, "", ""));
  queue.Take(batch, Wait::Lines, 0ms);
  ASSERT_TRUE(batch.Next(line));
  EXPECT_FALSE(line.audit);
}

TEST(LineQueue, ADroppedAuditLineWakesNobodyButIsNotForgotten) {
  LineQueue queue(0, 0);
  EXPECT_FALSE(queue.PushAudit(0, 0, ""));
  Batch batch;
  queue.Take(batch, Wait::Lines, 0ms);  // returns at once: there is something to tell
  EXPECT_EQ(batch.auditDropped, 1U);
  EXPECT_TRUE(batch.empty());
}

TEST(LineQueue, HalfOfTheAuditRoomEndsALinger) {
  LineQueue queue(kHeadBytes, 4 * kHeadBytes);
  std::atomic<bool> taken{false};
  Batch batch;
  EXPECT_TRUE(queue.PushAudit(0, 0, ""));
  EXPECT_TRUE(queue.PushAudit(0, 0, ""));
  EXPECT_TRUE(queue.PushAudit(0, 0, ""));
  queue.Take(batch, Wait::Linger, 1ms);  // not yet: ends with the time
  EXPECT_EQ(Texts(batch).size(), 3U);

  std::thread reader([&] {
    queue.Take(batch, Wait::Linger, 60s);
    taken = true;
  });
  while (!taken) {
    queue.PushAudit(0, 0, "");
    std::this_thread::yield();
  }
  reader.join();
  EXPECT_GE(Texts(batch).size(), 4U);
}

TEST(LineQueue, ASleepingReaderIsWoken) {
  LineQueue queue(1000);
  std::thread writer([&queue] { queue.Push(0, 0, "", "wake"); });
  Batch batch;
  queue.Take(batch, Wait::Lines, 0ms);
  writer.join();
  EXPECT_EQ(Texts(batch), std::vector<std::string>{"wake"});
}

TEST(LineQueue, LingeringEndsWithoutLines) {
  LineQueue queue(1000);
  Batch batch;
  queue.Take(batch, Wait::Linger, 1ms);
  EXPECT_TRUE(batch.empty());
}

TEST(LineQueue, FlushWaitsForTheHandingOn) {
  LineQueue queue(1000);
  EXPECT_TRUE(queue.Flush(0ms)) << "nothing to wait for";
  queue.Push(0, 0, "", "a");
  EXPECT_FALSE(queue.Flush(1ms)) << "nobody reads";
  std::thread reader([&queue] {
    Batch batch;
    queue.Take(batch, Wait::Lines, 0ms);
    queue.Done();
  });
  EXPECT_TRUE(queue.Flush(60s));
  reader.join();
}

TEST(LineQueue, FlushEndsALinger) {
  LineQueue queue(1000);
  queue.Push(0, 0, "", "a");
  std::thread reader([&queue] {
    Batch batch;
    queue.Take(batch, Wait::Linger, 60s);
    queue.Done();
  });
  EXPECT_TRUE(queue.Flush(60s));
  reader.join();
}

TEST(LineQueue, FlushEndsWhenTheReaderGivesUp) {
  LineQueue queue(1000);
  queue.Push(0, 0, "", "a");
  std::thread reader([&queue] {
    Batch batch;
    queue.Take(batch, Wait::Linger, 60s);  // ends when the flush waits
    queue.GiveUpFlush();
  });
  EXPECT_FALSE(queue.Flush(60s));
  reader.join();
}

TEST(LineQueue, ManyWritersLoseNothing) {
  constexpr int kWriters = 4;
  constexpr int kLines = 5000;
  LineQueue queue(1 << 16);
  std::vector<std::thread> writers;
  writers.reserve(kWriters);
  for (int w = 0; w < kWriters; ++w) {
    writers.emplace_back([&queue, w] {
      for (int i = 0; i < kLines; ++i) {
        std::string const text = std::to_string(w) + ":" + std::to_string(i);
        while (queue.DropIfFull() || !queue.Push(0, 0, "", text)) {
          std::this_thread::yield();
        }
      }
    });
  }
  std::vector<int> next(kWriters, 0);
  int total = 0;
  Batch batch;
  while (total < kWriters * kLines) {
    queue.Take(batch, Wait::Lines, 0ms);
    for (std::string const& text : Texts(batch)) {
      int& expected = next[static_cast<std::size_t>(text[0] - '0')];
      ASSERT_EQ(text.substr(2), std::to_string(expected)) << "in order for each writer";
      ++expected;
      ++total;
    }
    queue.Done();
  }
  for (std::thread& writer : writers) {
    writer.join();
  }
}

}  // namespace
