#pragma once

#include <cstdint>
#include <string>

#include "tests/program/RunLog.h"
#include "tests/program/VirtualInstrument.h"

/// How the program looks for a build in a file, worked out from the file's bytes.
namespace program_test {

/// The two texts that a boot header may hold; empty where there is none.
struct HeaderText {
  bool isThere = false;  // there is a '#'
  std::string name;
  std::string date;
};

/// @param file  with a whole boot header
HeaderText TextInHeader(const Bytes& file);

/// Whether the date in the dump is that in the image; a missing one is equal to none.
bool SameDate(const Bytes& dump, const Bytes& image);

/// What a search for a text in a boot header says.
struct SearchLines {
  std::string found;        // in front of the text
  std::string missing;      // when there is none
  std::string noDelimiter;  // when there is no '#'
};

run_log::Lines SearchName(const std::string& path, const Bytes& file);
run_log::Lines SearchDate(const std::string& path, const Bytes& file, const SearchLines& lines);

/// The USR_ACCESS stamp of a bitstream, 0 for none.
std::uint32_t StampIn(const Bytes& file);

/// "06/05/2024 07:08:09"
std::string StampText(std::uint32_t stamp);

}  // namespace program_test
