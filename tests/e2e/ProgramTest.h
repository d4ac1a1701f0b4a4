#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <ostream>
#include <string>

#include "tests/e2e/FlashContents.h"
#include "tests/e2e/Judgement.h"
#include "tests/e2e/RunLog.h"
#include "tests/e2e/VirtualInstrument.h"

namespace program_test {

/// A type of module, and the slot where it stands in these tests.
struct Board {
  const char* word;
  int slot;
};

inline constexpr Board kWend = {"wend", 1};
inline constexpr Board kDax = {"dax", 2};
inline constexpr Board kPyx1 = {"pyx1", 4};
inline constexpr Board kPyx2 = {"pyx2", 6};

inline void PrintTo(const Board& board, std::ostream* out) { *out << board.word; }

inline std::string WordOf(const testing::TestParamInfo<Board>& row) { return row.param.word; }

inline constexpr int kImageBytes = 600;  // two pages and 88 bytes

/// A module whose flash holds a build of 2023, and an image of 2024.
class ProgramTest : public testing::Test {
 protected:
  explicit ProgramTest(const Board& board);

  bool IsWend() const { return board_.word == std::string(kWend.word); }
  bool IsPyx() const { return board_.word[0] == 'p'; }
  bool HasBootHeader() const { return IsWend() || board_.word == std::string(kPyx2.word); }
  std::string Slot() const { return std::to_string(board_.slot); }

  /// A build of the year: a bitstream stamped 06/05 07:08:09, or a boot image dated so.
  Bytes Image(int year, std::size_t bytes) const;

  /// @param file  contents of image.bin
  void StoreImage(const Bytes& file);
  void StoreFlash(const Bytes& contents);

  void PlugIn(const std::string& keys = "");
  void Fault(const std::string& rule) { instrument_.Option({"--fault", rule}); }

  Outcome Update() { return instrument_.Run(Words()); }
  Outcome UpdateLimited() { return instrument_.RunLimited(Words()); }

  /// The golden log of the board with this name.
  Lines Log(const std::string& name) const;

  /// @param golden  the name of the log, without the board's
  void ExpectUpdate(int exitCode, const std::string& golden);
  void ExpectUpdate(int exitCode, const Lines& log) { ExpectRun(Update(), exitCode, log); }

  /// @return a golden log with the erased sectors and the pages of an image of another size
  Lines WithBytes(const Lines& log, std::size_t bytes) const;

  void ExpectFlash(const Bytes& contents);
  void ExpectFlashUntouched() { ExpectFlash(old_); }
  void ExpectFlashRewritten() { ExpectFlash(Flashed(image_, old_)); }
  /// Rewritten, but for these bytes, which are blank.
  void ExpectFlashRewrittenBut(std::size_t first, std::size_t bytes);
  /// Erased for the image, but nothing of it is written.
  void ExpectFlashErased() { ExpectFlash(Flashed({0xFF}, old_)); }

  VirtualInstrument instrument_;
  Board board_;
  Bytes old_;
  Bytes image_;

 private:
  std::string GoldenName(const std::string& name) const;
  std::vector<std::string> Words() const { return {board_.word, "-sf", Slot(), "image.bin"}; }
};

/// For each of several types of module.
class BoardTest : public ProgramTest, public testing::WithParamInterface<Board> {
 protected:
  BoardTest() : ProgramTest(GetParam()) {}
};

}  // namespace program_test
