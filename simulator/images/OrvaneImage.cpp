#include <cstddef>
#include <iostream>
#include <span>

#include "simulator/images/ImageMaker.h"

int main(int argc, char** argv) {
  const std::span<const char* const> words(argv, static_cast<std::size_t>(argc));
  return orvane::RunImageMaker(words.subspan(argc > 0 ? 1 : 0), std::cout, std::cerr);
}
