// The kernel's attributes are replaced at the link: open, read, write and close of
// platform/linux/PEX8606BA.cpp end in FakeSysfs, whose files can fail with any errno.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/PEX8606BA.h"

namespace {

struct FakeFile {
  std::string contents;
  int openErrno = 0;
  int readErrno = 0;
  int writeErrno = 0;
  bool takesNothing = false;  // write() returns 0
  int closeErrno = 0;
};

/// The files of /sys, and the calls made on them in order. A path that is not listed is missing; a
/// descriptor that is not open fails the test.
class FakeSysfs {
 public:
  static constexpr int kFirstDescriptor = 1000000;  // above every real one

  static FakeSysfs* current;

  FakeSysfs() { current = this; }
  FakeSysfs(const FakeSysfs&) = delete;
  FakeSysfs& operator=(const FakeSysfs&) = delete;
  ~FakeSysfs() {
    current = nullptr;
    EXPECT_EQ(open_.size(), 0U) << "descriptors left open";
  }

  std::map<std::string, FakeFile> files;
  std::vector<std::string> calls;

  int Open(const std::string& path, int flags) {
    const std::string how = flags == O_RDONLY   ? "r"
                            : flags == O_WRONLY ? "w"
                                                : "flags " + std::to_string(flags);
    calls.push_back("open " + path + " " + how);
    const auto file = files.find(path);
    if (file == files.end()) {
      return Failure(ENOENT);
    }
    if (file->second.openErrno != 0) {
      return Failure(file->second.openErrno);
    }
    open_[next_] = &file->second;
    return next_++;
  }

  ssize_t Read(int fd, void* data, std::size_t size) {
    calls.push_back("read");
    const FakeFile& file = At(fd);
    if (file.readErrno != 0) {
      return Failure(file.readErrno);
    }
    const std::size_t count = std::min(size, file.contents.size());
    std::memcpy(data, file.contents.data(), count);
    return static_cast<ssize_t>(count);
  }

  ssize_t Write(int fd, const void* data, std::size_t size) {
    calls.push_back("write " + std::string(static_cast<const char*>(data), size));
    const FakeFile& file = At(fd);
    if (file.writeErrno != 0) {
      return Failure(file.writeErrno);
    }
    return file.takesNothing ? 0 : static_cast<ssize_t>(size);
  }

  int Close(int fd) {
    calls.push_back("close");
    const int error = At(fd).closeErrno;
    open_.erase(fd);
    return error != 0 ? Failure(error) : 0;
  }

 private:
  static int Failure(int error) {
    errno = error;
    return -1;
  }

  FakeFile& At(int fd) {
    static FakeFile none{.readErrno = EBADF, .writeErrno = EBADF, .closeErrno = EBADF};
    const auto file = open_.find(fd);
    if (file == open_.end()) {
      ADD_FAILURE() << "descriptor " << fd << " is not open";
      return none;
    }
    return *file->second;
  }

  std::map<int, FakeFile*> open_;
  int next_ = kFirstDescriptor;
};

FakeSysfs* FakeSysfs::current = nullptr;

bool IsFake(int fd) { return FakeSysfs::current != nullptr && fd >= FakeSysfs::kFirstDescriptor; }

}  // namespace

// Everything outside /sys (the test framework, the sanitizers) goes where it always goes.
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's --wrap forms these names
extern "C" {

int __real_open(const char* path, int flags, ...);
ssize_t __real_read(int fd, void* data, size_t size);
ssize_t __real_write(int fd, const void* data, size_t size);
int __real_close(int fd);

int __wrap_open(const char* path, int flags, ...) {
  if (FakeSysfs::current != nullptr && std::string_view(path).starts_with("/sys/")) {
    return FakeSysfs::current->Open(path, flags);
  }
  va_list more;
  va_start(more, flags);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): va_start stands right above
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
  va_end(more);
  return __real_open(path, flags, mode);
}

ssize_t __wrap_read(int fd, void* data, size_t size) {
  return IsFake(fd) ? FakeSysfs::current->Read(fd, data, size) : __real_read(fd, data, size);
}

ssize_t __wrap_write(int fd, const void* data, size_t size) {
  return IsFake(fd) ? FakeSysfs::current->Write(fd, data, size) : __real_write(fd, data, size);
}

int __wrap_close(int fd) { return IsFake(fd) ? FakeSysfs::current->Close(fd) : __real_close(fd); }

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

namespace {

using testing::ElementsAre;

constexpr char kSlot4[] = "/sys/bus/pci/slots/4/address";
constexpr char kRemove[] = "/sys/bus/pci/devices/0001:0a:1f.0/remove";
constexpr char kRescan[] = "/sys/class/pci_bus/0001:0a/rescan";
constexpr char kEnable[] = "/sys/bus/pci/devices/0001:0a:1f.0/enable";

class PEX8606BATest : public testing::Test {
 protected:
  PEX8606BATest() {
    sysfs_.files[kSlot4] = {.contents = "0001:0a:1f\n"};
    for (const char* path : {kRemove, kRescan, kEnable}) {
      sysfs_.files[path] = {};
    }
  }

  FakeSysfs sysfs_;
  PEX8606BA switch_;
};

TEST_F(PEX8606BATest, ConstructionAndDestructionTouchNothing) {
  { const PEX8606BA another; }
  EXPECT_THAT(sysfs_.calls, ElementsAre());
}

TEST_F(PEX8606BATest, RemoveWritesOneToTheRemoveAttributeOfFunctionZero) {
  EXPECT_TRUE(switch_.RemoveDevice(4));
  EXPECT_THAT(sysfs_.calls,
              ElementsAre("open /sys/bus/pci/slots/4/address r",
                          "read",
                          "close",
                          "open /sys/bus/pci/devices/0001:0a:1f.0/remove w",
                          "write 1",
                          "close"));
}

TEST_F(PEX8606BATest, RescanWritesOneToTheRescanAttributeOfTheBus) {
  EXPECT_TRUE(switch_.RescanPciBus(4));
  EXPECT_THAT(sysfs_.calls,
              ElementsAre("open /sys/bus/pci/slots/4/address r",
                          "read",
                          "close",
                          "open /sys/class/pci_bus/0001:0a/rescan w",
                          "write 1",
                          "close"));
}

TEST_F(PEX8606BATest, EnableWritesOneToTheEnableAttributeOfFunctionZero) {
  EXPECT_TRUE(switch_.EnableDevice(4));
  EXPECT_THAT(sysfs_.calls,
              ElementsAre("open /sys/bus/pci/slots/4/address r",
                          "read",
                          "close",
                          "open /sys/bus/pci/devices/0001:0a:1f.0/enable w",
                          "write 1",
                          "close"));
}

TEST_F(PEX8606BATest, EveryOperationReadsTheSlotAgain) {
  EXPECT_TRUE(switch_.RemoveDevice(4));
  sysfs_.files[kSlot4].contents = "0001:0b:00\n";
  sysfs_.files["/sys/class/pci_bus/0001:0b/rescan"] = {};
  EXPECT_TRUE(switch_.RescanPciBus(4));
  sysfs_.files[kSlot4].contents = "0002:0c:01\n";
  sysfs_.files["/sys/bus/pci/devices/0002:0c:01.0/enable"] = {};
  EXPECT_TRUE(switch_.EnableDevice(4));
}

TEST_F(PEX8606BATest, ModuleNumberIsUnsignedAndDecimal) {
  EXPECT_FALSE(switch_.RemoveDevice(0));
  EXPECT_FALSE(switch_.RemoveDevice(10));
  EXPECT_FALSE(switch_.RemoveDevice(4294967295U));
  EXPECT_THAT(sysfs_.calls,
              ElementsAre("open /sys/bus/pci/slots/0/address r",
                          "open /sys/bus/pci/slots/10/address r",
                          "open /sys/bus/pci/slots/4294967295/address r"));
}

TEST_F(PEX8606BATest, AddressWithoutNewlineIsWellFormed) {
  sysfs_.files[kSlot4].contents = "0001:0a:1f";
  EXPECT_TRUE(switch_.RemoveDevice(4));
}

TEST_F(PEX8606BATest, UpperCaseAddressIsPassedOnAsItIs) {
  sysfs_.files[kSlot4].contents = "ABCD:EF:0A\n";
  sysfs_.files["/sys/bus/pci/devices/ABCD:EF:0A.0/remove"] = {};
  EXPECT_TRUE(switch_.RemoveDevice(4));
}

TEST_F(PEX8606BATest, UnopenableSlotFails) {
  sysfs_.files[kSlot4].openErrno = EACCES;
  EXPECT_FALSE(switch_.RemoveDevice(4));
  EXPECT_FALSE(switch_.RescanPciBus(4));
  EXPECT_FALSE(switch_.EnableDevice(4));
  EXPECT_THAT(sysfs_.calls,
              ElementsAre("open /sys/bus/pci/slots/4/address r",
                          "open /sys/bus/pci/slots/4/address r",
                          "open /sys/bus/pci/slots/4/address r"));
}

TEST_F(PEX8606BATest, UnreadableSlotFailsAndIsClosed) {
  sysfs_.files[kSlot4].readErrno = EIO;
  EXPECT_FALSE(switch_.RemoveDevice(4));
  EXPECT_FALSE(switch_.RescanPciBus(4));
  EXPECT_FALSE(switch_.EnableDevice(4));
  EXPECT_THAT(sysfs_.calls,
              ElementsAre("open /sys/bus/pci/slots/4/address r",
                          "read",
                          "close",
                          "open /sys/bus/pci/slots/4/address r",
                          "read",
                          "close",
                          "open /sys/bus/pci/slots/4/address r",
                          "read",
                          "close"));
}

TEST_F(PEX8606BATest, InterruptedReadIsNotRepeated) {
  sysfs_.files[kSlot4].readErrno = EINTR;
  EXPECT_FALSE(switch_.RemoveDevice(4));
  EXPECT_THAT(sysfs_.calls, ElementsAre("open /sys/bus/pci/slots/4/address r", "read", "close"));
}

TEST_F(PEX8606BATest, CloseOfTheSlotDoesNotDecide) {
  sysfs_.files[kSlot4].closeErrno = EIO;
  EXPECT_TRUE(switch_.RemoveDevice(4));
}

TEST_F(PEX8606BATest, UnopenableAttributeFails) {
  sysfs_.files.erase(kRemove);
  sysfs_.files[kRescan].openErrno = EACCES;
  sysfs_.files[kEnable].openErrno = EINTR;
  EXPECT_FALSE(switch_.RemoveDevice(4));
  EXPECT_FALSE(switch_.RescanPciBus(4));
  EXPECT_FALSE(switch_.EnableDevice(4));
  EXPECT_THAT(sysfs_.calls,
              ElementsAre("open /sys/bus/pci/slots/4/address r",
                          "read",
                          "close",
                          "open /sys/bus/pci/devices/0001:0a:1f.0/remove w",
                          "open /sys/bus/pci/slots/4/address r",
                          "read",
                          "close",
                          "open /sys/class/pci_bus/0001:0a/rescan w",
                          "open /sys/bus/pci/slots/4/address r",
                          "read",
                          "close",
                          "open /sys/bus/pci/devices/0001:0a:1f.0/enable w"));
}

TEST_F(PEX8606BATest, FailedWriteFailsIsNotRepeatedAndCloses) {
  sysfs_.files[kRemove].writeErrno = EINTR;
  sysfs_.files[kRescan].writeErrno = EIO;
  sysfs_.files[kEnable].writeErrno = EINVAL;
  EXPECT_FALSE(switch_.RemoveDevice(4));
  EXPECT_FALSE(switch_.RescanPciBus(4));
  EXPECT_FALSE(switch_.EnableDevice(4));
  EXPECT_THAT(sysfs_.calls,
              ElementsAre("open /sys/bus/pci/slots/4/address r",
                          "read",
                          "close",
                          "open /sys/bus/pci/devices/0001:0a:1f.0/remove w",
                          "write 1",
                          "close",
                          "open /sys/bus/pci/slots/4/address r",
                          "read",
                          "close",
                          "open /sys/class/pci_bus/0001:0a/rescan w",
                          "write 1",
                          "close",
                          "open /sys/bus/pci/slots/4/address r",
                          "read",
                          "close",
                          "open /sys/bus/pci/devices/0001:0a:1f.0/enable w",
                          "write 1",
                          "close"));
}

TEST_F(PEX8606BATest, WriteOfNothingFails) {
  for (const char* path : {kRemove, kRescan, kEnable}) {
    sysfs_.files[path].takesNothing = true;
  }
  EXPECT_FALSE(switch_.RemoveDevice(4));
  EXPECT_FALSE(switch_.RescanPciBus(4));
  EXPECT_FALSE(switch_.EnableDevice(4));
}

TEST_F(PEX8606BATest, FailedCloseOfTheAttributeFailsAndIsNotRepeated) {
  sysfs_.files[kRemove].closeErrno = EIO;
  sysfs_.files[kRescan].closeErrno = EINTR;
  sysfs_.files[kEnable].closeErrno = ENOSPC;
  EXPECT_FALSE(switch_.RemoveDevice(4));
  EXPECT_FALSE(switch_.RescanPciBus(4));
  EXPECT_FALSE(switch_.EnableDevice(4));
  EXPECT_EQ(std::count(sysfs_.calls.begin(), sysfs_.calls.end(), "close"), 6);
}

TEST_F(PEX8606BATest, NothingIsPrinted) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const bool succeeded = switch_.RemoveDevice(4);
  sysfs_.files[kRescan].writeErrno = EIO;
  const bool failed = switch_.RescanPciBus(4);
  const bool missing = switch_.EnableDevice(5);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_TRUE(succeeded);
  EXPECT_FALSE(failed);
  EXPECT_FALSE(missing);
}

struct AddressCase {
  const char* name;
  std::string contents;
};

class PEX8606BAAddressTest : public PEX8606BATest,
                             public testing::WithParamInterface<AddressCase> {};

TEST_P(PEX8606BAAddressTest, MalformedAddressFailsBeforeAnyWrite) {
  sysfs_.files[kSlot4].contents = GetParam().contents;
  EXPECT_FALSE(switch_.RemoveDevice(4));
  EXPECT_FALSE(switch_.RescanPciBus(4));
  EXPECT_FALSE(switch_.EnableDevice(4));
  EXPECT_THAT(sysfs_.calls,
              ElementsAre("open /sys/bus/pci/slots/4/address r",
                          "read",
                          "close",
                          "open /sys/bus/pci/slots/4/address r",
                          "read",
                          "close",
                          "open /sys/bus/pci/slots/4/address r",
                          "read",
                          "close"));
}

INSTANTIATE_TEST_SUITE_P(
    Malformed,
    PEX8606BAAddressTest,
    testing::Values(AddressCase{"Empty", ""},
                    AddressCase{"NewlineAlone", "\n"},
                    AddressCase{"SlotWithoutADevice", "0001:0a\n"},  // as the kernel shows it
                    AddressCase{"DeviceOneDigitShort", "0001:0a:1\n"},
                    AddressCase{"DeviceOneDigitLong", "0001:0a:1f0\n"},
                    AddressCase{"DomainOneDigitShort", "001:0a:1f\n"},
                    AddressCase{"DomainOneDigitLong", "00001:0a:1f\n"},
                    AddressCase{"WithAFunction", "0001:0a:1f.0\n"},
                    AddressCase{"FirstColonReplaced", "0001-0a:1f\n"},
                    AddressCase{"SecondColonReplaced", "0001:0a.1f\n"},
                    AddressCase{"ColonForADigit", "000::0a:1f\n"},
                    AddressCase{"LetterAfterF", "0001:0a:1g\n"},
                    AddressCase{"LetterAfterUpperF", "0001:0a:1G\n"},
                    AddressCase{"SlashBeforeZero", "0001:0a:1/\n"},
                    AddressCase{"HexPrefix", "0x01:0a:1f\n"},
                    AddressCase{"ParentFolder", "../.:..:..\n"},
                    AddressCase{"LeadingBlank", " 001:0a:1f\n"},
                    AddressCase{"TrailingBlank", "0001:0a:1f \n"},
                    AddressCase{"TwoNewlines", "0001:0a:1f\n\n"},
                    AddressCase{"CarriageReturn", "0001:0a:1f\r\n"},
                    AddressCase{"TextAfterTheNewline", "0001:0a:1f\nx"},
                    AddressCase{"ZeroByteAfterTheAddress", std::string("0001:0a:1f\0", 11)},
                    AddressCase{"ZeroByteForADigit", std::string("0001:0a:1\0", 10)},
                    AddressCase{"SecondLine", "0001:0a:1f\n0001:0a:1f\n"}),
    [](const auto& row) { return row.param.name; });

}  // namespace
