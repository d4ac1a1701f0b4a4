#include "proofs/predictions/Triple.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <random>
#include <stdexcept>

#include "companion/image/Decision.h"

namespace predictions {

namespace {

constexpr std::size_t kFieldAt = 76;
constexpr std::size_t kFieldBytes = 76;

/// Numbers that are the same with every library.
class Random {
 public:
  Random(std::uint64_t seed, std::uint64_t index) : engine_(seed * 1'000'003 + index) {}

  /// @return first..last
  std::size_t Number(std::size_t first, std::size_t last) {
    return first + static_cast<std::size_t>(engine_()) % (last - first + 1);
  }
  bool OneIn(std::size_t count) { return Number(1, count) == 1; }
  std::uint8_t Byte() { return static_cast<std::uint8_t>(engine_()); }
  template <typename T, std::size_t N>
  T Of(const std::array<T, N>& values) {
    return values.at(Number(0, N - 1));
  }

 private:
  std::mt19937_64 engine_;
};

struct Range {
  std::size_t first;
  std::size_t last;
};

/// Puts as much of a piece as there is room for.
void Put(Bytes& bytes, std::size_t offset, const Bytes& piece) {
  for (std::size_t i = 0; i < piece.size() && offset + i < bytes.size(); ++i) {
    bytes[offset + i] = piece[i];
  }
}

Bytes BytesOf(const std::string& text) { return {text.begin(), text.end()}; }

void Append(Bytes& bytes, const Bytes& more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
}

void AppendWord(Bytes& bytes, std::size_t word) {
  for (const unsigned shift : {0U, 8U, 16U, 24U}) {
    bytes.push_back(static_cast<std::uint8_t>(word >> shift));
  }
}

// --- What an image holds ------------------------------------------------------------------------

Bytes Filled(Random& random) {
  constexpr std::array<Range, 8> kSizes = {{{0, 8},
                                            {60, 160},
                                            {148, 156},
                                            {148, 700},
                                            {500, 524},
                                            {504, 520},
                                            {4088, 4104},
                                            {65'528, 65'544}}};
  const Range size = random.Of(kSizes);
  Bytes bytes(random.Number(size.first, size.last));
  constexpr std::array<std::uint8_t, 4> kFillings = {0x00, 0x20, 0x5A, 0xFF};
  const std::uint8_t filling = random.Of(kFillings);
  const bool isMixed = random.OneIn(2);
  std::generate(bytes.begin(), bytes.end(), [&] { return isMixed ? random.Byte() : filling; });
  return bytes;
}

std::string Date(Random& random) {
  static const std::array<std::string, 7> kDates = {
      "date1", "date2", "2024-05-06 07:08:09", "date1", "date2", "", "d"};
  return random.Of(kDates);
}

/// The user-defined field of a boot header.
std::string Field(Random& random) {
  if (random.OneIn(8)) {
    return std::string(kFieldBytes, 'n');  // without '#'
  }
  constexpr std::array<std::size_t, 7> kDelimiters = {0, 1, 15, 50, 73, 74, 75};
  std::string field(random.Of(kDelimiters), 'n');
  field += "#" + Date(random);
  if (!random.OneIn(4)) {
    field += "#";
  }
  field.resize(kFieldBytes, random.OneIn(2) ? '\0' : 'f');
  return field;
}

Bytes StampWords(Random& random) {
  const std::array<Bytes, 6> stamps = {Bytes{0x5A, 0x9E, 0x38, 0xC5},
                                       Bytes{0x5A, 0x9E, 0x38, 0xC5},
                                       Bytes{0x00, 0x00, 0x00, 0x00},
                                       Bytes{0xFF, 0xFF, 0xFF, 0xFF},
                                       Bytes{0x30, 0x01, 0xA0, 0x01},
                                       Bytes{0x01, 0x02, 0x03, random.Byte()}};
  Bytes words = {0x30, 0x01, 0xA0, 0x01};
  Append(words, random.Of(stamps));
  return words;
}

std::size_t StampOffset(Random& random, std::size_t bytes) {
  switch (random.Number(0, 4)) {
    case 0:
      return random.Number(496, 516);
    case 1:
      return 4 * random.Number(124, 129);
    case 2:  // around the end, where it may be cut
      return bytes - std::min(bytes, random.Number(1, 12));
    case 3:
      return 0;
    default:
      return 4 * random.Number(0, 160);
  }
}

void PutStamp(Random& random, Bytes& bytes) {
  const std::size_t offset = StampOffset(random, bytes.size());
  Put(bytes, offset, StampWords(random));
}

Bytes Contents(Random& random) {
  Bytes bytes = Filled(random);
  if (random.OneIn(2)) {
    Put(bytes, kFieldAt, BytesOf(Field(random)));
  }
  if (random.OneIn(2)) {
    PutStamp(random, bytes);
  }
  if (random.OneIn(6)) {
    PutStamp(random, bytes);
  }
  return bytes;
}

// --- Gzip ---------------------------------------------------------------------------------------

Bytes Deflated(const Bytes& contents, int level) {
  constexpr int kRawWindowBits = -15;
  constexpr int kMemoryLevel = 8;
  z_stream stream{};
  if (deflateInit2(&stream, level, Z_DEFLATED, kRawWindowBits, kMemoryLevel, Z_DEFAULT_STRATEGY) !=
      Z_OK) {
    throw std::runtime_error("zlib cannot start");
  }
  Bytes out(deflateBound(&stream, contents.size()));
  // The interface of zlib is without const; it only reads from next_in.
  stream.next_in = const_cast<Bytef*>(contents.data());
  stream.avail_in = static_cast<uInt>(contents.size());
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(out.size());
  const int result = deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  if (result != Z_STREAM_END) {
    throw std::runtime_error("zlib cannot compress");
  }
  return out;
}

/// A name of the member, so that the program finds a '#' or a time stamp in the file, or moves what
/// is found. It has no NUL.
Bytes MemberName(Random& random) {
  switch (random.Number(0, 5)) {
    case 0:
      return BytesOf(std::string(random.Number(1, 8), 'n'));
    case 1: {  // the field of the file begins within the name
      constexpr std::size_t kHeaderBytes = 10;
      std::string field = Field(random);
      std::replace(field.begin(), field.end(), '\0', 'z');
      return BytesOf(std::string(kFieldAt - kHeaderBytes, 'n') +
                     field.substr(0, random.Number(1, kFieldBytes)));
    }
    case 2: {
      Bytes name(random.Number(0, 10), 'n');
      Append(name, {0x30, 0x01, 0xA0, 0x01, 0x5A, 0x9E, 0x38, 0xC5});
      return name;
    }
    case 3:
      return Bytes(random.Number(140, 160), 'n');
    default:
      return {};
  }
}

Bytes Member(Random& random, const Bytes& contents) {
  constexpr std::array<int, 3> kLevels = {0, 1, 9};  // 0: stored as it is
  constexpr std::uint8_t kHasName = 8;
  const Bytes name = MemberName(random);
  Bytes member = {0x1F, 0x8B, 8, name.empty() ? std::uint8_t{0} : kHasName, 0, 0, 0, 0, 0, 3};
  Append(member, name);
  if (!name.empty()) {
    member.push_back(0);
  }
  Append(member, Deflated(contents, random.Of(kLevels)));
  AppendWord(member, ::crc32(0, contents.data(), static_cast<uInt>(contents.size())));
  AppendWord(member, contents.size());
  return member;
}

Bytes Gzip(Random& random, const Bytes& contents) {
  if (!random.OneIn(4)) {
    return Member(random, contents);
  }
  const auto middle =
      contents.begin() + static_cast<std::ptrdiff_t>(random.Number(0, contents.size()));
  Bytes file = Member(random, {contents.begin(), middle});
  Append(file, Member(random, {middle, contents.end()}));
  return file;
}

void FlipBit(Random& random, Bytes& bytes, std::size_t first, std::size_t last) {
  const std::size_t at = random.Number(first, last);
  bytes[at] = static_cast<std::uint8_t>(bytes[at] ^ 1U << random.Number(0, 7));
}

/// @return what was done to the file
std::string Spoil(Random& random, Bytes& file) {
  const std::size_t size = file.size();
  switch (random.Number(0, 9)) {
    case 0:
      file.resize(random.Number(2, size - 1));
      return "gzip cut short";
    case 1:
      file.resize(size - random.Number(1, 9));  // in its check sum and length
      return "gzip cut short";
    case 2:
      FlipBit(random, file, 2, size - 1);
      return "gzip with another bit";  // in its time or name that does no harm
    case 3:
      FlipBit(random, file, size - 8, size - 1);
      return "gzip with a wrong check";
    case 4:
      Append(file, Bytes(random.Number(1, 20), 0));
      return "gzip and other bytes";
    case 5:
      Append(file, {0x1F});
      return "gzip and other bytes";
    case 6:
      Append(file, {0x1F, 0x8B});
      return "gzip and the start of a member";
    default:
      return "gzip";
  }
}

// --- What the flash holds -----------------------------------------------------------------------

std::string FillFlash(Random& random, const Bytes& contents, Triple& triple) {
  Bytes& flash = triple.flash;
  switch (random.Number(0, 6)) {
    case 0:
      return "a blank flash";
    case 1:
      flash = contents;
      return "the image";
    case 2:
      flash = triple.file;
      return "the file";
    case 3:
      flash = contents;
      Put(flash, kFieldAt, BytesOf(Field(random)));
      return "the image with another date";
    case 4:
      flash = contents;
      PutStamp(random, flash);
      return "the image with another stamp";
    case 5:
      flash = companion::PageThatDiffers(triple.target, triple.file);
      return "the page that differs";
    default:
      flash = Contents(random);
      return "something else";
  }
}

}  // namespace

Triple TripleOf(std::uint64_t seed, std::uint64_t index) {
  struct Place {
    const char* target;
    unsigned slot;
  };
  constexpr std::array<Place, 4> kPlaces = {{{"wend", 1}, {"dax", 2}, {"pyx1", 4}, {"pyx2", 5}}};
  constexpr std::array<const char*, 3> kChips = {"micron", "micron", "macronix"};
  Random random(seed, index);
  const Place place = random.Of(kPlaces);
  Triple triple{.target = place.target, .slot = place.slot, .chip = random.Of(kChips)};
  const Bytes contents = Contents(random);
  std::string kind = "plain";
  triple.file = contents;
  if (random.OneIn(2)) {
    triple.file = Gzip(random, contents);
    kind = Spoil(random, triple.file);
  }
  triple.kind = kind + " over " + FillFlash(random, contents, triple);
  return triple;
}

}  // namespace predictions
