// The whole of the command `image`: the image file, the contents of the flash and the options come
// from the fuzzer.
//   input: target (an index; 4: none), options (bit 0: with the contents of the flash, erased behind
//          what is given; bit 1: not erased, the dump ends there), contents (2 bytes of length,
//          bytes), image file
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "base/FileDescriptor.h"
#include "companion/image/Decision.h"
#include "companion/image/ImageCommand.h"
#include "companion/image/ImageFile.h"
#include "tests/doubles/Require.h"
#include "tests/fuzz/HostileBytes.h"
#include "tests/fuzz/Reference.h"

#include <nlohmann/json.hpp>

namespace {

using companion::ExitCode;
using companion::ImageFile;
using companion::Packing;

constexpr std::array<const char*, 4> kTargets = {"wend", "dax", "pyx1", "pyx2"};

constexpr std::size_t kShortestHeadBytes = 512;
constexpr std::size_t kLongestHeadBytes = 4096;

/// A file in memory that has a path.
class MemoryFile {
 public:
  explicit MemoryFile(const std::string& contents) : file_(::memfd_create("input", MFD_CLOEXEC)) {
    const auto written = ::write(file_.Get(), contents.data(), contents.size());
    Require(written == static_cast<ssize_t>(contents.size()), "the input can be stored");
  }

  [[nodiscard]] std::string Path() const { return "/proc/self/fd/" + std::to_string(file_.Get()); }

 private:
  FileDescriptor file_;
};

struct Answer {
  ExitCode code = ExitCode::kDone;
  std::string out;
};

Answer Run(const companion::ImageOptions& options) {
  std::ostringstream out;
  const ExitCode code = RunImage(options, out);
  return {.code = code, .out = out.str()};
}

/// A dump has to hold what tarnwick dumps: 4096 bytes of a wend, 512 of the others. When no type is
/// asked about, 512 will do.
bool IsTooShort(std::size_t dumpBytes, const std::optional<std::string>& target) {
  return dumpBytes < (target == "wend" ? kLongestHeadBytes : kShortestHeadBytes);
}

void RequireIsRefused(companion::ImageOptions options) {
  const Answer text = Run(options);
  Require(text.code == ExitCode::kRefused, "a dump without a head is refused");
  Require(text.out.starts_with("refused: "), "the text says that it is refused");
  options.json = true;
  const Answer json = Run(options);
  const nlohmann::json object = nlohmann::json::parse(json.out);
  Require(json.code == ExitCode::kRefused, "the dump is refused in the object too");
  Require(object.at("verdict") == "refused", "the object says that it is refused");
  const std::string reason = object.at("reason");
  Require(text.out == "refused: " + reason + "\n", "text and object have the same reason");
}

void RequireTextAndObjectAgree(companion::ImageOptions options) {
  const Answer text = Run(options);
  options.json = true;
  const Answer json = Run(options);
  Require(text.code == json.code, "text and object have the same exit code");
  Require(text.code == ExitCode::kDone || text.code == ExitCode::kNot, "the verdict is one of two");
  Require(std::none_of(text.out.begin(),
                       text.out.end(),
                       [](char c) { return c != '\n' && static_cast<unsigned char>(c) < ' '; }),
          "the text has lines and no other control characters");

  const nlohmann::json object = nlohmann::json::parse(json.out);
  Require(object.at("exit_code") == static_cast<int>(json.code), "the object has the exit code");
  const std::string reason = object.at("reason").is_null() ? "" : object.at("reason");
  const std::string verdict = reason.empty() ? "\nfit\n" : "\nunfit: " + reason + "\n";
  Require(text.out.ends_with(verdict), "the verdict is the last line of the text");
  Require(reason.empty() == (json.code == ExitCode::kDone), "what is unfit has a reason");
}

/// What the functions of zlib that tarnwick calls return for a file.
struct ZlibReading {
  std::vector<std::uint8_t> bytes;
  bool fails = false;  ///< with an error, again and again
};

ZlibReading ReadWithZlib(const std::string& path, std::size_t limit) {
  constexpr unsigned kPieceBytes = 4096;
  ZlibReading reading;
  gzFile file = ::gzopen(path.c_str(), "rb");
  Require(file != nullptr, "zlib opens the file");
  int count = 1;
  while (count > 0 && reading.bytes.size() <= limit) {
    std::array<std::uint8_t, kPieceBytes> piece{};
    count = ::gzread(file, piece.data(), kPieceBytes);
    reading.bytes.insert(reading.bytes.end(), piece.begin(), piece.begin() + std::max(count, 0));
  }
  reading.fails = count < 0;
  ::gzclose(file);
  return reading;
}

void RequireIsAsZlibReadsIt(const ImageFile& image, const std::string& path) {
  const ZlibReading zlib = ReadWithZlib(path, companion::kFlashBytes);
  if (image.tooLarge) {
    Require(zlib.bytes.size() > companion::kFlashBytes, "too large is more than the flash holds");
    return;
  }
  Require(zlib.fails == (image.packing == Packing::kGzipDamaged), "damage is where zlib fails");
  Require(zlib.bytes.size() <= image.bytes.size() &&
              std::equal(zlib.bytes.begin(), zlib.bytes.end(), image.bytes.begin()),
          "no bytes are missing");
  if (image.packing != Packing::kGzipDamaged && image.packing != Packing::kGzipCutShort) {
    Require(zlib.bytes.size() == image.bytes.size(), "no bytes are too many");
  }
}

std::string Text(std::span<const std::uint8_t> bytes) { return {bytes.begin(), bytes.end()}; }

void RequireDecisionIsTheReferences(const std::string& contents, const std::string& image) {
  std::vector<std::uint8_t> headBytes(contents.begin(), contents.end());
  headBytes.resize(kLongestHeadBytes, 0xFF);
  const std::string head = Text(headBytes);
  const std::vector<std::uint8_t> imageBytes(image.begin(), image.end());
  const bool sameStamp = reference::FindTimeStamp(head.substr(0, kShortestHeadBytes)).value_or(0) ==
                         reference::FindTimeStamp(image).value_or(0);
  Require(companion::FindsUpToDate("dax", headBytes, imageBytes) == sameStamp,
          "the stamps are the reference's");
  const auto dump = reference::FindBootHeader(head);
  const auto file = reference::FindBootHeader(image);
  if (file) {
    const bool sameDate = !reference::BuildDatesDiffer(*dump, *file);
    Require(companion::FindsUpToDate("wend", headBytes, imageBytes) == sameDate,
            "the dates are the reference's");
  }
  for (const char* const target : kTargets) {
    std::vector<std::uint8_t> page = companion::PageThatDiffers(target, imageBytes);
    page.resize(companion::DumpedHeadBytes(target), 0xFF);
    Require(!companion::FindsUpToDate(target, page, imageBytes), "the page that differs does");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  HostileBytes bytes(data, size);
  const std::size_t target = bytes.Byte() % (kTargets.size() + 1);
  const unsigned choices = bytes.Byte();
  const bool hasDump = (choices & 1U) != 0;
  const bool isDumpCut = (choices & 2U) != 0;
  const std::uint16_t contentsBytes = bytes.Word();
  const std::string contents = bytes.Text(contentsBytes);
  const std::string input = bytes.RestAsText();
  const MemoryFile file(input);
  std::vector<std::uint8_t> head(contents.begin(), contents.end());
  if (!isDumpCut && head.size() < kLongestHeadBytes) {
    head.resize(kLongestHeadBytes, 0xFF);
  }
  const MemoryFile dump(Text(head));

  companion::ImageOptions options{.path = file.Path()};
  if (target < kTargets.size()) {
    options.target = kTargets.at(target);
  }
  if (hasDump) {
    options.dump = dump.Path();
  }
  if (hasDump && IsTooShort(head.size(), options.target)) {
    RequireIsRefused(options);
  } else {
    RequireTextAndObjectAgree(options);
  }

  const companion::ImageReading reading = companion::ReadImageFile(file.Path());
  Require(reading.image.has_value(), "the file can be read");
  Require(Text(BytesOfFile(*reading.image)) == input, "the bytes of the file are kept");
  RequireIsAsZlibReadsIt(*reading.image, file.Path());
  RequireDecisionIsTheReferences(contents, input);
  RequireDecisionIsTheReferences(contents, Text(reading.image->bytes));
  return 0;
}
