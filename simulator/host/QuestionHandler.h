#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/host/ControlFiles.h"
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

/// Answers the questions of programs, with the instrument, and lets it know of the writes that come
/// without a question.
class QuestionHandler {
 public:
  /// @param fast        sleeps do not wait
  /// @param fileEvents  all calls on ordinary files are events
  /// @param instrument  borrowed
  /// @param testbed     borrowed; gets the files of the instrument's attributes and nodes
  /// @param hooks       borrowed
  QuestionHandler(
      bool fast, bool fileEvents, Instrument& instrument, Testbed& testbed, const RunHooks& hooks);

  /// Calls hooks.beforeEvent, which has to call TakeUnseenWrites, and hooks.afterEvent.
  /// @param pending  of the process that asks, one at a time
  LinkReply Handle(const link::Question& question,
                   std::span<const std::uint8_t> payload,
                   PendingCall& pending);

  /// Turns the writes that came without a question into events. One that cannot take effect any
  /// more ends the run.
  void TakeUnseenWrites();

  /// Readable when LookForExcess() is to be called.
  int WatchDescriptor() const { return controls_.Descriptor(); }
  /// Ends the run when so much was written without a question that it could fill the disk.
  void LookForExcess();

 private:
  using File = FileTable::File;
  using Payload = std::span<const std::uint8_t>;

  void Accept(const UnseenWrite& write);
  void UpdateControlFiles();
  void Fail(const std::string& why);
  LinkReply HandleEvent(const link::Question& question, Payload payload, PendingCall& pending);
  LinkReply HandleOpen(const link::Question& question, std::string_view path, PendingCall& pending);
  LinkReply CompleteOpen(const PendingCall& pending, int error);
  LinkReply HandleOpened(const link::Question& question, const PendingCall& pending);
  LinkReply HandleFileCall(const File& file, std::string_view call, PendingCall& pending);
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
  bool fileEvents_;
  Instrument& instrument_;
  ControlFiles controls_;
  FileTable files_;
  const RunHooks& hooks_;
  bool failed_ = false;  // the run has ended: nothing is an event any more
};

}  // namespace orvane
