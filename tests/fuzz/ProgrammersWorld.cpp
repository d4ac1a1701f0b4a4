#include "tests/fuzz/ProgrammersWorld.h"

#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <span>
#include <utility>

#include "tests/doubles/FakeClock.h"
#include "tests/doubles/KernelCall.h"
#include "tests/doubles/Require.h"
#include "tests/fuzz/Disturbances.h"

namespace {

constexpr const char* kBufsiz = "/sys/module/spidev/parameters/bufsiz";
constexpr const char* kSlotA = "/sys/platform/module_selector/slotA";
constexpr const char* kSlotB = "/sys/platform/module_selector/slotB";

constexpr std::size_t kMemoryBytes = 0x10000;
constexpr std::size_t kMaxCalls = 2'000'000;

constexpr std::uint8_t kFails = 0xFF;
constexpr std::uint8_t kAnswersAnything = 0xFE;  // a flash register, the expander's inputs
constexpr std::uint8_t kIgnores = 0xFD;          // the flash does not carry out the command
constexpr std::uint8_t kTakesLong = 0xFC;
constexpr std::chrono::seconds kLong{6};

int Fail(int error) {
  errno = error;
  return -1;
}

/// The three bytes after the opcode; 0 if one is missing.
std::size_t AddressIn(const std::vector<std::uint8_t>& tx) {
  std::size_t address = 0;
  for (std::size_t i = 1; i < 4 && tx.size() >= 4; ++i) {
    address = address * 0x100 + tx[i];
  }
  return address;
}

}  // namespace

ProgrammersWorld::ProgrammersWorld(const Module& module, HostileBytes& disturbances)
    : FileKernel(
          nullptr,
          [this](const char* call, const std::string& path) { return DecideNext(call, path); }),
      module_(module),
      disturbances_(disturbances),
      memory_(module.memory),
      bufsiz_(kBufsiz, module.bufsiz),
      slotA_(kSlotA, [this](const char* mode) { return OpenSelector(kSlotA, mode); }),
      slotB_(kSlotB, [this](const char* mode) { return OpenSelector(kSlotB, mode); }) {
  if (module.bufsiz.empty()) {
    bufsiz_.Remove();
  }
  memory_.resize(kMemoryBytes, '\xff');
  for (const char* const node : {kSpiNode, kI2cNode}) {
    files[node] = "";
  }
  for (const char* const name : {"qspi_prg", "zynq_hw_reset_n", "zynq_done"}) {
    files[ControlFile(name)] = "";
  }
}

std::string ProgrammersWorld::ControlFile(const std::string& name) const {
  return "/sys/platform_m" + std::to_string(module_.number) + "/" + name + "/value";
}

void ProgrammersWorld::CountCall() { Require(++calls_ < kMaxCalls, "every run comes to an end"); }

bool ProgrammersWorld::NextReadIsDone() {
  return module_.readsBeforeDone != kNeverDone && doneReads_++ >= module_.readsBeforeDone;
}

FileKernel::Fate ProgrammersWorld::DecideNext(const std::string& call, const std::string& path) {
  CountCall();
  const Fate fate = FateOf(disturbances_.Byte());
  if (call == "nanosleep") {
    return {.error = fate.error == 0 ? 0 : EINTR};
  }
  return path.starts_with("/sys/platform_m") ? Fate{} : fate;
}

ssize_t ProgrammersWorld::Read(int fd, void* buffer, std::size_t length) {
  const std::string& path = PathOf(fd);
  if (path == ControlFile("zynq_done")) {
    files[path] = std::string(1, NextReadIsDone() ? module_.doneText : '0');
  }
  return FileKernel::Read(fd, buffer, length);
}

int ProgrammersWorld::Usleep(useconds_t microseconds) {
  CountCall();
  return FileKernel::Usleep(microseconds);
}

std::FILE* ProgrammersWorld::OpenSelector(const std::string& path, const char* mode) {
  Selection selection = {.path = path, .file = nullptr};
  std::FILE* stream = nullptr;
  switch (disturbances_.Byte()) {
    case kFails:
      errno = ENOENT;
      break;
    case kIgnores:
      stream = OpenFullDevice();
      break;
    default:
      selection.file = std::make_unique<RedirectedFile>("a selection");
      stream = selection.file->OpenOnce(mode);
  }
  selections_.push_back(std::move(selection));
  return stream;
}

// --- Flash --------------------------------------------------------------------------------------

int ProgrammersWorld::Ioctl(int fd, unsigned long request, void* argument) {
  CountCall();
  const std::string& path = PathOf(fd);
  if (path == kI2cNode && request == I2C_RDWR) {
    const auto* const data = static_cast<const i2c_rdwr_ioctl_data*>(argument);
    return I2cTransaction(data->msgs, data->nmsgs);
  }
  Require(path == kSpiNode && _IOC_TYPE(request) == SPI_IOC_MAGIC, "each node gets its own calls");
  if (_IOC_NR(request) == 0) {
    return SpiMessage(static_cast<const spi_ioc_transfer*>(argument),
                      _IOC_SIZE(request) / sizeof(spi_ioc_transfer));
  }
  if (request == SPI_IOC_RD_MAX_SPEED_HZ) {
    const std::uint32_t speed = 50'000'000;
    std::memcpy(argument, &speed, sizeof speed);
  }
  if (disturbances_.Byte() == kFails) {
    flashObeyed_ = false;
    return Fail(EINVAL);
  }
  return 0;
}

int ProgrammersWorld::SpiMessage(const spi_ioc_transfer* transfers, std::size_t count) {
  Bytes tx;
  std::uint8_t* rx = nullptr;
  std::size_t rxBytes = 0;
  for (const spi_ioc_transfer& transfer : std::span(transfers, count)) {
    if (transfer.tx_buf != 0) {
      const std::uint8_t* const bytes = kernel::Pointer(transfer.tx_buf);
      tx.insert(tx.end(), bytes, bytes + transfer.len);
    } else {
      rx = kernel::Pointer(transfer.rx_buf);
      rxBytes = transfer.len;
    }
  }
  Require(!tx.empty(), "each message is a command");
  switch (disturbances_.Byte()) {
    case kFails:
      flashObeyed_ = false;
      return Fail(EIO);
    case kAnswersAnything:
      flashObeyed_ = false;
      std::generate_n(rx, rxBytes, [this] { return disturbances_.Byte(); });
      break;
    case kIgnores:
      flashObeyed_ = false;
      std::fill_n(rx, rxBytes, std::uint8_t{0});
      break;
    case kTakesLong:
      FakeClock::Advance(kLong);
      Command(tx, rx, rxBytes);
      break;
    default:
      Command(tx, rx, rxBytes);
  }
  return static_cast<int>(tx.size() + rxBytes);
}

void ProgrammersWorld::Command(const Bytes& tx, std::uint8_t* rx, std::size_t rxBytes) {
  const std::size_t address = AddressIn(tx);
  switch (tx[0]) {
    case 0x06:
      writeEnabled_ = true;
      return;
    case 0x9F:
      std::copy_n(module_.id, std::min<std::size_t>(rxBytes, sizeof module_.id), rx);
      return;
    case 0x05:
      std::fill_n(rx, rxBytes, status_);
      return;
    case 0x15:
      std::fill_n(rx, rxBytes, std::uint8_t{0});
      return;
    case 0x03:
      for (std::size_t i = 0; i < rxBytes; ++i) {
        rx[i] =
            address + i < memory_.size() ? static_cast<std::uint8_t>(memory_[address + i]) : 0xFF;
      }
      return;
    default:
      Change(tx);
  }
}

void ProgrammersWorld::Change(const Bytes& tx) {
  Require(tx[0] == 0x01 || tx[0] == 0x02 || tx[0] == 0x20 || tx[0] == 0xD8,
          "no command but those of the driver");
  if (tx[0] != 0x01 && !changed_) {
    module_.onChange();
    changed_ = true;
  }
  if (!writeEnabled_) {
    Require(!flashObeyed_, "a write enable stands before each change");
    return;
  }
  writeEnabled_ = false;
  const std::size_t address = AddressIn(tx);
  constexpr std::uint8_t kLevel = 0x3C;
  if (tx[0] == 0x01) {
    status_ = tx.at(1) & 0x7CU;
    unlocked_ = unlocked_ || (status_ & kLevel) == 0;
  } else if ((status_ & kLevel) != 0) {
    return;  // protected, all of it
  } else if (tx[0] == 0x02) {
    for (std::size_t i = 4; i < tx.size(); ++i) {
      const std::size_t at = (address & ~std::size_t{0xFF}) | ((address + i - 4) & 0xFFU);
      if (at < memory_.size()) {
        memory_[at] = static_cast<char>(memory_[at] & tx[i]);
      }
    }
  } else {
    const std::size_t unit = tx[0] == 0x20 ? 0x1000 : 0x10000;
    for (std::size_t at = address & ~(unit - 1); at < memory_.size() && at < address + unit; ++at) {
      memory_[at] = '\xff';
    }
  }
}

// --- Expander -----------------------------------------------------------------------------------

int ProgrammersWorld::I2cTransaction(const i2c_msg* messages, std::size_t count) {
  const std::span all(messages, count);
  Require(!all.empty() && (all[0].flags & I2C_M_RD) == 0 && all[0].len != 0,
          "a transaction starts with the register's number");
  const std::uint8_t disturbance = disturbances_.Byte();
  expanderFailedLast_ = disturbance == kFails;
  expanderObeyed_ = expanderObeyed_ && !expanderFailedLast_ && disturbance != kAnswersAnything;
  if (expanderFailedLast_) {
    return Fail(EREMOTEIO);
  }
  const std::size_t reg = all[0].buf[0];
  for (std::size_t i = 1; i < all[0].len; ++i) {
    registers_[(reg & 6U) | ((reg + i - 1) & 1U)] = all[0].buf[i];
  }
  if (count == 2) {
    if (reg < 2) {
      std::fill_n(registers_, 2, NextReadIsDone() ? std::uint8_t{0xFF} : std::uint8_t{0});
    }
    for (std::size_t i = 0; i < all[1].len; ++i) {
      const bool anything = disturbance == kAnswersAnything;
      all[1].buf[i] = anything ? disturbances_.Byte() : registers_[(reg & 6U) | ((reg + i) & 1U)];
    }
  }
  return static_cast<int>(count);
}
