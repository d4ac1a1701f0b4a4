#include <fcntl.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "tests/doubles/ChipKernel.h"
#include "tests/doubles/FakeClock.h"

namespace {

class ChipKernelTest : public testing::Test {
 protected:
  /// Sends the command that asks for the identification, and receives `length` bytes.
  int Identify(std::uint32_t length) {
    std::uint8_t command = 0x9F;
    spi_ioc_transfer transfers[] = {
        {.tx_buf = reinterpret_cast<std::uintptr_t>(&command), .len = 1},
        {.rx_buf = reinterpret_cast<std::uintptr_t>(id_), .len = length}};
    return ::ioctl(fd_, SPI_IOC_MESSAGE(2), transfers);
  }

  orvane::NorFlashModel chip_{orvane::Chip::kMicron};
  ChipKernel kernel_{chip_, 3};
  int fd_ = ::open("/dev/spidev1.0", O_RDWR);
  std::uint8_t id_[4] = {};
};

TEST_F(ChipKernelTest, EachMessageIsOneChipSelect) {
  const FakeClock clock;
  kernel_.SetMessageTime(std::chrono::microseconds(5));
  EXPECT_EQ(Identify(3), 4);
  EXPECT_EQ(id_[0], 0x20);
  EXPECT_EQ(kernel_.CountSent(0x9F), 1);
  EXPECT_EQ(kernel_.Sent(), std::vector<kernel::Bytes>{{0x9F}});
  EXPECT_EQ(FakeClock::Passed(), std::chrono::microseconds(5));
  EXPECT_EQ(::close(fd_), 0);
}

TEST_F(ChipKernelTest, MessageBeyondTheBufferIsRefused) {
  EXPECT_EQ(Identify(4), -1);
  EXPECT_EQ(errno, EMSGSIZE);
  EXPECT_EQ(kernel_.CountSent(0x9F), 0);
  kernel_.LeaveOpen({fd_});
}

TEST_F(ChipKernelTest, OtherNodesFailTheTest) {
  int other = 0;
  EXPECT_NONFATAL_FAILURE(other = ::open("/dev/spidev2.0", O_RDWR), "open of /dev/spidev2.0");
  EXPECT_EQ(other, -1);
  kernel_.LeaveOpen({fd_});
}

}  // namespace
