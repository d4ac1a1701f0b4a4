#include "tests/e2e/RunLog.h"

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "simulator/instrument/Escape.h"

namespace program_test::run_log {

namespace {

std::string Spi(int slot) { return "spi /dev/spidev" + std::to_string(slot) + ".0 "; }

std::string Hex24(int address) {
  char text[16];
  static_cast<void>(std::snprintf(text, sizeof text, "0x%06x", static_cast<unsigned>(address)));
  return text;
}

void Append(Lines& lines, const Lines& more) {
  lines.insert(lines.end(), more.begin(), more.end());
}

/// A command to the flash, and the chip's answers while it is busy for so many status reads and
/// when it is ready.
Lines Command(const std::string& command, int busyReads, int slot) {
  Lines lines = {Spi(slot) + "WREN", Spi(slot) + command};
  lines.insert(lines.end(), static_cast<std::size_t>(busyReads), Spi(slot) + "RDSR = 03");
  lines.push_back(Spi(slot) + "RDSR = 00");
  return lines;
}

}  // namespace

Lines Join(const std::vector<Lines>& pieces) {
  Lines all;
  for (const Lines& piece : pieces) {
    Append(all, piece);
  }
  return all;
}

std::string Text(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) {
    text.append(line).append("\n");
  }
  return text;
}

Lines LinesOf(const std::string& text) {
  Lines lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

std::string ConsoleText(const Lines& log, const std::string& stream) {
  const std::string start = stream + " \"";
  std::string text;
  for (const std::string& line : log) {
    if (line.starts_with(start)) {
      text += orvane::Unescape(
          std::string_view(line).substr(start.size(), line.size() - start.size() - 1));
    }
  }
  return text;
}

Lines Until(const Lines& log, const std::string& line, int nth) {
  auto found = std::find(log.begin(), log.end(), line);
  for (int passed = 1; passed < nth && found != log.end(); ++passed) {
    found = std::find(found + 1, log.end(), line);
  }
  if (found == log.end()) {
    throw std::invalid_argument("not in the log: " + line);
  }
  return {log.begin(), found};
}

Lines Replaced(const Lines& log, const Lines& old, const Lines& replacement) {
  Lines result;
  auto from = log.begin();
  auto found = std::search(from, log.end(), old.begin(), old.end());
  if (found == log.end()) {
    throw std::invalid_argument("not in the log: " + old.front());
  }
  for (; found != log.end(); found = std::search(from, log.end(), old.begin(), old.end())) {
    result.insert(result.end(), from, found);
    Append(result, replacement);
    from = found + static_cast<std::ptrdiff_t>(old.size());
  }
  result.insert(result.end(), from, log.end());
  return result;
}

Lines Console(const std::string& line) { return {"stdout " + orvane::Quote(line + "\n")}; }

Lines ErrorLine(const std::string& line) { return {"stderr " + orvane::Quote(line + "\n")}; }

Lines AdapterAsked(const std::string& adapter, const std::string& answer) {
  const std::string file = "/sys/devices/platform/soc/" + adapter + "/name";
  return {"open " + file + " O_RDONLY", "read " + file + " " + answer, "close " + file};
}

Lines AdapterName(const std::string& adapter, const std::string& name) {
  return AdapterAsked(adapter, orvane::Quote(name + "\n"));
}

Lines BufferSizeRead(const std::string& text) {
  const std::string file = "/sys/module/spidev/parameters/bufsiz";
  return {"open " + file + " O_RDONLY",
          "read " + file + " " + orvane::Quote(text + "\n"),
          "close " + file};
}

Lines Erase(int sectors, int slot) {
  Lines lines;
  for (int sector = 0; sector < sectors; ++sector) {
    Append(lines, Command("SE " + Hex24(sector * 0x10000), 3, slot));
  }
  return lines;
}

Lines Program(int bytes, int slot, int address) {
  Lines lines;
  for (int at = 0; at < bytes; at += 256) {
    const std::string size = std::to_string(std::min(256, bytes - at));
    Append(lines, Command("PP " + Hex24(address + at) + " +" + size, 2, slot));
  }
  return lines;
}

}  // namespace program_test::run_log
