#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace maps {

/// An event of an update without a fault, and its place in the update.
struct Event {
  std::string kind;               ///< as in the log: "spi"
  std::string text;               ///< after the kind
  std::string result;             ///< after " = ", "" for none
  std::string step;               ///< "erase"
  std::string label;              ///< for a reader, without numbers of devices
  std::size_t ordinal = 0;        ///< among the events of its kind, counted from 1
  std::size_t sameText = 0;       ///< among those of its kind with the same text, as above
  std::size_t statusRead = 0;     ///< among the status reads, counted from 1; 0: not one
  std::size_t program = 0;        ///< among the page programs, as above
  std::size_t erase = 0;          ///< among the sector erases, as above
  std::size_t operation = 0;      ///< among programs and erases together, as above
  std::size_t registerWrite = 0;  ///< among the register writes, as above
};

/// Reads the events out of a log. Of the page loop it keeps the first, the second, the middle and
/// the last two pages.
std::vector<Event> EventsOf(const std::vector<std::string>& log);

/// The step of a line of a log; "" for a line before and after what is looked at.
/// @param line  of an event or of the console, as the log has it
/// @param step  of the line before; "" at first
using StepOf = std::function<std::string(const std::string& line, const std::string& step)>;

/// The same for other steps. Events without a step are left out, but are counted. Of events with the
/// same label in one step it keeps the first, the second, the middle and the last two as well.
std::vector<Event> EventsOf(const std::vector<std::string>& log, const StepOf& stepOf);

}  // namespace maps
