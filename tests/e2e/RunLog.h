#pragma once

#include <string>
#include <vector>

/// The log of a run, in pieces, as an engineer would expect it line by line. Each piece is one step
/// of the program.
namespace program_test::run_log {

using Lines = std::vector<std::string>;

/// One piece out of several.
Lines Join(const std::vector<Lines>& pieces);

/// The text of a log, each line ended.
std::string Text(const Lines& lines);

/// What the "stdout" or "stderr" lines of a log say, as it reaches the console.
std::string ConsoleText(const Lines& log, const std::string& stream);

Lines Console(const std::string& line);    ///< one line on standard output
Lines ErrorLine(const std::string& line);  ///< one line on standard error
Lines Request(const std::string& image);   ///< the echoed words
Lines Discovery();                         ///< inventory, I2C bus; both again for the spidev
Lines Clock();                             ///< the clock line, the transfer limit
Lines AdapterAsked(const std::string& adapter,
                   const std::string& answer);  ///< for its name; the answer as the log shows it
Lines AdapterName(const std::string& adapter, const std::string& name);  ///< told
Lines Programmer();  ///< the target's line, then "Connecting ..."
Lines Control(const std::string& file, const std::string& value);  ///< a control file written
Lines OpenBus(int slot = 1);                          ///< the spidev node opened, mode and speed
Lines Identify(const std::string& id, int slot = 1);  ///< "20 ba 18", with the three lines printed
Lines Lock(const std::string& config,
           const std::string& status,
           const std::string& registers,
           int slot = 1);                ///< the registers read, then written
Lines Dump(const std::string& scratch);  ///< the head of the flash into a scratch file
Lines Compare(const std::string& scratch,
              const std::string& name,
              const std::string& dumpDate,
              const std::string& image,
              const std::string& imageDate);  ///< boot headers found and reported
Lines Erase(int sectors, int slot = 1);       ///< whole 64 KiB sectors from address 0
/// Pages from an address on.
Lines Program(int bytes, int slot = 1, int address = 0);
Lines Done(int polls);  ///< DONE polled in vain `polls` times, then high

/// The end of a run whose dump or image has no boot header that can be read: an exception that
/// nobody catches, behind its message.
Lines UnreadableHeader(const std::string& message);

}  // namespace program_test::run_log
