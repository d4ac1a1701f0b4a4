#include "tests/e2e/ExpanderProgram.h"

#include "simulator/images/Bitstream.h"
#include "simulator/images/BootImage.h"

namespace program_test::expander {

ExpanderProgram::ExpanderProgram(const Board& board) : board_(board) {
  old_ = Image(2023, 100'000);
  image_ = Image(2024, kImageBytes);
  instrument_.WriteFile("flash.bin", old_);
  instrument_.WriteFile("image.bin", image_);
}

Bytes ExpanderProgram::Image(int year, std::size_t bytes) const {
  return IsPyx2() ? orvane::MakeZynqImage(
                        {.buildDate = std::to_string(year) + "-05-06 07:08:09", .bytes = bytes})
                  : orvane::MakeBitstream(
                        {.bytes = bytes, .userAccess = orvane::PackStamp({year, 5, 6, 7, 8, 9})});
}

void ExpanderProgram::PlugIn(const std::string& keys) {
  instrument_.Option({"--module",
                      std::string(board_.word) + "@" + Slot() +
                          ",flash=" + instrument_.File("flash.bin").string() + keys});
}

void ExpanderProgram::ExpectFlash(const Bytes& contents) {
  ExpectContents("flash", instrument_.ReadFile("flash.bin"), PaddedTo(kFlashBytes, contents));
}

Lines ExpanderProgram::AskForBus() const {
  const std::string slot = Slot();
  return Join({Console("programming mode: -sf"),
               Console("module number: " + slot),
               Console("FPGA bitstream: 'image.bin'"),
               {"dbus GetModuleLocations = " + otherLocations_ + slot,
                "dbus GetI2CBus " + slot + " = \"i2c-" + slot + "\""}});
}

Lines ExpanderProgram::Find() const {
  const std::string slot = Slot();
  const std::string parent = "i2c-" + slot;
  return Join({AskForBus(),
               IsPyx() ? Lines{}
                       : Join({AdapterName(parent, "Orvane slot " + slot),
                               AdapterName(parent + "/i2c-11", parent + "-mux (chan_id 0)")}),
               {"dbus GetModuleLocations = " + otherLocations_ + slot,
                "dbus GetSPIDev " + slot + " = \"spidev" + slot + ".0\""},
               Clock(),
               Console(board_.line),
               Select("SPIFIFO"),
               Console("Connecting ...")});
}

Lines ExpanderProgram::Select(const std::string& route) const {
  if (!IsPyx()) {
    return {};
  }
  const std::string file =
      std::string("/sys/platform/module_selector/slot") + (board_.slot == 4 ? "A" : "B");
  const std::string open = "open " + file + " O_WRONLY|O_CREAT|O_TRUNC 0666";
  if (const auto error = selectorErrors_.find(route); error != selectorErrors_.end()) {
    // Only pyx1 says so on standard output, and only as it selects the SPI master.
    const bool onStandardOutput = !IsPyx2() && route == "SPIFIFO";
    return Join({{open + " = " + error->second},
                 onStandardOutput ? Console(kNoSelector) : ErrorLine(kNoSelector)});
  }
  return {open, "sleep 100 ms", "write " + file + " \"" + route + "\"", "close " + file};
}

Lines ExpanderProgram::Drive(const std::string& before, const std::string& after) const {
  return {I2c() + "w 02 r " + before, I2c() + "w 02 " + after};
}

Lines ExpanderProgram::ConnectExpander() const {
  return Join({{"open " + Bus() + " O_RDWR"},
               Drive("ff ff", board_.released),
               {I2c() + "w 06 r ff ff", I2c() + "w 06 " + board_.directions},
               IsPyx() ? Lines{} : Console("Connect:101")});
}

Lines ExpanderProgram::TakeFlash() const {
  return Join(
      {IsPyx2() ? Lines{} : Join({{I2c() + "w 00 r " + board_.lines[2]}, Console(kDoneHigh)}),
       Drive(board_.released, board_.routed)});
}

Lines ExpanderProgram::Connect() const {
  return Join({Find(),
               ConnectExpander(),
               TakeFlash(),
               OpenBus(board_.slot),
               Identify("20 ba 18", board_.slot)});
}

Lines ExpanderProgram::Dump() const {
  return Join(
      {Console(IsPyx() ? "Pyx1FlashProgrammer ReadDevice " : "DaxFlashProgrammer ReadDevice "),
       {"open dumpflash.bin O_WRONLY|O_CREAT 0600",
        "spi /dev/spidev" + Slot() + ".0 READ 0x000000 +512",
        "write dumpflash.bin +512"}});
}

Lines ExpanderProgram::NoStamp(const std::string& file) const {
  return Join({{"open " + file + " O_RDONLY"},
               IsPyx() ? ErrorLine("No User Access Register found in file '" + file + "'")
                       : Console("No User Access Register found " + file),
               {"close " + file}});
}

Lines ExpanderProgram::Stamp(const std::string& file, const std::string& text) {
  return Join(
      {{"open " + file + " O_RDONLY"},
       Console("User Access Register found in file " + file + " with Time Stamp :  " + text),
       {"close " + file}});
}

Lines ExpanderProgram::Date(const std::string& file, const std::string& line) {
  return Join({{"open " + file + " O_RDONLY", "close " + file}, Console(line)});
}

Lines ExpanderProgram::Compare(const std::string& flashYear) const {
  return IsPyx2() ? Join({{R"(stdout "\n")"},
                          Date("dumpflash.bin",
                               "Flash header build date: " + flashYear + "-05-06 07:08:09"),
                          Date("image.bin", "Binary  file build date: 2024-05-06 07:08:09")})
                  : Join({Stamp("dumpflash.bin", "06/05/" + flashYear + " 07:08:09"),
                          Stamp("image.bin", "06/05/2024 07:08:09")});
}

Lines ExpanderProgram::BeginRewrite(int bytes) const {
  return Join({Console("Unlocking flash memory ... "),
               {R"(stdout "Erasing device ... ")", "open image.bin O_RDONLY"},
               Erase(SectorsOf(static_cast<std::size_t>(bytes)), board_.slot),
               Console("done."),
               {R"(stdout "Programming device ... ")", "open image.bin O_RDONLY"},
               OpenBus(board_.slot)});
}

Lines ExpanderProgram::Rewrite(int bytes) const {
  return Join(
      {BeginRewrite(bytes), Program(bytes, board_.slot), {"close image.bin"}, Console("done.")});
}

Lines ExpanderProgram::Reset(int polls) const {
  Lines lines = {R"(stdout "Toggling reset ... ")"};
  lines = Join({lines, Drive(board_.routed, board_.inReset)});
  lines = IsPyx2() ? Join({lines, {"sleep 5 s"}, Drive(board_.inReset, board_.letGo)})
                   : Join({lines,
                           {"sleep 10 ms"},
                           Drive(board_.inReset, board_.released),
                           Drive(board_.released, board_.letGo)});
  lines = Join({lines, {I2c() + "w 06 r " + board_.directions, I2c() + "w 06 ff ff"}});
  for (int poll = 0; poll < polls; ++poll) {
    lines.push_back(I2c() + "w 00 r " + board_.lines[poll < 5 ? 0 : 1]);
    lines.emplace_back("sleep 1 ms");
  }
  return lines;
}

Lines ExpanderProgram::Restart() const {
  return IsPyx() ? Join({Reset(20), DoneSeen(), Console("done."), Pcie()}) : CloseCheck();
}

Lines ExpanderProgram::Pcie() const {
  const std::string bus = "0000:0" + Slot();
  const std::string address = "/sys/bus/pci/slots/" + Slot() + "/address";
  const Lines lookUp = {"open " + address + " O_RDONLY",
                        "read " + address + " \"" + bus + ":00\\n\"",
                        "close " + address};
  Lines lines;
  for (const std::string& file : {"/sys/bus/pci/devices/" + bus + ":00.0/remove",
                                  "/sys/class/pci_bus/" + bus + "/rescan",
                                  "/sys/bus/pci/devices/" + bus + ":00.0/enable"}) {
    lines = Join({lines,
                  lookUp,
                  {"open " + file + " O_WRONLY", "write " + file + " \"1\"", "close " + file}});
  }
  return IsPyx() ? lines : Lines{};
}

Lines ExpanderProgram::End(const std::string& directions,
                           const std::string& result,
                           int exitCode) const {
  return Join({{I2c() + "w 06 r " + directions, I2c() + "w 06 ff ff", "close " + Bus()},
               Select("SPILVDS"),
               {"close /dev/spidev" + Slot() + ".0", "close -1"},
               Console(result),
               {"close -1", "exit " + std::to_string(exitCode)}});
}

Lines ExpanderProgram::FlashOutOfReach() const {
  return Join({Find(),
               ConnectExpander(),
               TakeFlash(),
               OpenBus(board_.slot),
               Identify("00 00 00", board_.slot),
               Drive(board_.routed, board_.released),
               Pcie(),
               End(board_.directions, kConnectFailed, 1)});
}

}  // namespace program_test::expander
