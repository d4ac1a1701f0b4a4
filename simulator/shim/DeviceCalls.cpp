// ioctl, on the nodes of the instrument.

#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <sys/uio.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include "simulator/shim/Interpose.h"
#include "simulator/shim/LinkProtocol.h"
#include "simulator/shim/ShimLink.h"

namespace {

using namespace orvane;
using link::Answer;
using link::Kind;
using link::Op;
using shim::Decide;
using shim::DescriptorTable;
using shim::Fail;

constexpr std::size_t kMaxSpiTransfers = 511;  // as many as fit into the size field of a request
constexpr std::size_t kUsualSpiTransfers = 8;  // the room for so many is small
constexpr int kMaxIoctlBytes = 256;

// NOLINTNEXTLINE(performance-no-int-to-ptr): the kernel's struct carries pointers as numbers
void* Pointer(std::uint64_t address) { return reinterpret_cast<void*>(address); }

/// @tparam kMost  no more transfers than this
template <std::size_t kMost>
int SubmitTransfers(std::uint32_t handle, const spi_ioc_transfer* transfers, std::size_t count) {
  link::SpiTransfer wire[kMost];
  iovec send[2 + kMost] = {{}, {wire, count * sizeof wire[0]}};
  iovec receive[1 + kMost] = {};
  int sendCount = 2;
  int receiveCount = 1;
  std::uint64_t sendBytes = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const spi_ioc_transfer& transfer = transfers[i];
    wire[i] = {.length = transfer.len,
               .speedHz = transfer.speed_hz,
               .bitsPerWord = transfer.bits_per_word,
               .chipSelectChange = transfer.cs_change,
               .sends = transfer.tx_buf != 0 ? std::uint8_t{1} : std::uint8_t{0},
               .receives = transfer.rx_buf != 0 ? std::uint8_t{1} : std::uint8_t{0}};
    if (transfer.tx_buf != 0) {
      send[sendCount++] = {Pointer(transfer.tx_buf), transfer.len};
      sendBytes += transfer.len;
    }
    if (transfer.rx_buf != 0) {
      receive[receiveCount++] = {Pointer(transfer.rx_buf), transfer.len};
    }
  }
  const bool tooMuch = sendBytes > link::kMaxPayloadBytes;
  Answer answer{};
  const int failed = shim::Ask({.op = Op::kSpi,
                                .handle = handle,
                                .a = static_cast<std::int64_t>(count),
                                .b = tooMuch ? 1 : 0},
                               {send, tooMuch ? 2 : sendCount, receive, receiveCount},
                               answer);
  return static_cast<int>(Decide(failed, answer).result);
}

int SubmitSpi(std::uint32_t handle, unsigned long request, const void* argument) {
  const std::size_t bytes = _IOC_SIZE(request);
  if (bytes % sizeof(spi_ioc_transfer) != 0) {
    return Fail(EINVAL);
  }
  if (argument == nullptr) {
    return Fail(EFAULT);
  }
  const std::size_t count = bytes / sizeof(spi_ioc_transfer);
  const auto* const transfers = static_cast<const spi_ioc_transfer*>(argument);
  // Room for the most is 24 KiB, to be cleared for each message.
  return count <= kUsualSpiTransfers ? SubmitTransfers<kUsualSpiTransfers>(handle, transfers, count)
                                     : SubmitTransfers<kMaxSpiTransfers>(handle, transfers, count);
}

int SubmitI2c(std::uint32_t handle, const void* argument) {
  if (argument == nullptr) {
    return Fail(EFAULT);
  }
  const auto* const data = static_cast<const i2c_rdwr_ioctl_data*>(argument);
  if (data->msgs == nullptr || data->nmsgs == 0 || data->nmsgs > I2C_RDWR_IOCTL_MAX_MSGS) {
    return Fail(EINVAL);
  }
  link::I2cMessage wire[I2C_RDWR_IOCTL_MAX_MSGS];
  iovec send[2 + I2C_RDWR_IOCTL_MAX_MSGS] = {{}, {wire, data->nmsgs * sizeof wire[0]}};
  iovec receive[1 + I2C_RDWR_IOCTL_MAX_MSGS] = {};
  int sendCount = 2;
  int receiveCount = 1;
  for (std::uint32_t i = 0; i < data->nmsgs; ++i) {
    const i2c_msg& message = data->msgs[i];
    const bool reads = (message.flags & I2C_M_RD) != 0;
    wire[i] = {.address = message.addr,
               .length = message.len,
               .reads = reads ? std::uint16_t{1} : std::uint16_t{0}};
    iovec& piece = reads ? receive[receiveCount++] : send[sendCount++];
    piece = {message.buf, message.len};
  }
  Answer answer{};
  const int failed =
      shim::Ask({.op = Op::kI2c, .handle = handle, .a = static_cast<std::int64_t>(data->nmsgs)},
                {send, sendCount, receive, receiveCount},
                answer);
  return static_cast<int>(Decide(failed, answer).result);
}

/// A request that carries its size and direction.
int SubmitOther(std::uint32_t handle, unsigned long request, void* argument) {
  const std::size_t bytes = _IOC_SIZE(request);
  if (bytes > kMaxIoctlBytes) {
    return Fail(ENOTTY);
  }
  const bool gives = (_IOC_DIR(request) & _IOC_WRITE) != 0;
  const bool takes = (_IOC_DIR(request) & _IOC_READ) != 0;
  iovec send[2] = {{}, {argument, bytes}};
  iovec receive[2] = {{}, {argument, bytes}};
  Answer answer{};
  const int failed = shim::Ask(
      {.op = Op::kIoctl, .handle = handle, .a = static_cast<std::int64_t>(request & 0xFFFFFFFFU)},
      {send, gives ? 2 : 1, receive, takes ? 2 : 1},
      answer);
  return static_cast<int>(Decide(failed, answer).result);
}

}  // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the system's names are reserved
extern "C" {

#pragma GCC visibility push(default)

int ioctl(int descriptor, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (descriptor < 0) {
    return Fail(EBADF);
  }
  const DescriptorTable::Entry entry = shim::Known(descriptor);
  if (entry.handle == link::kNoHandle || entry.kind != Kind::kDevice || !shim::IsLinked()) {
    return NEXT(ioctl)(descriptor, request, argument);
  }
  const bool isSpiMessage = _IOC_TYPE(request) == SPI_IOC_MAGIC && _IOC_NR(request) == 0 &&
                            _IOC_DIR(request) == _IOC_WRITE;
  if (isSpiMessage) {
    return SubmitSpi(entry.handle, request, argument);
  }
  if (request == I2C_RDWR) {
    return SubmitI2c(entry.handle, argument);
  }
  return SubmitOther(entry.handle, request, argument);
}

#pragma GCC visibility pop

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
