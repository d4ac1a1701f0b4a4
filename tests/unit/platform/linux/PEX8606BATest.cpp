#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "platform/PEX8606BA.h"
#include "tests/doubles/KernelTest.h"

namespace {

using kernel::Bytes;

const std::string kSlot4 = "/sys/bus/pci/slots/4/address";
const std::string kAddress = "0001:0a:1f\n";
const std::string kRemove = "/sys/bus/pci/devices/0001:0a:1f.0/remove";
const std::string kRescan = "/sys/class/pci_bus/0001:0a/rescan";
const std::string kEnable = "/sys/bus/pci/devices/0001:0a:1f.0/enable";

constexpr std::size_t kAsked = 12;  // bytes of a slot: an address, its newline, one more

/// A slot's attribute read to the end, and closed.
std::vector<KernelCall> SlotRead(const std::string& contents) {
  Bytes bytes(kAsked);
  const std::size_t size = std::min(contents.size(), kAsked);
  std::copy_n(contents.begin(), size, bytes.begin());
  return {kernel::Open(kSlot4, O_RDONLY).Returns(5),
          kernel::Read(5, bytes).Returns(static_cast<long>(size)),
          kernel::Close(5)};
}

/// An attribute opened, '1' written to it, and closed.
std::vector<KernelCall> Written(const std::string& path) {
  return {kernel::Open(path, O_WRONLY).Returns(6), kernel::Write(6, {'1'}), kernel::Close(6)};
}

/// Nothing is printed in any of its tests: the fixture compares the console with "".
class PEX8606BATest : public KernelTest {
 protected:
  void ExpectEveryOperationFails() {
    EXPECT_FALSE(switch_.RemoveDevice(4));
    EXPECT_FALSE(switch_.RescanPciBus(4));
    EXPECT_FALSE(switch_.EnableDevice(4));
  }

  PEX8606BA switch_;
};

TEST_F(PEX8606BATest, ConstructionAndDestructionTouchNothing) { const PEX8606BA another; }

TEST_F(PEX8606BATest, RemoveWritesOneToTheRemoveAttributeOfFunctionZero) {
  Expect(SlotRead(kAddress));
  Expect(Written(kRemove));
  EXPECT_TRUE(switch_.RemoveDevice(4));
}

TEST_F(PEX8606BATest, RescanWritesOneToTheRescanAttributeOfTheBus) {
  Expect(SlotRead(kAddress));
  Expect(Written(kRescan));
  EXPECT_TRUE(switch_.RescanPciBus(4));
}

TEST_F(PEX8606BATest, EnableWritesOneToTheEnableAttributeOfFunctionZero) {
  Expect(SlotRead(kAddress));
  Expect(Written(kEnable));
  EXPECT_TRUE(switch_.EnableDevice(4));
}

TEST_F(PEX8606BATest, EveryOperationReadsTheSlotAgain) {
  Expect(SlotRead(kAddress));
  Expect(Written(kRemove));
  Expect(SlotRead("0001:0b:00\n"));
  Expect(Written("/sys/class/pci_bus/0001:0b/rescan"));
  Expect(SlotRead("0002:0c:01\n"));
  Expect(Written("/sys/bus/pci/devices/0002:0c:01.0/enable"));
  EXPECT_TRUE(switch_.RemoveDevice(4));
  EXPECT_TRUE(switch_.RescanPciBus(4));
  EXPECT_TRUE(switch_.EnableDevice(4));
}

TEST_F(PEX8606BATest, ModuleNumberIsUnsignedAndDecimal) {
  Expect({kernel::Open("/sys/bus/pci/slots/0/address", O_RDONLY).Fails(ENOENT),
          kernel::Open("/sys/bus/pci/slots/10/address", O_RDONLY).Fails(ENOENT),
          kernel::Open("/sys/bus/pci/slots/4294967295/address", O_RDONLY).Fails(ENOENT)});
  EXPECT_FALSE(switch_.RemoveDevice(0));
  EXPECT_FALSE(switch_.RemoveDevice(10));
  EXPECT_FALSE(switch_.RemoveDevice(4294967295U));
}

TEST_F(PEX8606BATest, AddressWithoutNewlineIsWellFormed) {
  Expect(SlotRead("0001:0a:1f"));
  Expect(Written(kRemove));
  EXPECT_TRUE(switch_.RemoveDevice(4));
}

TEST_F(PEX8606BATest, UpperCaseAddressIsPassedOnAsItIs) {
  Expect(SlotRead("ABCD:EF:0A\n"));
  Expect(Written("/sys/bus/pci/devices/ABCD:EF:0A.0/remove"));
  EXPECT_TRUE(switch_.RemoveDevice(4));
}

TEST_F(PEX8606BATest, UnopenableSlotFails) {
  Expect({kernel::Open(kSlot4, O_RDONLY).Fails(EACCES),
          kernel::Open(kSlot4, O_RDONLY).Fails(EACCES),
          kernel::Open(kSlot4, O_RDONLY).Fails(EACCES)});
  ExpectEveryOperationFails();
}

TEST_F(PEX8606BATest, UnreadableSlotFailsAndIsClosed) {
  for (int operation = 0; operation < 3; ++operation) {
    Expect({kernel::Open(kSlot4, O_RDONLY).Returns(5),
            kernel::Read(5, Bytes(kAsked)).Fails(EIO),
            kernel::Close(5)});
  }
  ExpectEveryOperationFails();
}

TEST_F(PEX8606BATest, InterruptedReadIsNotRepeated) {
  Expect({kernel::Open(kSlot4, O_RDONLY).Returns(5),
          kernel::Read(5, Bytes(kAsked)).Fails(EINTR),
          kernel::Close(5)});
  EXPECT_FALSE(switch_.RemoveDevice(4));
}

TEST_F(PEX8606BATest, CloseOfTheSlotDoesNotDecide) {
  std::vector<KernelCall> slot = SlotRead(kAddress);
  slot.back() = kernel::Close(5).Fails(EIO);
  Expect(slot);
  Expect(Written(kRemove));
  EXPECT_TRUE(switch_.RemoveDevice(4));
}

TEST_F(PEX8606BATest, UnopenableAttributeFails) {
  Expect(SlotRead(kAddress));
  Expect({kernel::Open(kRemove, O_WRONLY).Fails(ENOENT)});
  Expect(SlotRead(kAddress));
  Expect({kernel::Open(kRescan, O_WRONLY).Fails(EACCES)});
  Expect(SlotRead(kAddress));
  Expect({kernel::Open(kEnable, O_WRONLY).Fails(EINTR)});
  ExpectEveryOperationFails();
}

/// What becomes of the write, or of the closing, of each of the three attributes.
class FailedAttributeTest : public PEX8606BATest {
 protected:
  void ExpectAttribute(const std::string& path, const KernelCall& write, const KernelCall& close) {
    Expect(SlotRead(kAddress));
    Expect({kernel::Open(path, O_WRONLY).Returns(6), write, close});
  }

  const KernelCall write_ = kernel::Write(6, {'1'});
  const KernelCall close_ = kernel::Close(6);
};

TEST_F(FailedAttributeTest, FailedWriteFailsIsNotRepeatedAndCloses) {
  ExpectAttribute(kRemove, write_.Fails(EINTR), close_);
  ExpectAttribute(kRescan, write_.Fails(EIO), close_);
  ExpectAttribute(kEnable, write_.Fails(EINVAL), close_);
  ExpectEveryOperationFails();
}

TEST_F(FailedAttributeTest, WriteOfNothingFails) {
  for (const std::string& path : {kRemove, kRescan, kEnable}) {
    ExpectAttribute(path, write_.Returns(0), close_);
  }
  ExpectEveryOperationFails();
}

TEST_F(FailedAttributeTest, FailedCloseFailsAndIsNotRepeated) {
  ExpectAttribute(kRemove, write_, close_.Fails(EIO));
  ExpectAttribute(kRescan, write_, close_.Fails(EINTR));
  ExpectAttribute(kEnable, write_, close_.Fails(ENOSPC));
  ExpectEveryOperationFails();
}

struct AddressCase {
  const char* name;
  std::string contents;
};

class PEX8606BAAddressTest : public PEX8606BATest,
                             public testing::WithParamInterface<AddressCase> {};

TEST_P(PEX8606BAAddressTest, MalformedAddressFailsBeforeAnyWrite) {
  for (int operation = 0; operation < 3; ++operation) {
    Expect(SlotRead(GetParam().contents));
  }
  ExpectEveryOperationFails();
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
