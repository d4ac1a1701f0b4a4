#include "programmers/ExpanderAddress.h"

#include "programmers/lines/GpioProgrammingInterface.h"

namespace {

constexpr unsigned kModuleAtNextAddress = 5;

}  // namespace

unsigned short ExpanderAddress(GpioProgrammingInterface& lines, unsigned module) {
  // Deliberate: a module in slot 5 has its expander at the next address; fixed and observable; do
  // not change.
  return static_cast<unsigned short>(lines.address() + (module == kModuleAtNextAddress ? 1 : 0));
}
