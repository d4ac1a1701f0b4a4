#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <utility>
#include <vector>

#include "simulator/chips/FlashArray.h"

namespace orvane {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kSectors = 4;
constexpr std::size_t kBytes = 262144;

class FlashArrayTest : public testing::Test {
 protected:
  Bytes Read(std::size_t at, std::size_t count) const {
    const auto part = array_.Part(at, count);
    return {part.begin(), part.end()};
  }

  FlashArray array_{kSectors};
};

TEST_F(FlashArrayTest, NewArrayIsErased) { EXPECT_EQ(Read(0, kBytes), Bytes(kBytes, 0xFF)); }

TEST_F(FlashArrayTest, LoadedContentsAreAtTheStart) {
  Bytes contents(65536 + 3, 0x5A);
  array_.Load(contents);
  contents.resize(kBytes, 0xFF);
  EXPECT_EQ(Read(0, kBytes), contents);
}

TEST_F(FlashArrayTest, LoadErasesWhatWasThere) {
  array_.Load(Bytes(kBytes, 0x00));
  array_.Load(Bytes{0x12});
  EXPECT_EQ(Read(0, 2), (Bytes{0x12, 0xFF}));
  EXPECT_EQ(Read(2, kBytes - 2), Bytes(kBytes - 2, 0xFF));
}

TEST_F(FlashArrayTest, LoadedErasedSectorReplacesWhatWasThere) {
  array_.Load(Bytes(kBytes, 0x00));
  Bytes contents(65536, 0xFF);
  contents.push_back(0x12);
  array_.Load(contents);
  EXPECT_EQ(Read(0, 65536), Bytes(65536, 0xFF));
  EXPECT_EQ(Read(65536, 2), (Bytes{0x12, 0xFF}));
}

TEST_F(FlashArrayTest, LoadedByteBehindErasedOnesIsKept) {
  Bytes contents(65536, 0xFF);
  contents.back() = 0xFE;
  array_.Load(contents);
  EXPECT_EQ(Read(65534, 3), (Bytes{0xFF, 0xFE, 0xFF}));
}

TEST_F(FlashArrayTest, EraseLeavesTheRestOfTheSector) {
  array_.Load(Bytes(kBytes, 0x00));
  array_.Erase(65536 + 1, 2);
  EXPECT_EQ(Read(65536, 4), (Bytes{0x00, 0xFF, 0xFF, 0x00}));
}

TEST_F(FlashArrayTest, PartAcrossSectorsCanBeWritten) {
  std::ranges::fill(array_.Part(65535, 2), std::uint8_t{0x00});
  EXPECT_EQ(Read(65534, 4), (Bytes{0xFF, 0x00, 0x00, 0xFF}));
}

TEST_F(FlashArrayTest, PartShowsLaterChanges) {
  const auto part = std::as_const(array_).Part(0, kBytes);
  array_.Load(Bytes{0x12, 0x34});
  EXPECT_EQ(part[1], 0x34);
  array_.Erase(0, 65536);
  EXPECT_EQ(part[1], 0xFF);
}

TEST_F(FlashArrayTest, CopyIsEqualAndOnItsOwn) {
  array_.Load(Bytes(65536, 0x12));
  FlashArray copy(array_);
  array_.Erase(0, 1);
  EXPECT_EQ(copy.Part(0, 1)[0], 0x12);
  EXPECT_EQ(copy.Part(65536, 1)[0], 0xFF);
}

TEST_F(FlashArrayTest, AssignedArrayLosesWhatItHeld) {
  array_.Load(Bytes(kBytes, 0x12));
  const FlashArray blank(kSectors);
  array_ = blank;
  EXPECT_EQ(Read(0, kBytes), Bytes(kBytes, 0xFF));
}

TEST_F(FlashArrayTest, AssignedArrayTakesTheSizeOfTheOther) {
  FlashArray larger(kSectors + 1);
  larger.Load(Bytes(kBytes + 1, 0x12));
  array_ = larger;
  EXPECT_EQ(array_.Part(kBytes, 2)[0], 0x12);
  EXPECT_EQ(array_.Part(kBytes, 2)[1], 0xFF);
}

// --- Memory ---------------------------------------------------------------------------------------

/// Memory of this process that is in use.
std::size_t ResidentBytes() {
  std::ifstream file("/proc/self/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  EXPECT_TRUE(file >> total >> resident);
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

constexpr std::size_t kManySectors = 1024;  // 64 MiB
constexpr std::size_t kFewBytes = 32U << 20;

TEST(FlashArrayMemoryTest, SectorsThatAreErasedAndNotLookedAtTakeNone) {
  const std::size_t before = ResidentBytes();
  FlashArray array(kManySectors);
  array.Load(Bytes(65536, 0xFF));
  array.Erase(65536, 65536);
  EXPECT_LT(ResidentBytes(), before + kFewBytes);
}

TEST(FlashArrayMemoryTest, SectorsThatWereLookedAtTakeTheirSize) {
  const std::size_t before = ResidentBytes();
  const FlashArray array(kManySectors);
  EXPECT_EQ(array.Part(0, kManySectors * 65536).size(), 67108864U);
  EXPECT_GE(ResidentBytes(), before + kFewBytes);
}

}  // namespace
}  // namespace orvane
