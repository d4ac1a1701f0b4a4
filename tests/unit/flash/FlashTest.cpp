#include "tests/unit/flash/FlashTest.h"

#include <fcntl.h>

namespace {

constexpr const char* kNode = "/dev/spidev1.0";
constexpr std::uint32_t kHz = 10'000'000;

}  // namespace

FlashTest::FlashTest() { Rebuild("4096\n"); }

KernelCall FlashTest::Send(const Bytes& tx) {
  return kernel::SpiMessage(7, {kernel::Tx(tx, kHz, 8)});
}

KernelCall FlashTest::Ask(const Bytes& tx, const Bytes& rx) {
  return AskZeros(tx, rx.size()).Receives(rx);
}

KernelCall FlashTest::AskZeros(const Bytes& tx, std::size_t rxLength) {
  const auto length = static_cast<std::uint32_t>(rxLength);
  return kernel::SpiMessage(7, {kernel::Tx(tx, kHz, 8), kernel::Rx(length, kHz, 8)})
      .Receives(Bytes(rxLength));
}

void FlashTest::ExpectOpening(int fd) {
  Expect({kernel::Open(kNode, O_RDWR).Returns(fd),
          kernel::SpiWriteMode(fd, 0),
          kernel::SpiReadMaxSpeed(fd, 50'000'000),
          kernel::SpiWriteMaxSpeed(fd, 50'000'000)});
  fd_ = fd;
}

void FlashTest::OpenDevice() {
  ExpectOpening();
  ASSERT_EQ(Device()->open(0), 7);
}

void FlashTest::Rebuild(const std::string& bufsiz) {
  Destroy();
  bufsiz_.reset();
  bufsiz_.emplace("/sys/module/spidev/parameters/bufsiz", bufsiz);
  spi_ = std::make_unique<SPIDevOwner>(kNode, kHz, std::uint8_t{0}, std::uint8_t{8});
  flash_ = std::make_unique<MT25QL128>(spi_->Get());
}

void FlashTest::Destroy() {
  if (flash_ != nullptr && Device() != nullptr) {
    Expect({kernel::Close(fd_), kernel::Close(-1)});
  }
  flash_.reset();
  spi_.reset();
  fd_ = -1;
}

void FlashTest::TearDown() {
  Destroy();
  KernelTest::TearDown();
}
