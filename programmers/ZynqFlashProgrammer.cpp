#include "programmers/ZynqFlashProgrammer.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "base/FileDescriptor.h"
#include "devices/SPIDev.h"
#include "flash/MT25QL128.h"
#include "programmers/BootHeader.h"
#include "programmers/FlashUpdate.h"

namespace {

constexpr const char* kDumpPath = "./FlashDevice.bin";
constexpr const char* kVerifyDumpPath = "./FlashDevice_verif.bin";
constexpr mode_t kDumpMode = 0600;
constexpr int kDumpBytes = 4096;

constexpr unsigned kResetSeconds = 5;
constexpr std::chrono::milliseconds kDoneTimeout{10'000};
constexpr useconds_t kPollMicroseconds = 1000;

/// One sysfs control file of a module, and its name in messages.
struct ControlFile {
  const char* suffix;
  const char* name;
};

constexpr ControlFile kQspiPrg = {"/qspi_prg/value", "QSPI_PRG"};
constexpr ControlFile kHwResetN = {"/zynq_hw_reset_n/value", "ZYNQ_HW_RESET_N"};
constexpr ControlFile kDone = {"/zynq_done/value", "ZYNQ_DONE"};

std::string Path(const ControlFile& file, unsigned int module) {
  return "/sys/platform_m" + std::to_string(module) + file.suffix;
}

/// @param what   "open", "write to", "read" or "close"
/// @param error  the errno of that call
[[noreturn]] void Die(const char* what, const ControlFile& file, int error) {
  const std::string message =
      std::string("could not ") + what + " SYSFS " + file.name + " value device";
  errno = error;
  std::perror(message.c_str());
  std::exit(EXIT_FAILURE);
}

FileDescriptor OpenOrDie(const ControlFile& file, unsigned int module, int flags) {
  const std::string path = Path(file, module);
  FileDescriptor descriptor(::open(path.c_str(), flags | O_SYNC));
  if (!descriptor.IsOpen()) {
    Die("open", file, errno);
  }
  return descriptor;
}

void CloseOrDie(const ControlFile& file, FileDescriptor& descriptor) {
  if (descriptor.Close() < 0) {
    Die("close", file, errno);
  }
}

int Write(const ControlFile& file, unsigned int module, const std::string& value) {
  FileDescriptor descriptor = OpenOrDie(file, module, O_WRONLY);
  if (::write(descriptor.Get(), value.data(), value.size()) < 0) {
    Die("write to", file, errno);
  }
  CloseOrDie(file, descriptor);
  return 0;
}

}  // namespace

ZynqFlashProgrammer::ZynqFlashProgrammer(SPIDev* spi, unsigned int module)
    : flash_(std::make_unique<MT25QL128>(spi)), module_(module) {}

ZynqFlashProgrammer::~ZynqFlashProgrammer() = default;

bool ZynqFlashProgrammer::ConnectLines() { return true; }

// What sets a control file returns only after success.

void ZynqFlashProgrammer::RouteToController() { static_cast<void>(set_qspi_prg("1")); }

void ZynqFlashProgrammer::RouteInPsMode() { RouteToController(); }

void ZynqFlashProgrammer::RouteToFpga() { static_cast<void>(set_qspi_prg("0")); }

void ZynqFlashProgrammer::HoldReset() { static_cast<void>(set_zynq_hw_reset_n("0")); }

void ZynqFlashProgrammer::ReleaseReset() { static_cast<void>(set_zynq_hw_reset_n("1")); }

FpgaProgrammerInterface::Status ZynqFlashProgrammer::Connect() {
  RouteToController();
  return flash_->Connect(true) == MT25QL128::kDone ? Success : ConnectFailed;
}

FpgaProgrammerInterface::Status ZynqFlashProgrammer::ProgramDevice(std::string imagePath) {
  if (flash_ == nullptr) {
    return ConnectFailed;  // GCOVR_EXCL_LINE: the constructor creates the flash driver
  }
  // Deliberate: on every early return below qspi_prg stays "1" and the Zynq is not reset; the
  // caller decides what follows.
  if (!DumpFlash(kDumpPath)) {
    return ConnectFailed;
  }
  if (!IsFlashUpgradeRequired(kDumpPath, imagePath)) {
    return UpToDate;
  }
  const Status rewritten = RewriteFlash(*flash_, imagePath);
  if (rewritten != Success) {
    return rewritten;
  }
  if (!DumpFlash(kVerifyDumpPath)) {
    return ConnectFailed;
  }
  if (IsFlashUpgradeRequired(kVerifyDumpPath, imagePath)) {
    std::cerr << "ERROR: SPI flash upgrade failed - Try to remove WEND if present !" << std::endl;
    return ProgramFailed;
  }
  flash_->Disconnect();
  RouteToFpga();
  return toggleFpgaResetAndWaitForProgramDone();
}

bool ZynqFlashProgrammer::IsProgrammed() {
  std::string done;
  return get_zynq_done(done) == 0 && done == "1";
}

int ZynqFlashProgrammer::set_qspi_prg(std::string value) { return Write(kQspiPrg, module_, value); }

int ZynqFlashProgrammer::set_zynq_hw_reset_n(std::string value) {
  return Write(kHwResetN, module_, value);
}

int ZynqFlashProgrammer::get_zynq_done(std::string& value) {
  FileDescriptor descriptor = OpenOrDie(kDone, module_, O_RDONLY);
  char byte = '\0';
  const ssize_t count = ::read(descriptor.Get(), &byte, sizeof byte);
  if (count < 0) {
    Die("read", kDone, errno);
  }
  value.assign(static_cast<std::size_t>(count), byte);
  if (value != "1" && value != "0") {
    std::cerr << "Invalid  value read. Should be \"1\" or \"0\". " << std::endl;
    std::exit(EXIT_FAILURE);
  }
  CloseOrDie(kDone, descriptor);
  return 0;
}

void ZynqFlashProgrammer::toggleReset() {
  HoldReset();
  ::sleep(kResetSeconds);
  ReleaseReset();
}

bool ZynqFlashProgrammer::waitForDoneToGoHigh(const std::chrono::milliseconds& timeout) {
  std::string done;
  static_cast<void>(get_zynq_done(done));  // returns only after success
  // Deliberate: DONE seen on the last permitted poll counts as a time-out; fixed and observable; do
  // not change.
  auto count = timeout.count();
  while (count >= 1) {
    --count;
    if (done != "0") {
      break;
    }
    ::usleep(kPollMicroseconds);
    static_cast<void>(get_zynq_done(done));
  }
  return count > 0;
}

FpgaProgrammerInterface::Status ZynqFlashProgrammer::toggleFpgaResetAndWaitForProgramDone() {
  return ResetAndWaitForDone([this] { toggleReset(); },
                             [this] { return waitForDoneToGoHigh(kDoneTimeout); });
}

bool ZynqFlashProgrammer::DumpFlash(const char* path) {
  // Deliberate: not truncated; fixed and observable; do not change. What a longer file of an
  // earlier run holds after the dump stays.
  FileDescriptor dump(::open(path, O_WRONLY | O_CREAT, kDumpMode));
  std::cout << "Reading flash..." << std::flush;
  // With descriptor -1 the driver would discard what it reads, and the old dump would be compared.
  const bool dumped =
      dump.IsOpen() && flash_->ReadDevice(0, kDumpBytes, dump.Get()) == MT25QL128::kDone;
  static_cast<void>(dump.Close());  // what is missing shows when the comparison reads the file
  if (!dumped) {
    std::cerr << "ERROR: Can't read Flash device !" << std::endl;
  }
  return dumped;
}
