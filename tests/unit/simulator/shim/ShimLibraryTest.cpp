#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace {

std::string OutputOf(const std::string& command) {
  std::FILE* const pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) {
    return "";
  }
  std::string text;
  for (int byte = std::getc(pipe); byte != EOF; byte = std::getc(pipe)) {
    text += static_cast<char>(byte);
  }
  pclose(pipe);
  return text;
}

TEST(ShimLibraryTest, NeedsNothingButTheCLibrary) {
  // Any other library that it needs would be loaded into every program, also a sanitizer.
  EXPECT_EQ(OutputOf("readelf -d '" ORVANE_SHIM "' | sed -n 's/.*NEEDED.*\\[\\(.*\\)\\]/\\1/p'"),
            "libc.so.6\n");
}

TEST(ShimLibraryTest, OffersTheCallsThatAreEventsAndTheClockAndNothingElse) {
  EXPECT_EQ(OutputOf("readelf -W --dyn-syms '" ORVANE_SHIM
                     "' | awk '$5 == \"GLOBAL\" && $7 != \"UND\" {print $8}' | LC_ALL=C sort"),
            "__open64_2\n__open_2\n__read_chk\nclock_gettime\nclock_"
            "nanosleep\nclose\ndup\ndup2\ndup3\nfclose\n"
            "fopen\nfopen64\nioctl\nnanosleep\nopen\nopen64\nread\nsleep\nusleep\nwrite\nwritev\n");
}

}  // namespace
