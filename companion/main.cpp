#include <unistd.h>

#include <iostream>
#include <span>

#include "app/StandardDescriptors.h"
#include "companion/RunTarnwickctl.h"

int main(int argc, char** argv) {
  openMissingStandardDescriptors();
  const std::span words(argv, static_cast<std::size_t>(argc));
  return companion::RunTarnwickctl(
      words.subspan(words.empty() ? 0 : 1), std::cout, std::cerr, ::isatty(STDERR_FILENO) == 1);
}
