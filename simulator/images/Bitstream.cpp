#include "simulator/images/Bitstream.h"

#include <algorithm>
#include <chrono>
#include <random>
#include <stdexcept>
#include <string>

namespace orvane {
namespace {

constexpr std::size_t kWordBytes = 4;
constexpr std::size_t kSyncSearchBytes = 512;

constexpr std::uint32_t kDummy = 0xFFFFFFFF;
constexpr std::uint32_t kBusWidthSync = 0x000000BB;
constexpr std::uint32_t kBusWidthDetect = 0x11220044;
constexpr std::uint32_t kSync = 0xAA995566;
constexpr std::uint32_t kNoOperation = 0x20000000;
constexpr std::uint32_t kWriteUserAccess = 0x3001A001;  // type 1, write one word, register 0x0D

constexpr std::uint32_t kHead[] = {kDummy,
                                   kDummy,
                                   kDummy,
                                   kDummy,
                                   kDummy,
                                   kDummy,
                                   kDummy,
                                   kDummy,
                                   kBusWidthSync,
                                   kBusWidthDetect,
                                   kDummy,
                                   kDummy,
                                   kSync,
                                   kNoOperation,
                                   kNoOperation};
constexpr std::size_t kSyncWord = 12;
static_assert(kHead[kSyncWord] == kSync);
static_assert(sizeof kHead <= kBitstreamMinBytes);

void PutWord(std::span<std::uint8_t> image, std::size_t index, std::uint32_t word) {
  for (std::size_t i = 0; i < kWordBytes; ++i) {
    image[index * kWordBytes + i] = static_cast<std::uint8_t>(word >> (24 - 8 * i));
  }
}

std::uint32_t GetWord(std::span<const std::uint8_t> image, std::size_t index) {
  std::uint32_t word = 0;
  for (std::size_t i = 0; i < kWordBytes; ++i) {
    word = word << 8U | image[index * kWordBytes + i];
  }
  return word;
}

void Check(const BitstreamOptions& options) {
  if (options.bytes < kBitstreamMinBytes) {
    throw std::invalid_argument("a bitstream has at least " + std::to_string(kBitstreamMinBytes) +
                                " bytes");
  }
  if (!options.userAccess) {
    return;
  }
  const std::size_t words = options.bytes / kWordBytes;
  if (options.stampWordOffset > words - 2) {
    throw std::invalid_argument("a stamp at word offset " +
                                std::to_string(options.stampWordOffset) +
                                " does not fit: the last offset is " + std::to_string(words - 2));
  }
  if (options.stampWordOffset == kSyncWord || options.stampWordOffset + 1 == kSyncWord) {
    throw std::invalid_argument("a stamp cannot lie at word offset " +
                                std::to_string(options.stampWordOffset) + ": the sync word is at " +
                                std::to_string(kSyncWord));
  }
}

}  // namespace

std::vector<std::uint8_t> MakeBitstream(const BitstreamOptions& options) {
  Check(options);
  std::vector<std::uint8_t> image(options.bytes);
  std::mt19937 random(options.seed);
  std::generate(
      image.begin(), image.end(), [&random] { return static_cast<std::uint8_t>(random()); });
  for (std::size_t i = 0; i < image.size() / kWordBytes; ++i) {
    if (GetWord(image, i) == kWriteUserAccess) {  // once in 16 GiB
      PutWord(image, i, kNoOperation);
    }
  }
  for (std::size_t i = 0; i < std::size(kHead); ++i) {
    PutWord(image, i, kHead[i]);
  }
  if (options.userAccess) {
    PutWord(image, options.stampWordOffset, kWriteUserAccess);
    PutWord(image, options.stampWordOffset + 1, *options.userAccess);
  }
  return image;
}

bool HasPlausibleBitstream(std::span<const std::uint8_t> flash) {
  const std::size_t words = std::min(flash.size(), kSyncSearchBytes) / kWordBytes;
  for (std::size_t i = 0; i < words; ++i) {
    if (GetWord(flash, i) == kSync) {
      return true;
    }
  }
  return false;
}

std::uint32_t PackStamp(const StampTime& time) {
  const std::chrono::year_month_day date{std::chrono::year(time.year),
                                         std::chrono::month(static_cast<unsigned>(time.month)),
                                         std::chrono::day(static_cast<unsigned>(time.day))};
  if (time.year < 2000 || time.year > 2063 || time.month < 1 || time.month > 12 || time.day < 1 ||
      !date.ok()) {
    throw std::invalid_argument("a stamp holds a date from 2000-01-01 to 2063-12-31");
  }
  if (time.hour < 0 || time.hour > 23 || time.minute < 0 || time.minute > 59 || time.second < 0 ||
      time.second > 59) {
    throw std::invalid_argument("a stamp holds a time from 00:00:00 to 23:59:59");
  }
  return static_cast<std::uint32_t>(time.day) << 27U |
         static_cast<std::uint32_t>(time.month) << 23U |
         static_cast<std::uint32_t>(time.year - 2000) << 17U |
         static_cast<std::uint32_t>(time.hour) << 12U |
         static_cast<std::uint32_t>(time.minute) << 6U | static_cast<std::uint32_t>(time.second);
}

}  // namespace orvane
