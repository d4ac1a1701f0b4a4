// What the FPGAs have loaded at the end of a run: the last word of --state, and the key loaded=.
#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "simulator/chips/NorFlashModel.h"
#include "tests/e2e/simulator/ModuleImage.h"
#include "tests/e2e/simulator/SimulatorRun.h"

namespace orvane {
namespace {

constexpr std::size_t kImageBytes = 70'000;  // a little more than a sector

std::string Image(const std::string& type, int year) {
  return ModuleImage(type, year, kImageBytes);
}

/// The whole flash with an image at its start.
std::string Flash(const std::string& type, int year) {
  std::string contents = Image(type, year);
  contents.resize(NorFlashModel::kBytes, '\xFF');
  return contents;
}

/// A whole file of up to 16 MiB, read at once: byte by byte takes long in debug builds.
std::string Contents(const std::filesystem::path& path) {
  std::string contents(std::filesystem::file_size(path), '\0');
  std::ifstream file(path, std::ios::binary);
  file.read(contents.data(), static_cast<std::streamsize>(contents.size()));
  return file ? contents : "cannot be read";
}

struct ModuleRow {
  const char* type;
  const char* slot;
};

/// A module with an image of 2023 in its flash, and an image of 2024 to update it with.
class LoadedTest : public testing::Test {
 protected:
  void Supply(const ModuleRow& module) {
    type_ = module.type;
    slot_ = module.slot;
    run_.WriteFile("flash.bin", Image(type_, 2023));
    run_.WriteFile("image.bin", Image(type_, 2024));
    run_.Option("--state state");
  }
  /// @param keys  more of the module, ",KEY=VALUE..."
  void PlugIn(const std::string& keys = "") {
    run_.Option("--module " + type_ + "@" + slot_ + ",flash=flash.bin,loaded=loaded.bin" + keys);
  }
  int Update() {
    return run_.Shell("exec " TARNWICK_BINARY " " + type_ + " -sf " + slot_ + " image.bin").status;
  }
  /// The last word of the module's state.
  std::string LoadedWord() const {
    const std::string state = run_.ModuleStates();
    return state.substr(state.rfind(' ') + 1);
  }
  /// Compared by value: a difference of 16 MiB is not to be printed.
  bool LoadedFileIs(const std::string& contents) const {
    return Contents(run_.File("loaded.bin")) == contents;
  }
  bool FlashFileIs(const std::string& contents) const {
    return Contents(run_.File("flash.bin")) == contents;
  }
  void ExpectOldLoadedAndNewInTheFlash() const {
    EXPECT_EQ(LoadedWord(), "loaded=other\n");
    EXPECT_TRUE(LoadedFileIs(Flash(type_, 2023)));
    EXPECT_TRUE(FlashFileIs(Flash(type_, 2024)));
  }

  std::string type_;
  std::string slot_;
  SimulatorRun run_;
};

class LoadedByModuleTest : public LoadedTest, public testing::WithParamInterface<ModuleRow> {};

INSTANTIATE_TEST_SUITE_P(Modules,
                         LoadedByModuleTest,
                         testing::Values(ModuleRow{"wend", "1"},
                                         ModuleRow{"dax", "2"},
                                         ModuleRow{"pyx1", "4"},
                                         ModuleRow{"pyx2", "5"}),
                         [](const auto& row) { return std::string(row.param.type); });

TEST_P(LoadedByModuleTest, FlashThatBootsIsLoadedAtPowerOn) {
  Supply(GetParam());
  PlugIn();
  EXPECT_EQ(run_.Shell("$PROBE").status, 0);
  EXPECT_EQ(LoadedWord(), "loaded=current\n");
  EXPECT_TRUE(LoadedFileIs(Flash(type_, 2023)));
}

TEST_P(LoadedByModuleTest, NothingIsLoadedFromABlankFlashAlsoWithDoneHigh) {
  Supply(GetParam());
  run_.WriteFile("flash.bin", "");
  run_.WriteFile("loaded.bin", "from an earlier run");
  PlugIn(",done=high");
  EXPECT_EQ(run_.Shell("$PROBE").status, 0);
  EXPECT_EQ(LoadedWord(), "loaded=none\n");
  EXPECT_EQ(run_.ReadFile("loaded.bin"), "");
}

/// What an update that is cut or not carried out whole leaves behind.
struct UpdateRow {
  const char* name;
  ModuleRow module;
  std::vector<const char*> faults;
};

class ResetByTheUpdateTest : public LoadedTest, public testing::WithParamInterface<ModuleRow> {};

INSTANTIATE_TEST_SUITE_P(Modules,
                         ResetByTheUpdateTest,
                         testing::Values(ModuleRow{"wend", "1"},
                                         ModuleRow{"pyx1", "4"},
                                         ModuleRow{"pyx2", "5"}),
                         [](const auto& row) { return std::string(row.param.type); });

TEST_P(ResetByTheUpdateTest, UpdateEndsWithTheNewImageLoaded) {
  Supply(GetParam());
  PlugIn();
  EXPECT_EQ(Update(), 0);
  EXPECT_EQ(LoadedWord(), "loaded=current\n");
  EXPECT_TRUE(LoadedFileIs(Flash(type_, 2024)));
  EXPECT_TRUE(FlashFileIs(Flash(type_, 2024)));
}

// Deliberate: an update of a dax ends without a reset; fixed and observable; do not change.
TEST_F(LoadedTest, UpdateOfADaxEndsWithTheOldImageLoadedUntilTheNextPowerOn) {
  Supply({"dax", "2"});
  PlugIn();
  EXPECT_EQ(Update(), 0);
  EXPECT_EQ(run_.ModuleStates(), "2 done=1 driven=0x0000 loaded=other\n");
  ExpectOldLoadedAndNewInTheFlash();
  EXPECT_EQ(run_.Shell("$PROBE").status, 0);
  EXPECT_EQ(run_.ModuleStates(), "2 done=1 driven=0x0000 loaded=current\n");
  EXPECT_TRUE(LoadedFileIs(Flash(type_, 2024)));
}

class CutBeforeTheResetTest : public LoadedTest, public testing::WithParamInterface<UpdateRow> {};

INSTANTIATE_TEST_SUITE_P(
    Modules,
    CutBeforeTheResetTest,
    testing::Values(UpdateRow{"wend", {"wend", "1"}, {"open:/qspi_prg#2:kill"}},
                    UpdateRow{"pyx1", {"pyx1", "4"}, {"i2c:w 02 20 3e#1:kill"}},
                    UpdateRow{"pyx2", {"pyx2", "5"}, {"i2c:w 02 e8 f5#1:kill"}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_P(CutBeforeTheResetTest, UpdateLeavesTheOldImageLoaded) {
  Supply(GetParam().module);
  PlugIn();
  for (const char* const fault : GetParam().faults) {
    run_.Option(std::string("--fault '") + fault + "'");
  }
  EXPECT_EQ(Update(), 137);
  ExpectOldLoadedAndNewInTheFlash();
}

class LostResetTest : public LoadedTest, public testing::WithParamInterface<UpdateRow> {};

INSTANTIATE_TEST_SUITE_P(
    Modules,
    LostResetTest,
    testing::Values(UpdateRow{"wend", {"wend", "1"}, {R"(write:zynq_hw_reset_n/value "0":lost)"}},
                    UpdateRow{
                        "pyx1", {"pyx1", "4"}, {"i2c:w 02 20 3e:lost", "i2c:w 02 20 12:lost"}},
                    UpdateRow{"pyx2", {"pyx2", "5"}, {"i2c:w 02 e8 f5:lost"}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_P(LostResetTest, UpdateSucceedsWithTheOldImageLoaded) {
  Supply(GetParam().module);
  PlugIn();
  for (const char* const fault : GetParam().faults) {
    run_.Option(std::string("--fault '") + fault + "'");
  }
  EXPECT_EQ(Update(), 0);
  EXPECT_EQ(run_.ModuleStates().find("done=1"), 2U);
  ExpectOldLoadedAndNewInTheFlash();
}

TEST_F(LoadedTest, UpdateThatWaitsInVainForALowDoneLineHasLoadedTheNewImage) {
  Supply({"wend", "1"});
  PlugIn(",done=low");
  EXPECT_EQ(Update(), 7);
  EXPECT_EQ(run_.ModuleStates(), "1 done=0 qspi_prg=0 loaded=current\n");
  EXPECT_TRUE(LoadedFileIs(Flash(type_, 2024)));
}

TEST_F(LoadedTest, EachModuleHasAFileOfItsOwn) {
  run_.WriteFile("wend.bin", Image("wend", 2023));
  run_.WriteFile("dax.bin", Image("dax", 2023));
  run_.Option("--state state --module wend@1,flash=wend.bin,loaded=first");
  run_.Option("--module dax@2,loaded=second --module dax@3,flash=dax.bin,loaded=third");
  EXPECT_EQ(run_.Shell("$PROBE").status, 0);
  EXPECT_EQ(run_.ModuleStates(),
            "1 done=1 qspi_prg=0 loaded=current\n"
            "2 done=0 driven=0x0000 loaded=none\n"
            "3 done=1 driven=0x0000 loaded=current\n");
  EXPECT_TRUE(Contents(run_.File("first")) == Flash("wend", 2023));
  EXPECT_EQ(run_.ReadFile("second"), "");
  EXPECT_TRUE(Contents(run_.File("third")) == Flash("dax", 2023));
}

}  // namespace
}  // namespace orvane
