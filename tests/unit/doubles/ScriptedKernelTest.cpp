#include <fcntl.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <linux/i2c-dev.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "tests/doubles/FakeClock.h"
#include "tests/doubles/ScriptedKernel.h"

namespace {

using namespace std::chrono_literals;

/// The result of a call of which only the errno matters, or which a test does not check.
template <typename Result>
void Ignore(Result /*result*/) {}

TEST(ScriptedKernelTest, ScriptedCallsGetTheirResultsAndBytes) {
  ScriptedKernel kernel;
  kernel.Expect({kernel::Open("/a", O_RDWR).Returns(7),
                 kernel::Open("/b", O_RDWR | O_CREAT, 0600).Returns(8),
                 kernel::Read(8, {0x41, 0x42}),
                 kernel::Write(8, {0x43}),
                 kernel::Seek(8, 76, SEEK_SET),
                 kernel::Close(8)});
  char bytes[2] = {};

  EXPECT_EQ(::open("/a", O_RDWR), 7);
  EXPECT_EQ(::open("/b", O_RDWR | O_CREAT, 0600), 8);
  EXPECT_EQ(::read(8, bytes, 2), 2);
  EXPECT_EQ(bytes[1], 'B');
  EXPECT_EQ(::write(8, "C", 1), 1);
  EXPECT_EQ(::lseek(8, 76, SEEK_SET), 76);
  EXPECT_EQ(::close(8), 0);
}

TEST(ScriptedKernelTest, CallsReachTheSystemWhileNoKernelLives) {
  char byte = 'x';
  const int fd = ::open("/dev/zero", O_RDWR);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(::read(fd, &byte, 1), 1);
  EXPECT_EQ(byte, '\0');
  EXPECT_EQ(::write(fd, &byte, 1), 1);
  EXPECT_EQ(::lseek(fd, 5, SEEK_SET), 0);
  int waiting = 0;
  EXPECT_EQ(::ioctl(fd, FIONREAD, &waiting), -1);
  EXPECT_EQ(errno, ENOTTY);
  EXPECT_EQ(::usleep(0), 0);
  EXPECT_EQ(::sleep(0), 0U);
  const timespec none{};
  EXPECT_EQ(::nanosleep(&none, nullptr), 0);
  EXPECT_EQ(::close(fd), 0);
}

TEST(ScriptedKernelTest, FailingCallSetsErrno) {
  ScriptedKernel kernel;
  kernel.Expect({kernel::Open("/a", O_RDONLY).Fails(EACCES)});
  EXPECT_EQ(::open("/a", O_RDONLY), -1);
  EXPECT_EQ(errno, EACCES);
}

TEST(ScriptedKernelTest, SleepsAdvanceTheFakeClock) {
  const FakeClock clock;
  ScriptedKernel kernel;
  kernel.Expect({kernel::Usleep(250'000), kernel::Sleep(2), kernel::Nanosleep(1500ms)});
  const auto start = std::chrono::steady_clock::now();
  Ignore(::usleep(250'000));
  Ignore(::sleep(2));
  std::this_thread::sleep_for(1500ms);
  EXPECT_EQ(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(3750));
}

TEST(ScriptedKernelTest, MissingCallFailsTheTest) {
  EXPECT_NONFATAL_FAILURE(
      {
        ScriptedKernel kernel;
        kernel.Expect({kernel::Close(3), kernel::Close(4)});
      },
      "calls missing: 2\n   the first: close(3)");
}

TEST(ScriptedKernelTest, ExtraCallFailsTheTestAndTheCall) {
  ScriptedKernel kernel;
  EXPECT_NONFATAL_FAILURE(EXPECT_EQ(::close(3), -1), "    call: close(3)\nexpected: nothing more");
  EXPECT_EQ(errno, EIO);
}

TEST(ScriptedKernelTest, OtherPathFlagsOrModeFailTheTest) {
  const auto open = [](const KernelCall& expected) {
    ScriptedKernel kernel;
    kernel.Expect({expected});
    Ignore(::open("/a", O_RDWR | O_CREAT, 0600));
  };
  EXPECT_NONFATAL_FAILURE(open(kernel::Open("/b", O_RDWR | O_CREAT, 0600)), "\"/a\"");
  EXPECT_NONFATAL_FAILURE(open(kernel::Open("/a", O_RDWR)), "\"/a\", 66, 384");
  EXPECT_NONFATAL_FAILURE(open(kernel::Open("/a", O_RDWR | O_CREAT, 0644)), "\"/a\", 66, 384");
}

TEST(ScriptedKernelTest, ReorderedCallsAreReportedOnce) {
  ScriptedKernel kernel;
  kernel.Expect({kernel::Close(3), kernel::Close(4)});
  EXPECT_NONFATAL_FAILURE(
      {
        Ignore(::close(4));
        Ignore(::close(3));
      },
      "    call: close(4)\nexpected: close(3)");
}

TEST(ScriptedKernelTest, OtherBytesOfAnSpiMessageFailTheTestAndShowBoth) {
  ScriptedKernel kernel;
  kernel.Expect({kernel::SpiMessage(7, {kernel::Tx({0x02, 0xAA, 0x55}, 1000, 8)})});
  std::uint8_t tx[] = {0x02, 0x55, 0xAA};
  spi_ioc_transfer transfer = {.tx_buf = reinterpret_cast<std::uintptr_t>(tx),
                               .len = 3,
                               .speed_hz = 1000,
                               .bits_per_word = 8};
  EXPECT_NONFATAL_FAILURE(Ignore(::ioctl(7, SPI_IOC_MESSAGE(1), &transfer)),
                          "    call: ioctl(7, SPI_IOC_MESSAGE 1, "
                          "{tx [02 55 aa] len 3 Hz 1000 bits 8})\n"
                          "expected: ioctl(7, SPI_IOC_MESSAGE 1, "
                          "{tx [02 aa 55] len 3 Hz 1000 bits 8})");
}

TEST(ScriptedKernelTest, EveryFieldOfAnSpiTransferIsCompared) {
  const spi_ioc_transfer plain = {.len = 0, .speed_hz = 1000, .bits_per_word = 8};
  ASSERT_EQ(kernel::Describe(plain).text, kernel::NoBuffer(1000, 8).text);
  std::vector<spi_ioc_transfer> others(9, plain);
  std::uint8_t buffer = 0;
  others[0].rx_buf = reinterpret_cast<std::uintptr_t>(&buffer);
  others[1].len = 1;
  others[2].speed_hz = 1001;
  others[3].delay_usecs = 1;
  others[4].bits_per_word = 16;
  others[5].cs_change = 1;
  others[6].tx_nbits = 1;
  others[7].rx_nbits = 1;
  others[8].word_delay_usecs = 1;
  for (const spi_ioc_transfer& other : others) {
    EXPECT_NE(kernel::Describe(other).text, kernel::Describe(plain).text);
  }
}

TEST(ScriptedKernelTest, SpiAnswerFillsTheReceiveBuffersInOrder) {
  ScriptedKernel kernel;
  kernel.Expect({kernel::SpiMessage(7, {kernel::Rx(1, 1000, 8), kernel::Rx(2, 1000, 8)})
                     .Receives({0x11, 0x22, 0x33})});
  std::uint8_t first[1] = {};
  std::uint8_t second[2] = {};
  spi_ioc_transfer transfers[] = {{.rx_buf = reinterpret_cast<std::uintptr_t>(first),
                                   .len = 1,
                                   .speed_hz = 1000,
                                   .bits_per_word = 8},
                                  {.rx_buf = reinterpret_cast<std::uintptr_t>(second),
                                   .len = 2,
                                   .speed_hz = 1000,
                                   .bits_per_word = 8}};
  EXPECT_EQ(::ioctl(7, SPI_IOC_MESSAGE(2), transfers), 3);
  EXPECT_EQ(first[0], 0x11);
  EXPECT_EQ(second[0], 0x22);
  EXPECT_EQ(second[1], 0x33);
}

TEST(ScriptedKernelTest, AnswerOfAnotherLengthFailsTheTest) {
  ScriptedKernel kernel;
  kernel.Expect({kernel::SpiMessage(7, {kernel::Rx(2, 1000, 8)}).Receives({0x11})});
  std::uint8_t buffer[2] = {};
  spi_ioc_transfer transfer = {.rx_buf = reinterpret_cast<std::uintptr_t>(buffer),
                               .len = 2,
                               .speed_hz = 1000,
                               .bits_per_word = 8};
  EXPECT_NONFATAL_FAILURE(Ignore(::ioctl(7, SPI_IOC_MESSAGE(1), &transfer)), "bytes scripted for");
}

TEST(ScriptedKernelTest, OtherI2cAddressFlagsOrLengthFailTheTest) {
  std::uint8_t bytes[] = {0x02, 0x03};
  const auto transfer = [&bytes](const kernel::Segment& expected) {
    ScriptedKernel kernel;
    kernel.Expect({kernel::I2cTransfer(5, {expected})});
    i2c_msg message = {.addr = 0x20, .flags = 0, .len = 2, .buf = bytes};
    i2c_rdwr_ioctl_data data = {.msgs = &message, .nmsgs = 1};
    Ignore(::ioctl(5, I2C_RDWR, &data));
  };
  transfer(kernel::I2cTx(0x20, {0x02, 0x03}));
  EXPECT_NONFATAL_FAILURE(transfer(kernel::I2cTx(0x21, {0x02, 0x03})), "{to 20 [02 03]");
  EXPECT_NONFATAL_FAILURE(transfer(kernel::I2cTx(0x20, {0x02})), "{to 20 [02 03]");
  EXPECT_NONFATAL_FAILURE(transfer(kernel::I2cRx(0x20, 2)), "{to 20 [02 03]");
}

TEST(ScriptedKernelTest, UnknownRequestIsNamedByItsNumber) {
  ScriptedKernel kernel;
  EXPECT_NONFATAL_FAILURE(Ignore(::ioctl(5, 0x703, nullptr)), "ioctl(5, request 1795)");
}

}  // namespace
