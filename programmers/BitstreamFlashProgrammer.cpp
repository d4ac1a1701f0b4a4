#include "programmers/BitstreamFlashProgrammer.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <optional>

#include "base/FileDescriptor.h"
#include "programmers/lines/GpioProgrammingInterface.h"

namespace {

constexpr useconds_t kResetPulseMicroseconds = 10'000;
constexpr unsigned kPsModeSeconds = 1;

constexpr std::uint32_t kWriteUserAccess = 0x3001A001;
constexpr std::size_t kWordBytes = 4;
constexpr std::size_t kReadBytes = std::size_t{64} * 1024;
static_assert(kReadBytes % kWordBytes == 0);

constexpr int kFirstYear = 2000;

/// Reads a file word by word, big-endian, and takes the word after the packet header.
class UserAccessSearch {
 public:
  /// @param bytes,count  the next 1 to 4 bytes of the file; fewer than 4 at its end only. They
  ///                     replace the first bytes of the previous word, whose other bytes stay.
  /// @return the time stamp, when this word is it
  std::optional<std::uint32_t> Next(const std::uint8_t* bytes, std::size_t count) {
    std::uint32_t word = previous_;
    for (std::size_t i = 0; i < count; ++i) {
      const std::size_t shift = 8 * (kWordBytes - 1 - i);
      word = (word & ~(0xFFU << shift)) | static_cast<std::uint32_t>(bytes[i]) << shift;
    }
    if (previous_ == kWriteUserAccess) {
      return word;
    }
    previous_ = word;
    return std::nullopt;
  }

 private:
  std::uint32_t previous_ = 0;
};

/// @param fd  borrowed; read from its offset to the end of the file
/// @return the time stamp; nothing when there is none
std::optional<std::uint32_t> FindUserAccess(int fd) {
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
      return held == 0 ? std::nullopt : search.Next(buffer.data(), held);
    }
    const std::size_t available = held + static_cast<std::size_t>(count);
    std::size_t at = 0;
    for (; at + kWordBytes <= available; at += kWordBytes) {
      if (const auto stamp = search.Next(buffer.data() + at, kWordBytes)) {
        return stamp;
      }
    }
    held = available - at;
    for (std::size_t i = 0; i < held; ++i) {
      buffer[i] = buffer[at + i];
    }
  }
}

/// `width` bits of `value` from bit `low` on.
int Field(std::uint32_t value, unsigned low, unsigned width) {
  return static_cast<int>(value >> low & ((1U << width) - 1));
}

}  // namespace

unsigned int BitstreamFlashProgrammer::FindTimeStampInFile(std::string file) {
  const FileDescriptor descriptor(::open(file.c_str(), O_RDONLY));
  if (!descriptor.IsOpen()) {
    return 0;
  }
  const std::optional<std::uint32_t> stamp = FindUserAccess(descriptor.Get());
  if (!stamp) {
    ReportNoTimeStamp(file);
    return 0;
  }
  std::printf(
      "User Access Register found in file %s with Time Stamp :  %02d/%02d/%04d %02d:%02d:%02d\n",
      file.c_str(),
      Field(*stamp, 27, 5),
      Field(*stamp, 23, 4),
      kFirstYear + Field(*stamp, 17, 6),
      Field(*stamp, 12, 5),
      Field(*stamp, 6, 6),
      Field(*stamp, 0, 6));
  static_cast<void>(std::fflush(stdout));
  return *stamp;
}

void BitstreamFlashProgrammer::TakeFlashOver() {
  if (IsProgrammed()) {
    std::cout << "FPGA DONE detected, do not reset the FPGA  and try to read the flash header "
              << std::endl;
    Drive(Lines().spi_imx_to_flash());
    return;
  }
  std::cout << "FPGA DONE not detected, force FPGA is PS mode to keep clock management "
            << std::endl;
  Drive(Lines().spi_imx_to_flash_reset());
  ::sleep(kPsModeSeconds);
  Drive(Lines().spi_imx_to_fpga());
}

void BitstreamFlashProgrammer::PulseReset() {
  Drive(Lines().spi_flash_to_fpga_reset());
  ::usleep(kResetPulseMicroseconds);
  Drive(Lines().spi_flash_to_fpga_run());
}

bool BitstreamFlashProgrammer::CompareBuilds(const std::string& dumpPath,
                                             const std::string& imagePath) {
  // Deliberate: two missing stamps are equal: an image without one is never written over a flash
  // without one.
  const unsigned int flashStamp = FindTimeStampInFile(dumpPath);
  const unsigned int imageStamp = FindTimeStampInFile(imagePath);
  return flashStamp == imageStamp;
}
