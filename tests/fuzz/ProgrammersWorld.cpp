#include "tests/fuzz/ProgrammersWorld.h"

#include <dlfcn.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <span>

#include "tests/doubles/KernelCall.h"
#include "tests/fuzz/Require.h"
#include "tests/fuzz/SteadyClock.h"

namespace {

constexpr const char* kBufsiz = "/sys/module/spidev/parameters/bufsiz";
constexpr const char* kSelector = "/sys/platform/module_selector/";

constexpr std::size_t kMemoryBytes = 0x10000;
constexpr std::size_t kMaxCalls = 2'000'000;

constexpr std::uint8_t kFails = 0xFF;
constexpr std::uint8_t kAnswersAnything = 0xFE;  // a flash register, the expander's inputs
constexpr std::uint8_t kIgnores = 0xFD;          // the flash does not do what it is told
constexpr std::uint8_t kTakesLong = 0xFC;
constexpr std::chrono::seconds kLong{6};

int Fail(int error) {
  errno = error;
  return -1;
}

/// A new file in memory, around the link seams.
int NewDescriptor(const std::string& contents) {
  const int fd = ::memfd_create("stream", 0);
  std::string bytes = contents;
  const iovec piece = {.iov_base = bytes.data(), .iov_len = bytes.size()};
  Require(fd >= 0 && ::pwritev(fd, &piece, 1, 0) == static_cast<ssize_t>(bytes.size()),
          "there is memory for a stream");
  return fd;
}

std::FILE* OpenStream(const char* path, const char* mode, const char* symbol) {
  using Fopen = std::FILE* (*)(const char*, const char*);
  const auto next = reinterpret_cast<Fopen>(::dlsym(RTLD_NEXT, symbol));
  ProgrammersWorld* const world = ProgrammersWorld::Current();
  std::FILE* file = nullptr;
  return world != nullptr && world->OpenStream(path, next, file) ? file : next(path, mode);
}

/// The three bytes behind the opcode; 0 when they are not all there.
std::size_t AddressIn(const std::vector<std::uint8_t>& tx) {
  std::size_t address = 0;
  for (std::size_t i = 1; i < 4 && tx.size() >= 4; ++i) {
    address = address * 0x100 + tx[i];
  }
  return address;
}

}  // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's are reserved
extern "C" std::FILE* fopen(const char* path, const char* mode) {
  return OpenStream(path, mode, "fopen");
}

extern "C" std::FILE* fopen64(const char* path, const char* mode) {
  return OpenStream(path, mode, "fopen64");
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

ProgrammersWorld::ProgrammersWorld(const Module& module, HostileBytes& disturbances)
    : MemoryFiles(disturbances),
      module_(module),
      disturbances_(disturbances),
      memory_(module.memory) {
  memory_.resize(kMemoryBytes, '\xff');
  for (const char* const node : {kSpiNode, kI2cNode}) {
    files[node] = "";
  }
  for (const char* const name : {"qspi_prg", "zynq_hw_reset_n", "zynq_done"}) {
    files[ControlFile(name)] = "";
  }
}

ProgrammersWorld::~ProgrammersWorld() {
  for (const Selection& selection : selections_) {
    if (selection.works) {
      static_cast<void>(::syscall(SYS_close, selection.fd));  // around the link seams
    }
  }
}

ProgrammersWorld* ProgrammersWorld::Current() {
  return dynamic_cast<ProgrammersWorld*>(Kernel::Current());
}

std::string ProgrammersWorld::ControlFile(const std::string& name) const {
  return "/sys/platform_m" + std::to_string(module_.number) + "/" + name + "/value";
}

void ProgrammersWorld::CountCall() { Require(++calls_ < kMaxCalls, "every run comes to an end"); }

bool ProgrammersWorld::NextReadIsDone() {
  return module_.readsBeforeDone != kNeverDone && doneReads_++ >= module_.readsBeforeDone;
}

ssize_t ProgrammersWorld::Read(int fd, void* buffer, std::size_t length) {
  CountCall();
  const std::string& path = PathOf(fd);
  if (path == ControlFile("zynq_done")) {
    const bool nothing = module_.doneText == '\0';
    files[path] = nothing ? "" : std::string(1, NextReadIsDone() ? module_.doneText : '0');
  }
  return MemoryFiles::Read(fd, buffer, length);
}

int ProgrammersWorld::Usleep(useconds_t microseconds) {
  CountCall();
  SteadyClock::Advance(std::chrono::milliseconds(microseconds / 1000));
  return 0;
}

unsigned ProgrammersWorld::Sleep(unsigned seconds) {
  SteadyClock::Advance(std::chrono::seconds(seconds));
  return 0;
}

int ProgrammersWorld::Nanosleep(const timespec* duration, timespec* left) {
  CountCall();
  if (disturbances_.Byte() == kFails) {
    *left = *duration;
    return Fail(EINTR);
  }
  SteadyClock::Advance(std::chrono::milliseconds(duration->tv_nsec / 1'000'000));
  return 0;
}

// --- Streams
// --------------------------------------------------------------------------------------

bool ProgrammersWorld::OpenStream(const std::string& path,
                                  std::FILE* (*next)(const char*, const char*),
                                  std::FILE*& file) {
  if (path == kBufsiz) {
    file = module_.bufsiz.empty() ? nullptr : ::fdopen(NewDescriptor(module_.bufsiz), "r");
    return true;
  }
  if (!path.starts_with(kSelector)) {
    return false;
  }
  Selection selection = {.path = path, .works = false, .fd = -1};
  switch (disturbances_.Byte()) {
    case kFails:
      file = nullptr;
      errno = ENOENT;
      break;
    case kIgnores:
      file = next("/dev/full", "w");
      break;
    default:
      selection.works = true;
      selection.fd = NewDescriptor("");
      file = ::fdopen(::dup(selection.fd), "w");
  }
  selections_.push_back(selection);
  return true;
}

std::string ProgrammersWorld::Selection::Text() const {
  char text[256];
  const ssize_t count = works ? ::pread(fd, text, sizeof text, 0) : 0;
  return {text, static_cast<std::size_t>(count)};
}

// --- Flash
// ----------------------------------------------------------------------------------------

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
      SteadyClock::Advance(kLong);
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

// --- Expander
// -------------------------------------------------------------------------------------

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
