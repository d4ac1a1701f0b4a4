#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "programmers/lines/DaxGpioProgramming.h"
#include "programmers/lines/GpioProgrammingInterface.h"
#include "programmers/lines/Pyx1GpioProgramming.h"
#include "programmers/lines/Pyx2GpioProgramming.h"
#include "tests/doubles/VirtualSlot.h"

namespace {

using Accessor = unsigned short (GpioProgrammingInterface::*)();

struct Row {
  const char* name;
  Accessor accessor;
  std::size_t slot;  // the destructor takes slots 0 and 1
  unsigned dax;
  unsigned pyx1;
  unsigned pyx2;
};

using Map = GpioProgrammingInterface;

constexpr Row kRows[] = {
    {"address", &Map::address, 2, 0x21, 0x20, 0x20},
    {"io_config", &Map::io_config, 3, 0x0140, 0x0140, 0x0813},
    {"mask", &Map::mask, 4, 0xEDDF, 0xEDDF, 0x0A17},
    {"spi_flash_to_fpga_run", &Map::spi_flash_to_fpga_run, 5, 0x2C80, 0x2C80, 0x0200},
    {"spi_flash_to_fpga_reset", &Map::spi_flash_to_fpga_reset, 6, 0x2C00, 0x2C00, 0x0000},
    {"spi_default_path", &Map::spi_default_path, 7, 0x2C80, 0x2C80, 0x0200},
    {"spi_imx_to_fpga_reset", &Map::spi_imx_to_fpga_reset, 8, 0xEC1D, 0xEC1D, 0x0000},
    {"spi_imx_to_fpga", &Map::spi_imx_to_fpga, 9, 0xEC9D, 0xEC9D, 0x0000},
    {"spi_imx_to_flash", &Map::spi_imx_to_flash, 10, 0x2C9D, 0x2C9D, 0x0604},
    {"spi_imx_to_flash_reset", &Map::spi_imx_to_flash_reset, 11, 0xEC1D, 0xEC1D, 0x0200},
    {"cfg_done", &Map::cfg_done, 12, 0x0100, 0x0100, 0x0001},
    {"cfg_program_b", &Map::cfg_program_b, 13, 0x0080, 0x0080, 0x0010},
    {"cfg_init_b", &Map::cfg_init_b, 14, 0x0040, 0x0040, 0x0002},
};

class GpioLineTableTest : public testing::TestWithParam<Row> {};

TEST_P(GpioLineTableTest, DaxValueIsThatOfTheTable) {
  const std::unique_ptr<Map> map = std::make_unique<DaxGpioProgramming>();
  EXPECT_EQ((map.get()->*GetParam().accessor)(), GetParam().dax);
}

TEST_P(GpioLineTableTest, Pyx1ValueIsThatOfTheTable) {
  const std::unique_ptr<Map> map = std::make_unique<Pyx1GpioProgramming>();
  EXPECT_EQ((map.get()->*GetParam().accessor)(), GetParam().pyx1);
}

TEST_P(GpioLineTableTest, Pyx2ValueIsThatOfTheTable) {
  const std::unique_ptr<Map> map = std::make_unique<Pyx2GpioProgramming>();
  EXPECT_EQ((map.get()->*GetParam().accessor)(), GetParam().pyx2);
}

TEST_P(GpioLineTableTest, AccessorKeepsItsVirtualSlot) {
  EXPECT_EQ(VirtualSlot(GetParam().accessor), GetParam().slot);
}

INSTANTIATE_TEST_SUITE_P(Accessors,
                         GpioLineTableTest,
                         testing::ValuesIn(kRows),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(GpioLineMapsTest, RunPatternIsTheDefaultPathInEveryMap) {
  DaxGpioProgramming dax;
  EXPECT_EQ(dax.spi_flash_to_fpga_run(), dax.spi_default_path());
  Pyx1GpioProgramming pyx1;
  EXPECT_EQ(pyx1.spi_flash_to_fpga_run(), pyx1.spi_default_path());
  Pyx2GpioProgramming pyx2;
  EXPECT_EQ(pyx2.spi_flash_to_fpga_run(), pyx2.spi_default_path());
}

TEST(GpioLineMapsTest, DaxAndPyx1ResetMeansProgramBLowAndNothingElse) {
  DaxGpioProgramming dax;
  EXPECT_EQ(dax.spi_flash_to_fpga_run() ^ dax.spi_flash_to_fpga_reset(), 0x0080);
  Pyx1GpioProgramming pyx1;
  EXPECT_EQ(pyx1.spi_flash_to_fpga_run() ^ pyx1.spi_flash_to_fpga_reset(), 0x0080);
}

TEST(GpioLineMapsTest, Pyx2ResetMeansLine9LowAndNothingElse) {
  Pyx2GpioProgramming pyx2;
  EXPECT_EQ(pyx2.spi_flash_to_fpga_run() ^ pyx2.spi_flash_to_fpga_reset(), 0x0200);
}

TEST(GpioLineMapsTest, Pyx2OperationsShareThePatternZero) {
  Pyx2GpioProgramming pyx2;
  EXPECT_EQ(pyx2.spi_imx_to_fpga(), 0x0000);
  EXPECT_EQ(pyx2.spi_imx_to_fpga_reset(), 0x0000);
  EXPECT_EQ(pyx2.spi_flash_to_fpga_reset(), 0x0000);
}

TEST(GpioLineMapsTest, TwoMapsOfOneTypeAnswerAlike) {
  DaxGpioProgramming first;
  DaxGpioProgramming second;
  for (const Row& row : kRows) {
    EXPECT_EQ((first.*row.accessor)(), (second.*row.accessor)()) << row.name;
  }
}

}  // namespace
