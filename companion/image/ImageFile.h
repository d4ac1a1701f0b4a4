#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace companion {

/// Size of the flash of every module type, in bytes.
inline constexpr std::size_t kFlashBytes = std::size_t{16} * 1024 * 1024;
/// Size of one of its pages, in bytes.
inline constexpr std::size_t kPageBytes = 256;
/// What its bytes are after an erase.
inline constexpr std::uint8_t kErased = 0xFF;

/// What kind of configuration an image holds.
enum class ImageFormat {
  kNeither,
  kBootImage,  ///< Zynq boot image: width detection word, "XLNX", checksum (UG585, chapter 6)
  kBitstream,  ///< synchronisation word (UG470, chapter "Configuration Packets")
};

/// How the image is stored in its file.
enum class Packing {
  kPlain,
  kGzip,               ///< complete, nothing behind it
  kGzipCutShort,       ///< the file ends before the compressed data does
  kGzipDamaged,        ///< invalid compressed data, or a wrong check sum or length
  kGzipAndOtherBytes,  ///< complete, then bytes that are no gzip member
};

/// What is in an image file.
struct ImageFile {
  std::string path;
  std::uint64_t fileBytes = 0;
  std::string fileSha256;  ///< of the file as it is, 64 hexadecimal digits; empty when the file is
                           ///< too large to be read whole
  Packing packing = Packing::kPlain;
  std::optional<std::uint64_t> packingEnd;  ///< offset in the file: of the damage, or of the bytes
                                            ///< behind the compressed data
  std::vector<std::uint8_t> packed;         ///< the file as it is, where that is gzip
  std::vector<std::uint8_t> bytes;  ///< the image itself, decompressed; what could be read of it
  std::string sha256;               ///< of `bytes`; empty for an image that is too large
  bool tooLarge = false;            ///< more than kFlashBytes; `bytes` is then cut there
  bool gzipInGzip = false;          ///< `bytes` are gzip data themselves
  ImageFormat format = ImageFormat::kNeither;  ///< of `bytes`
};

/// @return the bytes of the file as it is, as far as they were read; borrowed from `image`
std::span<const std::uint8_t> BytesOfFile(const ImageFile& image);

/// Either an image file, or why it cannot be read (one line, without the program's name).
struct ImageReading {
  std::optional<ImageFile> image;
  std::string refusal;
};

/// Reads and examines an image file. Touches no device. Refuses what is no regular file, and stops as
/// soon as more than kFlashBytes are known.
ImageReading ReadImageFile(const std::string& path);

/// @return the format of an image, or of what a flash holds from address 0 on
ImageFormat FormatIn(std::span<const std::uint8_t> bytes);

/// @return how many bytes from address 0 on show the format of any contents
std::size_t FormatBytes();

/// @return the offset of the first synchronisation word within the first 4096 bytes, where an FPGA
///         expects it; nothing when there is none
std::optional<std::size_t> SynchronisationWordIn(std::span<const std::uint8_t> bytes);

/// @param target  "wend", "dax", "pyx1" or "pyx2"
/// @return the format of the images of a module type
ImageFormat FormatOf(std::string_view target);

/// @return "Zynq boot image", "bitstream" or "neither a Zynq boot image nor a bitstream"
std::string_view NameOf(ImageFormat format);

/// @param force  overrules the format, and nothing else
/// @return why `update` does not take the image for this type (one line); nothing when it does
std::optional<std::string> UnfitReason(const ImageFile& image, std::string_view target, bool force);

/// @return the SHA-256 of the bytes, 64 hexadecimal digits
std::string Sha256(const void* bytes, std::size_t count);

}  // namespace companion
