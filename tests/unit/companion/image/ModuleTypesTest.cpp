#include <gtest/gtest.h>

#include <stdexcept>

#include "companion/image/ModuleTypes.h"

namespace {

using companion::ImageFormat;
using companion::ModuleType;
using companion::TypeOf;

TEST(ModuleTypesTest, WendDumps4096BytesAndComparesAfterTheWrite) {
  const ModuleType& type = TypeOf("wend");
  EXPECT_EQ(type.format, ImageFormat::kBootImage);
  EXPECT_EQ(type.headBytes, 4096U);
  EXPECT_TRUE(type.comparesAfterWrite);
  EXPECT_TRUE(type.resetsAfterWrite);
}

TEST(ModuleTypesTest, DaxTakesBitstreamsAndIsNotReset) {
  const ModuleType& type = TypeOf("dax");
  EXPECT_EQ(type.format, ImageFormat::kBitstream);
  EXPECT_EQ(type.headBytes, 512U);
  EXPECT_FALSE(type.comparesAfterWrite);
  EXPECT_FALSE(type.resetsAfterWrite);
}

TEST(ModuleTypesTest, Pyx1TakesBitstreamsAndIsReset) {
  const ModuleType& type = TypeOf("pyx1");
  EXPECT_EQ(type.format, ImageFormat::kBitstream);
  EXPECT_EQ(type.headBytes, 512U);
  EXPECT_FALSE(type.comparesAfterWrite);
  EXPECT_TRUE(type.resetsAfterWrite);
}

TEST(ModuleTypesTest, Pyx2TakesBootImagesAndDumps512Bytes) {
  const ModuleType& type = TypeOf("pyx2");
  EXPECT_EQ(type.format, ImageFormat::kBootImage);
  EXPECT_EQ(type.headBytes, 512U);
  EXPECT_FALSE(type.comparesAfterWrite);
  EXPECT_TRUE(type.resetsAfterWrite);
}

TEST(ModuleTypesTest, AnotherWordIsNoType) { EXPECT_THROW(TypeOf("Wend"), std::invalid_argument); }

}  // namespace
