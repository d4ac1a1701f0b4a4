#include "tests/e2e/FlashContents.h"

#include <algorithm>

namespace program_test {

Bytes PaddedTo(std::size_t bytes, Bytes contents) {
  contents.resize(bytes, 0xFF);
  return contents;
}

int SectorsOf(std::size_t bytes) { return static_cast<int>((bytes + 65535) / 65536); }

Bytes Flashed(const Bytes& image, const Bytes& before) {
  Bytes flash = PaddedTo(kFlashBytes, before);
  std::fill_n(flash.begin(), SectorsOf(image.size()) * 65536, 0xFF);
  std::copy(image.begin(), image.end(), flash.begin());
  return flash;
}

}  // namespace program_test
