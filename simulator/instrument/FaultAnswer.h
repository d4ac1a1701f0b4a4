#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/instrument/EventKind.h"

namespace orvane {

/// Whether a D-Bus error can have this name: two or more elements, separated by '.', of letters,
/// digits and '_', none of which begins with a digit; at most 255 bytes.
bool IsDBusErrorName(std::string_view name);

/// Whether a D-Bus message can carry this text: UTF-8 without null characters.
bool IsDBusString(std::string_view text);

/// Whole numbers of 32 bits with white space between them; an empty text is an empty list.
/// @return nothing when `text` is anything else
std::optional<std::vector<int>> ParseNumbers(std::string_view text);

/// Whether `answer` can come back from every event that a fault rule with this kind and text matches.
/// @return nothing when it can; else the end of a sentence that begins with the answer
std::optional<std::string> ProblemWithAnswer(EventKind kind,
                                             std::string_view text,
                                             std::string_view answer);

}  // namespace orvane
