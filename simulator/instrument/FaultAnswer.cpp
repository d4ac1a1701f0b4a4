#include "simulator/instrument/FaultAnswer.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "simulator/instrument/Event.h"
#include "simulator/instrument/EventText.h"
#include "simulator/instrument/SpiSettings.h"

namespace orvane {

namespace {

constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kBlanks = " \t\n\v\f\r";

bool IsDigit(char character) { return kDigits.find(character) != std::string_view::npos; }

bool IsElementOfName(std::string_view element) {
  constexpr std::string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_";
  return !element.empty() && !IsDigit(element.front()) &&
         std::all_of(element.begin(), element.end(), [&](char character) {
           return IsDigit(character) || kLetters.find(character) != std::string_view::npos;
         });
}

/// One kind of UTF-8 sequence: how it begins, and which code points are not written shorter.
struct Sequence {
  unsigned mask;
  unsigned lead;
  std::size_t bytes;
  std::uint32_t first;
};
constexpr Sequence kSequences[] = {
    {0x80, 0x00, 1, 0x00}, {0xE0, 0xC0, 2, 0x80}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, 0x10000}};
constexpr unsigned kContinuationBits = 6;
constexpr unsigned kContinuationMask = 0xC0;
constexpr unsigned kContinuation = 0x80;

bool IsCodePoint(std::uint32_t point) {
  constexpr std::uint32_t kLastCodePoint = 0x10FFFF;
  constexpr std::uint32_t kFirstSurrogate = 0xD800;
  constexpr std::uint32_t kLastSurrogate = 0xDFFF;
  return point <= kLastCodePoint && (point < kFirstSurrogate || point > kLastSurrogate);
}

/// @return how many bytes the character has that `text` begins with; 0: it is not valid
std::size_t CharacterBytes(std::string_view text) {
  const auto byteAt = [&](std::size_t at) -> unsigned {
    return static_cast<unsigned char>(text[at]);
  };
  const auto* const sequence =
      std::find_if(std::begin(kSequences), std::end(kSequences), [&](const Sequence& known) {
        return (byteAt(0) & known.mask) == known.lead;
      });
  if (sequence == std::end(kSequences) || text.size() < sequence->bytes) {
    return 0;
  }
  std::uint32_t point = byteAt(0) & ~sequence->mask;
  for (std::size_t i = 1; i < sequence->bytes; ++i) {
    if ((byteAt(i) & kContinuationMask) != kContinuation) {
      return 0;
    }
    point = point << kContinuationBits | (byteAt(i) & ~kContinuationMask);
  }
  return point >= sequence->first && IsCodePoint(point) ? sequence->bytes : 0;
}

// --- What each event carries --------------------------------------------------------------------

/// The number at the end of a rule's text: when it hits the call for one slot, that is the slot.
unsigned SlotIn(std::string_view text) {
  const std::size_t last = text.find_last_not_of(kDigits);
  const std::string_view digits = last == std::string_view::npos ? text : text.substr(last + 1);
  unsigned slot = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), slot);
  return slot;
}

std::optional<std::string> ProblemWithCall(std::string_view text, std::string_view answer) {
  constexpr const char* kLocations = "GetModuleLocations";
  if (MatchesEvent(DBusEvent(kLocations).text, text) && !ParseNumbers(answer)) {
    return std::string("cannot be the answer of ") + kLocations +
           " (whole numbers with blanks between them)";
  }
  for (const char* const method : {"GetI2CBus", "GetSPIDev"}) {
    if (MatchesEvent(DBusEvent(method, SlotIn(text)).text, text) && !IsDBusString(answer)) {
      return std::string("cannot be the answer of ") + method + " (UTF-8 without \\x00)";
    }
  }
  return std::nullopt;
}

/// Whether a rule with this text matches the request to read this setting, of any device.
bool HitsRequest(SpiSetting setting, std::string_view text) {
  const std::string request = ReadSettingEvent("", setting).text;  // " SPI_IOC_RD_MODE"
  const std::size_t blank = text.find(' ');
  return blank == std::string_view::npos ? MatchesEvent(request, text)
                                         : request.starts_with(text.substr(blank));
}

std::optional<std::string> ProblemWithSetting(SpiSetting setting, std::string_view answer) {
  const std::uint32_t largest = SettingMaximum(setting);
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(answer.data(), answer.data() + answer.size(), number);
  if (!answer.empty() && error == std::errc() && end == answer.data() + answer.size() &&
      number <= largest) {
    return std::nullopt;
  }
  return "cannot be the answer of" + ReadSettingEvent("", setting).text + " (a number from 0 to " +
         std::to_string(largest) + ")";
}

std::optional<std::string> ProblemWithRequest(std::string_view text, std::string_view answer) {
  // A text that is part of no request is one of a path, on which there are all requests.
  const bool anyRequest = std::none_of(kSpiSettings.begin(), kSpiSettings.end(), [&](auto setting) {
    return HitsRequest(setting, text);
  });
  for (const SpiSetting setting : kSpiSettings) {
    if (!anyRequest && !HitsRequest(setting, text)) {
      continue;
    }
    if (auto problem = ProblemWithSetting(setting, answer)) {
      return problem;
    }
  }
  return std::nullopt;
}

}  // namespace

bool IsDBusErrorName(std::string_view name) {
  constexpr std::size_t kLongest = 255;
  if (name.size() > kLongest || name.find('.') == std::string_view::npos) {
    return false;
  }
  for (;;) {
    const std::size_t dot = name.find('.');
    if (!IsElementOfName(name.substr(0, dot))) {
      return false;
    }
    if (dot == std::string_view::npos) {
      return true;
    }
    name.remove_prefix(dot + 1);
  }
}

bool IsDBusString(std::string_view text) {
  while (!text.empty()) {
    const std::size_t bytes = CharacterBytes(text);
    if (bytes == 0 || text.front() == '\0') {
      return false;
    }
    text.remove_prefix(bytes);
  }
  return true;
}

std::optional<std::vector<int>> ParseNumbers(std::string_view text) {
  std::vector<int> numbers;
  for (;;) {
    const std::size_t start = text.find_first_not_of(kBlanks);
    if (start == std::string_view::npos) {
      return numbers;
    }
    text.remove_prefix(start);
    const std::string_view word = text.substr(0, text.find_first_of(kBlanks));
    int number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    if (error != std::errc() || end != word.data() + word.size()) {
      return std::nullopt;
    }
    numbers.push_back(number);
    text.remove_prefix(word.size());
  }
}

std::optional<std::string> ProblemWithAnswer(EventKind kind,
                                             std::string_view text,
                                             std::string_view answer) {
  switch (kind) {
    case EventKind::kDBus:
      return ProblemWithCall(text, answer);
    case EventKind::kIoctl:
      return ProblemWithRequest(text, answer);
    default:  // bytes, whatever they are
      return std::nullopt;
  }
}

}  // namespace orvane
