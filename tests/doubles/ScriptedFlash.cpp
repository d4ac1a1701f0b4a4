#include "tests/doubles/ScriptedFlash.h"

#include <gtest/gtest.h>
#include <sys/uio.h>

#include <filesystem>

#include "flash/MT25QL128.h"

namespace {

/// @return the name of the file behind a descriptor
std::string FileName(int fd) {
  if (fd < 0) {
    return "descriptor " + std::to_string(fd);
  }
  return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd)).filename();
}

void Happened(const std::string& event) { ScriptedFlash::current->log.Add("flash: " + event); }

}  // namespace

ScriptedFlash* ScriptedFlash::current = nullptr;

ScriptedFlash::ScriptedFlash(EventLog& eventLog) : log(eventLog) { current = this; }

ScriptedFlash::~ScriptedFlash() { current = nullptr; }

MT25QL128::MT25QL128(SPIDev* spi) : spi_(spi) {
  ScriptedFlash::current->spi = spi;
  Happened("construct");
}

MT25QL128::~MT25QL128() { Happened("destroy"); }

int MT25QL128::Connect(bool verbose) {
  Happened(verbose ? "Connect true" : "Connect false");
  return ScriptedFlash::current->connectResult;
}

int MT25QL128::ProgramDevice(int startAddr, std::string file) {
  Happened("ProgramDevice " + std::to_string(startAddr) + " " + file);
  return ScriptedFlash::current->programResult;
}

int MT25QL128::EraseDevice(int startAddr, int length) {
  Happened("EraseDevice " + std::to_string(startAddr) + " " + std::to_string(length) + " bytes");
  return ScriptedFlash::current->eraseResult;
}

int MT25QL128::EraseDevice(int startAddr, std::string file) {
  Happened("EraseDevice " + std::to_string(startAddr) + " " + file);
  return ScriptedFlash::current->eraseResult;
}

int MT25QL128::ReadDevice(int startAddr, int length, int fd) {
  Happened("ReadDevice " + std::to_string(startAddr) + " " + std::to_string(length) + " into " +
           FileName(fd));
  auto& dumps = ScriptedFlash::current->dumps;
  if (dumps.empty()) {
    ADD_FAILURE() << "ReadDevice() without a scripted dump";
    return 5;
  }
  ScriptedFlash::Dump dump = dumps.front();
  dumps.erase(dumps.begin());
  // Around the seam for write(), which is for the programmer's own calls.
  const iovec piece = {.iov_base = dump.contents.data(), .iov_len = dump.contents.size()};
  EXPECT_EQ(::writev(fd, &piece, 1), static_cast<ssize_t>(dump.contents.size()));
  return dump.result;
}

void MT25QL128::Disconnect() { Happened("Disconnect"); }

void MT25QL128::UnlockMemory() { Happened("UnlockMemory"); }
