// Stand in for the expander's and the flash driver's implementation at link time. What a test did
// not ask for shows in its log.
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>

#include "flash/MT25QL128.h"
#include "platform/PCA9535.h"
#include "tests/unit/programmers/expander/ExpanderLog.h"
#include "tests/unit/programmers/expander/ExpanderScript.h"

namespace {

void Log(const std::string& event) { ExpanderLog::Instance().Add(event); }

std::string Hex(unsigned value, int digits) {
  char text[16];
  static_cast<void>(std::snprintf(text, sizeof text, "0x%0*X", digits, value));
  return text;
}

std::string Word(unsigned short value) { return " " + Hex(value, 4); }

std::string FileNumber(int fd) {
  const auto& files = ExpanderScript::Current()->openFiles;
  const auto file = files.find(fd);
  return file == files.end() ? "closed descriptor" : "#" + std::to_string(file->second);
}

}  // namespace

PCA9535::PCA9535(SerialDeviceInterface* bus, unsigned char /*flags*/) : bus_(bus) {}

PCA9535::~PCA9535() { static_cast<void>(bus_); }

bool PCA9535::connect(unsigned char address,
                      unsigned short direction,
                      unsigned short outputs,
                      unsigned short mask,
                      unsigned char flags) {
  Log("expander.connect " + Hex(address, 2) + Word(direction) + Word(outputs) + Word(mask) + " " +
      std::to_string(flags));
  auto& results = ExpanderScript::Current()->connectResults;
  if (results.empty()) {
    return true;
  }
  const bool result = results.front();
  results.erase(results.begin());
  return result;
}

void PCA9535::setPortActually(unsigned short outputs, unsigned short mask) {
  Log("expander.setPortActually" + Word(outputs) + Word(mask));
}

unsigned short PCA9535::getPort(unsigned short bits) {
  ExpanderScript& script = *ExpanderScript::Current();
  ++script.polls;
  if (script.logsPolls) {
    Log("expander.getPort" + Word(bits));
  }
  return script.port ? script.port(bits) : static_cast<unsigned short>(0);
}

void PCA9535::disconnect(unsigned short mask) {
  Log("expander.disconnect" + Word(mask));
  if (ExpanderScript::Current()->disconnectThrows) {
    throw std::runtime_error("disconnect");
  }
}

MT25QL128::MT25QL128(SPIDev* spi) : spi_(spi) {
  Log(spi_ == ExpanderScript::Current()->spi ? "flash.create" : "flash.create over another device");
}

MT25QL128::~MT25QL128() { Log("flash.destroy"); }

int MT25QL128::Connect(bool verbose) {
  Log(verbose ? "flash.Connect true" : "flash.Connect false");
  return ExpanderScript::Current()->flashConnect;
}

int MT25QL128::ProgramDevice(int startAddr, std::string file) {
  Log("flash.ProgramDevice " + std::to_string(startAddr) + " " + file);
  return ExpanderScript::Current()->flashProgram;
}

int MT25QL128::EraseDevice(int startAddr, int length) {
  Log("flash.EraseDevice " + std::to_string(startAddr) + " length " + std::to_string(length));
  return ExpanderScript::Current()->flashErase;
}

int MT25QL128::EraseDevice(int startAddr, std::string file) {
  Log("flash.EraseDevice " + std::to_string(startAddr) + " " + file);
  return ExpanderScript::Current()->flashErase;
}

int MT25QL128::ReadDevice(int startAddr, int length, int fd) {
  ExpanderScript& script = *ExpanderScript::Current();
  Log("flash.ReadDevice " + std::to_string(startAddr) + " " + std::to_string(length) + " " +
      FileNumber(fd));
  if (::write(fd, script.flashHead.data(), script.flashHead.size()) !=
      static_cast<ssize_t>(script.flashHead.size())) {
    Log("flash.ReadDevice could not write");
  }
  return script.flashRead;
}

void MT25QL128::Disconnect() { Log("flash.Disconnect"); }

void MT25QL128::UnlockMemory() { Log("flash.UnlockMemory"); }
