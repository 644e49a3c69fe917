// The character filter for caller's text that enters a command line.
#pragma once

#include <string>

namespace LifeCycle {

/// True for an empty text and for one of white space only, as isspace tells in the "C" locale.
bool IsBlank(std::string const& text);

/// False for a blank text and for one that holds any of ;\*+%$~!"':&|` or a line feed. Blanks and tabs
/// inside, < > ( ) # ? = [ ] { } and ^ pass.
bool IsSafeArgument(std::string const& text);

}  // namespace LifeCycle
