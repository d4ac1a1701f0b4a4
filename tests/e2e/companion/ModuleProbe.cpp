// ModuleProbe TARGET SLOT OPERATION [ARGUMENT] is run on the virtual instrument. It does one
// operation of companion::Module and prints what came of it, one value a line; a value that is empty
// has no line.
//   find, read BYTES, compare FILE, head FILE, use, lock, give-back
//   stop BYTES: read, and stop as soon as something is read; die BYTES: likewise, with SIGKILL
// read and compare write what they read to the file "contents".

#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "app/Targets.h"
#include "companion/module/Module.h"
#include "companion/process/SignalWatch.h"

namespace {

using namespace companion;

std::vector<std::uint8_t> Slurp(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void Print(const char* label, const std::string& text) {
  if (!text.empty()) {
    std::cout << label << ' ' << text << std::endl;
  }
}

void Print(const Problem& problem) {
  Print("problem", problem.text);
  if (problem) {
    std::cerr << problem.console << std::flush;
  }
}

const char* Word(DoneLine done) {
  return done == DoneLine::kHigh ? "high" : done == DoneLine::kLow ? "low" : "unknown";
}

std::string Word(Endpoint endpoint) {
  switch (endpoint) {
    case Endpoint::kNone:
      return "";
    case Endpoint::kNotListed:
      return "not listed";
    case Endpoint::kUnknown:
      return "unknown";
    case Endpoint::kAbsent:
      return "absent";
    case Endpoint::kDisabled:
      return "disabled";
    case Endpoint::kEnabled:
      return "enabled";
  }
  return "";
}

std::string Describe(const Chip& chip) {
  char text[64];
  static_cast<void>(std::snprintf(text,
                                  sizeof text,
                                  "%02x%02x%02x status %02x%s%s",
                                  unsigned{chip.id[0]},
                                  unsigned{chip.id[1]},
                                  unsigned{chip.id[2]},
                                  unsigned{chip.status},
                                  chip.IsProtected() ? " protected" : "",
                                  chip.IsLockedWhole() ? " whole" : ""));
  return text;
}

std::string Describe(const Difference& difference) {
  char text[64];
  static_cast<void>(std::snprintf(text,
                                  sizeof text,
                                  "0x%06x expected %02x found %02x pages %zu",
                                  unsigned{difference.firstAddress},
                                  unsigned{difference.expected},
                                  unsigned{difference.found},
                                  difference.pages));
  return text;
}

/// One operation on one module. The first stop signal stops it.
struct Probe {
  SignalWatch signals;
  Module module;
  ModuleNames names;
  std::string argument;

  Probe(const Target& target, unsigned slot, std::string word)
      : module(target, slot, signals, OtherLines::kAsFound), argument(std::move(word)) {
    signals.OnStop([this](int, int) { module.Stop(); });
  }

  void Report(const ModuleReading& reading) {
    Print(reading.problem);
    Print("chip", reading.problem ? "" : Describe(reading.chip));
    Print("done", std::string(Word(reading.done)) + ' ' + Word(reading.doneAfter));
    Print("ps-mode", reading.psMode ? "yes" : "");
    Print("endpoint", Word(reading.endpoint));
    Print("difference", reading.difference ? Describe(*reading.difference) : "");
    Print("unsteady", reading.unsteadyAddress ? std::to_string(*reading.unsteadyAddress) : "");
    Print("read-again",
          reading.blocksReadAgain != 0 ? std::to_string(reading.blocksReadAgain) : "");
    Print("not-given-back", reading.notGivenBack.text);
    std::ofstream("contents", std::ios::binary)
        .write(reinterpret_cast<const char*>(reading.contents.data()),
               static_cast<std::streamsize>(reading.contents.size()));
  }

  void Read() { Report(module.Read(names, std::stoul(argument), {}, {})); }
  void Compare() {
    const std::vector<std::uint8_t> expected = Slurp(argument);
    Report(module.Read(names, expected.size(), expected, {}));
  }
  void ReadUntil(const Module::Progress& progress) {
    Report(module.Read(names, std::stoul(argument), {}, progress));
  }
  void Stop() {
    ReadUntil([this](std::size_t, std::size_t) { module.Stop(); });
  }
  void Die() {
    ReadUntil([](std::size_t, std::size_t) { ::raise(SIGKILL); });
  }
  void Head() { Print(module.WriteHead(names, Slurp(argument))); }
  void Use() {
    const IntoUse use = module.TakeIntoUse(names);
    Print(use.problem);
    Print("done", std::string(Word(use.done)) + (use.seenLow ? " seen-low" : ""));
    Print("endpoint", Word(use.endpoint));
    Print("not-given-back", use.notGivenBack.text);
  }
  void Lock() { Print(module.Lock(names)); }
  void GiveBack() { Print(module.GiveBack(names)); }
  void Find() { Print("names", names.i2cBus + ' ' + names.spiDev); }
};

const std::map<std::string, void (Probe::*)()> kOperations = {{"find", &Probe::Find},
                                                              {"read", &Probe::Read},
                                                              {"compare", &Probe::Compare},
                                                              {"head", &Probe::Head},
                                                              {"use", &Probe::Use},
                                                              {"lock", &Probe::Lock},
                                                              {"stop", &Probe::Stop},
                                                              {"die", &Probe::Die},
                                                              {"give-back", &Probe::GiveBack}};

}  // namespace

int main(int argc, char** argv) {
  const Target* const target = argc < 4 ? nullptr : FindTarget(argv[1]);
  if (target == nullptr || !kOperations.contains(argv[3])) {
    std::cerr << "usage: ModuleProbe TARGET SLOT OPERATION [ARGUMENT]" << std::endl;
    return 2;
  }
  Probe probe(*target, static_cast<unsigned>(std::stoul(argv[2])), argc > 4 ? argv[4] : "");
  const Problem problem = probe.module.Find(probe.names);
  Print(problem);
  if (problem) {
    return 1;
  }
  if (!probe.names.populated) {
    std::cout << "not populated" << std::endl;
    return 1;
  }
  (probe.*kOperations.at(argv[3]))();
  return 0;
}
