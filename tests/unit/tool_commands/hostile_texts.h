// Texts that have broken into command lines elsewhere.
#pragma once

#include <string>
#include <vector>

/// Several hundred, the same each time: every ASCII character in several places, and what attackers write.
std::vector<std::string> HostileTexts();
