#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "devices/SPIDev.h"
#include "platform/PCA9535.h"
#include "programmers/DaxFlashProgrammer.h"
#include "programmers/Pyx1FlashProgrammer.h"
#include "programmers/Pyx2FlashProgrammer.h"
#include "programmers/lines/DaxGpioProgramming.h"
#include "programmers/lines/Pyx1GpioProgramming.h"
#include "programmers/lines/Pyx2GpioProgramming.h"
#include "tests/doubles/ScratchDirectory.h"
#include "tests/doubles/TemporaryDirectory.h"
#include "tests/unit/programmers/expander/ExpanderLog.h"
#include "tests/unit/programmers/expander/ExpanderScript.h"

/// The line map that main() gives to a programmer.
template <typename Programmer>
struct ExpanderLinesOf;
template <>
struct ExpanderLinesOf<DaxFlashProgrammer> {
  using Type = DaxGpioProgramming;
};
template <>
struct ExpanderLinesOf<Pyx1FlashProgrammer> {
  using Type = Pyx1GpioProgramming;
};
template <>
struct ExpanderLinesOf<Pyx2FlashProgrammer> {
  using Type = Pyx2GpioProgramming;
};

/// Runs a programmer over the doubles in an empty working directory, and takes down what it does.
/// Every recorded event and every file left open must be asked for by the test.
class ExpanderTest : public testing::Test {
 protected:
  using Events = ExpanderLog::Events;

  ExpanderTest();
  ~ExpanderTest() override;

  void TearDown() override;

  /// Calls `action` while the log records.
  template <typename Action>
  decltype(auto) Record(Action action) {
    const ExpanderLog::Recording recording;
    return action();
  }

  /// @return the events since the last call
  Events Recorded();

  /// A programmer with its module's own lines, constructed outside the log and destroyed by the
  /// fixture.
  template <typename Programmer>
  Programmer& Ready(unsigned int module = 3) {
    auto lines = std::make_unique<typename ExpanderLinesOf<Programmer>::Type>();
    auto made = Record(
        [&] { return std::make_unique<Programmer>(&expander_, spi(), lines.get(), module); });
    static_cast<void>(Recorded());
    Programmer& programmer = *made;
    lines_ = std::move(lines);
    programmer_ = std::move(made);
    return programmer;
  }

  /// @return a device that nothing opens
  [[nodiscard]] SPIDev* spi() const { return spi_.get(); }

  /// Names the files, by their number in the log, that stay open when the test ends.
  void ExpectLeftOpen(std::set<int> files) { leftOpen_ = std::move(files); }

  /// @return raw bytes, also those after a NUL
  template <std::size_t N>
  static std::string Bytes(const char (&text)[N]) {
    return std::string(text, N - 1);
  }

  TemporaryDirectory slots_;  // what the programmer finds below the selector's path
  PCA9535 expander_;
  std::optional<ExpanderScript> script_;

 private:
  ScratchDirectory directory_;
  std::unique_ptr<SPIDev> spi_;
  std::set<int> leftOpen_;
  std::unique_ptr<GpioProgrammingInterface> lines_;
  std::unique_ptr<FpgaProgrammerInterface> programmer_;
};
