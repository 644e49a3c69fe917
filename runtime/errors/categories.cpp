#include "runtime/errors/categories.h"

#include "runtime/errors/message_table.h"

namespace Lumo {

FormatCategory const& FormatCategory::Instance() noexcept {
  static FormatCategory const instance;
  return instance;
}

char const* FormatCategory::name() const noexcept {
  return "Lumo Format Error";
}

std::string FormatCategory::message(int code) const {
  static constexpr std::string_view kTexts[] = {
      "Named argument not found.",
      "Empty Named specifier found.",
      "More specifiers than expected.",
  };
  return Detail::MessageFromTable(kTexts, "format error", code);
}

ToolsCategory const& ToolsCategory::Instance() noexcept {
  static ToolsCategory const instance;
  return instance;
}

char const* ToolsCategory::name() const noexcept {
  return "Lumo Tools Error";
}

std::string ToolsCategory::message(int code) const {
  static constexpr std::string_view kTexts[] = {
      "Named argument not found.",
      "Empty Named specifier found.",
  };
  return Detail::MessageFromTable(kTexts, "tools error", code);
}

DateTimeCategory const& DateTimeCategory::Instance() noexcept {
  static DateTimeCategory const instance;
  return instance;
}

char const* DateTimeCategory::name() const noexcept {
  return "Lumo DateTime Error";
}

std::string DateTimeCategory::message(int code) const {
  return Detail::MessageFromTable("Failed to create DateTime.", "format error", code);
}

std::error_code make_error_code(FormatErrc code) noexcept {
  return {static_cast<int>(code), FormatCategory::Instance()};
}

std::error_code make_error_code(ToolsErrc code) noexcept {
  return {static_cast<int>(code), ToolsCategory::Instance()};
}

std::error_code make_error_code(DateTimeErrc code) noexcept {
  return {static_cast<int>(code), DateTimeCategory::Instance()};
}

namespace L10n {

L10nCategory const& L10nCategory::Instance() noexcept {
  static L10nCategory const instance;
  return instance;
}

char const* L10nCategory::name() const noexcept {
  return "Lumo Localization Error";
}

std::string L10nCategory::message(int code) const {
  static constexpr std::string_view kTexts[] = {
      "Requested locale not supported",
      "Requested format locale not supported",
      "Incorrect value of accept-language or lumo-ctx-format-locale header",
      "Default message formatter - no formatString",
      "Unknown message ID",
      "Failed to load localization bundle",
      "Failed to localize ErrorValue",
  };
  return Lumo::Detail::MessageFromTable(kTexts, "localization error", code);
}

std::error_code make_error_code(L10nErrc code) noexcept {
  return {static_cast<int>(code), L10nCategory::Instance()};
}

}  // namespace L10n

namespace Asio {

AsioCategory const& AsioCategory::Instance() noexcept {
  static AsioCategory const instance;
  return instance;
}

char const* AsioCategory::name() const noexcept {
  return "Lumo Asio Error";
}

std::string AsioCategory::message(int code) const {
  return Lumo::Detail::MessageFromTable("Buffer max len error", "asio error", code);
}

std::error_code make_error_code(AsioErrc code) noexcept {
  return {static_cast<int>(code), AsioCategory::Instance()};
}

}  // namespace Asio

namespace Provider {

ProtocolCategory const& ProtocolCategory::Instance() noexcept {
  static ProtocolCategory const instance;
  return instance;
}

char const* ProtocolCategory::name() const noexcept {
  return "Lumo Protocol Error";
}

std::string ProtocolCategory::message(int code) const {
  return Lumo::Detail::MessageFromTable("Mismatching operation identifier in HTTP header and payload",
                                        "protocol error", code);
}

std::error_code make_error_code(ProtocolErrc code) noexcept {
  return {static_cast<int>(code), ProtocolCategory::Instance()};
}

}  // namespace Provider
}  // namespace Lumo
