// The search for a bitstream's time stamp: the file and the outcome of every file call come from
// the fuzzer.
//   input: disturbances (length byte, bytes), file
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

#include "programmers/BitstreamFlashProgrammer.h"
#include "tests/fuzz/CapturedStdio.h"
#include "tests/fuzz/HostileBytes.h"
#include "tests/fuzz/MemoryFiles.h"
#include "tests/fuzz/Reference.h"
#include "tests/fuzz/Require.h"

namespace {

constexpr ExpanderFlashProgrammer::Traits kTraits = {.readDeviceLine = ""};

/// A programmer without a module, for its search alone.
class Search : public BitstreamFlashProgrammer {
 public:
  Search() : BitstreamFlashProgrammer(nullptr, nullptr, nullptr, 0, kTraits) {}
  [[nodiscard]] int Reports() const { return reports_; }

 private:
  void ReportNoTimeStamp(const std::string& file) override {
    Require(file == "file", "the report names the file");
    ++reports_;
  }

  int reports_ = 0;
};

/// Knows whether the file could be opened.
class ObservedFiles : public MemoryFiles {
 public:
  using MemoryFiles::MemoryFiles;

  int Open(const char* path, int flags, mode_t mode) override {
    const int fd = MemoryFiles::Open(path, flags, mode);
    opened_ = fd >= 0;
    return fd;
  }

  [[nodiscard]] bool HasOpened() const { return opened_; }

 private:
  bool opened_ = false;
};

std::string FoundLine(std::uint32_t stamp) {
  char line[160];
  static_cast<void>(std::snprintf(
      line,
      sizeof line,
      "User Access Register found in file file with Time Stamp :  %02u/%02u/%04u %02u:%02u:%02u\n",
      stamp / 0x8000000U,
      stamp / 0x800000U % 16,
      2000 + stamp / 0x20000U % 64,
      stamp / 0x1000U % 32,
      stamp / 0x40U % 64,
      stamp % 64));
  return line;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  HostileBytes bytes(data, size);
  HostileBytes disturbances = bytes.Part();
  ObservedFiles kernel(disturbances);
  kernel.files = {{"file", bytes.RestAsText()}};
  const CapturedStdio console;

  Search search;
  const unsigned int found = search.FindTimeStampInFile("file");

  Require(kernel.OpenCount() == 0, "the file is closed");
  if (!kernel.HasOpened()) {
    Require(found == 0 && search.Reports() == 0,
            "a file that cannot be opened gives 0, in silence");
    return 0;
  }
  // Reads that fail or fall short change nothing: they are made again, and joined.
  const std::optional<std::uint32_t> expected = reference::FindTimeStamp(kernel.files.at("file"));
  Require(found == expected.value_or(0), "the stamp is the reference's");
  Require(search.Reports() == (expected ? 0 : 1), "a file without a stamp is reported");
  Require(console.Out() == (expected ? FoundLine(*expected) : ""), "a stamp is printed as a date");
  return 0;
}
