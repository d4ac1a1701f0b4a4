#include "simulator/timing/ByteClock.h"

namespace orvane {

namespace {

class StillClock : public ByteClock {
 public:
  void Pass(std::size_t /*bytes*/) override {}
};

}  // namespace

ByteClock& ByteClock::Still() {
  static StillClock clock;
  return clock;
}

}  // namespace orvane
