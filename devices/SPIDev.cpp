#include "devices/SPIDev.h"

#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <utility>

namespace {

constexpr const char* kBufsizPath = "/sys/module/spidev/parameters/bufsiz";
constexpr std::size_t kDefaultBufsiz = 4096;
constexpr int kBitsPerByte = 8;

std::uint64_t Address(const std::uint8_t* buffer) {
  return reinterpret_cast<std::uintptr_t>(buffer);
}

/// A count of bytes, cut to the 32 bits that the interface and the kernel's structs have for it.
std::uint32_t Low32(std::size_t length) { return static_cast<std::uint32_t>(length); }

template <std::size_t N>
int Submit(int fd, spi_ioc_transfer (&transfers)[N]) {
  return ::ioctl(fd, SPI_IOC_MESSAGE(N), transfers);
}

/// The word width for sending `length` bytes: `bits` when they are whole words, else bytes.
std::uint8_t WordWidth(std::uint8_t bits, std::size_t length) {
  const std::size_t wordBytes = bits / kBitsPerByte;
  const bool wholeWords = wordBytes == 0 ? length == 0 : length % wordBytes == 0;
  return wholeWords ? bits : std::uint8_t{kBitsPerByte};
}

}  // namespace

SPIDev::SPIDev(std::string path, unsigned int speed, std::uint8_t mode, std::uint8_t bits)
    : path_(std::move(path)),
      speed_(speed),
      mode_(mode),
      bits_(bits),
      maxTransferSize_(GetBufsiz()) {}

SPIDev::~SPIDev() { SPIDev::close(); }

bool SPIDev::is_open() { return fd_ != kClosed; }

int SPIDev::open(std::uint8_t /*address*/) {
  // Deliberate: a node that is open is opened again, and the first descriptor stays open; fixed and
  // observable; do not change.
  fd_ = ::open(path_.c_str(), O_RDWR);
  if (fd_ < 0) {
    return fd_;
  }
  // Deliberate: the driver's maximum speed is read and written back unchanged. Our clock rate is
  // set in each transfer.
  if (::ioctl(fd_, SPI_IOC_WR_MODE, &mode_) < 0 ||
      ::ioctl(fd_, SPI_IOC_RD_MAX_SPEED_HZ, &driverMaxSpeed_) < 0 ||
      ::ioctl(fd_, SPI_IOC_WR_MAX_SPEED_HZ, &driverMaxSpeed_) < 0) {
    close();
    return fd_;
  }
  return fd_;
}

void SPIDev::close() {
  ::close(fd_);
  fd_ = kClosed;
}

int SPIDev::read(std::uint8_t* rx, std::size_t rxLen, std::uint8_t* tx, std::size_t txLen) {
  if (fd_ < 0) {
    return 0;
  }
  const spi_ioc_transfer reply = {
      .rx_buf = Address(rx), .len = Low32(rxLen), .speed_hz = speed_, .bits_per_word = bits_};
  int result = 0;
  if (tx != nullptr && txLen != 0) {
    spi_ioc_transfer transfers[] = {
        {.tx_buf = Address(tx), .len = Low32(txLen), .speed_hz = speed_, .bits_per_word = bits_},
        reply};
    result = Submit(fd_, transfers);
  } else {
    spi_ioc_transfer transfers[] = {reply};
    result = Submit(fd_, transfers);
  }
  if (result < 0) {
    const int error = errno;  // printing may change it
    // Deliberate: the number alone and no path, unlike write(); fixed and observable; do not
    // change.
    std::cerr << "SpiDev::Read() SPI_IOC_MESSAGE error, errno = " << error << std::endl;
    return 0;
  }
  return static_cast<int>(Low32(rxLen));
}

int SPIDev::write(std::uint8_t* tx, std::size_t txLen) {
  if (fd_ < 0) {
    return 0;
  }
  spi_ioc_transfer transfers[] = {{.tx_buf = Address(tx),
                                   .len = Low32(txLen),
                                   .speed_hz = speed_,
                                   .bits_per_word = WordWidth(bits_, txLen)}};
  if (Submit(fd_, transfers) < 0) {
    const int error = errno;  // printing may change it
    std::cerr << "SpiDev::Write() SPI_IOC_MESSAGE error, errno = " << std::strerror(error)
              << " file: " << path_ << std::endl;
    return 0;
  }
  return static_cast<int>(Low32(txLen));
}

std::uint32_t SPIDev::GetSpeed() const { return speed_; }

std::size_t SPIDev::GetMaxTransferSize() const { return maxTransferSize_; }

std::string SPIDev::getName() const { return path_; }

std::size_t SPIDev::GetBufsiz() {
  std::string line;
  std::ifstream parameter(kBufsizPath);
  if (parameter.is_open()) {
    std::getline(parameter, line);
    parameter.close();
  } else {
    std::cerr << "Can't open: " << kBufsizPath << std::endl;
  }
  if (line.empty()) {
    return kDefaultBufsiz;
  }
  try {
    return std::stoul(line);
  } catch (const std::exception&) {
    std::cerr << "Can't convert bufsiz: " << line << std::endl;
    return kDefaultBufsiz;
  }
}
