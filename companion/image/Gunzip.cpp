#include "companion/image/Gunzip.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <new>

namespace companion {

namespace {

constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;
constexpr int kGzipWindowBits = 15 + 16;  // the largest window, in a gzip wrapper

/// The decompression of one member after another.
class Inflater {
 public:
  explicit Inflater(std::span<const std::uint8_t> file) {
    if (::inflateInit2(&stream_, kGzipWindowBits) != Z_OK) {
      throw std::bad_alloc();  // GCOVR_EXCL_LINE: there is no other reason
    }
    // The interface of zlib is without const; it only reads from next_in. No file has more bytes
    // than an uInt can count: they are read up to a limit.
    stream_.next_in = const_cast<Bytef*>(file.data());
    stream_.avail_in = static_cast<uInt>(file.size());
  }
  Inflater(const Inflater&) = delete;
  Inflater& operator=(const Inflater&) = delete;
  ~Inflater() { ::inflateEnd(&stream_); }

  [[nodiscard]] std::span<const std::uint8_t> Rest() const {
    return {stream_.next_in, stream_.avail_in};
  }

  void StartMember() { ::inflateReset(&stream_); }

  /// Decompresses the next piece.
  /// @return what inflate() returns
  int Next(std::vector<std::uint8_t>& bytes) {
    stream_.next_out = piece_.data();
    stream_.avail_out = kPieceBytes;
    const int result = ::inflate(&stream_, Z_NO_FLUSH);
    const auto count = static_cast<std::ptrdiff_t>(kPieceBytes - stream_.avail_out);
    bytes.insert(bytes.end(), piece_.begin(), piece_.begin() + count);
    return result;
  }

 private:
  z_stream stream_{};
  std::array<std::uint8_t, kPieceBytes> piece_{};
};

}  // namespace

bool IsGzip(std::span<const std::uint8_t> bytes) {
  constexpr std::uint8_t kMagic[] = {0x1F, 0x8B};
  return bytes.size() >= std::size(kMagic) && bytes[0] == kMagic[0] && bytes[1] == kMagic[1];
}

Gunzipped Gunzip(std::span<const std::uint8_t> file, std::size_t limit) {
  Gunzipped result;
  Inflater inflater(file);
  for (;;) {
    const int end = inflater.Next(result.bytes);
    if (result.bytes.size() > limit) {
      result.bytes.resize(limit);
      result.tooLarge = true;
      return result;
    }
    if (end == Z_OK) {
      continue;
    }
    if (end == Z_BUF_ERROR) {  // nothing is left to read
      result.packing = Packing::kGzipCutShort;
      return result;
    }
    const std::size_t at = file.size() - inflater.Rest().size();
    if (end != Z_STREAM_END) {
      result.packing = Packing::kGzipDamaged;
      result.end = at;
      return result;
    }
    if (inflater.Rest().empty()) {
      return result;
    }
    if (!IsGzip(inflater.Rest())) {
      result.packing = Packing::kGzipAndOtherBytes;
      result.end = at;
      return result;
    }
    inflater.StartMember();
  }
}

}  // namespace companion
