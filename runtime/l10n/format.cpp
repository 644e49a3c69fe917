#include "runtime/l10n/format.h"

#include <array>
#include <cstdio>
#include <limits>

#include "runtime/errors/categories.h"

namespace Lumo::Detail {
namespace {

constexpr std::size_t kMaxIndexLength = 20;
// More than four digits of width or precision is no text that a message could want.
constexpr std::size_t kMaxNumberLength = 4;

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

std::size_t SkipDigits(boost::string_view text, std::size_t at) {
  while (at < text.size() && IsDigit(text[at])) {
    ++at;
  }
  return at;
}

/// Length of the printf flags, width and precision that `spec` begins with; npos when a number is too long.
std::size_t ConversionLength(boost::string_view spec) {
  std::size_t at = 0;
  while (at < spec.size() && boost::string_view("-+ #0").find(spec[at]) != boost::string_view::npos) {
    ++at;
  }
  std::size_t end = SkipDigits(spec, at);
  if (end - at > kMaxNumberLength) {
    return boost::string_view::npos;
  }
  if (end < spec.size() && spec[end] == '.') {
    std::size_t const precision = end + 1;
    end = SkipDigits(spec, precision);
    if (end - precision > kMaxNumberLength) {
      return boost::string_view::npos;
    }
  }
  return end;
}

void FormatText(std::ostream& out, void const* value, boost::string_view spec) {
  std::string const& text = *static_cast<std::string const*>(value);
  if (spec.empty()) {
    out << text;
    return;
  }
  // The format part becomes a printf conversion. Only what printf reads as flags, width and precision
  // reaches it: a template must not be able to name other conversions.
  std::size_t const length = ConversionLength(spec);
  bool const plain = length == spec.size();
  if (length > kMaxIndexLength || (!plain && spec[length] != 's')) {
    out << text;
    return;
  }
  std::array<char, kMaxIndexLength + 4> conversion{};
  std::snprintf(conversion.data(), conversion.size(), "%%%.*ss", static_cast<int>(length), spec.data());
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  int const size = std::snprintf(nullptr, 0, conversion.data(), text.c_str());
  if (size > 0) {
    std::string printed(static_cast<std::size_t>(size) + 1, '\0');
    std::snprintf(printed.data(), printed.size(), conversion.data(), text.c_str());
    printed.pop_back();
    out << printed;
  }
#pragma GCC diagnostic pop
  if (!plain) {
    out << spec.substr(length + 1) << 's';
  }
}

/// The leading decimal number; 0 when there is none, the largest value when it does not fit.
unsigned long ReadIndex(boost::string_view text) {
  constexpr unsigned long kMax = std::numeric_limits<unsigned long>::max();
  unsigned long value = 0;
  for (char const c : text.substr(0, kMaxIndexLength)) {
    if (!IsDigit(c)) {
      break;
    }
    auto const digit = static_cast<unsigned long>(c - '0');
    if (value > (kMax - digit) / 10) {
      return kMax;
    }
    value = value * 10 + digit;
  }
  return value;
}

}  // namespace

format_arg::format_arg(std::string const& text) : format_arg(&text, &FormatText) {}

void FormatTo(std::ostream& out, boost::string_view format, format_arg const* args, unsigned long count,
              std::error_code& ec) {
  unsigned long next = 0;
  while (!format.empty()) {
    std::size_t const brace = format.find_first_of("{}");
    out << format.substr(0, brace);
    if (brace == boost::string_view::npos) {
      return;
    }
    char const kind = format[brace];
    format.remove_prefix(brace + 1);
    if (!format.empty() && format.front() == kind) {
      out << kind;
      format.remove_prefix(1);
      continue;
    }

    std::size_t const end = format.find('}');
    boost::string_view const specifier = format.substr(0, end);
    format.remove_prefix(end == boost::string_view::npos ? format.size() : end + 1);
    std::size_t const colon = specifier.find(':');
    boost::string_view const spec =
        colon == boost::string_view::npos ? boost::string_view() : specifier.substr(colon + 1);

    unsigned long const index = ReadIndex(specifier.substr(0, colon));
    unsigned long const position = index == 0 ? next : index - 1;
    ++next;
    if (position >= count) {
      ec = FormatErrc::TooManySpecifiers;
      return;
    }
    args[position].Format(out, spec);
  }
}

}  // namespace Lumo::Detail
