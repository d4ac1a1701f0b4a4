#include "proofs/swarm/Images.h"

#include <algorithm>
#include <cstddef>
#include <random>
#include <string>
#include <string_view>

#include "simulator/images/Bitstream.h"
#include "simulator/images/BootImage.h"
#include "simulator/images/Gzip.h"

namespace swarm {

namespace {

constexpr std::uint32_t kSeedOfOld = 1;
constexpr std::uint32_t kSeedOfA = 2;
constexpr std::uint32_t kSeedOfB = 3;
constexpr int kYearOfOld = 2023;
constexpr int kYearOfA = 2024;
constexpr int kYearOfB = 2025;

// The text of a boot header: file name, '#', build date, '#'.
constexpr std::ptrdiff_t kTextBegin = 0x4C;
constexpr std::ptrdiff_t kTextEnd = 0x98;

struct Make {
  std::size_t bytes;
  int year;
  std::uint32_t seed;
  bool isStamped = true;
};

Bytes MakeImage(const World& world, const Make& make) {
  if (!HasBootHeader(world)) {
    orvane::BitstreamOptions options{.bytes = make.bytes, .userAccess = {}, .seed = make.seed};
    if (make.isStamped) {
      options.userAccess = orvane::PackStamp({make.year, 5, 6, 7, 8, 9});
    }
    return orvane::MakeBitstream(options);
  }
  Bytes image = orvane::MakeZynqImage({.buildDate = std::to_string(make.year) + "-05-06 07:08:09",
                                       .bytes = make.bytes,
                                       .seed = make.seed});
  if (!make.isStamped) {
    std::fill(image.begin() + kTextBegin, image.begin() + kTextEnd, std::uint8_t{0});
  }
  return image;
}

Bytes Garbage(std::size_t bytes) {
  std::mt19937 engine(1);
  Bytes garbage(bytes);
  std::generate(
      garbage.begin(), garbage.end(), [&] { return static_cast<std::uint8_t>(engine() & 0xFFU); });
  return garbage;
}

/// The image that a file would hold if nothing were wrong with it.
Bytes PlainImage(const World& world, char letter) {
  const Contents& image = letter == 'a' ? world.a : world.b;
  const int yearBefore = letter == 'a' ? kYearOfOld : kYearOfA;
  const int year = letter == 'a' ? kYearOfA : kYearOfB;
  return MakeImage(world,
                   {.bytes = image.bytes,
                    .year = image.kind == "namesake" ? yearBefore : year,
                    .seed = letter == 'a' ? kSeedOfA : kSeedOfB,
                    .isStamped = image.kind != "unstamped"});
}

}  // namespace

Bytes ImageFile(const World& world, char letter) {
  constexpr std::size_t kShortBytes = 40;
  const Contents& image = letter == 'a' ? world.a : world.b;
  if (image.kind == "empty") {
    return {};
  }
  if (image.kind == "garbage") {
    return Garbage(image.bytes);
  }
  Bytes plain = PlainImage(world, letter);
  if (image.kind == "short") {
    plain.resize(kShortBytes);
    return plain;
  }
  if (IsFit(image) && image.kind != "gzip") {
    return plain;
  }
  Bytes packed = orvane::Gzip(plain);
  if (image.kind == "cut") {
    packed.resize(packed.size() * 3 / 4);
  } else if (image.kind == "damaged") {
    packed[packed.size() / 2] ^= 0x10U;
  }
  return packed;
}

Bytes ImageInFlash(const World& world, char letter) {
  const Contents& image = letter == 'a' ? world.a : world.b;
  return IsFit(image) ? PlainImage(world, letter) : ImageFile(world, letter);
}

Bytes StartOfFlash(const World& world) {
  constexpr std::size_t kHeadBytes = 512;
  const std::string& kind = world.flash.kind;
  if (kind == "blank") {
    return {};
  }
  if (kind == "old" || kind == "oldunstamped") {
    return MakeImage(world,
                     {.bytes = world.flash.bytes,
                      .year = kYearOfOld,
                      .seed = kSeedOfOld,
                      .isStamped = kind == "old"});
  }
  const bool isA = IsFit(world.a) && kind != "b";
  Bytes image = ImageInFlash(world, isA ? 'a' : 'b');
  if (kind == "half") {
    image.resize(image.size() / 2);
  } else if (kind == "head") {
    image.resize(std::min(kHeadBytes, image.size()));
  } else if (kind == "flipped") {
    image.back() ^= 1U;
  }
  return image;
}

}  // namespace swarm
