#include "programmers/UserAccess.h"

#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdio>

namespace user_access {

namespace {

constexpr std::uint32_t kWriteUserAccess = 0x3001A001;
constexpr std::size_t kWordBytes = 4;
constexpr std::size_t kReadBytes = std::size_t{64} * 1024;
static_assert(kReadBytes % kWordBytes == 0);

constexpr int kFirstYear = 2000;
constexpr std::size_t kMaxDescriptionBytes = 80;  // more than six numbers of type int can take

std::uint32_t BigEndian(const std::uint8_t* bytes) {
  return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
         std::uint32_t{bytes[2]} << 8 | bytes[3];
}

/// Reads a file word by word, big-endian, and takes the word after the packet header.
class UserAccessSearch {
 public:
  /// @param bytes  the next word of the file
  /// @return whether it is the time stamp, Word()
  bool Next(const std::uint8_t* bytes) {
    const bool isStamp = word_ == kWriteUserAccess;
    word_ = BigEndian(bytes);
    return isStamp;
  }

  /// @param bytes,count  the end of the file that is no whole word, 0 to 3 bytes. They replace the
  ///                     first bytes of the previous word, whose other bytes stay.
  /// @return the time stamp, when this word is it
  [[nodiscard]] std::optional<std::uint32_t> Last(const std::uint8_t* bytes,
                                                  std::size_t count) const {
    if (count == 0 || word_ != kWriteUserAccess) {
      return std::nullopt;
    }
    std::uint32_t word = word_;
    for (std::size_t i = 0; i < count; ++i) {
      const std::size_t shift = 8 * (kWordBytes - 1 - i);
      word = (word & ~(0xFFU << shift)) | static_cast<std::uint32_t>(bytes[i]) << shift;
    }
    return word;
  }

  [[nodiscard]] std::uint32_t Word() const { return word_; }

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
      return search.Last(buffer.data(), held);
    }
    const std::size_t available = held + static_cast<std::size_t>(count);
    std::size_t at = 0;
    for (; at + kWordBytes <= available; at += kWordBytes) {
      if (search.Next(buffer.data() + at)) {
        return search.Word();
      }
    }
    held = available - at;
    for (std::size_t i = 0; i < held; ++i) {
      buffer[i] = buffer[at + i];
    }
  }
}

std::optional<std::uint32_t> Find(std::span<const std::uint8_t> bytes) {
  UserAccessSearch search;
  for (; bytes.size() >= kWordBytes; bytes = bytes.subspan(kWordBytes)) {
    if (search.Next(bytes.data())) {
      return search.Word();
    }
  }
  return search.Last(bytes.data(), bytes.size());
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
