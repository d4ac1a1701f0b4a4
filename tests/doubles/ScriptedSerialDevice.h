#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "devices/SerialDeviceInterface.h"

/// A serial device that follows a script of calls. A call that is not the next one of the script
/// fails the test, shows both, moves no data and returns failure; the script then still expects the
/// same call. Calls that are left in the script at the end fail the test, too.
///   bus.Expect({Opens(0x20, 3), Ask({0x02}, {0x34, 0x12}), Send({0x02, 0x00, 0x00}), Closes()});
class ScriptedSerialDevice : public SerialDeviceInterface {
 public:
  using Bytes = std::vector<std::uint8_t>;

  struct Step {
    std::string call;  // the call and the bytes it sends, in words
    Bytes rx;          // what a read receives
    int result;        // what the call returns
  };

  ScriptedSerialDevice() = default;
  ~ScriptedSerialDevice() override;

  /// Adds to the end of the script.
  void Expect(const std::vector<Step>& steps);

  /// Fails the test when the script is not at its end, and empties it.
  void Verify();

  bool is_open() override;
  int open(std::uint8_t address) override;
  void close() override;
  int read(std::uint8_t* rx, std::size_t rxLen, std::uint8_t* tx, std::size_t txLen) override;
  int write(std::uint8_t* tx, std::size_t txLen) override;

 private:
  /// Takes the next step when it is `call`.
  /// @param[out] step  untouched when it is not
  bool Take(const std::string& call, Step& step);

  std::deque<Step> script_;
};

/// open(address), which returns `result`.
ScriptedSerialDevice::Step Opens(std::uint8_t address, int result);

/// close().
ScriptedSerialDevice::Step Closes();

/// is_open(), which returns `open`.
ScriptedSerialDevice::Step AsksWhetherOpen(bool open);

/// A write of exactly `tx`, which returns its length.
ScriptedSerialDevice::Step Send(const ScriptedSerialDevice::Bytes& tx);

/// A write of exactly `tx`, which returns `result` instead.
ScriptedSerialDevice::Step SendReturns(const ScriptedSerialDevice::Bytes& tx, int result);

/// A read that sends exactly `tx` and asks for as many bytes as `rx` holds, gets them, and returns
/// their number.
ScriptedSerialDevice::Step Ask(const ScriptedSerialDevice::Bytes& tx,
                               const ScriptedSerialDevice::Bytes& rx);

/// The same, which returns `result` instead; the buffer is filled all the same.
ScriptedSerialDevice::Step AskReturns(const ScriptedSerialDevice::Bytes& tx,
                                      const ScriptedSerialDevice::Bytes& rx,
                                      int result);
