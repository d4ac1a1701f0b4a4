#include "programmers/ModuleSelector.h"

#include <time.h>

#include <cerrno>
#include <fstream>
#include <iostream>

namespace module_selector {

namespace {

constexpr int kSlotA = 4;
constexpr const char* kSlotAPath = "/sys/platform/module_selector/slotA";
constexpr const char* kSlotBPath = "/sys/platform/module_selector/slotB";

constexpr int kMaxAttempts = 21;
constexpr timespec kSettlingTime = {.tv_sec = 0, .tv_nsec = 100'000'000};

/// Sleeps 100 ms; after a signal it sleeps for the rest.
void Settle() {
  timespec remaining = kSettlingTime;
  while (::nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
  }
}

}  // namespace

const char* Path(int module) {
  // Deliberate: module 4 is slot A and every other number slot B, without a range check; fixed and
  // observable; do not change.
  return module == kSlotA ? kSlotAPath : kSlotBPath;
}

bool InsertAndWait(std::ostream& selector, const char* text) {
  for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
    selector << text;  // no newline, no flush: written when the file is closed
    Settle();
    if (!selector.bad()) {
      return !selector.fail();
    }
  }
  return false;
}

int Apply(std::ostream& selector, const Route& route) {
  if (!InsertAndWait(selector, route.text)) {
    std::cerr << route.failureLine << std::endl;
    return -1;
  }
  return 0;
}

int Select(int module, const Route& route, std::ostream& openFailure) {
  std::ofstream selector(Path(module));
  if (selector.fail()) {
    openFailure << "Could not open the module_selector file" << std::endl;
    return -1;
  }
  return Apply(selector, route);  // the text is written when the file is closed on return
}

}  // namespace module_selector
