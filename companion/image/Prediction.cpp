#include "companion/image/Prediction.h"

#include <algorithm>

#include "companion/image/Decision.h"
#include "companion/image/ModuleTypes.h"
#include "programmers/BootHeader.h"

namespace companion {

namespace {

// Exit codes of the program.
constexpr int kSuccess = 0;
constexpr int kProgramFailed = 6;
constexpr int kUpToDate = 11;
constexpr int kAborted = 134;  // 128 + SIGABRT

Prediction Exit(int code, const std::string& what) {
  return {.end = Prediction::End::kExit,
          .exitCode = code,
          .text = std::to_string(code) + " (" + what + ")"};
}

/// The head of a flash after an image was written: its sectors are erased before.
/// @param head  before
std::vector<std::uint8_t> Written(const ImageFile& image,
                                  std::string_view target,
                                  std::span<const std::uint8_t> head) {
  const std::size_t count = DumpedHeadBytes(target);
  if (image.bytes.empty()) {
    return {head.begin(), head.begin() + static_cast<std::ptrdiff_t>(count)};
  }
  std::vector<std::uint8_t> written = BlankHead(target);
  std::copy_n(image.bytes.begin(), std::min(image.bytes.size(), count), written.begin());
  return written;
}

std::string WhatIsWritten(const ImageFile& image) {
  if (image.bytes.empty()) {
    return "nothing is erased or written";
  }
  return image.packing == Packing::kGzipCutShort ? "only what is before the cut is written"
                                                 : "written";
}

std::string WhenItStarts(const ModuleType& type) {
  return type.resetsAfterWrite ? "; 7 when the FPGA does not start from it"
                               : "; in use at the next power-on";
}

}  // namespace

Prediction Predict(const ImageFile& image,
                   std::string_view target,
                   std::span<const std::uint8_t> head) {
  const ModuleType& type = TypeOf(target);
  // Stamp and date are looked for in the file as it is, never in what gzip data hold.
  const std::span<const std::uint8_t> file = BytesOfFile(image);
  const bool hasBootHeader = type.format == ImageFormat::kBootImage;
  if (hasBootHeader && file.size() < boot_header::kHeaderBytes) {
    return {.end = Prediction::End::kException,
            .exitCode = kAborted,
            .text =
                "134 (an exception: the file is shorter than a boot header; nothing is "
                "written)"};
  }
  // A stamp behind what was read of a large file is not known.
  const bool isDecided = hasBootHeader || !image.tooLarge || StampText(target, file).has_value();
  if (isDecided && FindsUpToDate(target, head, file)) {
    return Exit(kUpToDate, "up to date, nothing is written");
  }
  if (image.tooLarge) {
    return {.end = Prediction::End::kUnknown,
            .text = "not predicted (the image is larger than the flash)"};
  }
  if (image.packing == Packing::kGzipDamaged) {
    return {.end = Prediction::End::kNever,
            .text = "runs for ever (damaged gzip data; nothing is erased or written)"};
  }
  const std::string what = WhatIsWritten(image);
  if (type.comparesAfterWrite && !FindsUpToDate(target, Written(image, target, head), file)) {
    return Exit(kProgramFailed, what + ", but it looks for the date in the file as it is");
  }
  return Exit(kSuccess, what + WhenItStarts(type));
}

std::vector<std::uint8_t> BlankHead(std::string_view target) {
  return std::vector<std::uint8_t>(DumpedHeadBytes(target), kErased);
}

std::vector<std::uint8_t> HeadThatHolds(const ImageFile& image, std::string_view target) {
  return Written(image, target, BlankHead(target));
}

std::vector<std::uint8_t> HeadOfAnother(const ImageFile& image, std::string_view target) {
  std::vector<std::uint8_t> head = PageThatDiffers(target, BytesOfFile(image));
  head.resize(DumpedHeadBytes(target), kErased);
  return head;
}

}  // namespace companion
