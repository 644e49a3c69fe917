#include "support/argument_filter.h"

#include <algorithm>
#include <cctype>

namespace LifeCycle {

bool IsBlank(std::string const& text) {
  return std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isspace(c) != 0; });
}

bool IsSafeArgument(std::string const& text) {
  return !IsBlank(text) && text.find_first_of(";\\*+%$~!\"':&|`\n") == std::string::npos;
}

}  // namespace LifeCycle
