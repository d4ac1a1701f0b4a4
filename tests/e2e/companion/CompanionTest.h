#pragma once

#include <string>
#include <vector>

#include "tests/e2e/ProgramTest.h"

namespace companion_test {

/// tarnwickctl on a module whose flash holds a build of 2023; image.bin is one of 2024.
class CompanionTest : public program_test::BoardTest {
 protected:
  CompanionTest();

  [[nodiscard]] bool IsDax() const { return std::string(board_.word) == "dax"; }

  /// What `tarnwick` itself does with another module in the same state.
  program_test::Outcome BareUpdate();

  /// Runs tarnwickctl COMMAND TARGET MODULE FILE OPTIONS with a folder of its own.
  program_test::Outcome Companion(const std::string& command,
                                  const std::string& file,
                                  const std::string& options = "");

  /// The stamp of a build of this year, as the type shows it.
  [[nodiscard]] std::string Stamp(int year) const;
  [[nodiscard]] std::string ModuleLine() const;
  [[nodiscard]] std::string ImageLines() const;
  /// Chip and DONE, and the endpoint of a pyx, of a module that runs.
  [[nodiscard]] std::string StateLines() const;

  /// How the instrument describes the module after the run, without its slot.
  [[nodiscard]] std::string State() const;
  /// The same for a module that runs what its flash holds.
  [[nodiscard]] std::string InUse() const;
  /// What is in the folder of --state.
  [[nodiscard]] std::vector<std::string> NamesInState() const;
  [[nodiscard]] std::string Text(const std::string& file) const;

  /// "0x0a"
  static std::string Hex(unsigned char byte);
};

}  // namespace companion_test
