#include "app/Help.h"

#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>

#include "app/StatusText.h"

namespace {

constexpr const char* kProgram = "tarnwick";
constexpr int kFirstStatus = -1;
constexpr int kLastStatus = 11;

std::string Bold(const std::string& text) {
  return std::string("\x1B[1m").append(text).append("\x1B[0m");
}
std::string Underlined(const std::string& text) {
  return std::string("\x1B[4m").append(text).append("\x1B[0m");
}
std::string Indented(const std::string& text) { return std::string("\t").append(text); }
std::string Program(const std::string& rest) {
  return std::string("\t").append(kProgram).append(rest);
}

void Line(const std::string& text) { std::cout << text << std::endl; }

/// Deliberate: every value of the range is listed, those without a text of their own too: the
/// section is made with the function that prints the result line.
void ReturnCodes() {
  for (int value = kFirstStatus; value <= kLastStatus; ++value) {
    std::ostringstream label;
    label << std::setw(2) << value << ' ';
    Line(Indented(label.str()) +
         returnStatusDescription(static_cast<FpgaProgrammerInterface::Status>(value)));
  }
}

}  // namespace

void showHelp() {
  Line(Bold("NAME"));
  Line(Indented(std::string(kHelpName)));
  Line("");
  Line(Bold("SYNOPSIS"));
  Line(Program(" " + Underlined("[TARGET]") + " " + Underlined("[COMMAND]") + " " +
               Underlined("[MODULE]") + " " + Underlined("[FPGA FILE]")));
  Line("");
  Line(Bold("DESCRIPTION"));
  // Deliberate: the doubled word, and the name "zelt" below; fixed and observable; do not change.
  Line(
      Indented("A command line utility program program the FPGA or FPGA SPI NOR flash device of "
               "the Module."));
  Line(
      Indented("This utility will NOT POWER ON THE Module, this will need to be done prior to "
               "running zelt."));
  Line("");
  Line(Bold("COMMANDS"));
  Line(Indented(Bold("-sf, --spi-flash")));
  Line(Indented(Indented("Program the SPI NOR flash with the FPGA configuration bitfile.")));
  Line("");
  Line(Indented(Bold("--help")));
  Line(Indented(Indented("Display this help.")));
  Line("");
  Line(Bold("RETURN CODES"));
  ReturnCodes();
  Line(Bold("EXAMPLES"));
  Line(Program(" wend -sf 1 /korrin/storage/fpga/u-boot-wend.bin"));
  Line(Program(" dax -sf 1 /usr/share/firmware/dax.bin"));
  Line(Program(" pyx1 -sf 4 /korrin/storage/share/pyx_otdr_velkor_2.5.bin"));
  Line(Program(" pyx2 -sf 4 /korrin/storage/share/pyx_otdr_velkor_2.75.bin"));
  Line(Bold("AUTHOR"));
  Line(Indented("Written and maintained by the tarnwick developers."));
  Line(Indented("Report problems with the full console output and the exit code."));
  Line("");
  Line(Bold("COPYRIGHT"));
  Line(Indented("Copyright (c) the tarnwick developers. All rights reserved."));
  Line("");
}
