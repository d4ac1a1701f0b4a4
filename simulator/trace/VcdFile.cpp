#include "simulator/trace/VcdFile.h"

namespace orvane {

namespace {

/// The short name of a signal in the file: printable characters, the first digit is the lowest.
std::string CodeOf(std::size_t number) {
  constexpr char kFirst = '!';
  constexpr std::size_t kCharacters = '~' - kFirst + 1;
  std::string code;
  do {
    code += static_cast<char>(kFirst + number % kCharacters);
    number /= kCharacters;
  } while (number > 0);
  return code;
}

}  // namespace

VcdFile::VcdFile(std::ostream& out) : out_(out) {
  out_ << "$version orvane-sim $end\n$timescale 1 ns $end\n";
}

void VcdFile::AddScope(std::string_view name) {
  EndScope();
  out_ << "$scope module " << name << " $end\n";
  isInScope_ = true;
}

VcdFile::Signal VcdFile::AddSignal(std::string_view name, bool high) {
  signals_.push_back({.code = CodeOf(signals_.size()), .high = high});
  out_ << "$var wire 1 " << signals_.back().code << ' ' << name << " $end\n";
  return signals_.size() - 1;
}

void VcdFile::Start() {
  EndScope();
  out_ << "$enddefinitions $end\n";
  Stamp(std::chrono::nanoseconds(0));
  out_ << "$dumpvars\n";
  for (const State& signal : signals_) {
    WriteLevel(signal);
  }
  out_ << "$end\n";
}

void VcdFile::Set(Signal signal, bool high, std::chrono::nanoseconds at) {
  State& state = signals_[signal];
  if (state.high == high) {
    return;
  }
  state.high = high;
  Stamp(at);
  WriteLevel(state);
}

void VcdFile::End(std::chrono::nanoseconds at) {
  Stamp(stamp_ == at ? at + std::chrono::nanoseconds(1) : at);
}

void VcdFile::Stamp(std::chrono::nanoseconds at) {
  if (stamp_ != at) {
    out_ << '#' << at.count() << '\n';
    stamp_ = at;
  }
}

void VcdFile::WriteLevel(const State& signal) {
  out_ << (signal.high ? '1' : '0') << signal.code << '\n';
}

void VcdFile::EndScope() {
  if (isInScope_) {
    out_ << "$upscope $end\n";
  }
  isInScope_ = false;
}

}  // namespace orvane
