#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "simulator/host/FileTable.h"
#include "simulator/host/RunHooks.h"
#include "simulator/host/Testbed.h"
#include "simulator/instrument/Event.h"
#include "simulator/instrument/EventResult.h"
#include "simulator/instrument/Instrument.h"
#include "simulator/shim/LinkProtocol.h"

namespace orvane {

/// An event whose real call the program makes. It ends when the program reports the result.
struct PendingCall {
  Event event{};
  std::int64_t bytes = 0;  // of a write: how many the program asked for
};

/// What is sent back to a program: nothing when it is to be killed, alone or with all others.
struct LinkReply {
  link::Answer answer{};
  std::vector<std::uint8_t> payload;
  Killed killed = Killed::kNo;
};

/// Answers the questions of programs, with the instrument.
class QuestionHandler {
 public:
  /// @param fast        sleeps do not wait
  /// @param instrument  borrowed
  /// @param testbed     borrowed; gets the files of the instrument's attributes
  /// @param hooks       borrowed
  QuestionHandler(bool fast, Instrument& instrument, Testbed& testbed, const RunHooks& hooks);

  /// @param pending  of the process that asks, one at a time
  LinkReply Handle(const link::Question& question,
                   std::span<const std::uint8_t> payload,
                   PendingCall& pending);

 private:
  using File = FileTable::File;
  using Payload = std::span<const std::uint8_t>;

  LinkReply HandleEvent(const link::Question& question, Payload payload, PendingCall& pending);
  LinkReply HandleOpen(const link::Question& question, std::string_view path, PendingCall& pending);
  LinkReply HandleOpened(const link::Question& question, const PendingCall& pending);
  LinkReply HandleClose(const link::Question& question, const File& file);
  LinkReply HandleRead(const link::Question& question, const File& file);
  LinkReply HandleWrite(const link::Question& question,
                        const File& file,
                        Payload bytes,
                        PendingCall& pending);
  LinkReply HandleWritten(const link::Question& question, const PendingCall& pending);
  LinkReply HandleSpi(const link::Question& question, const File& file, Payload payload);
  LinkReply HandleI2c(const link::Question& question, const File& file, Payload payload);
  LinkReply HandleIoctl(const link::Question& question, const File& file, Payload bytes);
  LinkReply HandleSleep(const link::Question& question);

  bool fast_;
  Instrument& instrument_;
  FileTable files_;
  const RunHooks& hooks_;
};

}  // namespace orvane
