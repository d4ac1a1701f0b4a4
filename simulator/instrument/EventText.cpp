#include "simulator/instrument/EventText.h"

#include <cstddef>

namespace orvane {

namespace {

bool IsSmall(char letter) { return letter >= 'a' && letter <= 'z'; }
bool IsCapital(char letter) { return letter >= 'A' && letter <= 'Z'; }
bool BelongsToWord(char character) {
  return IsSmall(character) || IsCapital(character) || (character >= '0' && character <= '9');
}

/// @return whether a word begins at `first`, after the character `before`
bool WordBegins(char before, char first) {
  return !BelongsToWord(before) || !BelongsToWord(first) || (IsSmall(before) && IsCapital(first));
}

}  // namespace

bool MatchesEvent(std::string_view event, std::string_view part) {
  for (std::size_t at = event.find(part); at != std::string_view::npos;
       at = event.find(part, at + 1)) {
    if (at == 0 || part.empty() || WordBegins(event[at - 1], part.front())) {
      return true;
    }
  }
  return false;
}

}  // namespace orvane
