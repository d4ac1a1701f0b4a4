#include "tests/e2e/simulator/ModuleImage.h"

#include <cstdint>
#include <vector>

#include "simulator/images/Bitstream.h"
#include "simulator/images/BootImage.h"

namespace orvane {

std::string ModuleImage(const std::string& type, int year, std::size_t bytes) {
  const auto seed = static_cast<std::uint32_t>(year);
  std::vector<std::uint8_t> image;
  if (type == "wend" || type == "pyx2") {
    image = MakeZynqImage(
        {.buildDate = std::to_string(year) + "-05-06 07:08:09", .bytes = bytes, .seed = seed});
  } else {
    image = MakeBitstream(
        {.bytes = bytes, .userAccess = PackStamp({year, 5, 6, 7, 8, 9}), .seed = seed});
  }
  return {image.begin(), image.end()};
}

}  // namespace orvane
