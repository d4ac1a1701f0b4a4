#include "tests/doubles/ScriptedKernel.h"

#include <gtest/gtest.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>

#include "tests/doubles/FakeClock.h"

namespace {

template <typename Value>
Value Load(const void* from) {
  Value value{};
  std::memcpy(&value, from, sizeof value);
  return value;
}

bool IsSpiMessage(unsigned long request) {
  return _IOC_TYPE(request) == SPI_IOC_MAGIC && _IOC_NR(request) == 0 &&
         _IOC_DIR(request) == _IOC_WRITE && _IOC_SIZE(request) % sizeof(spi_ioc_transfer) == 0;
}

}  // namespace

ScriptedKernel::~ScriptedKernel() { Verify(); }

void ScriptedKernel::Expect(const std::vector<KernelCall>& calls) {
  script_.insert(script_.end(), calls.begin(), calls.end());
}

void ScriptedKernel::Verify() {
  if (!derailed_ && !script_.empty()) {
    ADD_FAILURE() << "calls missing: " << script_.size()
                  << "\n   the first: " << script_.front().text;
  }
  script_.clear();
}

KernelCall ScriptedKernel::Answer(const KernelCall& made, const std::vector<Buffer>& receive) {
  if (!derailed_ && (script_.empty() || script_.front().text != made.text)) {
    ADD_FAILURE() << "    call: " << made.text
                  << "\nexpected: " << (script_.empty() ? "nothing more" : script_.front().text);
    derailed_ = true;
  }
  if (derailed_) {
    errno = EIO;
    return made.Fails(EIO);
  }
  KernelCall call = script_.front();
  script_.pop_front();
  if (call.action) {
    call.action();
  }
  if (call.time.count() != 0) {
    FakeClock::Advance(call.time);
  }
  if (!call.received.empty()) {
    std::size_t wanted = 0;
    for (const Buffer& buffer : receive) {
      const std::size_t left = call.received.size() - std::min(wanted, call.received.size());
      std::copy_n(call.received.data() + wanted, std::min(left, buffer.length), buffer.data);
      wanted += buffer.length;
    }
    EXPECT_EQ(wanted, call.received.size()) << "bytes scripted for " << call.text;
  }
  if (call.error != 0) {
    errno = call.error;
  }
  return call;
}

int ScriptedKernel::Open(const char* path, int flags, mode_t mode) {
  return static_cast<int>(Answer(kernel::Open(path, flags, mode)).result);
}

int ScriptedKernel::Close(int fd) { return static_cast<int>(Answer(kernel::Close(fd)).result); }

ssize_t ScriptedKernel::Read(int fd, void* buffer, std::size_t length) {
  return Answer(kernel::Read(fd, kernel::Bytes(length)),
                {{static_cast<std::uint8_t*>(buffer), length}})
      .result;
}

ssize_t ScriptedKernel::Write(int fd, const void* buffer, std::size_t length) {
  const auto* const bytes = static_cast<const std::uint8_t*>(buffer);
  return Answer(kernel::Write(fd, kernel::Bytes(bytes, bytes + length))).result;
}

off_t ScriptedKernel::Seek(int fd, off_t offset, int whence) {
  return Answer(kernel::Seek(fd, offset, whence)).result;
}

int ScriptedKernel::Usleep(useconds_t microseconds) {
  return static_cast<int>(Answer(kernel::Usleep(microseconds)).result);
}

unsigned ScriptedKernel::Sleep(unsigned seconds) {
  return static_cast<unsigned>(Answer(kernel::Sleep(seconds)).result);
}

int ScriptedKernel::Nanosleep(const timespec* duration, timespec* /*left*/) {
  const std::chrono::nanoseconds time =
      std::chrono::seconds(duration->tv_sec) + std::chrono::nanoseconds(duration->tv_nsec);
  return static_cast<int>(Answer(kernel::Nanosleep(time)).result);
}

int ScriptedKernel::Ioctl(int fd, unsigned long request, void* argument) {
  std::vector<Buffer> receive;
  std::vector<kernel::Segment> segments;
  KernelCall made = kernel::UnknownIoctl(fd, request);
  if (IsSpiMessage(request)) {
    const auto* const first = static_cast<const spi_ioc_transfer*>(argument);
    spi_.assign(first, first + _IOC_SIZE(request) / sizeof(spi_ioc_transfer));
    for (const spi_ioc_transfer& transfer : spi_) {
      segments.push_back(kernel::Describe(transfer));
      if (transfer.rx_buf != 0) {
        receive.push_back({kernel::Pointer(transfer.rx_buf), transfer.len});
      }
    }
    made = kernel::SpiMessage(fd, segments);
  } else if (request == I2C_RDWR) {
    const auto data = Load<i2c_rdwr_ioctl_data>(argument);
    for (const i2c_msg& message : std::span(data.msgs, data.nmsgs)) {
      segments.push_back(kernel::Describe(message));
      if ((message.flags & I2C_M_RD) != 0) {
        receive.push_back({message.buf, message.len});
      }
    }
    made = kernel::I2cTransfer(fd, segments);
  } else if (request == SPI_IOC_WR_MODE) {
    made = kernel::SpiWriteMode(fd, Load<std::uint8_t>(argument));
  } else if (request == SPI_IOC_WR_MAX_SPEED_HZ) {
    made = kernel::SpiWriteMaxSpeed(fd, Load<std::uint32_t>(argument));
  } else if (request == SPI_IOC_RD_MAX_SPEED_HZ) {
    made = kernel::SpiReadMaxSpeed(fd, 0);
  }
  const KernelCall call = Answer(made, receive);
  if (request == SPI_IOC_RD_MAX_SPEED_HZ && call.result >= 0) {
    std::memcpy(argument, &call.value, sizeof call.value);
  }
  return static_cast<int>(call.result);
}
