#pragma once

#include <string>
#include <vector>

#include "tests/doubles/EventLog.h"

class SerialDeviceInterface;

/// What the platform's services answer: its source file defines the members of the four platform
/// classes. Every call is one event, construction and destruction included.
class PlatformDoubles {
 public:
  explicit PlatformDoubles(EventLog& log);
  PlatformDoubles(const PlatformDoubles&) = delete;
  PlatformDoubles& operator=(const PlatformDoubles&) = delete;
  ~PlatformDoubles();

  std::vector<int> locations;
  std::string i2cBus;
  std::string spiDev;
  bool removed = true;
  bool rescanned = true;
  bool enabled = true;

  /// The event that throws std::runtime_error, its text being the event.
  std::string throwAt;

  /// The bus that the last expander was constructed with.
  SerialDeviceInterface* expanderBus = nullptr;

  /// Logs the event, and throws where that is asked for.
  void Happened(const std::string& event);

  static PlatformDoubles* current;

 private:
  EventLog& log_;
};
