#include "simulator/images/BootImage.h"

#include <algorithm>
#include <random>
#include <stdexcept>

namespace orvane {
namespace {

// Boot header, little-endian words at their offsets.
constexpr std::size_t kWidthDetectionAt = 0x20;
constexpr std::size_t kIdentificationAt = 0x24;
constexpr std::size_t kHeaderVersionAt = 0x2C;
constexpr std::size_t kSourceOffsetAt = 0x30;
constexpr std::size_t kImageLengthAt = 0x34;
constexpr std::size_t kTotalLengthAt = 0x40;
constexpr std::size_t kQspiConfigurationAt = 0x44;
constexpr std::size_t kChecksumAt = 0x48;
constexpr std::size_t kTextAt = 0x4C;
constexpr std::size_t kTextBytes = 76;
static_assert(kTextAt + kTextBytes == kZynqImageMinBytes);

constexpr std::uint32_t kWidthDetection = 0xAA995566;
constexpr std::uint32_t kIdentification = 0x584C4E58;  // "XLNX"
constexpr std::uint32_t kBranchToSelf = 0xEAFFFFFE;    // the vector table, one word an exception
constexpr std::uint32_t kHeaderVersion = 0x01010000;
constexpr std::uint32_t kQspiConfiguration = 1;
constexpr char kDelimiter = '#';

void PutWord(std::span<std::uint8_t> image, std::size_t at, std::uint32_t word) {
  for (std::size_t i = 0; i < 4; ++i) {
    image[at + i] = static_cast<std::uint8_t>(word >> (8 * i));
  }
}

std::uint32_t GetWord(std::span<const std::uint8_t> image, std::size_t at) {
  std::uint32_t word = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    word |= std::uint32_t{image[at + i]} << (8 * i);
  }
  return word;
}

std::uint32_t Checksum(std::span<const std::uint8_t> image) {
  std::uint32_t sum = 0;
  for (std::size_t at = kWidthDetectionAt; at < kChecksumAt; at += 4) {
    sum += GetWord(image, at);
  }
  return ~sum;
}

}  // namespace

std::vector<std::uint8_t> MakeZynqImage(const ZynqImageOptions& options) {
  if (options.bytes < kZynqImageMinBytes) {
    throw std::invalid_argument("a Zynq image has at least " + std::to_string(kZynqImageMinBytes) +
                                " bytes");
  }
  for (const std::string& part : {options.fileName, options.buildDate}) {
    if (part.find(kDelimiter) != std::string::npos) {
      throw std::invalid_argument("'" + part +
                                  "' contains a '#', which ends a file name and a build date");
    }
  }
  const std::string text = options.fileName + kDelimiter + options.buildDate + kDelimiter;
  if (text.size() > kTextBytes) {
    throw std::invalid_argument("the file name and the build date have " +
                                std::to_string(text.size() - 2) + " bytes together, " +
                                std::to_string(kTextBytes - 2) + " at most fit");
  }

  std::vector<std::uint8_t> image(options.bytes);
  for (std::size_t at = 0; at < kWidthDetectionAt; at += 4) {
    PutWord(image, at, kBranchToSelf);
  }
  const auto payloadBytes = static_cast<std::uint32_t>(options.bytes - kZynqImageMinBytes);
  PutWord(image, kWidthDetectionAt, kWidthDetection);
  PutWord(image, kIdentificationAt, kIdentification);
  PutWord(image, kHeaderVersionAt, kHeaderVersion);
  PutWord(image, kSourceOffsetAt, static_cast<std::uint32_t>(kZynqImageMinBytes));
  PutWord(image, kImageLengthAt, payloadBytes);
  PutWord(image, kTotalLengthAt, payloadBytes);
  PutWord(image, kQspiConfigurationAt, kQspiConfiguration);
  PutWord(image, kChecksumAt, Checksum(image));
  std::copy(text.begin(), text.end(), image.begin() + kTextAt);
  std::mt19937 random(options.seed);
  std::generate(image.begin() + kZynqImageMinBytes, image.end(), [&random] {
    return static_cast<std::uint8_t>(random());
  });
  return image;
}

bool HasPlausibleBootHeader(std::span<const std::uint8_t> flash) {
  return flash.size() >= kTextAt && GetWord(flash, kWidthDetectionAt) == kWidthDetection &&
         GetWord(flash, kIdentificationAt) == kIdentification &&
         GetWord(flash, kChecksumAt) == Checksum(flash);
}

}  // namespace orvane
