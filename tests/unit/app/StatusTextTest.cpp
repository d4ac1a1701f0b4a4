#include <gtest/gtest.h>

#include <cstdint>
#include <iomanip>
#include <iostream>
#include <limits>
#include <string>

#include "app/StatusText.h"
#include "tests/doubles/Console.h"

namespace {

struct StatusRow {
  std::int32_t value;
  std::string text;
};

FpgaProgrammerInterface::Status Status(std::int32_t value) {
  return static_cast<FpgaProgrammerInterface::Status>(value);
}

class StatusTextTest : public testing::TestWithParam<StatusRow> {
 protected:
  Console console_;
};

TEST_P(StatusTextTest, DescriptionIsThatOfTheRowAndNothingIsPrinted) {
  EXPECT_EQ(returnStatusDescription(Status(GetParam().value)), GetParam().text);
  EXPECT_EQ(console_.Out() + console_.Err(), "");
}

TEST_P(StatusTextTest, PrintingWritesOneFlushedLineAndYieldsTheValue) {
  EXPECT_EQ(printStatus(Status(GetParam().value)), GetParam().value);
  EXPECT_EQ(console_.Out(), GetParam().text + "\n");
  EXPECT_EQ(console_.Err(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Statuses,
    StatusTextTest,
    testing::Values(
        StatusRow{-1, "Could not run program with command line parameters provided."},
        StatusRow{0, "FPGA programmed successfully."},
        StatusRow{1, "Could not connect to the device. Check Module # and power."},
        StatusRow{2, "Could not open source file."},
        StatusRow{3, "Could not erase the device."},
        StatusRow{4, "Unknown Status."},
        StatusRow{5, "Unknown Status."},
        StatusRow{6, "Programming operation failed."},
        StatusRow{7, "FPGA did not assert configuration completed."},
        StatusRow{8, "Unknown Status."},
        StatusRow{9,
                  "Non-fatal: The number of PCIe BARs in system inventory does not match eeprom "
                  "contents."},
        StatusRow{10, "Unable to update PCIe endpoint."},
        StatusRow{11, "FPGA is up to date."},
        StatusRow{12, "Unknown Status."},
        StatusRow{-2, "Unknown Status."},
        StatusRow{std::numeric_limits<std::int32_t>::max(), "Unknown Status."},
        StatusRow{std::numeric_limits<std::int32_t>::min(), "Unknown Status."}),
    [](const auto& row) {
      const std::int64_t value = row.param.value;
      return value < 0 ? "Minus" + std::to_string(-value) : std::to_string(value);
    });

}  // namespace
