#include "companion/report/Console.h"

#include <algorithm>
#include <ostream>

namespace companion {

std::string AsOneLine(std::string_view text) {
  constexpr unsigned char kFirstPrintable = 0x20;
  constexpr unsigned char kDelete = 0x7F;
  std::string line(text);
  std::replace_if(
      line.begin(),
      line.end(),
      [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return byte < kFirstPrintable || byte == kDelete;
      },
      '?');
  return line;
}

void Console::Say(std::string_view line) {
  EndProgress();
  err_ << "tarnwickctl: " << AsOneLine(line) << std::endl;
}

void Console::ShowProgress(std::size_t done, std::size_t total) {
  constexpr std::size_t kWhole = 100;
  const std::size_t percent = total == 0 ? kWhole : done * kWhole / total;
  if (!isTerminal_ || (isProgressShown_ && percent == shownPercent_)) {
    return;
  }
  err_ << "\rreading the flash: " << percent << " %" << std::flush;
  shownPercent_ = percent;
  isProgressShown_ = true;
}

void Console::EndProgress() {
  if (isProgressShown_) {
    err_ << std::endl;
    isProgressShown_ = false;
  }
}

void Console::PassOn(std::string_view bytes, bool isError) {
  EndProgress();
  (isError || json_ ? err_ : out_) << bytes << std::flush;
}

void Console::Report(std::string_view text) {
  EndProgress();
  out_ << text << std::flush;
}

}  // namespace companion
