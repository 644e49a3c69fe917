// Splits command texts into words.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Orbane {

/// Splits `command` by the shell's quoting rules (POSIX Shell Command Language, section 2.2): blanks, tabs
/// and line feeds separate words; a backslash makes the next character an ordinary one and removes a line
/// feed; single quotes keep everything; double quotes keep everything but a backslash before $, `, ", \ or a
/// line feed. No other character means anything. False when a quote or backslash has no partner, or when the
/// text holds a NUL; `words` is then empty.
bool SplitCommand(std::string_view command, std::vector<std::string>& words);

}  // namespace Orbane
