#include "tests/unit/programmers/expander/ExpanderLog.h"

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <utility>

ExpanderLog& ExpanderLog::Instance() {
  static ExpanderLog log;
  return log;
}

ExpanderLog::Recording::Recording() { Instance().Start(); }

ExpanderLog::Recording::~Recording() { Instance().Stop(); }

void ExpanderLog::Add(const std::string& event) {
  if (recording_) {
    TakeConsole();
    events_.push_back(event);
  }
}

ExpanderLog::Events ExpanderLog::Take() { return std::exchange(events_, {}); }

void ExpanderLog::Start() {
  static_cast<void>(std::fflush(stdout));
  for (Console& console : consoles_) {
    console.taken = 0;
    console.original = ::dup(console.descriptor);
    console.file = ::memfd_create("console", MFD_CLOEXEC);
    ::dup2(console.file, console.descriptor);
  }
  recording_ = true;
}

void ExpanderLog::Stop() {
  if (!recording_) {
    return;
  }
  TakeConsole();
  static_cast<void>(std::fflush(stdout));
  TakeConsole("unflushed| ");
  recording_ = false;
  for (const Console& console : consoles_) {
    ::dup2(console.original, console.descriptor);
    ::close(console.original);
    ::close(console.file);
  }
}

void ExpanderLog::TakeConsole(const char* label) {
  for (Console& console : consoles_) {
    std::string text;
    std::array<char, 4096> part{};
    for (ssize_t count = 0;
         (count = ::pread(console.file, part.data(), part.size(), console.taken)) > 0;
         console.taken += count) {
      text.append(part.data(), static_cast<std::size_t>(count));
    }
    if (!text.empty()) {
      events_.push_back((label != nullptr ? label : console.label) + text);
    }
  }
}
