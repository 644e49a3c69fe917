#include "platform/logging/test_only_log_capture.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace Orbane {
namespace {

/// Guards the lines of all captures: a reader may look while other threads log.
std::mutex mutex;
int currentLevel = -1;

}  // namespace

TestOnlyLogCapture::TestOnlyLogCapture(int level)
    : outer_(SetTestOnlyLineSink(this, level)), outerLevel_(std::exchange(currentLevel, level)) {}

TestOnlyLogCapture::~TestOnlyLogCapture() {
  currentLevel = outerLevel_;
  SetTestOnlyLineSink(outer_, outerLevel_);
}

void TestOnlyLogCapture::Take(int priority, std::string_view text) {
  std::lock_guard lock(mutex);
  lines_.push_back({priority, std::string(text)});
}

std::vector<CapturedLine> TestOnlyLogCapture::lines() const {
  std::lock_guard lock(mutex);
  return lines_;
}

std::vector<std::string> TestOnlyLogCapture::texts(int priority) const {
  std::vector<std::string> texts;
  for (CapturedLine const& line : lines()) {
    if (priority == -1 || line.priority == priority) {
      texts.push_back(line.text);
    }
  }
  return texts;
}

bool TestOnlyLogCapture::Contains(std::string const& part) const {
  std::vector<CapturedLine> const all = lines();
  return std::any_of(all.begin(), all.end(),
                     [&part](CapturedLine const& line) { return line.text.find(part) != std::string::npos; });
}

void TestOnlyLogCapture::Clear() {
  std::lock_guard lock(mutex);
  lines_.clear();
}

}  // namespace Orbane
