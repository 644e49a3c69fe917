// The runtime's failure vocabulary: one error category a field, with its codes.
#pragma once

#include <string>
#include <system_error>

namespace Lumo {

/// Codes of FormatCategory.
enum class FormatErrc { ArgumentNotFound = 1, EmptySpecifier = 2, TooManySpecifiers = 3 };

/// Formatting of message templates.
class FormatCategory final : public std::error_category {
 public:
  static FormatCategory const& Instance() noexcept;
  char const* name() const noexcept override;
  std::string message(int code) const override;
};

/// Codes of ToolsCategory.
enum class ToolsErrc { ArgumentNotFound = 1, EmptySpecifier = 2 };

class ToolsCategory final : public std::error_category {
 public:
  static ToolsCategory const& Instance() noexcept;
  char const* name() const noexcept override;
  std::string message(int code) const override;
};

/// Codes of DateTimeCategory.
enum class DateTimeErrc { CreateFailed = 1 };

class DateTimeCategory final : public std::error_category {
 public:
  static DateTimeCategory const& Instance() noexcept;
  char const* name() const noexcept override;
  std::string message(int code) const override;
};

std::error_code make_error_code(FormatErrc code) noexcept;
std::error_code make_error_code(ToolsErrc code) noexcept;
std::error_code make_error_code(DateTimeErrc code) noexcept;

namespace L10n {

/// Codes of L10nCategory.
enum class L10nErrc {
  LocaleNotSupported = 1,
  FormatLocaleNotSupported = 2,
  IncorrectHeader = 3,
  NoFormatString = 4,
  UnknownMessageId = 5,
  BundleLoadFailed = 6,
  LocalizeErrorFailed = 7,
};

/// Localisation.
class L10nCategory final : public std::error_category {
 public:
  static L10nCategory const& Instance() noexcept;
  char const* name() const noexcept override;
  std::string message(int code) const override;
};

std::error_code make_error_code(L10nErrc code) noexcept;

}  // namespace L10n

namespace Asio {

/// Codes of AsioCategory.
enum class AsioErrc { BufferMaxLength = 1 };

/// Stream buffers.
class AsioCategory final : public std::error_category {
 public:
  static AsioCategory const& Instance() noexcept;
  char const* name() const noexcept override;
  std::string message(int code) const override;
};

std::error_code make_error_code(AsioErrc code) noexcept;

}  // namespace Asio

namespace Provider {

/// Codes of ProtocolCategory.
enum class ProtocolErrc { OperationMismatch = 1 };

/// Requests that contradict themselves.
class ProtocolCategory final : public std::error_category {
 public:
  static ProtocolCategory const& Instance() noexcept;
  char const* name() const noexcept override;
  std::string message(int code) const override;
};

std::error_code make_error_code(ProtocolErrc code) noexcept;

}  // namespace Provider
}  // namespace Lumo

template <>
struct std::is_error_code_enum<Lumo::FormatErrc> : std::true_type {};
template <>
struct std::is_error_code_enum<Lumo::ToolsErrc> : std::true_type {};
template <>
struct std::is_error_code_enum<Lumo::DateTimeErrc> : std::true_type {};
template <>
struct std::is_error_code_enum<Lumo::L10n::L10nErrc> : std::true_type {};
template <>
struct std::is_error_code_enum<Lumo::Asio::AsioErrc> : std::true_type {};
template <>
struct std::is_error_code_enum<Lumo::Provider::ProtocolErrc> : std::true_type {};
