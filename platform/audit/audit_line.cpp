#include "platform/audit/audit_line.h"

#include <boost/locale/utf.hpp>
#include <cstdio>
#include <string_view>

namespace Orbane {
namespace {

namespace Utf = boost::locale::utf;

/// Room that is kept for the end of a line, the item "omitted" included.
constexpr std::size_t kTail = 64;
/// Each byte of a text takes six at most, `\uXXXX`.
static_assert((kMaxAuditText + 32) * 18 + kTail < kMaxAuditLine, "event, subject and object always fit");

void AppendUnit(std::string& line, unsigned unit) {
  char text[8];
  std::snprintf(text, sizeof text, "\\u%04x", unit & 0xffffU);
  line += text;
}

void AppendCodePoint(std::string& line, Utf::code_point point) {
  if (point == '"' || point == '\\') {
    line += '\\';
    line += static_cast<char>(point);
  } else if (point >= 0x20 && point < 0x7f) {
    line += static_cast<char>(point);
  } else if (point < 0x10000) {
    AppendUnit(line, point);
  } else {
    point -= 0x10000;
    AppendUnit(line, 0xd800 + (point >> 10));
    AppendUnit(line, 0xdc00 + (point & 0x3ff));
  }
}

void AppendByte(std::string& line, char byte) {
  char text[8];
  std::snprintf(text, sizeof text, "#%03o", static_cast<unsigned>(static_cast<unsigned char>(byte)));
  line += text;
}

/// The first bytes of a text that is too long, without half a character at their end.
std::string_view Cut(std::string_view text) {
  std::size_t size = kMaxAuditText;
  for (int i = 0; i < 3 && size > 0 && Utf::utf_traits<char>::is_trail(text[size]); ++i) {
    --size;
  }
  return text.substr(0, Utf::utf_traits<char>::is_trail(text[size]) ? kMaxAuditText : size);
}

void AppendText(std::string& line, char const* given) {
  std::string_view const whole = given != nullptr ? given : "";
  std::string_view const text = whole.size() > kMaxAuditText ? Cut(whole) : whole;
  line += '"';
  for (char const* at = text.begin(); at != text.end();) {
    char const* next = at;
    Utf::code_point const point = Utf::utf_traits<char>::decode(next, text.end());
    if (Utf::is_valid_codepoint(point)) {
      AppendCodePoint(line, point);
      at = next;
    } else {
      AppendByte(line, *at++);
    }
  }
  if (text.size() < whole.size()) {
    line += " [" + std::to_string(whole.size() - text.size()) + " bytes cut]";
  }
  line += '"';
}

void AppendItems(std::string& line, OrbAuditItem const* items) {
  std::string item;
  std::size_t omitted = 0;
  bool first = true;
  for (; items != nullptr && (items->name != nullptr || items->value != nullptr); ++items) {
    item = first ? "" : ",";
    AppendText(item, items->name);
    item += ':';
    AppendText(item, items->value);
    if (line.size() + item.size() + kTail > kMaxAuditLine) {
      ++omitted;
    } else {
      line += item;
      first = false;
    }
  }
  if (omitted > 0) {
    line += first ? "" : ",";
    line += R"("omitted":")" + std::to_string(omitted) + '"';
  }
}

}  // namespace

std::string AuditLine(char const* eventId, char const* subject, char const* object, bool result,
                      OrbAuditItem const* items) {
  std::string line = R"({"event":)";
  AppendText(line, eventId);
  line += R"(,"subject":)";
  AppendText(line, subject);
  line += R"(,"object":)";
  AppendText(line, object);
  line += result ? R"(,"result":true,"items":{)" : R"(,"result":false,"items":{)";
  AppendItems(line, items);
  line += "}}";
  return line;
}

}  // namespace Orbane
