#include "transport/phr_request.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "transport/text.h"

namespace Lumo::Transport::PicoHttp {

namespace {

// RFC 9110, 5.6.2: the characters of a token.
constexpr std::array<bool, 256> MakeTokenTable() {
  constexpr boost::string_view kCharacters =
      "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ!#$%&'*+-.^_`|~";
  std::array<bool, 256> table{};
  for (std::size_t i = 0; i < kCharacters.size(); ++i) {
    table[static_cast<unsigned char>(kCharacters[i])] = true;
  }
  return table;
}

constexpr std::array<bool, 256> kToken = MakeTokenTable();

constexpr bool IsToken(char c) noexcept {
  return kToken[static_cast<unsigned char>(c)];
}

/// Control bytes: below the blank, and DEL.
constexpr bool IsControl(char c) noexcept {
  auto const byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7f;
}

enum class Outcome { Done, Malformed, Incomplete };

/// Reads along the bytes of a head. All functions leave the position behind what they took.
class Cursor {
 public:
  Cursor(char const* begin, char const* end) : position_(begin), end_(end) {}

  char const* position() const { return position_; }
  bool AtEnd() const { return position_ == end_; }
  char Peek() const { return *position_; }
  void Skip() { ++position_; }

  /// Takes token characters up to the first other one.
  Outcome TakeToken(boost::string_view& token) {
    char const* const begin = position_;
    while (position_ != end_ && IsToken(*position_)) {
      ++position_;
    }
    token = {begin, static_cast<std::size_t>(position_ - begin)};
    return AtEnd() ? Outcome::Incomplete : Outcome::Done;
  }

  /// Takes exactly these characters.
  Outcome TakeText(boost::string_view text) {
    for (char expected : text) {
      if (AtEnd()) {
        return Outcome::Incomplete;
      }
      if (Peek() != expected) {
        return Outcome::Malformed;
      }
      Skip();
    }
    return Outcome::Done;
  }

  /// Takes a line feed, with or without a carriage return in front.
  Outcome TakeLineEnd() {
    if (AtEnd()) {
      return Outcome::Incomplete;
    }
    if (Peek() == '\r') {
      Skip();
    }
    return TakeText("\n");
  }

  /// Takes everything up to and with the line's end. Horizontal tabs are the only control bytes allowed.
  Outcome TakeLine(boost::string_view& line) {
    char const* const begin = position_;
    while (position_ != end_ && (!IsControl(*position_) || *position_ == '\t')) {
      ++position_;
    }
    line = {begin, static_cast<std::size_t>(position_ - begin)};
    return TakeLineEnd();
  }

 private:
  char const* position_;
  char const* end_;
};

boost::string_view Trim(boost::string_view text) noexcept {
  while (!text.empty() && IsBlank(text.front())) {
    text.remove_prefix(1);
  }
  while (!text.empty() && IsBlank(text.back())) {
    text.remove_suffix(1);
  }
  return text;
}

Outcome TakeRequestLine(Cursor& cursor, PhrRequest& request) {
  Outcome outcome = cursor.TakeToken(request.method);
  if (outcome == Outcome::Done) {
    outcome = cursor.TakeText(" ");
  }
  if (outcome != Outcome::Done) {
    return outcome;
  }
  char const* const path = cursor.position();
  while (!cursor.AtEnd() && !IsControl(cursor.Peek()) && cursor.Peek() != ' ') {
    cursor.Skip();
  }
  request.path = {path, static_cast<std::size_t>(cursor.position() - path)};
  if (cursor.AtEnd()) {
    return Outcome::Incomplete;
  }
  if (request.path.empty()) {
    return Outcome::Malformed;
  }
  outcome = cursor.TakeText(" HTTP/1.");
  if (outcome != Outcome::Done) {
    return outcome;
  }
  if (cursor.AtEnd()) {
    return Outcome::Incomplete;
  }
  char const version = cursor.Peek();
  if (version < '0' || version > '9') {
    return Outcome::Malformed;
  }
  request.minorVersion = version - '0';
  cursor.Skip();
  return cursor.TakeLineEnd();
}

Outcome TakeHeaderLine(Cursor& cursor, PhrHeader& header) {
  Outcome outcome = cursor.TakeToken(header.name);
  if (outcome != Outcome::Done) {
    return outcome;
  }
  if (header.name.empty()) {
    return Outcome::Malformed;
  }
  outcome = cursor.TakeText(":");
  if (outcome != Outcome::Done) {
    return outcome;
  }
  boost::string_view line;
  outcome = cursor.TakeLine(line);
  header.value = Trim(line);
  return outcome;
}

Outcome TakeHeaders(Cursor& cursor, PhrHeaders& headers) {
  std::size_t const capacity = std::min(headers.count, kMaxHeaders);
  headers.count = 0;
  for (;;) {
    if (cursor.AtEnd()) {
      return Outcome::Incomplete;
    }
    if (cursor.Peek() == '\r' || cursor.Peek() == '\n') {
      return cursor.TakeLineEnd();
    }
    if (headers.count == capacity) {
      return Outcome::Malformed;
    }
    Outcome const outcome = TakeHeaderLine(cursor, headers.entries[headers.count]);
    if (outcome != Outcome::Done) {
      return outcome;
    }
    ++headers.count;
  }
}

/// Whether an empty line ends in [from, end): a line feed followed by another, with or without a carriage
/// return between.
bool HasEmptyLine(char const* from, char const* end) noexcept {
  for (char const* at = from; at != end;) {
    auto const* const feed =
        static_cast<char const*>(std::memchr(at, '\n', static_cast<std::size_t>(end - at)));
    if (feed == nullptr) {
      return false;
    }
    at = feed + 1;
    char const* const next = at != end && *at == '\r' ? at + 1 : at;
    if (next != end && *next == '\n') {
      return true;
    }
  }
  return false;
}

}  // namespace

int PhrParse(boost::asio::const_buffer head, PhrRequest& request, unsigned long lastLength) {
  auto const* const begin = static_cast<char const*>(head.data());
  char const* const end = begin + head.size();
  // The empty line needs the line feed in front of it, and a carriage return may stand between the two.
  constexpr std::size_t kOverlap = 2;
  std::size_t const seen = std::min<std::size_t>(lastLength, head.size());
  if (seen != 0 && !HasEmptyLine(begin + (seen > kOverlap ? seen - kOverlap : 0), end)) {
    return kPhrIncomplete;
  }
  std::size_t const capacity = request.headers.count;
  Cursor cursor(begin, end);
  Outcome outcome = Outcome::Done;
  if (!cursor.AtEnd() && (cursor.Peek() == '\r' || cursor.Peek() == '\n')) {
    outcome = cursor.TakeLineEnd();
  }
  if (outcome == Outcome::Done) {
    outcome = TakeRequestLine(cursor, request);
  }
  if (outcome == Outcome::Done) {
    outcome = TakeHeaders(cursor, request.headers);
  }
  if (outcome != Outcome::Done) {
    request.headers.count = capacity;
    return outcome == Outcome::Malformed ? kPhrMalformed : kPhrIncomplete;
  }
  return static_cast<int>(cursor.position() - begin);
}

void TolowerAndSortHeaders(PhrHeaders& headers) {
  for (PhrHeader const& header : headers) {
    InplaceLower(header.name);
  }
  // Insertion: stable, no memory of its own, and heads hold few headers.
  for (PhrHeader* next = headers.begin(); next != headers.end(); ++next) {
    PhrHeader const moved = *next;
    PhrHeader* slot = next;
    while (slot != headers.begin() && moved.name < (slot - 1)->name) {
      *slot = *(slot - 1);
      --slot;
    }
    *slot = moved;
  }
}

}  // namespace Lumo::Transport::PicoHttp
