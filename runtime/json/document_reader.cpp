#include "runtime/json/document_reader.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "runtime/data/arena.h"
#include "runtime/json/annotations.h"
#include "runtime/json/member_names.h"
#include "runtime/json/reason.h"
#include "runtime/json/text_scanner.h"

namespace Lumo::Protocol::Json {
namespace {

using Data::Arena;
using Data::DataValue;

// An array or object whose end hasn't been read.
struct Frame {
  std::uint32_t firstChild;  // in Scratch::items or Scratch::members
  std::uint32_t offset;      // of the bracket
  std::uint16_t depth;       // of the value that it is
  bool isObject;
  bool annotated;  // has a member with an "@" that needs a look
};

// Stacks of the values that wait for their container's end. Kept between documents, so that a small one needs
// no memory but its arena.
struct Scratch {
  std::vector<Frame> frames;
  std::vector<DataValue const*> items;
  std::vector<Arena::NamedChild> members;
  std::vector<std::uint32_t> order;

  void Reset() {
    constexpr std::size_t kKept = 4096;  // entries; some 100 KiB a thread
    if (items.capacity() > kKept)
      items = {};
    if (members.capacity() > kKept)
      members = {};
    if (order.capacity() > kKept)
      order = {};
    frames.clear();
    items.clear();
    members.clear();
  }
};

// Lends this thread's scratch, or a fresh one to a reader inside a reader.
class ScratchLease {
 public:
  ScratchLease() : scratch_(kept ? std::move(kept) : std::make_unique<Scratch>()) {}
  ScratchLease(ScratchLease const&) = delete;
  ScratchLease& operator=(ScratchLease const&) = delete;
  ~ScratchLease() {
    scratch_->Reset();
    kept = std::move(scratch_);
  }
  Scratch& operator*() const { return *scratch_; }

 private:
  static thread_local std::unique_ptr<Scratch> kept;
  std::unique_ptr<Scratch> scratch_;
};
thread_local std::unique_ptr<Scratch> ScratchLease::kept;

char* SkipSpace(char* at) {
  while (*at == ' ' || *at == '\n' || *at == '\r' || *at == '\t')
    ++at;
  return at;
}

class Reader {
 public:
  Reader(Arena& arena, Scratch& scratch, char* text, std::size_t size, ReadForm form, ReadProblem& problem)
      : arena_(arena), scratch_(scratch), begin_(text), end_(text + size), form_(form), problem_(problem) {}

  // The document's value; null when there is none.
  DataValue const* Run() {
    char* at = begin_;
    for (;;) {
      DataValue const* value = Begin(at);
      while (value) {
        if (scratch_.frames.empty())
          return Finish(at, value);
        value = Attach(at, value);
      }
      if (!at)
        return nullptr;
    }
  }

 private:
  // Both give a whole value with `at` behind it, or null: then `at` is where the next value begins, or null
  // after a failure.
  DataValue const* Begin(char*& at);
  DataValue const* Attach(char*& at, DataValue const* value);

  DataValue const* Finish(char* at, DataValue const* value);
  DataValue const* Text(char*& at);
  DataValue const* Number(char*& at);
  DataValue const* Literal(char*& at, std::string_view word, DataValue const* value);
  DataValue const* Open(char*& at, bool isObject);
  bool MemberName(char*& at);
  DataValue const* CloseArray(char*& at);
  DataValue const* CloseObject(char*& at);
  DataValue const* Annotated(Frame const& frame, std::span<Arena::NamedChild> members);

  // Sets `at` to null.
  DataValue const* Fail(char*& at, std::string reason) {
    problem_ = {ReadProblem::Cause::Document, static_cast<std::size_t>(at - begin_), std::move(reason)};
    at = nullptr;
    return nullptr;
  }
  DataValue const* Fail(char*& at, Scanned const& scanned) {
    at = scanned.next;
    return scanned.next >= end_ ? Unexpected(at, "") : Fail(at, scanned.problem);
  }
  DataValue const* Unexpected(char*& at, std::string_view wanted) {
    if (at >= end_)
      return Fail(at = end_, "the document ends too early");
    return Fail(at, Concat({"expected ", wanted}));
  }

  Arena& arena_;
  Scratch& scratch_;
  char* const begin_;
  char* const end_;
  ReadForm const form_;
  ReadProblem& problem_;
  unsigned depth_ = 1;         // of the value that comes next
  bool insideParams_ = false;  // of an envelope
};

DataValue const* Reader::Begin(char*& at) {
  at = SkipSpace(at);
  if (depth_ > kMostValueDepth) {
    return Fail(at, Concat({"values are nested deeper than ", std::to_string(kMostValueDepth)}));
  }
  switch (*at) {
    case '"':
      return Text(at);
    case '{':
    case '[':
      return Open(at, *at == '{');
    case 't':
      return Literal(at, "true", arena_.Boolean(true));
    case 'f':
      return Literal(at, "false", arena_.Boolean(false));
    case 'n':
      return Literal(at, "null", arena_.Void());
    default:
      if (*at == '-' || (*at >= '0' && *at <= '9'))
        return Number(at);
      return Unexpected(at, "a value");
  }
}

DataValue const* Reader::Attach(char*& at, DataValue const* value) {
  Frame const& frame = scratch_.frames.back();
  at = SkipSpace(at);
  if (frame.isObject) {
    scratch_.members.back().value = value;
    if (*at == ',') {
      ++at;
      MemberName(at);
      return nullptr;
    }
    if (*at == '}')
      return CloseObject(at);
    return Unexpected(at, "',' or '}'");
  }
  scratch_.items.push_back(value);
  if (*at == ',') {
    ++at;
    depth_ = frame.depth + 1U;
    return nullptr;
  }
  if (*at == ']')
    return CloseArray(at);
  return Unexpected(at, "',' or ']'");
}

DataValue const* Reader::Finish(char* at, DataValue const* value) {
  at = SkipSpace(at);
  if (at < end_)
    return Fail(at, "something follows the document");
  return value;
}

DataValue const* Reader::Text(char*& at) {
  std::string_view text;
  Scanned const scanned = ScanString(at + 1, text);
  if (scanned.problem)
    return Fail(at, scanned);
  at = scanned.next;
  return arena_.MakeText<Data::StringValue>(text);
}

DataValue const* Reader::Number(char*& at) {
  Json::Number number;
  Scanned const scanned = ScanNumber(at, number);
  if (scanned.problem)
    return Fail(at, scanned);
  at = scanned.next;
  return number.isInteger ? arena_.Integer(number.integer) : arena_.Double(number.real);
}

DataValue const* Reader::Literal(char*& at, std::string_view word, DataValue const* value) {
  for (char const character : word) {
    if (*at != character)
      return Unexpected(at, Concat({"'", word, "'"}));
    ++at;
  }
  return value;
}

DataValue const* Reader::Open(char*& at, bool isObject) {
  if (scratch_.frames.size() == kMostBrackets) {
    return Fail(at, Concat({"brackets are nested deeper than ", std::to_string(kMostBrackets)}));
  }
  std::size_t const firstChild = isObject ? scratch_.members.size() : scratch_.items.size();
  scratch_.frames.push_back({static_cast<std::uint32_t>(firstChild), static_cast<std::uint32_t>(at - begin_),
                             static_cast<std::uint16_t>(depth_), isObject, false});
  at = SkipSpace(at + 1);
  if (isObject) {
    if (*at == '}')
      return CloseObject(at);
    MemberName(at);
    return nullptr;
  }
  if (*at == ']')
    return CloseArray(at);
  ++depth_;
  return nullptr;
}

// Reads a name and its colon, and adds the member to the open object.
bool Reader::MemberName(char*& at) {
  at = SkipSpace(at);
  if (*at != '"')
    return Unexpected(at, "a member's name"), false;
  std::string_view name;
  Scanned const scanned = ScanString(at + 1, name);
  if (scanned.problem)
    return Fail(at, scanned), false;
  at = SkipSpace(scanned.next);
  if (*at != ':')
    return Unexpected(at, "':'"), false;
  ++at;

  Frame& frame = scratch_.frames.back();
  depth_ = frame.depth + 1U;
  scratch_.members.push_back({name, nullptr});
  bool const plain = form_ == ReadForm::Direct || (form_ == ReadForm::Envelope && frame.depth == 1);
  if (plain) {
    if (form_ == ReadForm::Envelope)
      insideParams_ = name == "params";
  } else if (!name.empty() && name[0] == '@') {
    frame.annotated = true;
    if (!HoldsNestedValue(name))
      depth_ = frame.depth;
  }
  return true;
}

DataValue const* Reader::CloseArray(char*& at) {
  ++at;
  Frame const frame = scratch_.frames.back();
  scratch_.frames.pop_back();
  std::span<DataValue const* const> const items(scratch_.items.begin() + frame.firstChild,
                                                scratch_.items.end());
  DataValue const* const list = arena_.List(Data::ListValue::Form::List, items);
  scratch_.items.resize(frame.firstChild);
  return list;
}

DataValue const* Reader::CloseObject(char*& at) {
  Frame const frame = scratch_.frames.back();
  scratch_.frames.pop_back();
  std::span<Arena::NamedChild> const members(scratch_.members.begin() + frame.firstChild,
                                             scratch_.members.end());
  std::size_t const duplicate = FindDuplicate(members, scratch_.order);
  if (duplicate < members.size()) {
    return Fail(at, Concat({"member ", Quoted(members[duplicate].name),
                            " comes twice in the object that ends here"}));
  }
  DataValue const* const value =
      frame.annotated ? Annotated(frame, members) : arena_.MakeCompound<Data::StructValue>({}, members);
  scratch_.members.resize(frame.firstChild);
  at = value ? at + 1 : nullptr;
  return value;
}

DataValue const* Reader::Annotated(Frame const& frame, std::span<Arena::NamedChild> members) {
  std::string reason;
  DataValue const* const value = ResolveAnnotations(arena_, members, reason);
  if (value)
    return value;
  bool const goesOn = form_ == ReadForm::Envelope;
  if (!goesOn || (insideParams_ && !problem_)) {
    problem_ = {ReadProblem::Cause::Annotation, frame.offset, std::move(reason)};
  }
  // Of a kind that no member of an envelope may have, so that the fault doesn't pass for a null.
  return goesOn ? arena_.Optional(nullptr) : nullptr;
}

}  // namespace

Data::DataValuePtr ReadDocument(std::string_view text, ReadForm form, ReadProblem& problem) {
  problem = {};
  auto refuse = [&problem](std::size_t offset, char const* reason) {
    problem = {ReadProblem::Cause::Document, offset, reason};
    return nullptr;
  };
  if (text.size() > std::numeric_limits<std::uint32_t>::max() / 2)
    return refuse(0, "the document is too large");
  if (text.starts_with("\xEF\xBB\xBF"))
    return refuse(0, "a byte order mark");
  if (std::size_t const bad = FindBadUtf8(text); bad < text.size())
    return refuse(bad, "bytes that aren't UTF-8");

  // Measured on documents of many shapes: values take one to four times the text's room. A small document
  // fits the first block, a large one starts with a block for the text and grows.
  constexpr std::size_t kValuesAtFirst = 16384;
  std::size_t const copySize = text.size() + kScanPadding;
  auto const arena = Arena::Create(copySize + std::min(text.size() * 4 + 128, kValuesAtFirst));
  char* const copy = static_cast<char*>(arena->Allocate(copySize));
  if (!text.empty())
    std::memcpy(copy, text.data(), text.size());
  std::memset(copy + text.size(), 0, kScanPadding);

  ScratchLease const scratch;
  DataValue const* const value = Reader(*arena, *scratch, copy, text.size(), form, problem).Run();
  return arena->Share(value);
}

}  // namespace Lumo::Protocol::Json
