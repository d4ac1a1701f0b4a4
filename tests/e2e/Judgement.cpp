#include "tests/e2e/Judgement.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string_view>

#include "simulator/instrument/Escape.h"
#include "tests/e2e/GoldenLog.h"

namespace program_test {

namespace {

constexpr std::ptrdiff_t kShownLines = 6;  // of each side of a difference

void Fail(const std::string& where, const std::string& how) {
  ADD_FAILURE() << where << "\n" << how;
}

void ExpectSame(const std::string& where, const std::string& expected, const std::string& actual) {
  if (expected != actual) {
    Fail(where, Difference(expected, actual));
  }
}

void ExpectContains(const std::string& where,
                    const std::string& whole,
                    const std::string& text,
                    bool wanted) {
  if ((whole.find(text) != std::string::npos) != wanted) {
    Fail(where, (wanted ? "does not contain\n- " : "contains\n+ ") + orvane::Quote(text));
  }
}

bool Starts(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

bool Ends(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

/// Lines with their ends, so that a missing last newline counts.
Lines SplitLines(const std::string& text) {
  Lines lines;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
    lines.push_back(text.substr(at, end - at));
    at = end;
  }
  return lines;
}

/// As it is, or quoted where that would not show all of it.
std::string Shown(const std::string& line) {
  const bool isWhole = Ends(line, "\n");
  const std::string text = isWhole ? line.substr(0, line.size() - 1) : line;
  const bool isPlain = !Ends(text, " ") && std::all_of(text.begin(), text.end(), [](char byte) {
    return byte >= ' ' && byte <= '~';
  });
  return (isPlain ? text : orvane::Quote(text)) + (isWhole ? "" : " (no newline)");
}

void Show(std::ostream& text, char sign, Lines::const_iterator first, Lines::const_iterator last) {
  const auto shown = std::min(last - first, kShownLines);
  for (auto line = first; line != first + shown; ++line) {
    text << "\n" << sign << " " << Shown(*line);
  }
  if (last - first > shown) {
    text << "\n" << sign << " ... and " << (last - first - shown) << " more";
  }
}

bool IsConsole(const std::string& line) {
  return Starts(line, "stdout ") || Starts(line, "stderr ");
}

bool IsEnd(const std::string& line) { return Starts(line, "exit ") || Starts(line, "killed "); }

std::string TrafficOf(const std::string& log) {
  std::string traffic;
  for (const std::string& line : SplitLines(log)) {
    if (!IsConsole(line) && !IsEnd(line)) {
      traffic += line;
    }
  }
  return traffic;
}

/// @return whether everything in it is as expected, the order included
bool ExpectLog(const std::string& expected, const std::string& actual) {
  const std::string expectedTraffic = TrafficOf(expected);
  const std::string actualTraffic = TrafficOf(actual);
  ExpectSame("device traffic", expectedTraffic, actualTraffic);
  return expectedTraffic == actualTraffic;
}

}  // namespace

std::string Difference(const std::string& expected, const std::string& actual) {
  if (expected == actual) {
    return "";
  }
  const Lines wanted = SplitLines(expected);
  const Lines is = SplitLines(actual);
  const auto [firstWanted, firstIs] =
      std::mismatch(wanted.begin(), wanted.end(), is.begin(), is.end());
  auto lastWanted = wanted.end();
  auto lastIs = is.end();
  while (lastWanted != firstWanted && lastIs != firstIs && *(lastWanted - 1) == *(lastIs - 1)) {
    --lastWanted;
    --lastIs;
  }
  std::ostringstream text;
  text << "from line " << (firstWanted - wanted.begin() + 1) << " on (- expected, + is)";
  Show(text, '-', firstWanted, lastWanted);
  Show(text, '+', firstIs, lastIs);
  return text.str();
}

void ExpectExitCode(const Outcome& outcome, int expected) {
  if (outcome.exitCode != expected) {
    Fail(
        "exit code",
        "expected " + std::to_string(expected) + ", but it is " + std::to_string(outcome.exitCode));
  }
}

void ExpectOut(const Outcome& outcome, const std::string& expected) {
  ExpectSame("stdout", expected, outcome.out);
}

void ExpectErr(const Outcome& outcome, const std::string& expected) {
  ExpectSame("stderr", expected, outcome.err);
}

void ExpectOutContains(const Outcome& outcome, const std::string& text, bool wanted) {
  ExpectContains("stdout", outcome.out, text, wanted);
}

void ExpectOutEnds(const Outcome& outcome, const std::string& text) {
  if (!Ends(outcome.out, text)) {
    const std::size_t size = std::min(outcome.out.size(), text.size());
    Fail("stdout",
         "at its end, " + Difference(text, outcome.out.substr(outcome.out.size() - size)));
  }
}

void ExpectErrStarts(const Outcome& outcome, const std::string& text) {
  ExpectSame("stderr", text, outcome.err.substr(0, text.size()));
}

void ExpectErrEnds(const Outcome& outcome, const std::string& text) {
  if (!Ends(outcome.err, text)) {
    const std::size_t size = std::min(outcome.err.size(), text.size());
    Fail("stderr",
         "at its end, " + Difference(text, outcome.err.substr(outcome.err.size() - size)));
  }
}

void ExpectTrafficContains(const Outcome& outcome, const std::string& text, bool wanted) {
  ExpectContains("device traffic", outcome.log, text, wanted);
}

void ExpectRun(const Outcome& outcome, int exitCode, const Lines& log) {
  const std::string out = run_log::ConsoleText(log, "stdout");
  const std::string err = run_log::ConsoleText(log, "stderr");
  ExpectOut(outcome, out);
  ExpectErr(outcome, err);
  ExpectExitCode(outcome, exitCode);
  const std::string expected = run_log::Text(log);
  const bool sameTraffic = ExpectLog(expected, outcome.log);
  if (sameTraffic && outcome.exitCode == exitCode && outcome.out == out && outcome.err == err) {
    ExpectSame("order of console and device traffic", expected, outcome.log);
  }
}

void ExpectGolden(const Outcome& outcome, int exitCode, const std::string& name) {
  if (golden_log::IsWritten()) {
    golden_log::Write(name, run_log::LinesOf(outcome.log));
  }
  ExpectRun(outcome, exitCode, golden_log::Read(name));
}

void ExpectContents(const std::string& what, const Bytes& contents, const Bytes& expected) {
  if (contents == expected) {  // by memory; element by element takes long in debug builds
    return;
  }
  const auto [is, wanted] =
      std::mismatch(contents.begin(), contents.end(), expected.begin(), expected.end());
  const auto byte = [](bool isThere, Bytes::const_iterator at) {
    char text[8] = "none";
    if (isThere) {
      static_cast<void>(std::snprintf(text, sizeof text, "0x%02x", *at));
    }
    return std::string(text);
  };
  Fail(
      what,
      "expected " + std::to_string(expected.size()) + " bytes, " + std::to_string(contents.size()) +
          " are there; from byte " + std::to_string(is - contents.begin()) + " on: expected " +
          byte(wanted != expected.end(), wanted) + ", but it is " + byte(is != contents.end(), is));
}

}  // namespace program_test
