#include <gtest/gtest.h>

#include <string>
#include <type_traits>

#include "programmers/FpgaProgrammerInterface.h"
#include "tests/doubles/Console.h"
#include "tests/doubles/VirtualSlot.h"

namespace {

using Interface = FpgaProgrammerInterface;

/// Overrides what a programmer must override, and nothing else.
class BareProgrammer final : public Interface {
 public:
  Status Connect() override { return Success; }
  Status ProgramDevice(std::string /*imagePath*/) override { return Success; }
  bool IsProgrammed() override { return true; }
};

using Operation = Interface::Status (Interface::*)();

struct OptionalOperation {
  const char* name;
  Operation operation;
};

class OptionalOperationTest : public testing::TestWithParam<OptionalOperation> {};

TEST_P(OptionalOperationTest, WritesOneLineAndYieldsProgramFailed) {
  const Console console;
  BareProgrammer programmer;
  EXPECT_EQ((programmer.*GetParam().operation)(), 6);
  EXPECT_EQ(console.Err(), "Function Not Implemented\n");
  EXPECT_EQ(console.Out(), "");
}

INSTANTIATE_TEST_SUITE_P(Operations,
                         OptionalOperationTest,
                         testing::Values(OptionalOperation{"A", &Interface::OptionalOperationA},
                                         OptionalOperation{"B", &Interface::OptionalOperationB},
                                         OptionalOperation{"C", &Interface::OptionalOperationC}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(FpgaProgrammerInterfaceTest, StatusIsASigned32BitNumber) {
  using Number = std::underlying_type_t<Interface::Status>;
  EXPECT_EQ(sizeof(Interface::Status), 4U);
  EXPECT_TRUE(std::is_signed_v<Number>);
}

TEST(FpgaProgrammerInterfaceTest, StatusValuesAreTheExitCodes) {
  EXPECT_EQ(Interface::InvalidParams, -1);
  EXPECT_EQ(Interface::Success, 0);
  EXPECT_EQ(Interface::ConnectFailed, 1);
  EXPECT_EQ(Interface::OpenFileFailed, 2);
  EXPECT_EQ(Interface::EraseFailed, 3);
  EXPECT_EQ(Interface::ProgramFailed, 6);
  EXPECT_EQ(Interface::ConfigDoneNotAsserted, 7);
  EXPECT_EQ(Interface::PcieBarCountMismatch, 9);
  EXPECT_EQ(Interface::PcieUpdateFailed, 10);
  EXPECT_EQ(Interface::UpToDate, 11);
}

TEST(FpgaProgrammerInterfaceTest, OperationsKeepTheirVirtualSlots) {
  EXPECT_EQ(VirtualSlot(&Interface::Connect), 0U);
  EXPECT_EQ(VirtualSlot(&Interface::ProgramDevice), 1U);
  EXPECT_EQ(VirtualSlot(&Interface::OptionalOperationA), 2U);
  EXPECT_EQ(VirtualSlot(&Interface::OptionalOperationB), 3U);
  EXPECT_EQ(VirtualSlot(&Interface::OptionalOperationC), 4U);
  EXPECT_EQ(VirtualSlot(&Interface::IsProgrammed), 5U);
  EXPECT_TRUE(std::has_virtual_destructor_v<Interface>);
}

TEST(FpgaProgrammerInterfaceTest, InterfaceHoldsNoData) {
  EXPECT_EQ(sizeof(Interface), sizeof(void*));  // the table of virtual functions alone
}

}  // namespace
