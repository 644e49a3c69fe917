#include "platform/process/command_words.h"

namespace Orbane {
namespace {

enum class State { Between, Bare, SingleQuoted, DoubleQuoted };

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n';
}

/// What a backslash makes ordinary inside double quotes.
bool IsSpecialInDoubleQuotes(char c) {
  return c == '$' || c == '`' || c == '"' || c == '\\';
}

class Splitter {
 public:
  explicit Splitter(std::vector<std::string>& words) : words_(words) {}

  /// False when the text ends too early.
  bool Split(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
      char const c = text[i];
      if (c == '\\' && state_ != State::SingleQuoted) {
        if (++i == text.size()) {
          return false;
        }
        TakeEscaped(text[i]);
      } else {
        Take(c);
      }
    }
    if (state_ == State::Bare) {
      words_.push_back(std::move(word_));
      state_ = State::Between;
    }
    return state_ == State::Between;
  }

 private:
  void TakeEscaped(char c) {
    if (c == '\n') {
      return;  // a continued line
    }
    if (state_ == State::DoubleQuoted) {
      if (!IsSpecialInDoubleQuotes(c)) {
        word_ += '\\';
      }
    } else {
      state_ = State::Bare;
    }
    word_ += c;
  }

  void Take(char c) {
    switch (state_) {
      case State::SingleQuoted:
        TakeQuoted(c, '\'');
        break;
      case State::DoubleQuoted:
        TakeQuoted(c, '"');
        break;
      case State::Between:
      case State::Bare:
        TakeUnquoted(c);
        break;
    }
  }

  void TakeQuoted(char c, char quote) {
    if (c == quote) {
      state_ = State::Bare;
    } else {
      word_ += c;
    }
  }

  void TakeUnquoted(char c) {
    if (IsBlank(c)) {
      if (state_ == State::Bare) {
        words_.push_back(std::move(word_));
        word_.clear();
        state_ = State::Between;
      }
    } else if (c == '\'') {
      state_ = State::SingleQuoted;
    } else if (c == '"') {
      state_ = State::DoubleQuoted;
    } else {
      state_ = State::Bare;
      word_ += c;
    }
  }

  std::vector<std::string>& words_;
  std::string word_;
  State state_ = State::Between;
};

}  // namespace

bool SplitCommand(std::string_view command, std::vector<std::string>& words) {
  words.clear();
  if (command.find('\0') != std::string_view::npos || !Splitter(words).Split(command)) {
    words.clear();
    return false;
  }
  return true;
}

}  // namespace Orbane
