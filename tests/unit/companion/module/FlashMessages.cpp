#include "tests/unit/companion/module/FlashMessages.h"

#include <linux/spi/spidev.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <span>

#include "tests/doubles/KernelCall.h"

namespace companion {

int MessageKernel::Ioctl(int fd, unsigned long request, void* argument) {
  const bool read = request == SPI_IOC_MESSAGE(2);
  if (!read && request != SPI_IOC_MESSAGE(1)) {
    return ChipKernel::Ioctl(fd, request, argument);
  }
  const auto* const transfers = static_cast<const spi_ioc_transfer*>(argument);
  const std::uint8_t opcode = *kernel::Pointer(transfers[0].tx_buf);
  const Fate fate = decide ? decide(opcode, ++numbers_[opcode]) : Fate::kCarriedOut;
  if (fate == Fate::kFails) {
    errno = EIO;
    return -1;
  }
  if (fate == Fate::kLost || fate == Fate::kOnes) {
    if (read) {
      const std::uint8_t value = fate == Fate::kOnes ? 0xFF : 0;
      std::fill_n(kernel::Pointer(transfers[1].rx_buf), transfers[1].len, value);
    }
    return 0;
  }
  const int result = ChipKernel::Ioctl(fd, request, argument);
  if (fate == Fate::kInverted) {
    *kernel::Pointer(transfers[1].rx_buf) ^= 0xFF;
  }
  return result;
}

std::vector<std::string> MessageKernel::Messages(std::uint8_t opcode) const {
  std::vector<std::string> messages;
  for (const kernel::Bytes& bytes : Sent()) {
    if (bytes.front() == opcode) {
      messages.push_back(
          kernel::Hex(std::span(bytes).first(std::min<std::size_t>(4, bytes.size()))));
    }
  }
  return messages;
}

FlashMessagesTest::FlashMessagesTest(orvane::Chip chip, std::size_t bufsiz)
    : chip_(chip),
      kernel_(chip_, bufsiz),
      bufsiz_("/sys/module/spidev/parameters/bufsiz", std::to_string(bufsiz) + "\n"),
      spi_(std::make_unique<SPIDev>("/dev/spidev1.0", 10'000'000, 0, 8)) {
  spi_->open(0);
}

void FlashMessagesTest::TearDown() {
  spi_.reset();
  console_.TakeOut();
  console_.TakeErr();
}

}  // namespace companion
