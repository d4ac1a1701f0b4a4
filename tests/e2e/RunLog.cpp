#include "tests/e2e/RunLog.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "simulator/instrument/Escape.h"

namespace program_test::run_log {

namespace {

std::string Node(int slot) { return "/dev/spidev" + std::to_string(slot) + ".0"; }

std::string Spi(int slot) { return "spi " + Node(slot) + " "; }

std::string Hex24(int address) {
  char text[16];
  static_cast<void>(std::snprintf(text, sizeof text, "0x%06x", static_cast<unsigned>(address)));
  return text;
}

Lines& operator+=(Lines& lines, const Lines& more) {
  lines.insert(lines.end(), more.begin(), more.end());
  return lines;
}

/// The chip's answers while it is busy for `reads` status reads, and when it is ready.
Lines BusyPolls(int reads, int slot) {
  Lines lines(static_cast<std::size_t>(reads), Spi(slot) + "RDSR = 03");
  lines.push_back(Spi(slot) + "RDSR = 00");
  return lines;
}

}  // namespace

Lines Join(const std::vector<Lines>& pieces) {
  Lines all;
  for (const Lines& piece : pieces) {
    all += piece;
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

std::string ConsoleText(const Lines& log, const std::string& stream) {
  const std::string start = stream + " \"";
  std::string text;
  for (const std::string& line : log) {
    if (line.rfind(start, 0) != 0) {
      continue;
    }
    text += orvane::Unescape(
        std::string_view(line).substr(start.size(), line.size() - start.size() - 1));
  }
  return text;
}

Lines Console(const std::string& line) { return {"stdout " + orvane::Quote(line + "\n")}; }

Lines ErrorLine(const std::string& line) { return {"stderr " + orvane::Quote(line + "\n")}; }

Lines Request(const std::string& image) {
  return {R"(stdout "programming mode: -sf\n")",
          R"(stdout "module number: 1\n")",
          "stdout \"FPGA bitstream: '" + image + "'\\n\""};
}

Lines Discovery() {
  return {"dbus GetModuleLocations = 1",
          R"(dbus GetI2CBus 1 = "i2c-1")",
          "dbus GetModuleLocations = 1",
          R"(dbus GetSPIDev 1 = "spidev1.0")"};
}

Lines Clock() {
  return {R"(stdout "SPI clock rate =19MHz\n")",
          "open /sys/module/spidev/parameters/bufsiz O_RDONLY",
          R"(read /sys/module/spidev/parameters/bufsiz "4096\n")",
          "close /sys/module/spidev/parameters/bufsiz"};
}

Lines AdapterAsked(const std::string& adapter, const std::string& answer) {
  const std::string file = "/sys/devices/platform/soc/" + adapter + "/name";
  return {"open " + file + " O_RDONLY", "read " + file + " " + answer, "close " + file};
}

Lines AdapterName(const std::string& adapter, const std::string& name) {
  return AdapterAsked(adapter, orvane::Quote(name + "\n"));
}

Lines Programmer() { return {R"(stdout "WEND Programming\n")", R"(stdout "Connecting ...\n")"}; }

Lines Control(const std::string& file, const std::string& value) {
  const std::string path = "/sys/platform_m1/" + file + "/value";
  return {
      "open " + path + " O_WRONLY|O_SYNC", "write " + path + " \"" + value + "\"", "close " + path};
}

Lines OpenBus(int slot) {
  return {"open " + Node(slot) + " O_RDWR",
          "ioctl " + Node(slot) + " SPI_IOC_WR_MODE 0",
          "ioctl " + Node(slot) + " SPI_IOC_RD_MAX_SPEED_HZ = 50000000",
          "ioctl " + Node(slot) + " SPI_IOC_WR_MAX_SPEED_HZ 50000000"};
}

Lines Identify(const std::string& id, int slot) {
  return {Spi(slot) + "speed 19000000 bits 8",
          Spi(slot) + "WREN",
          Spi(slot) + "RDID = " + id,
          "stdout \"Flash Manufacturer ID   : 0x" + id.substr(0, 2) + "\\n\"",
          "stdout \"Flash Memory Type       : 0x" + id.substr(3, 2) + "\\n\"",
          "stdout \"Flash Memory Capacity   : 0x" + id.substr(6, 2) + "\\n\""};
}

Lines Lock(const std::string& config,
           const std::string& status,
           const std::string& registers,
           int slot) {
  return {Spi(slot) + "RDCR = " + config,
          Spi(slot) + "RDSR = " + status,
          Spi(slot) + "WREN",
          Spi(slot) + "WRSR " + registers};
}

Lines Dump(const std::string& scratch) {
  return {"open " + scratch + " O_WRONLY|O_CREAT 0600",
          R"(stdout "Reading flash...")",
          Spi(1) + "READ 0x000000 +4096",
          "write " + scratch + " +4096",
          "close " + scratch};
}

Lines Compare(const std::string& scratch,
              const std::string& name,
              const std::string& dumpDate,
              const std::string& image,
              const std::string& imageDate) {
  Lines lines = {R"(stdout "\n")"};
  const Lines dump = {"open " + scratch + " O_RDONLY", "close " + scratch};
  lines += dump;
  lines += Console("Flash header binary filename: " + name);
  lines += dump;
  lines += Console("Flash header build date: " + dumpDate);
  lines += {"open " + image + " O_RDONLY", "close " + image};
  lines += Console("Binary  file build date: " + imageDate);
  return lines;
}

Lines Erase(int sectors, int slot) {
  Lines lines;
  for (int sector = 0; sector < sectors; ++sector) {
    lines += {Spi(slot) + "WREN", Spi(slot) + "SE " + Hex24(sector * 0x10000)};
    lines += BusyPolls(3, slot);
  }
  return lines;
}

Lines Program(int bytes, int slot, int address) {
  Lines lines;
  for (int at = 0; at < bytes; at += 256) {
    lines += {
        Spi(slot) + "WREN",
        Spi(slot) + "PP " + Hex24(address + at) + " +" + std::to_string(std::min(256, bytes - at))};
    lines += BusyPolls(2, slot);
  }
  return lines;
}

Lines Done(int polls) {
  const std::string path = "/sys/platform_m1/zynq_done/value";
  const std::string open = "open " + path + " O_RDONLY|O_SYNC";
  const std::string read = "read " + path;
  const std::string close = "close " + path;
  Lines lines;
  for (int poll = 0; poll < polls; ++poll) {
    lines += {open, read + " \"0\"", close, "sleep 1 ms"};
  }
  lines += {open, read + " \"1\"", close};
  return lines;
}

Lines UnreadableHeader(const std::string& message) {
  return Join({ErrorLine(message),
               ErrorLine("terminate called after throwing an instance of 'std::logic_error'"),
               ErrorLine("  what():  basic_string::_M_construct null not valid"),
               {"killed SIGABRT"}});
}

}  // namespace program_test::run_log
