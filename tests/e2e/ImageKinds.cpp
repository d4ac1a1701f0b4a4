#include "tests/e2e/ImageKinds.h"

#include <array>
#include <ostream>
#include <string_view>

#include "simulator/images/Gzip.h"

namespace program_test {

namespace {

constexpr std::size_t kTwoSectors = 70'000;

Bytes Plain(const Bytes& plain) { return plain; }

Bytes Joined(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Bytes FirstHalf(const Bytes& bytes) {
  return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() / 2)};
}

Bytes SecondHalf(const Bytes& bytes) {
  return {bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() / 2), bytes.end()};
}

Bytes Compressed(const Bytes& plain) { return orvane::Gzip(plain); }

Bytes WithTrailingBytes(const Bytes& plain) {
  constexpr std::string_view kTail = "not a member";
  return Joined(Gzipped(plain), Bytes(kTail.begin(), kTail.end()));
}

Bytes InThreeMembers(const Bytes& plain) {
  return Joined(Joined(Gzipped(FirstHalf(plain)), orvane::Gzip({})),
                orvane::Gzip(SecondHalf(plain)));
}

/// A gzip header and one stored block: the place of the cut decides how much of the image is left.
Bytes Stored(const Bytes& plain) {
  const auto size = static_cast<unsigned>(plain.size());
  Bytes file = {0x1F, 0x8B, 0x08, 0, 0, 0, 0, 0, 0, 0xFF, 0x01};
  for (const unsigned length : {size, ~size}) {
    file.push_back(static_cast<unsigned char>(length));
    file.push_back(static_cast<unsigned char>(length >> 8));
  }
  return Joined(file, plain);
}

Bytes StoredHalf(const Bytes& plain) { return Stored(FirstHalf(plain)); }

/// One block with its length, and without its second half.
Bytes StoredCutInHalf(const Bytes& plain) {
  Bytes file = Stored(plain);
  file.resize(file.size() - SecondHalf(plain).size());
  return file;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const ImageKind& kind) { return out << kind.name; }

Bytes CutTo(std::size_t bytes, Bytes image) {
  image.resize(bytes);
  return image;
}

Bytes Gzipped(const Bytes& plain) {
  constexpr std::size_t kFlags = 3;
  constexpr std::ptrdiff_t kGzipHeaderBytes = 10;
  Bytes file = orvane::Gzip(plain);
  file.at(kFlags) = 0x08;             // a name follows, ended by a NUL
  Bytes name(kHeaderBytes + 1, 'n');  // odd: a stamp that zlib leaves as it is, is shifted
  name.push_back('\0');
  file.insert(file.begin() + kGzipHeaderBytes, name.begin(), name.end());
  return file;
}

Bytes SpoiltGzip(const Bytes& plain) {
  Bytes file = Gzipped(plain);
  file.at(file.size() - 8) ^= 0xFFU;  // the first byte of the check
  return file;
}

std::vector<ImageKind> ReadableImages() {
  return {{"Empty", 0, Plain, Shows::kNothing},
          {"OneByte", 1, Plain, Shows::kNothing, false},
          {"OneByteLessThanAPage", 255, Plain},
          {"OnePage", 256, Plain},
          {"OneByteMoreThanAPage", 257, Plain},
          {"OneByteLessThanATransfer", 4095, Plain},
          {"OneTransfer", 4096, Plain},
          {"OneByteMoreThanATransfer", 4097, Plain},
          {"OneByteLessThanASector", 65'535, Plain},
          {"OneSector", 65'536, Plain},
          {"OneByteMoreThanASector", 65'537, Plain},
          {"OneMebibyte", 1U << 20, Plain},
          {"Gzip", kTwoSectors, Gzipped, Shows::kNothing},
          {"GzipOfNothing", 0, Compressed, Shows::kNothing},
          {"GzipWithTrailingBytes", kTwoSectors, WithTrailingBytes, Shows::kNothing},
          {"GzipOfSeveralMembers", kTwoSectors, InThreeMembers, Shows::kNothing},
          {"GzipWithoutItsEnd", 60'000, StoredHalf, Shows::kBootHeaderAlone, true, FirstHalf},
          {"GzipCutInHalf", 60'000, StoredCutInHalf, Shows::kBootHeaderAlone, true, FirstHalf}};
}

}  // namespace program_test
