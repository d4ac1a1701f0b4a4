#include "simulator/host/QuestionHandler.h"

#include <fcntl.h>
#include <linux/spi/spidev.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <exception>
#include <string>
#include <utility>

#include "simulator/host/OpenFlags.h"
#include "simulator/instrument/ErrnoName.h"
#include "simulator/shim/PlainPath.h"
#include "simulator/shim/ReportFilter.h"

namespace orvane {

namespace {

using link::Action;
using link::Answer;
using link::Kind;
using link::Op;
using link::Question;

static_assert(kMaxSpiMessageBytes == link::kMaxPayloadBytes);  // what the link carries can be done

std::string_view Characters(std::span<const std::uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// The structs that a payload starts with.
template <typename T>
std::vector<T> CopyStructs(std::span<const std::uint8_t> payload, std::size_t count) {
  std::vector<T> structs(std::min(count, payload.size() / sizeof(T)));
  if (!structs.empty()) {
    std::memcpy(structs.data(), payload.data(), structs.size() * sizeof(T));
  }
  return structs;
}

/// The answer for an event that the instrument has carried out.
LinkReply ReplyFor(EventResult result) {
  return {.answer = {.action = Action::kDone, .error = result.error, .result = result.value},
          .payload = std::move(result.bytes),
          .killed = result.killed};
}

/// The answer for an event that ends with a fault, or else with `otherwise`.
LinkReply ReplyFor(const Fault& fault, Answer otherwise) {
  switch (fault.kind) {
    case Fault::Kind::kFail:
      return {.answer = {.action = Action::kDone, .error = fault.error}};
    case Fault::Kind::kKill:
      return {.killed = Killed::kCaller};
    case Fault::Kind::kKillSession:
      return {.killed = Killed::kSession};
    case Fault::Kind::kKillAll:
      return {.killed = Killed::kAll};
    case Fault::Kind::kNone:
    case Fault::Kind::kLose:
    case Fault::Kind::kAnswer:
      break;
  }
  return {.answer = otherwise};
}

/// The name under which a file is known: that of a node or an attribute is plain.
std::string NameOf(const std::string& path) {
  char buffer[kMaxPathBytes];
  const char* const plain = PlainPath(path.c_str(), buffer);
  return IsBelowDevOrSys(plain) ? plain : path;
}

}  // namespace

QuestionHandler::QuestionHandler(
    bool fast, bool fileEvents, Instrument& instrument, Testbed& testbed, const RunHooks& hooks)
    : fast_(fast),
      fileEvents_(fileEvents),
      instrument_(instrument),
      controls_(instrument, testbed),
      files_(instrument, testbed, controls_),
      hooks_(hooks) {}

void QuestionHandler::TakeUnseenWrites() {
  try {
    for (const UnseenWrite& write : controls_.TakeWrites()) {
      if (failed_) {
        return;
      }
      Accept(write);
    }
  } catch (const std::exception& error) {
    Fail(error.what());
  }
}

void QuestionHandler::LookForExcess() {
  try {
    controls_.LookForExcess();
  } catch (const std::exception& error) {
    Fail(error.what());
  }
}

void QuestionHandler::Accept(const UnseenWrite& write) {
  if (instrument_.HasNode(write.path)) {
    Fail("a program wrote to " + write.path +
         " in a way that the instrument cannot see; nothing reached the bus");
    return;
  }
  bool accepted = false;
  if (files_.IsAttribute(write.path)) {
    accepted = instrument_.AcceptWrite(write.path, write.bytes);
  } else {
    const Event event = FileWriteEvent(write.path, static_cast<std::int64_t>(write.bytes.size()));
    accepted = instrument_.Arrive(event).kind == Fault::Kind::kNone;
    if (accepted) {
      instrument_.Complete(event);
    }
  }
  if (!accepted) {
    Fail("a fault rule hit a write to " + write.path +
         " that had happened already; the rule could not take effect");
    return;
  }
  UpdateControlFiles();
}

void QuestionHandler::UpdateControlFiles() {
  try {
    controls_.Update();
  } catch (const std::exception& error) {
    Fail(error.what());
  }
}

void QuestionHandler::Fail(const std::string& why) {
  failed_ = true;
  hooks_.fail(why);
}

LinkReply QuestionHandler::Handle(const Question& question, Payload payload, PendingCall& pending) {
  // A result belongs to the event before it: console output since then stands after it in the log.
  if (question.op == Op::kOpened || question.op == Op::kFileCalled) {
    return HandleOpened(question, pending);
  }
  if (question.op == Op::kWritten) {
    return HandleWritten(question, pending);
  }
  hooks_.beforeEvent();
  if (failed_) {
    return {.killed = Killed::kCaller};
  }
  LinkReply reply = HandleEvent(question, payload, pending);
  if (question.op == Op::kWrite || question.op == Op::kSleep) {
    UpdateControlFiles();
  }
  hooks_.afterEvent(question.op == Op::kSleep && reply.answer.action == Action::kProceed);
  return reply;
}

LinkReply QuestionHandler::HandleEvent(const Question& question,
                                       Payload payload,
                                       PendingCall& pending) {
  const File& file = files_.At(question.handle);
  switch (question.op) {
    case Op::kOpenAt:
      if (!fileEvents_) {
        return {};
      }
      [[fallthrough]];
    case Op::kOpen:
      return HandleOpen(question, Characters(payload), pending);
    case Op::kClose:
      return HandleClose(question, file);
    case Op::kFileCall:
      return HandleFileCall(file, Characters(payload), pending);
    case Op::kRead:
      return HandleRead(question, file);
    case Op::kWrite:
      return HandleWrite(question, file, payload, pending);
    case Op::kSpi:
      return HandleSpi(question, file, payload);
    case Op::kI2c:
      return HandleI2c(question, file, payload);
    case Op::kIoctl:
      return HandleIoctl(question, file, payload);
    case Op::kSleep:
      return HandleSleep(question);
    case Op::kRefused:
      hooks_.fail(std::string(Characters(payload)));
      return {.killed = Killed::kCaller};
    case Op::kOpened:
    case Op::kWritten:
    case Op::kFileCalled:
    case Op::kSync:  // the writes before it have been taken
      break;
  }
  return {};
}

LinkReply QuestionHandler::HandleOpen(const Question& question,
                                      std::string_view path,
                                      PendingCall& pending) {
  const auto flags = static_cast<int>(question.a);
  pending.event = OpenEvent(path, OpenFlagsText(flags, static_cast<unsigned>(question.b)));
  const Fault fault = instrument_.Arrive(pending.event);
  if (fault.kind != Fault::Kind::kNone) {
    return ReplyFor(fault, {});
  }
  if (path.size() >= kMaxPathBytes) {
    return CompleteOpen(pending, ENAMETOOLONG);
  }
  const std::uint32_t handle = files_.HandleFor(NameOf(std::string(path)));
  const File& file = files_.At(handle);
  const FileTable::Place place = files_.Locate(file, flags);
  if (place.error != 0) {
    return CompleteOpen(pending, place.error);
  }
  const bool mustBeNew = (flags & O_CREAT) != 0 && (flags & O_EXCL) != 0;
  if (mustBeNew && file.kind != Kind::kFile) {
    return CompleteOpen(pending, EEXIST);
  }
  return {.answer = {.action = place.realPath.empty() ? Action::kProceed : Action::kProceedAt,
                     .result = place.addedFlags,
                     .handle = handle,
                     .kind = file.kind},
          .payload = {place.realPath.begin(), place.realPath.end()}};
}

LinkReply QuestionHandler::CompleteOpen(const PendingCall& pending, int error) {
  instrument_.Complete(pending.event, ErrnoName(error));
  return {.answer = {.action = Action::kDone, .error = error}};
}

LinkReply QuestionHandler::HandleOpened(const Question& question, const PendingCall& pending) {
  const auto error = static_cast<int>(question.a);
  instrument_.Complete(pending.event, error == 0 ? "" : ErrnoName(error));
  return {};
}

LinkReply QuestionHandler::HandleFileCall(const File& file,
                                          std::string_view call,
                                          PendingCall& pending) {
  constexpr std::uint32_t kIsEvent = link::kNoHandle + 1;
  if (!fileEvents_) {
    return {};
  }
  pending.event =
      FileEvent(file.path.empty() ? std::string(call) : std::string(call) + " " + file.path);
  return ReplyFor(instrument_.Arrive(pending.event), {.handle = kIsEvent});
}

LinkReply QuestionHandler::HandleClose(const Question& question, const File& file) {
  const Event event =
      question.handle == link::kNoHandle ? CloseEvent(question.a) : CloseEvent(file.path);
  const Fault fault = instrument_.Arrive(event);
  if (fault.kind == Fault::Kind::kNone) {
    instrument_.Complete(event);
  }
  return ReplyFor(fault, {.action = Action::kProceed});
}

LinkReply QuestionHandler::HandleRead(const Question& question, const File& file) {
  const auto count = static_cast<std::size_t>(question.a);
  if (file.kind == Kind::kSysfs) {
    return ReplyFor(instrument_.ReadFile(
        file.path, files_.Contents(file.path), static_cast<std::size_t>(question.b), count));
  }
  // A plain read of an SPI device is a message that only receives.
  const std::array transfers = {
      SpiTransfer{.length = static_cast<std::uint32_t>(std::min<std::size_t>(count, UINT32_MAX)),
                  .receives = true}};
  return ReplyFor(instrument_.SubmitSpi(
      file.path,
      {.transfers = transfers, .sent = std::span<const std::uint8_t>(), .isPlain = true}));
}

LinkReply QuestionHandler::HandleWrite(const Question& question,
                                       const File& file,
                                       Payload bytes,
                                       PendingCall& pending) {
  switch (file.kind) {
    case Kind::kDevice: {
      // A plain write to an SPI device is a message that only sends.
      const std::array transfers = {
          SpiTransfer{.length = static_cast<std::uint32_t>(question.a), .sends = true}};
      SpiMessage message{.transfers = transfers, .isPlain = true};
      if (question.b == 0) {
        message.sent = bytes;
      }
      return ReplyFor(instrument_.SubmitSpi(file.path, message));
    }
    case Kind::kSysfs:
      if (files_.IsAttribute(file.path)) {
        return ReplyFor(instrument_.WriteAttribute(file.path, Characters(bytes)));
      }
      break;
    case Kind::kFile:
      break;
  }
  pending = {.event = FileWriteEvent(file.path, question.a), .bytes = question.a};
  const Fault fault = instrument_.Arrive(pending.event);
  // An attribute that was removed: what reached its sink would count as a second write.
  const bool isRemoved = files_.CanBeAttribute(file.path);
  if (isRemoved && fault.kind == Fault::Kind::kNone) {
    instrument_.Complete(pending.event);
  }
  const bool isDone = isRemoved || fault.kind == Fault::Kind::kLose;
  return ReplyFor(fault,
                  {.action = isDone ? Action::kDone : Action::kProceed, .result = question.a});
}

LinkReply QuestionHandler::HandleWritten(const Question& question, const PendingCall& pending) {
  std::string result;
  if (question.a < 0) {
    result = ErrnoName(static_cast<int>(-question.a));
  } else if (question.a != pending.bytes) {
    result = std::to_string(question.a);  // less than was asked for
  }
  instrument_.Complete(pending.event, result);
  return {};
}

LinkReply QuestionHandler::HandleSpi(const Question& question, const File& file, Payload payload) {
  const auto wire = CopyStructs<link::SpiTransfer>(payload, static_cast<std::size_t>(question.a));
  std::vector<SpiTransfer> transfers;
  transfers.reserve(wire.size());
  for (const link::SpiTransfer& transfer : wire) {
    transfers.push_back({.length = transfer.length,
                         .speedHz = transfer.speedHz,
                         .bitsPerWord = transfer.bitsPerWord,
                         .changesChipSelect = transfer.chipSelectChange != 0,
                         .sends = transfer.sends != 0,
                         .receives = transfer.receives != 0});
  }
  SpiMessage message{.transfers = transfers};
  if (question.b == 0) {
    message.sent = payload.subspan(wire.size() * sizeof(link::SpiTransfer));
  }
  return ReplyFor(instrument_.SubmitSpi(file.path, message));
}

LinkReply QuestionHandler::HandleI2c(const Question& question, const File& file, Payload payload) {
  const auto wire = CopyStructs<link::I2cMessage>(payload, static_cast<std::size_t>(question.a));
  std::vector<I2cMessage> messages;
  messages.reserve(wire.size());
  for (const link::I2cMessage& message : wire) {
    messages.push_back(
        {.address = message.address, .length = message.length, .reads = message.reads != 0});
  }
  return ReplyFor(instrument_.SubmitI2c(
      file.path, messages, payload.subspan(wire.size() * sizeof(link::I2cMessage))));
}

LinkReply QuestionHandler::HandleIoctl(const Question& question, const File& file, Payload bytes) {
  constexpr struct {
    std::uint32_t read;
    std::uint32_t write;
    SpiSetting setting;
  } kRequests[] = {
      {SPI_IOC_RD_MODE, SPI_IOC_WR_MODE, SpiSetting::kMode},
      {SPI_IOC_RD_LSB_FIRST, SPI_IOC_WR_LSB_FIRST, SpiSetting::kLsbFirst},
      {SPI_IOC_RD_BITS_PER_WORD, SPI_IOC_WR_BITS_PER_WORD, SpiSetting::kBitsPerWord},
      {SPI_IOC_RD_MAX_SPEED_HZ, SPI_IOC_WR_MAX_SPEED_HZ, SpiSetting::kMaxSpeedHz},
      {SPI_IOC_RD_MODE32, SPI_IOC_WR_MODE32, SpiSetting::kMode32},
  };
  const auto request = static_cast<std::uint32_t>(question.a);
  for (const auto& row : kRequests) {
    if (request == row.read) {
      LinkReply reply = ReplyFor(instrument_.ReadSetting(file.path, row.setting));
      reply.payload.resize(reply.answer.error == 0 ? _IOC_SIZE(request) : 0);
      return reply;
    }
    if (request == row.write) {
      std::uint32_t value = 0;
      std::memcpy(&value, bytes.data(), std::min(bytes.size(), sizeof value));
      return ReplyFor(instrument_.WriteSetting(file.path, row.setting, value));
    }
  }
  return ReplyFor(instrument_.RefuseRequest(file.path, request));
}

LinkReply QuestionHandler::HandleSleep(const Question& question) {
  LinkReply reply = ReplyFor(instrument_.Sleep(std::chrono::nanoseconds(question.a)));
  if (!fast_ && reply.answer.error == 0) {
    reply.answer.action = Action::kProceed;
  }
  return reply;
}

}  // namespace orvane
