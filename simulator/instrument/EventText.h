#pragma once

#include <string_view>

namespace orvane {

/// Whether a fault rule with this text matches an event. `part` must begin where a word of the event
/// begins: at the start, after a character that is no letter or digit, at a capital after a small
/// letter. One that begins with neither a letter nor a digit matches anywhere, an empty one always.
bool MatchesEvent(std::string_view event, std::string_view part);

}  // namespace orvane
