// Formatting of message templates: "{1}", "{}", "{1:10}", "{{".
#pragma once

#include <boost/utility/string_view.hpp>
#include <ostream>
#include <string>
#include <system_error>

namespace Lumo::Detail {

/// One argument: a borrowed value and the function that prints it. The value must outlive it.
class format_arg {
 public:
  /// `spec` is the part of the specifier behind the colon.
  using Formatter = void (*)(std::ostream& out, void const* value, boost::string_view spec);

  explicit format_arg(std::string const& text);
  format_arg(void const* value, Formatter formatter) : value_(value), formatter_(formatter) {}

  void Format(std::ostream& out, boost::string_view spec) const { formatter_(out, value_, spec); }

 private:
  void const* value_;
  Formatter formatter_;
};

/// Writes `format` with its specifiers replaced. A number N stands for argument N, counted from 1; 0 or no
/// number for the argument at the running position, which moves by one with every specifier. A specifier
/// behind the last argument sets `ec` to FormatErrc::TooManySpecifiers and ends the output there; otherwise
/// `ec` is left alone.
void FormatTo(std::ostream& out, boost::string_view format, format_arg const* args, unsigned long count,
              std::error_code& ec);

}  // namespace Lumo::Detail
