// What the sequences are told about images and chips, in place of the classes that know formats: an
// image begins with a stamp of four letters and a letter for its format, 'B' (boot image) or 'S'
// (bitstream). `tarnwick` takes a flash with the same stamp for up to date.

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "companion/image/Decision.h"
#include "companion/image/ImageFile.h"
#include "companion/module/ModuleInterface.h"

namespace companion {

namespace {

constexpr std::size_t kStampBytes = 4;
constexpr std::size_t kBootHeaderBytes = 16;
constexpr std::size_t kPage = 256;

}  // namespace

std::size_t DumpedHeadBytes(std::string_view /*target*/) { return 2 * kPage; }

bool FindsUpToDate(std::string_view /*target*/,
                   std::span<const std::uint8_t> head,
                   std::span<const std::uint8_t> image) {
  return std::equal(head.begin(), head.begin() + kStampBytes, image.begin());
}

std::vector<std::uint8_t> PageThatDiffers(std::string_view /*target*/,
                                          std::span<const std::uint8_t> /*image*/) {
  std::vector<std::uint8_t> page(kPage, 0xFF);
  std::fill_n(page.begin(), kStampBytes, std::uint8_t{'x'});
  return page;
}

std::optional<std::string> StampText(std::string_view /*target*/,
                                     std::span<const std::uint8_t> bytes) {
  if (bytes.size() < kStampBytes || bytes[0] == 0xFF) {
    return std::nullopt;
  }
  return std::string(bytes.begin(), bytes.begin() + kStampBytes);
}

ImageFormat FormatIn(std::span<const std::uint8_t> bytes) {
  const std::uint8_t letter = bytes.size() > kStampBytes ? bytes[kStampBytes] : std::uint8_t{0};
  const bool hasHeader = bytes.size() >= kBootHeaderBytes;
  return letter == 'B' && hasHeader ? ImageFormat::kBootImage
         : letter == 'S'            ? ImageFormat::kBitstream
                                    : ImageFormat::kNeither;
}

std::size_t FormatBytes() { return 2 * kPage; }

ImageFormat FormatOf(std::string_view target) {
  return target == "wend" || target == "pyx2" ? ImageFormat::kBootImage : ImageFormat::kBitstream;
}

std::string_view NameOf(ImageFormat format) {
  return format == ImageFormat::kBootImage ? "boot image" : "bitstream";
}

std::optional<std::string> UnfitReason(const ImageFile& image,
                                       std::string_view target,
                                       bool force) {
  if (image.bytes.empty()) {
    return "it is empty";
  }
  if (!force && FormatIn(image.bytes) != FormatOf(target)) {
    return "it is of another format";
  }
  return std::nullopt;
}

std::string Sha256(const void* /*bytes*/, std::size_t count) {
  return "sum of " + std::to_string(count);
}

bool Chip::IsLockable() const { return id[0] == 0xC2; }
bool Chip::IsLockedWhole() const { return status == 0x3C; }
bool Chip::IsProtected() const { return status != 0; }

}  // namespace companion
