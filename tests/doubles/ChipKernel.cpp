#include "tests/doubles/ChipKernel.h"

#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>

#include "tests/doubles/FakeClock.h"

namespace {

constexpr const char* kNode = "/dev/spidev1.0";
constexpr int kFirstDescriptor = 100;  // as the header says; no descriptor that the process has

int Fail(int error) {
  errno = error;
  return -1;
}

}  // namespace

ChipKernel::~ChipKernel() { EXPECT_EQ(open_, leftOpen_) << "descriptors open in the end"; }

int ChipKernel::CountSent(std::uint8_t opcode) const {
  return static_cast<int>(std::count_if(sent_.begin(), sent_.end(), [opcode](const auto& bytes) {
    return !bytes.empty() && bytes.front() == opcode;
  }));
}

bool ChipKernel::Owns(int fd) const { return fd < 0 || fd >= kFirstDescriptor; }

int ChipKernel::Open(const char* path, int flags, mode_t /*mode*/) {
  if (std::strcmp(path, kNode) != 0) {
    ADD_FAILURE() << "open of " << path << " with flags " << flags;
    return Fail(ENOENT);
  }
  open_.push_back(nextFd_);
  return nextFd_++;
}

int ChipKernel::Close(int fd) { return std::erase(open_, fd) == 0 ? Fail(EBADF) : 0; }

ssize_t ChipKernel::Read(int fd, void* /*buffer*/, std::size_t length) {
  ADD_FAILURE() << "read of " << length << " bytes from " << fd;
  return Fail(EBADF);
}

ssize_t ChipKernel::Write(int fd, const void* /*buffer*/, std::size_t length) {
  ADD_FAILURE() << "write of " << length << " bytes to " << fd;
  return Fail(EBADF);
}

off_t ChipKernel::Seek(int fd, off_t offset, int /*whence*/) {
  ADD_FAILURE() << "seek to " << offset << " in " << fd;
  return Fail(EBADF);
}

int ChipKernel::Ioctl(int fd, unsigned long request, void* argument) {
  if (std::find(open_.begin(), open_.end(), fd) == open_.end()) {
    return Fail(EBADF);
  }
  if (request == SPI_IOC_WR_MODE || request == SPI_IOC_WR_MAX_SPEED_HZ) {
    return 0;
  }
  if (request == SPI_IOC_RD_MAX_SPEED_HZ) {
    const std::uint32_t speed = 50'000'000;
    std::memcpy(argument, &speed, sizeof speed);
    return 0;
  }
  if (_IOC_TYPE(request) == SPI_IOC_MAGIC && _IOC_NR(request) == 0) {
    return Message(static_cast<const spi_ioc_transfer*>(argument),
                   _IOC_SIZE(request) / sizeof(spi_ioc_transfer));
  }
  ADD_FAILURE() << "ioctl " << request;
  return Fail(ENOTTY);
}

int ChipKernel::Message(const spi_ioc_transfer* transfers, std::size_t count) {
  std::size_t sent = 0;
  std::size_t received = 0;
  for (const spi_ioc_transfer& transfer : std::span(transfers, count)) {
    sent += transfer.tx_buf != 0 ? transfer.len : 0;
    received += transfer.rx_buf != 0 ? transfer.len : 0;
  }
  if (sent > bufsiz_ || received > bufsiz_) {
    return Fail(EMSGSIZE);
  }
  LetTimePass(messageTime_);
  kernel::Bytes mosi;
  for (const spi_ioc_transfer& transfer : std::span(transfers, count)) {
    const std::uint8_t* const bytes = kernel::Pointer(transfer.tx_buf);
    if (bytes != nullptr) {
      mosi.insert(mosi.end(), bytes, bytes + transfer.len);
    } else {
      mosi.resize(mosi.size() + transfer.len);
    }
  }
  sent_.emplace_back(mosi.begin(), mosi.begin() + static_cast<std::ptrdiff_t>(sent));
  kernel::Bytes miso(mosi.size());
  chip_.Transfer(mosi, miso);
  const std::uint8_t* next = miso.data();
  for (const spi_ioc_transfer& transfer : std::span(transfers, count)) {
    if (transfer.rx_buf != 0) {
      std::copy_n(next, transfer.len, kernel::Pointer(transfer.rx_buf));
    }
    next += transfer.len;
  }
  return static_cast<int>(mosi.size());
}

void ChipKernel::LetTimePass(std::chrono::nanoseconds time) {
  FakeClock::Advance(time);
  chip_.AdvanceTime(time);
}

int ChipKernel::Usleep(useconds_t microseconds) {
  LetTimePass(std::chrono::microseconds(microseconds));
  return 0;
}

unsigned ChipKernel::Sleep(unsigned seconds) {
  LetTimePass(std::chrono::seconds(seconds));
  return 0;
}

int ChipKernel::Nanosleep(const timespec* duration, timespec* /*left*/) {
  LetTimePass(std::chrono::seconds(duration->tv_sec) + std::chrono::nanoseconds(duration->tv_nsec));
  return 0;
}
