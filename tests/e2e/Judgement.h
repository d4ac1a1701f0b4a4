#pragma once

#include <string>

#include "tests/e2e/RunLog.h"
#include "tests/e2e/VirtualInstrument.h"

/// Compares what a run did with what is expected. Each part that differs is a test failure, whose
/// text begins with a line that names the part ("stdout", "stderr", "exit code", "device traffic",
/// ...) and then shows the difference.
namespace program_test {

using run_log::Lines;

void ExpectExitCode(const Outcome& outcome, int expected);
void ExpectOut(const Outcome& outcome, const std::string& expected);
void ExpectErr(const Outcome& outcome, const std::string& expected);
void ExpectOutContains(const Outcome& outcome, const std::string& text, bool wanted = true);
void ExpectOutEnds(const Outcome& outcome, const std::string& text);
void ExpectErrStarts(const Outcome& outcome, const std::string& text);
void ExpectErrEnds(const Outcome& outcome, const std::string& text);

void ExpectTrafficContains(const Outcome& outcome, const std::string& text, bool wanted = true);

/// Compares console, exit code and traffic separately, then their order in the log.
/// @param log  whole, its last line the exit
void ExpectRun(const Outcome& outcome, int exitCode, const Lines& log);

/// The same with a log in a file, golden/NAME.log. With --write-golden the file is written first.
void ExpectGolden(const Outcome& outcome, int exitCode, const std::string& name);

void ExpectContents(const std::string& what, const Bytes& contents, const Bytes& expected);

/// How two texts differ: the number of the first line that differs, and the lines of both, without
/// the equal lines at the start and at the end. Empty if nothing differs.
std::string Difference(const std::string& expected, const std::string& actual);

}  // namespace program_test
