#pragma once

#include <string>

#include "tests/e2e/RunLog.h"
#include "tests/e2e/VirtualInstrument.h"

/// Judges what a run did. Whatever departs from what was expected is a test failure of its own,
/// whose text begins with where ("stdout", "stderr", "exit code", "device traffic", ...) and goes
/// on, from the next line, with how.
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

/// Console, exit code and traffic apart, then the order in which they stand in the log.
/// @param log  whole, its last line the exit
void ExpectRun(const Outcome& outcome, int exitCode, const Lines& log);

/// The same with a log in a file, golden/NAME.log. With --write-golden the file is written first.
void ExpectGolden(const Outcome& outcome, int exitCode, const std::string& name);

void ExpectContents(const std::string& what, const Bytes& contents, const Bytes& expected);

/// Where and how two texts differ: the number of the first line that does, the lines of both
/// without those in front and behind that are equal. Empty when nothing differs.
std::string Difference(const std::string& expected, const std::string& actual);

}  // namespace program_test
