#include "tests/e2e/ProgramTest.h"

#include <algorithm>

#include "simulator/images/Bitstream.h"
#include "simulator/images/BootImage.h"
#include "tests/e2e/GoldenLog.h"

namespace program_test {

ProgramTest::ProgramTest(const Board& board) : board_(board) {
  StoreFlash(Image(2023, 100'000));
  StoreImage(Image(2024, kImageBytes));
}

Bytes ProgramTest::Image(int year, std::size_t bytes) const {
  return HasBootHeader()
             ? orvane::MakeZynqImage(
                   {.buildDate = std::to_string(year) + "-05-06 07:08:09", .bytes = bytes})
             : orvane::MakeBitstream(
                   {.bytes = bytes, .userAccess = orvane::PackStamp({year, 5, 6, 7, 8, 9})});
}

void ProgramTest::StoreImage(const Bytes& file) {
  image_ = file;
  instrument_.WriteFile("image.bin", file);
}

void ProgramTest::StoreFlash(const Bytes& contents) {
  old_ = contents;
  instrument_.WriteFile("flash.bin", contents);
}

void ProgramTest::PlugIn(const std::string& keys) {
  instrument_.Option({"--module",
                      std::string(board_.word) + "@" + Slot() +
                          ",flash=" + instrument_.File("flash.bin").string() + keys});
}

std::string ProgramTest::GoldenName(const std::string& name) const {
  return std::string(board_.word).append("-").append(name);
}

Lines ProgramTest::Log(const std::string& name) const { return golden_log::Read(GoldenName(name)); }

void ProgramTest::ExpectUpdate(int exitCode, const std::string& golden) {
  ExpectGolden(Update(), exitCode, GoldenName(golden));
}

Lines ProgramTest::WithBytes(const Lines& log, std::size_t bytes) const {
  return run_log::Replaced(run_log::Replaced(log,
                                             run_log::Erase(SectorsOf(kImageBytes), board_.slot),
                                             run_log::Erase(SectorsOf(bytes), board_.slot)),
                           run_log::Program(kImageBytes, board_.slot),
                           run_log::Program(static_cast<int>(bytes), board_.slot));
}

void ProgramTest::ExpectFlash(const Bytes& contents) {
  ExpectContents("flash", instrument_.ReadFile("flash.bin"), PaddedTo(kFlashBytes, contents));
}

void ProgramTest::ExpectFlashRewrittenBut(std::size_t first, std::size_t bytes) {
  Bytes expected = Flashed(image_, old_);
  std::fill_n(expected.begin() + static_cast<std::ptrdiff_t>(first), bytes, 0xFF);
  ExpectFlash(expected);
}

}  // namespace program_test
