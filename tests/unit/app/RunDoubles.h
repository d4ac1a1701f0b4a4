#pragma once

#include <map>
#include <string>

#include "programmers/FpgaProgrammerInterface.h"
#include "tests/doubles/EventLog.h"

class I2CDev;
class SPIDev;

/// How the serial devices and the programmers of a run behave: its source file defines the members
/// of I2CDev, SPIDev and the four programmers. Every call is one event, construction and
/// destruction included.
class RunDoubles {
 public:
  explicit RunDoubles(EventLog& eventLog);
  RunDoubles(const RunDoubles&) = delete;
  RunDoubles& operator=(const RunDoubles&) = delete;
  ~RunDoubles();

  using Status = FpgaProgrammerInterface::Status;

  /// The bus of channel 0 behind each bus that has a multiplexer.
  std::map<std::string, std::string> muxChannels;

  Status connectResult = FpgaProgrammerInterface::Success;
  Status programResult = FpgaProgrammerInterface::Success;
  bool connectDestroysTheSpiDevice = false;
  bool unreadableHeader = false;

  I2CDev* i2c = nullptr;            // the last one constructed
  SPIDev* spi = nullptr;            // the last one constructed
  SPIDev* programmerSpi = nullptr;  // what the programmer was given
  EventLog& log;

  static RunDoubles* current;
};
