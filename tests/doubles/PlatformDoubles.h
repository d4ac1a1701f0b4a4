#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/doubles/EventLog.h"

class SerialDeviceInterface;

/// How the instrument's platform library behaves. The source file of this class replaces that
/// library: it defines the members of the four platform classes. Every call is one event, also
/// construction and destruction. One object at a time, which must outlive the objects of the
/// platform classes.
class PlatformDoubles {
 public:
  /// @param log  borrowed
  explicit PlatformDoubles(EventLog& log);
  PlatformDoubles(const PlatformDoubles&) = delete;
  PlatformDoubles& operator=(const PlatformDoubles&) = delete;
  ~PlatformDoubles();

  // System inventory and module resources.
  std::vector<int> locations;
  std::string i2cBus;
  std::string spiDev;

  // PCIe switch.
  bool removed = true;
  bool rescanned = true;
  bool enabled = true;

  // Expander.
  SerialDeviceInterface* expanderBus = nullptr;  ///< of the last one constructed
  bool expanderAnswers = true;
  std::function<unsigned short(unsigned short bits)> port;  ///< of getPort; 0 without

  /// The event that throws std::runtime_error; its text is the event.
  std::string throwAt;

  /// Logs the event, and throws if it is the one above.
  void Happened(const std::string& event);

  static PlatformDoubles* current;

 private:
  EventLog& log_;
};
