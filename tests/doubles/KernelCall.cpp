#include "tests/doubles/KernelCall.h"

#include <iomanip>
#include <sstream>
#include <utility>

namespace kernel {
namespace {

std::string Quantity(const char* name, unsigned long value) {
  return std::string(" ") + name + " " + std::to_string(value);
}

/// Fields that are normally zero.
std::string Unusual(const char* name, unsigned value) {
  return value == 0 ? "" : Quantity(name, value);
}

std::string TransferText(const std::string& buffers,
                         std::uint32_t length,
                         std::uint32_t speedHz,
                         int bits) {
  return "{" + buffers + Quantity("len", length) + Quantity("Hz", speedHz) +
         Quantity("bits", static_cast<unsigned>(bits));
}

std::string MessageText(int address, const std::string& buffer, int flags, int length) {
  std::ostringstream text;
  text << "{to " << std::hex << std::setw(2) << std::setfill('0') << address << " " << buffer
       << " flags " << flags << std::dec << " len " << length << "}";
  return text.str();
}

std::string Call(const std::string& name, const std::vector<std::string>& arguments) {
  std::string text = name + "(";
  const char* separator = "";
  for (const std::string& argument : arguments) {
    text += separator + argument;
    separator = ", ";
  }
  return text + ")";
}

std::string Join(const std::vector<Segment>& segments) {
  std::string text;
  for (const Segment& segment : segments) {
    text += segment.text;
  }
  return text;
}

std::string Number(std::int64_t value) { return std::to_string(value); }

std::string Bracketed(std::span<const std::uint8_t> bytes) { return "[" + Hex(bytes) + "]"; }

}  // namespace

std::string Hex(std::span<const std::uint8_t> bytes) {
  std::ostringstream text;
  text << std::hex << std::setfill('0');
  const char* separator = "";
  for (const std::uint8_t byte : bytes) {
    text << separator << std::setw(2) << int{byte};
    separator = " ";
  }
  return text.str();
}

Segment Tx(const Bytes& bytes, std::uint32_t speedHz, int bits) {
  const auto length = static_cast<std::uint32_t>(bytes.size());
  return {TransferText("tx " + Bracketed(bytes), length, speedHz, bits) + "}", length};
}

Segment Rx(std::uint32_t length, std::uint32_t speedHz, int bits) {
  return {TransferText("rx", length, speedHz, bits) + "}", length};
}

Segment NoBuffer(std::uint32_t speedHz, int bits) {
  return {TransferText("", 0, speedHz, bits) + "}", 0};
}

std::uint8_t* Pointer(std::uint64_t address) {
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the struct of the kernel has integers
  return reinterpret_cast<std::uint8_t*>(static_cast<std::uintptr_t>(address));
}

Segment Describe(const spi_ioc_transfer& transfer) {
  std::string buffers;
  if (transfer.tx_buf != 0) {
    buffers += "tx " + Bracketed({Pointer(transfer.tx_buf), transfer.len});
  }
  if (transfer.rx_buf != 0) {
    buffers += "rx";
  }
  return {TransferText(buffers, transfer.len, transfer.speed_hz, transfer.bits_per_word) +
              Unusual("delay_usecs", transfer.delay_usecs) +
              Unusual("cs_change", transfer.cs_change) + Unusual("tx_nbits", transfer.tx_nbits) +
              Unusual("rx_nbits", transfer.rx_nbits) +
              Unusual("word_delay_usecs", transfer.word_delay_usecs) +
              Unusual("pad", transfer.pad) + "}",
          transfer.len};
}

Segment I2cTx(int address, const Bytes& bytes) {
  const int length = static_cast<int>(bytes.size());
  return {MessageText(address, Bracketed(bytes), 0, length), bytes.size()};
}

Segment I2cRx(int address, int length) {
  return {MessageText(address, "read", 1, length), static_cast<std::size_t>(length)};
}

Segment I2cNoBuffer(int address) { return {MessageText(address, "null", 0, 0), 0}; }

Segment Describe(const i2c_msg& message) {
  std::string buffer = "null";
  if (message.buf != nullptr) {
    buffer = (message.flags & I2C_M_RD) != 0 ? "read" : Bracketed({message.buf, message.len});
  }
  return {MessageText(message.addr, buffer, message.flags, message.len), message.len};
}

KernelCall Open(const std::string& path, int flags, mode_t mode) {
  std::vector<std::string> arguments = {"\"" + path + "\"", Number(flags)};
  if (mode != 0) {
    arguments.push_back(Number(mode));
  }
  return {.text = Call("open", arguments)};
}

KernelCall Close(int fd) { return {.text = Call("close", {Number(fd)})}; }

KernelCall Read(int fd, const Bytes& bytes) {
  const auto length = static_cast<long>(bytes.size());
  return {.text = Call("read", {Number(fd), Number(length)}), .result = length, .received = bytes};
}

KernelCall Write(int fd, const Bytes& bytes) {
  return {.text = Call("write", {Number(fd), Bracketed(bytes)}),
          .result = static_cast<long>(bytes.size())};
}

KernelCall Seek(int fd, off_t offset, int whence) {
  return {.text = Call("lseek", {Number(fd), Number(offset), Number(whence)}),
          .result = static_cast<long>(offset)};
}

KernelCall Usleep(unsigned microseconds) {
  return {.text = Call("usleep", {Number(microseconds)}),
          .time = std::chrono::microseconds(microseconds)};
}

KernelCall Sleep(unsigned seconds) {
  return {.text = Call("sleep", {Number(seconds)}), .time = std::chrono::seconds(seconds)};
}

KernelCall Nanosleep(std::chrono::nanoseconds duration) {
  return {.text = Call("nanosleep", {Number(duration.count())}), .time = duration};
}

KernelCall SpiWriteMode(int fd, int mode) {
  return {.text = Call("ioctl", {Number(fd), "SPI_IOC_WR_MODE", Number(mode)})};
}

KernelCall SpiReadMaxSpeed(int fd, std::uint32_t answer) {
  return {.text = Call("ioctl", {Number(fd), "SPI_IOC_RD_MAX_SPEED_HZ"}), .value = answer};
}

KernelCall SpiWriteMaxSpeed(int fd, std::uint32_t speedHz) {
  return {.text = Call("ioctl", {Number(fd), "SPI_IOC_WR_MAX_SPEED_HZ", Number(speedHz)})};
}

KernelCall SpiMessage(int fd, const std::vector<Segment>& transfers) {
  const auto count = static_cast<long>(transfers.size());
  long total = 0;
  for (const Segment& transfer : transfers) {
    total += static_cast<long>(transfer.length);
  }
  return {.text = Call("ioctl", {Number(fd), "SPI_IOC_MESSAGE " + Number(count), Join(transfers)}),
          .result = total};
}

KernelCall I2cTransfer(int fd, const std::vector<Segment>& messages) {
  const auto count = static_cast<long>(messages.size());
  return {.text = Call("ioctl", {Number(fd), "I2C_RDWR " + Number(count), Join(messages)}),
          .result = count};
}

KernelCall UnknownIoctl(int fd, unsigned long request) {
  return {.text = Call("ioctl", {Number(fd), "request " + std::to_string(request)})};
}

}  // namespace kernel

KernelCall KernelCall::Returns(long newResult) const {
  KernelCall call = *this;
  call.result = newResult;
  return call;
}

KernelCall KernelCall::Fails(int newError) const {
  KernelCall call = *this;
  call.result = -1;
  call.error = newError;
  call.received.clear();
  return call;
}

KernelCall KernelCall::Receives(Bytes bytes) const {
  KernelCall call = *this;
  call.received = std::move(bytes);
  return call;
}

KernelCall KernelCall::Takes(std::chrono::nanoseconds newTime) const {
  KernelCall call = *this;
  call.time = newTime;
  return call;
}

KernelCall KernelCall::Then(std::function<void()> newAction) const {
  KernelCall call = *this;
  call.action = std::move(newAction);
  return call;
}
