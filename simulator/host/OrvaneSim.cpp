#include <cstddef>
#include <iostream>
#include <span>

#include "simulator/host/Options.h"
#include "simulator/host/RunOnInstrument.h"

int main(int argc, char** argv) {
  return orvane::Reported([&] {
    const orvane::StartState start = orvane::SecureStart();
    const std::span<const char* const> words(argv, static_cast<std::size_t>(argc));
    const orvane::Options options = orvane::ParseOptions(words.subspan(argc > 0 ? 1 : 0));
    if (options.answer) {
      std::cout << *options.answer << std::flush;
      return 0;
    }
    return orvane::RunOnInstrument(options, start);
  });
}
