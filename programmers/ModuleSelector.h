#pragma once

#include <iosfwd>

/// The platform's multiplexer for the SPI lines of the pyx slots, with two sysfs attributes, slotA
/// and slotB. A route stays in force until the next one is selected.
namespace module_selector {

/// One route: what is written, and the line on standard error when that fails.
struct Route {
  const char* text;
  const char* failureLine;
};

inline constexpr Route kSpiMaster = {"SPIFIFO", "Select_SPIMaster failed"};
inline constexpr Route kOtdr = {"SPILVDS", "Select_OTDR failed"};

/// @param module  slot number; 4 is slot A, every other number slot B
/// @return the slot's file
const char* Path(int module);

/// Opens the slot's file, writes the route's text and closes it 100 ms later; the text reaches the
/// kernel at the close, whose own failure is not reported.
/// @param module       slot number, as for Path()
/// @param openFailure  takes the line for a file that cannot be opened
/// @return 0; -1 on failure, after one line: on `openFailure` when the file cannot be opened, else
///         on standard error
int Select(int module, const Route& route, std::ostream& openFailure);

/// Inserts the route's text into an open selector, as InsertAndWait() does.
/// @return 0; -1 on failure, after one line on standard error
int Apply(std::ostream& selector, const Route& route);

/// Inserts `text` and waits 100 ms; again while the stream is bad, at most 21 times in all.
/// @return true when the stream took it
bool InsertAndWait(std::ostream& selector, const char* text);

}  // namespace module_selector
