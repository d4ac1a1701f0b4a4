#include "tests/doubles/ScriptedSerialDevice.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/doubles/KernelCall.h"

namespace {

using Bytes = ScriptedSerialDevice::Bytes;
using Step = ScriptedSerialDevice::Step;

std::string Words(const Bytes& bytes) { return "{" + kernel::Hex(bytes) + "}"; }

std::string OpenCall(std::uint8_t address) { return "open " + Words({address}); }

std::string SendCall(const Bytes& tx) { return "write " + Words(tx); }

std::string AskCall(const Bytes& tx, std::size_t rxLen) {
  return "write " + Words(tx) + " and read " + std::to_string(rxLen);
}

constexpr char kCloseCall[] = "close";
constexpr char kIsOpenCall[] = "is_open";

/// A null pointer sends nothing, whatever the length says.
Bytes Copy(const std::uint8_t* tx, std::size_t txLen) {
  return tx == nullptr ? Bytes() : Bytes(tx, tx + txLen);
}

}  // namespace

ScriptedSerialDevice::~ScriptedSerialDevice() { Verify(); }

void ScriptedSerialDevice::Expect(const std::vector<Step>& steps) {
  script_.insert(script_.end(), steps.begin(), steps.end());
}

void ScriptedSerialDevice::Verify() {
  for (const Step& step : script_) {
    ADD_FAILURE() << "missing: " << step.call;
  }
  script_.clear();
}

bool ScriptedSerialDevice::is_open() {
  Step step;
  return Take(kIsOpenCall, step) && step.result != 0;
}

int ScriptedSerialDevice::open(std::uint8_t address) {
  Step step;
  return Take(OpenCall(address), step) ? step.result : -1;
}

void ScriptedSerialDevice::close() {
  Step step;
  static_cast<void>(Take(kCloseCall, step));  // has no result
}

int ScriptedSerialDevice::read(std::uint8_t* rx,
                               std::size_t rxLen,
                               std::uint8_t* tx,
                               std::size_t txLen) {
  Step step;
  if (!Take(AskCall(Copy(tx, txLen), rxLen), step)) {
    return 0;
  }
  std::copy(step.rx.begin(), step.rx.end(), rx);
  return step.result;
}

int ScriptedSerialDevice::write(std::uint8_t* tx, std::size_t txLen) {
  Step step;
  return Take(SendCall(Copy(tx, txLen)), step) ? step.result : 0;
}

bool ScriptedSerialDevice::Take(const std::string& call, Step& step) {
  if (script_.empty()) {
    ADD_FAILURE() << "called:   " << call << "\nexpected: nothing more";
    return false;
  }
  if (script_.front().call != call) {
    ADD_FAILURE() << "called:   " << call << "\nexpected: " << script_.front().call;
    return false;
  }
  step = script_.front();
  script_.pop_front();
  return true;
}

Step Opens(std::uint8_t address, int result) { return {OpenCall(address), {}, result}; }

Step Closes() { return {kCloseCall, {}, 0}; }

Step AsksWhetherOpen(bool open) { return {kIsOpenCall, {}, open ? 1 : 0}; }

Step Send(const Bytes& tx) { return SendReturns(tx, static_cast<int>(tx.size())); }

Step SendReturns(const Bytes& tx, int result) { return {SendCall(tx), {}, result}; }

Step Ask(const Bytes& tx, const Bytes& rx) {
  return AskReturns(tx, rx, static_cast<int>(rx.size()));
}

Step AskReturns(const Bytes& tx, const Bytes& rx, int result) {
  return {AskCall(tx, rx.size()), rx, result};
}
