#include "companion/image/ImageFile.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <stdexcept>

#include "companion/image/Gunzip.h"
#include "companion/image/ModuleTypes.h"
#include "companion/image/RegularFile.h"
#include "programmers/BootHeader.h"

namespace companion {

namespace {

// Gzip data of an image are hardly larger than the image. What is larger than this is not read.
constexpr std::size_t kLargestFileBytes = 2 * kFlashBytes;

// Boot header, little-endian words at their offsets (UG585, table "Zynq-7000 Boot ROM Header").
constexpr std::size_t kWidthDetectionAt = 0x20;
constexpr std::size_t kIdentificationAt = 0x24;
constexpr std::size_t kChecksumAt = 0x48;  // the inverted sum of the words from 0x20 up to here
constexpr std::uint32_t kWidthDetection = 0xAA995566;
constexpr std::uint32_t kIdentification = 0x584C4E58;  // "XLNX"
constexpr std::size_t kWordBytes = 4;

constexpr std::array<std::uint8_t, kWordBytes> kSynchronisationWord = {0xAA, 0x99, 0x55, 0x66};
constexpr std::size_t kSynchronisationSearchBytes = 4096;

std::uint32_t WordAt(std::span<const std::uint8_t> bytes, std::size_t offset) {
  std::uint32_t word = 0;
  for (std::size_t i = 0; i < kWordBytes; ++i) {
    word |= std::uint32_t{bytes[offset + i]} << (8 * i);
  }
  return word;
}

bool IsBootImage(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < kChecksumAt + kWordBytes) {
    return false;
  }
  std::uint32_t sum = 0;
  for (std::size_t at = kWidthDetectionAt; at < kChecksumAt; at += kWordBytes) {
    sum += WordAt(bytes, at);
  }
  return WordAt(bytes, kWidthDetectionAt) == kWidthDetection &&
         WordAt(bytes, kIdentificationAt) == kIdentification && WordAt(bytes, kChecksumAt) == ~sum;
}

/// Takes the bytes of a plain file, or of as much of it as was read.
void TakePlain(std::vector<std::uint8_t> file, ImageFile& image) {
  image.bytes = std::move(file);
  if (image.bytes.size() > kFlashBytes) {
    image.bytes.resize(kFlashBytes);
    image.tooLarge = true;
  }
}

void TakeGzip(std::vector<std::uint8_t> file, ImageFile& image) {
  image.packing = Packing::kGzip;
  image.packed = std::move(file);
  if (image.packed.size() > kLargestFileBytes) {
    image.tooLarge = true;
    return;
  }
  Gunzipped gunzipped = Gunzip(image.packed, kFlashBytes);
  image.packing = gunzipped.packing;
  image.packingEnd = gunzipped.end;
  image.bytes = std::move(gunzipped.bytes);
  image.tooLarge = gunzipped.tooLarge;
}

/// @return why no type takes the image, whatever its format
std::optional<std::string> DamageOf(const ImageFile& image) {
  if (image.tooLarge) {
    return "it is larger than the flash (" + std::to_string(kFlashBytes) + " bytes)";
  }
  if (image.packing == Packing::kGzipDamaged) {
    return "its gzip data are damaged near byte " + std::to_string(image.packingEnd.value_or(0));
  }
  if (image.packing == Packing::kGzipCutShort) {
    return "its gzip data are cut short";
  }
  if (image.bytes.empty()) {
    return "it is empty";
  }
  if (image.gzipInGzip) {
    return "it holds gzip data in gzip data";
  }
  return std::nullopt;
}

}  // namespace

std::span<const std::uint8_t> BytesOfFile(const ImageFile& image) {
  return image.packing == Packing::kPlain ? image.bytes : image.packed;
}

ImageReading ReadImageFile(const std::string& path) {
  RegularFile file(path);
  std::vector<std::uint8_t> bytes;
  if (file.Refusal().empty()) {
    file.ReadUpTo(kFlashBytes + 1, bytes);
  }
  const bool isGzip = IsGzip(bytes);
  if (isGzip && file.Refusal().empty()) {
    file.ReadUpTo(kLargestFileBytes + 1, bytes);
  }
  if (!file.Refusal().empty()) {
    return {.image = std::nullopt, .refusal = file.Refusal()};
  }
  const bool isWhole = bytes.size() <= (isGzip ? kLargestFileBytes : kFlashBytes);
  ImageFile image{.path = path};
  image.fileBytes = isWhole ? bytes.size() : std::max<std::uint64_t>(file.Size(), bytes.size());
  if (isWhole) {
    image.fileSha256 = Sha256(bytes.data(), bytes.size());
  }
  if (isGzip) {
    TakeGzip(std::move(bytes), image);
  } else {
    TakePlain(std::move(bytes), image);
  }
  if (!image.tooLarge) {
    image.sha256 = Sha256(image.bytes.data(), image.bytes.size());
  }
  image.gzipInGzip = isGzip && IsGzip(image.bytes);
  image.format = FormatIn(image.bytes);
  return {.image = std::move(image), .refusal = ""};
}  // GCOVR_EXCL_BR_LINE: clean-up after an exception

ImageFormat FormatIn(std::span<const std::uint8_t> bytes) {
  if (IsBootImage(bytes)) {
    return ImageFormat::kBootImage;
  }
  return SynchronisationWordIn(bytes) ? ImageFormat::kBitstream : ImageFormat::kNeither;
}

std::size_t FormatBytes() { return kSynchronisationSearchBytes; }

std::optional<std::size_t> SynchronisationWordIn(std::span<const std::uint8_t> bytes) {
  const auto searched = bytes.first(std::min(bytes.size(), kSynchronisationSearchBytes));
  const auto found = std::search(
      searched.begin(), searched.end(), kSynchronisationWord.begin(), kSynchronisationWord.end());
  if (found == searched.end()) {
    return std::nullopt;
  }
  return static_cast<std::size_t>(found - searched.begin());
}

ImageFormat FormatOf(std::string_view target) { return TypeOf(target).format; }

std::string_view NameOf(ImageFormat format) {
  switch (format) {
    case ImageFormat::kBootImage:
      return "Zynq boot image";
    case ImageFormat::kBitstream:
      return "bitstream";
    case ImageFormat::kNeither:
      break;
  }
  return "neither a Zynq boot image nor a bitstream";
}

std::optional<std::string> UnfitReason(const ImageFile& image,
                                       std::string_view target,
                                       bool force) {
  if (auto damage = DamageOf(image)) {
    return damage;
  }
  const ImageFormat wanted = FormatOf(target);
  if (wanted == ImageFormat::kBootImage && image.bytes.size() < boot_header::kHeaderBytes) {
    return "it is shorter than a boot header (" + std::to_string(boot_header::kHeaderBytes) +
           " bytes)";
  }
  if (image.format != wanted && !force) {
    const bool isNone = image.format == ImageFormat::kNeither;
    return (isNone ? "it is " : "it is a ") + std::string(NameOf(image.format)) + "; a " +
           std::string(target) + " takes a " + std::string(NameOf(wanted));
  }
  return std::nullopt;
}

std::string Sha256(const void* bytes, std::size_t count) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned length = 0;
  if (::EVP_Digest(bytes, count, digest.data(), &length, ::EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("no SHA-256");  // GCOVR_EXCL_LINE: libcrypto has it
  }
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (unsigned i = 0; i < length; ++i) {
    text += kDigits[digest.at(i) >> 4U];
    text += kDigits[digest.at(i) & 0xFU];
  }
  return text;
}

}  // namespace companion
