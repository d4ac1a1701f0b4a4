#pragma once

#include <string>
#include <vector>

/// The log of a run, line by line, and the parts from which the tables make it: parts of golden
/// logs, single lines, and lines that depend on a size.
namespace program_test::run_log {

using Lines = std::vector<std::string>;

/// The last words on standard output when a module cannot be reached.
inline const std::string kConnectFailed =
    "Could not connect to the device. Check Module # and power.";

/// @return the pieces, one after the other
Lines Join(const std::vector<Lines>& pieces);

/// The text of a log, each line ended.
std::string Text(const Lines& lines);

/// The lines of a text.
Lines LinesOf(const std::string& text);

/// What the "stdout" or "stderr" lines of a log say, as it reaches the console.
std::string ConsoleText(const Lines& log, const std::string& stream);

/// @return the log before the nth occurrence of a line
/// @throw std::invalid_argument if there is none
Lines Until(const Lines& log, const std::string& line, int nth = 1);

/// The log with a run of lines replaced, wherever it occurs.
/// @throw std::invalid_argument when it does not occur
Lines Replaced(const Lines& log, const Lines& old, const Lines& replacement);

Lines Console(const std::string& line);    ///< one line on standard output
Lines ErrorLine(const std::string& line);  ///< one line on standard error

/// An I2C adapter asked for its name; the answer as the log shows it.
Lines AdapterAsked(const std::string& adapter, const std::string& answer);
Lines AdapterName(const std::string& adapter, const std::string& name);  ///< told

/// The SPI driver's parameter read, the size of its buffer.
Lines BufferSizeRead(const std::string& text);

/// Whole 64 KiB sectors erased, from address 0 on.
Lines Erase(int sectors, int slot);

/// Pages written, from an address on.
Lines Program(int bytes, int slot, int address = 0);

}  // namespace program_test::run_log
