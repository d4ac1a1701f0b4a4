#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "tests/e2e/RunLog.h"
#include "tests/e2e/VirtualInstrument.h"

/// How the program looks for a build in a file, worked out from the file's bytes.
namespace program_test {

/// Where the text in a boot header ends: no shorter file has one.
inline constexpr std::size_t kHeaderBytes = 152;

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

inline const std::string kNoDelimiter = "ERROR: Can't find delimiter # in BOOTHEADER";

// The searches, as the log shows them. A file without a '#' stays open.
run_log::Lines SearchName(const std::string& path, const Bytes& dump);
run_log::Lines SearchDumpDate(const std::string& path,
                              const Bytes& dump,
                              const std::string& noDelimiter = kNoDelimiter);
run_log::Lines SearchImageDate(const std::string& path,
                               const Bytes& image,
                               const std::string& noDelimiter = kNoDelimiter);

/// The USR_ACCESS stamp of a bitstream, 0 for none.
std::uint32_t StampIn(const Bytes& file);

/// "06/05/2024 07:08:09"
std::string StampText(std::uint32_t stamp);

}  // namespace program_test
