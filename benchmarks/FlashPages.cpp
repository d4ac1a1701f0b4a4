// flash-pages IMAGE POLLS
// The flash driver programs IMAGE into a chip that is ready at its POLLS-th status read after each
// command. Nothing else runs in this process, so that the driver's instructions and system calls can be
// counted from outside. The spidev node is /dev/null: each message is still a system call.
#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "devices/SPIDev.h"
#include "flash/MT25QL128.h"

/// What is in place of the kernel. The names tell its instructions from those of the driver.
namespace seam {
namespace {

constexpr std::uint8_t kReadStatus = 0x05;
constexpr std::uint8_t kReadId = 0x9F;
constexpr std::uint8_t kId[] = {0x20, 0xBA, 0x18};
constexpr std::uint8_t kReady = 0x00;
constexpr std::uint8_t kBusy = 0x03;  // busy, write enabled

int pollsUntilReady = 1;
int polls = 0;  // since the last command that is none

template <typename Byte>
Byte* Buffer(std::uint64_t address) {
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the kernel's struct carries pointers as numbers
  return reinterpret_cast<Byte*>(address);
}

/// Receives a command, and answers with the second transfer, if there is one.
void Answer(const spi_ioc_transfer* transfers, std::size_t count) {
  const std::uint8_t opcode = *Buffer<const std::uint8_t>(transfers[0].tx_buf);
  if (opcode == kReadStatus && count == 2) {
    ++polls;
    *Buffer<std::uint8_t>(transfers[1].rx_buf) = polls < pollsUntilReady ? kBusy : kReady;
    return;
  }
  polls = 0;
  if (opcode == kReadId && count == 2 && transfers[1].len == sizeof kId) {
    std::memcpy(Buffer<std::uint8_t>(transfers[1].rx_buf), kId, sizeof kId);
  }
}

}  // namespace
}  // namespace seam

extern "C" {
int RealOpen(const char* path, int flags, ...) __asm__("__real_open");
int WrapOpen(const char* path, int flags, ...) __asm__("__wrap_open");
int RealIoctl(int fd, unsigned long request, ...) __asm__("__real_ioctl");
int WrapIoctl(int fd, unsigned long request, ...) __asm__("__wrap_ioctl");

int WrapOpen(const char* /*path*/, int flags, ...) { return RealOpen("/dev/null", flags); }

int WrapIoctl(int fd, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  auto* const transfers = va_arg(arguments, spi_ioc_transfer*);
  va_end(arguments);
  static_cast<void>(RealIoctl(fd, request, transfers));  // the system call, which /dev/null refuses
  if (_IOC_TYPE(request) == SPI_IOC_MAGIC && _IOC_NR(request) == 0) {
    seam::Answer(transfers, _IOC_SIZE(request) / sizeof *transfers);
  }
  return 0;
}
}

namespace {

constexpr unsigned kHertz = 19'000'000;
constexpr std::uint8_t kByteBits = 8;

int Program(const std::string& image) {
  SPIDev spi("/dev/spidev1.0", kHertz, SPI_MODE_0, kByteBits);
  MT25QL128 flash(&spi);
  if (flash.Connect(false) != MT25QL128::kDone) {
    return EXIT_FAILURE;
  }
  return flash.ProgramDevice(0, image) == MT25QL128::kDone ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words.size() != 2) {
    std::cerr << "flash-pages IMAGE POLLS" << std::endl;
    return EXIT_FAILURE;
  }
  try {
    seam::pollsUntilReady = std::stoi(words[1]);
    return Program(words[0]);
  } catch (const std::exception& error) {
    std::cerr << "flash-pages: " << error.what() << std::endl;
    return EXIT_FAILURE;
  }
}
