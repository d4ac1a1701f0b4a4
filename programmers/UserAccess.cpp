#include "programmers/UserAccess.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace user_access {

namespace {

constexpr std::uint32_t kWriteUserAccess = 0x3001A001;
constexpr std::array<std::uint8_t, 4> kHeaderBytes = {0x30, 0x01, 0xA0, 0x01};  // in a file
constexpr std::size_t kWordBytes = 4;
constexpr std::size_t kBlockBytes = 64;  // that are searched at once
constexpr std::size_t kReadBytes = std::size_t{64} * 1024;
static_assert(kReadBytes % kWordBytes == 0);

constexpr int kFirstYear = 2000;
constexpr std::size_t kMaxDescriptionBytes = 80;  // more than six numbers of type int can take

std::uint32_t BigEndian(const std::uint8_t* bytes) {
  return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
         std::uint32_t{bytes[2]} << 8 | bytes[3];
}

/// Without a branch for each word, so that the compiler compares several at once.
bool HasHeader(std::span<const std::uint8_t, kBlockBytes> words) {
  bool hasHeader = false;
  for (std::size_t at = 0; at < kBlockBytes; at += kWordBytes) {
    std::uint32_t word = 0;
    std::memcpy(&word, &words[at], kWordBytes);
    hasHeader |= word == std::bit_cast<std::uint32_t>(kHeaderBytes);
  }
  return hasHeader;
}

/// Reads a file word by word, big-endian, and takes the word after the packet header.
class UserAccessSearch {
 public:
  /// @param words  the next whole words of the file
  /// @return the time stamp, when it is among them
  std::optional<std::uint32_t> Next(std::span<const std::uint8_t> words) {
    while (!words.empty()) {
      const bool isAfterHeader = word_ == kWriteUserAccess;
      if (!isAfterHeader && words.size() >= kBlockBytes && !HasHeader(words.first<kBlockBytes>())) {
        word_ = BigEndian(&words[kBlockBytes - kWordBytes]);
        words = words.subspan(kBlockBytes);
        continue;
      }
      word_ = BigEndian(words.data());
      if (isAfterHeader) {
        return word_;
      }
      words = words.subspan(kWordBytes);
    }
    return std::nullopt;
  }

  /// @param bytes  the end of the file that is no whole word, 0 to 3 bytes. They replace the first
  ///               bytes of the previous word, whose other bytes stay.
  /// @return the time stamp, when this word is it
  [[nodiscard]] std::optional<std::uint32_t> Last(std::span<const std::uint8_t> bytes) const {
    if (bytes.empty() || word_ != kWriteUserAccess) {
      return std::nullopt;
    }
    std::uint32_t word = word_;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      const std::size_t shift = 8 * (kWordBytes - 1 - i);
      word = (word & ~(0xFFU << shift)) | static_cast<std::uint32_t>(bytes[i]) << shift;
    }
    return word;
  }

 private:
  std::uint32_t word_ = 0;
};

/// `width` bits of `value` from bit `low` on.
int Field(std::uint32_t value, unsigned low, unsigned width) {
  return static_cast<int>(value >> low & ((1U << width) - 1));
}

}  // namespace

std::optional<std::uint32_t> Find(int fd) {
  UserAccessSearch search;
  std::array<std::uint8_t, kReadBytes> buffer;
  std::size_t held = 0;  // bytes of an incomplete word, left from a short read
  for (;;) {
    const ssize_t count = ::read(fd, buffer.data() + held, buffer.size() - held);
    if (count < 0) {
      // Deliberate: only the end of the file ends the search. A file that cannot be read must not
      // count as one without a stamp: that is up to date when the flash has no stamp either.
      continue;
    }
    if (count == 0) {
      return search.Last(std::span(buffer).first(held));
    }
    const auto bytes = std::span(buffer).first(held + static_cast<std::size_t>(count));
    held = bytes.size() % kWordBytes;
    if (const auto stamp = search.Next(bytes.first(bytes.size() - held))) {
      return stamp;
    }
    std::ranges::copy(bytes.last(held), buffer.begin());
  }
}

std::optional<std::uint32_t> Find(std::span<const std::uint8_t> bytes) {
  UserAccessSearch search;
  const std::size_t words = bytes.size() - bytes.size() % kWordBytes;
  if (const auto stamp = search.Next(bytes.first(words))) {
    return stamp;
  }
  return search.Last(bytes.subspan(words));
}

bool IsSameBuild(std::uint32_t flashStamp, std::uint32_t imageStamp) {
  // Deliberate: two missing stamps are equal: an image without one is never written over a flash
  // without one.
  return flashStamp == imageStamp;
}

std::string Describe(std::uint32_t stamp) {
  char text[kMaxDescriptionBytes];
  static_cast<void>(std::snprintf(text,  // it fits
                                  sizeof text,
                                  "%02d/%02d/%04d %02d:%02d:%02d",
                                  Field(stamp, 27, 5),
                                  Field(stamp, 23, 4),
                                  kFirstYear + Field(stamp, 17, 6),
                                  Field(stamp, 12, 5),
                                  Field(stamp, 6, 6),
                                  Field(stamp, 0, 6)));
  return text;
}

}  // namespace user_access
