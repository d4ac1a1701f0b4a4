#include "simulator/host/ShimServer.h"

#include <fcntl.h>
#include <glib-unix.h>
#include <linux/i2c-dev.h>
#include <linux/spi/spidev.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

#include "simulator/host/OpenFlags.h"
#include "simulator/instrument/ErrnoName.h"

namespace orvane {

namespace {

using link::Action;
using link::Answer;
using link::Kind;
using link::Op;
using link::Question;

constexpr int kBacklog = 64;
static_assert(kMaxSpiMessageBytes == link::kMaxPayloadBytes);  // what is sent can be carried out

/// What the program gets from a real machine under these names is no part of the instrument.
bool IsForeignNode(std::string_view path) {
  return path.starts_with("/dev/spidev") || path.starts_with("/dev/i2c-");
}

std::string_view Characters(std::span<const std::uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// The structs in front of a payload.
template <typename T>
std::vector<T> CopyStructs(std::span<const std::uint8_t> payload, std::size_t count) {
  std::vector<T> structs(std::min(count, payload.size() / sizeof(T)));
  if (!structs.empty()) {
    std::memcpy(structs.data(), payload.data(), structs.size() * sizeof(T));
  }
  return structs;
}

}  // namespace

/// One process, and what it is in the middle of.
class ShimServer::Connection {
 public:
  Connection(ShimServer& server, int descriptor) : server_(server), descriptor_(descriptor) {
    ucred peer{};
    socklen_t bytes = sizeof peer;
    if (::getsockopt(descriptor_, SOL_SOCKET, SO_PEERCRED, &peer, &bytes) == 0) {
      process_ = peer.pid;
    }
    source_ = g_unix_fd_add_full(
        G_PRIORITY_HIGH, descriptor_, G_IO_IN, AsSource(OnConnection), this, nullptr);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() {
    g_source_remove(source_);
    ::close(descriptor_);
  }

  static GUnixFDSourceFunc AsSource(int (*function)(int, int, void*)) {
    return reinterpret_cast<GUnixFDSourceFunc>(function);
  }

  ShimServer& Server() const { return server_; }
  int Descriptor() const { return descriptor_; }
  pid_t Process() const { return process_; }
  Pending& PendingEvent() { return pending_; }

  /// Waits for a whole question; the first packet of it is there.
  /// @return false when the process has gone
  bool Receive(Question& question, std::vector<std::uint8_t>& payload) {
    payload.resize(link::kPacketBytes);
    std::array<iovec, 2> pieces = {
        {{&question, sizeof question}, {payload.data(), link::kPacketBytes - sizeof question}}};
    const ssize_t first = Transfer(::recvmsg, pieces.data(), pieces.size());
    if (first < static_cast<ssize_t>(sizeof question) ||
        question.payloadBytes > 2 * link::kMaxPayloadBytes) {
      return false;
    }
    std::size_t have = static_cast<std::size_t>(first) - sizeof question;
    payload.resize(question.payloadBytes);
    while (have < payload.size()) {
      iovec rest = {payload.data() + have, std::min(payload.size() - have, link::kPacketBytes)};
      const ssize_t count = Transfer(::recvmsg, &rest, 1);
      if (count <= 0) {
        return false;
      }
      have += static_cast<std::size_t>(count);
    }
    return true;
  }

  bool Send(Answer answer, std::vector<std::uint8_t>& payload) {
    answer.payloadBytes = payload.size();
    std::size_t sent = std::min(payload.size(), link::kPacketBytes - sizeof answer);
    std::array<iovec, 2> pieces = {{{&answer, sizeof answer}, {payload.data(), sent}}};
    if (Transfer(::sendmsg, pieces.data(), pieces.size()) < 0) {
      return false;
    }
    while (sent < payload.size()) {
      iovec rest = {payload.data() + sent, std::min(payload.size() - sent, link::kPacketBytes)};
      const ssize_t count = Transfer(::sendmsg, &rest, 1);
      if (count <= 0) {
        return false;
      }
      sent += static_cast<std::size_t>(count);
    }
    return true;
  }

 private:
  template <typename Call>
  ssize_t Transfer(Call call, iovec* pieces, std::size_t count) const {
    msghdr message{};
    message.msg_iov = pieces;
    message.msg_iovlen = count;
    ssize_t result = 0;
    do {
      result = call(descriptor_, &message, MSG_NOSIGNAL);
    } while (result < 0 && errno == EINTR);
    return result;
  }

  ShimServer& server_;
  int descriptor_;
  pid_t process_ = -1;
  unsigned source_ = 0;
  Pending pending_;
};

ShimServer::ShimServer(const std::string& path,
                       bool fast,
                       Instrument& instrument,
                       Testbed& testbed,
                       std::function<void()> beforeEvent)
    : fast_(fast),
      instrument_(instrument),
      testbed_(testbed),
      beforeEvent_(std::move(beforeEvent)),
      listener_(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
      files_(1) {  // handle 0 stands for no file
  for (const std::string& attribute : instrument_.AttributePaths()) {
    std::optional<std::string> contents = instrument_.AttributeContents(attribute);
    testbed_.AddFile(attribute, contents.value_or(""));
    mirror_.emplace(attribute, std::move(contents));
  }
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  if (listener_ < 0 ||
      ::bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listener_, kBacklog) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot listen for programs");
  }
  listenerSource_ = g_unix_fd_add_full(
      G_PRIORITY_HIGH, listener_, G_IO_IN, Connection::AsSource(OnListener), this, nullptr);
}

ShimServer::~ShimServer() {
  connections_.clear();
  g_source_remove(listenerSource_);
  ::close(listener_);
}

std::vector<int> ShimServer::ConnectedProcesses() const {
  std::vector<int> processes;
  for (const auto& [descriptor, connection] : connections_) {
    processes.push_back(connection->Process());
  }
  return processes;
}

int ShimServer::OnListener(int /*descriptor*/, int /*condition*/, void* self) {
  static_cast<ShimServer*>(self)->Accept();
  return G_SOURCE_CONTINUE;
}

int ShimServer::OnConnection(int /*descriptor*/, int /*condition*/, void* connection) {
  auto* const from = static_cast<Connection*>(connection);
  from->Server().Serve(*from);  // may end the connection
  return G_SOURCE_CONTINUE;
}

void ShimServer::Accept() {
  const int descriptor = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
  if (descriptor >= 0) {
    connections_.emplace(descriptor, std::make_unique<Connection>(*this, descriptor));
  }
}

void ShimServer::Serve(Connection& connection) {
  Question question{};
  std::vector<std::uint8_t> payload;
  if (!connection.Receive(question, payload)) {
    connections_.erase(connection.Descriptor());
    return;
  }
  Reply reply = Handle(question, payload, connection.PendingEvent());
  if (question.op == Op::kWrite || question.op == Op::kSleep) {
    MirrorAttributes();
  }
  if (reply.killed) {
    ::kill(connection.Process(), SIGKILL);
    return;  // the end of the connection follows
  }
  if (!connection.Send(reply.answer, reply.payload)) {
    connections_.erase(connection.Descriptor());
  }
}

ShimServer::Reply ShimServer::Handle(const Question& question,
                                     std::span<const std::uint8_t> payload,
                                     Pending& pending) {
  // A result belongs to the event before it: what was printed since comes after it.
  if (question.op == Op::kOpened) {
    return HandleOpened(question, pending);
  }
  if (question.op == Op::kWritten) {
    return HandleWritten(question, pending);
  }
  beforeEvent_();
  const File& file = files_.at(question.handle);
  switch (question.op) {
    case Op::kOpen:
      return HandleOpen(question, Characters(payload), pending);
    case Op::kClose:
      return HandleClose(question);
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
    case Op::kOpened:
    case Op::kWritten:
      break;
  }
  return {};
}

namespace {

/// The answer for an event that the instrument has carried out.
template <typename Reply>
Reply ReplyFor(EventResult result) {
  return {.answer = {.action = Action::kDone, .error = result.error, .result = result.value},
          .payload = std::move(result.bytes),
          .killed = result.killed};
}

/// The answer for an event that ends with a fault, or else with `otherwise`.
template <typename Reply>
Reply ReplyFor(const Fault& fault, Answer otherwise) {
  switch (fault.kind) {
    case Fault::Kind::kFail:
      return {.answer = {.action = Action::kDone, .error = fault.error}};
    case Fault::Kind::kKill:
      return {.killed = true};
    case Fault::Kind::kNone:
    case Fault::Kind::kLose:
    case Fault::Kind::kAnswer:
      break;
  }
  return {.answer = otherwise};
}

}  // namespace

std::uint32_t ShimServer::HandleFor(std::string_view path) {
  const auto known = handles_.find(path);
  if (known != handles_.end()) {
    return known->second;
  }
  Kind kind = Kind::kFile;
  if (instrument_.HasNode(path)) {
    kind = Kind::kDevice;
  } else if (path.starts_with("/sys/")) {
    kind = Kind::kSysfs;
  }
  const auto handle = static_cast<std::uint32_t>(files_.size());
  files_.push_back({std::string(path), kind});
  handles_.emplace(path, handle);
  return handle;
}

/// @param realPath  set when the file is not where the program looks for it
/// @return the errno that the kernel has for this open, or 0
int ShimServer::OpenProblem(std::string_view path, Kind kind, int flags, std::string& realPath) {
  switch (kind) {
    case Kind::kDevice:
      realPath = testbed_.RealPath(path);
      return 0;
    case Kind::kSysfs:
      realPath = testbed_.RealPath(path);
      if (::access(realPath.c_str(), F_OK) != 0) {
        const std::string folder = realPath.substr(0, realPath.rfind('/'));
        const bool creates = (flags & O_CREAT) != 0 && ::access(folder.c_str(), F_OK) == 0;
        return creates ? EACCES : ENOENT;  // sysfs creates nothing
      }
      return 0;
    case Kind::kFile:
      if (IsForeignNode(path)) {
        return ENOENT;
      }
      if (path.starts_with("/dev/")) {
        realPath = path;
      }
      return 0;
  }
  return 0;
}

ShimServer::Reply ShimServer::HandleOpen(const Question& question,
                                         std::string_view path,
                                         Pending& pending) {
  const auto flags = static_cast<int>(question.a);
  pending.event = OpenEvent(path, OpenFlagsText(flags, static_cast<unsigned>(question.b)));
  const Fault fault = instrument_.Arrive(pending.event);
  if (fault.kind != Fault::Kind::kNone) {
    return ReplyFor<Reply>(fault, {});
  }
  const std::uint32_t handle = HandleFor(path);
  const Kind kind = files_[handle].kind;
  std::string realPath;
  const int problem = OpenProblem(path, kind, flags, realPath);
  if (problem != 0) {
    instrument_.Complete(pending.event, ErrnoName(problem));
    return {.answer = {.action = Action::kDone, .error = problem}};
  }
  return {.answer = {.action = realPath.empty() ? Action::kProceed : Action::kProceedAt,
                     .handle = handle,
                     .kind = kind},
          .payload = {realPath.begin(), realPath.end()}};
}

ShimServer::Reply ShimServer::HandleOpened(const Question& question, const Pending& pending) {
  const auto error = static_cast<int>(question.a);
  instrument_.Complete(pending.event, error == 0 ? "" : ErrnoName(error));
  return {};
}

ShimServer::Reply ShimServer::HandleClose(const Question& question) {
  const Event event = question.handle == link::kNoHandle ? CloseEvent(question.a)
                                                         : CloseEvent(files_[question.handle].path);
  const Fault fault = instrument_.Arrive(event);
  if (fault.kind == Fault::Kind::kNone) {
    instrument_.Complete(event);
  }
  return ReplyFor<Reply>(fault, {.action = Action::kProceed});
}

void ShimServer::MirrorAttributes() {
  for (auto& [path, mirrored] : mirror_) {
    std::optional<std::string> contents = instrument_.AttributeContents(path);
    if (contents == mirrored) {
      continue;
    }
    if (!contents) {
      testbed_.RemoveFile(path);
    } else if (mirrored) {
      testbed_.SetFile(path, *contents);
    } else {
      testbed_.AddFile(path, *contents);
    }
    mirrored = std::move(contents);
  }
}

std::string ShimServer::Contents(std::string_view path) {
  if (auto contents = instrument_.AttributeContents(path)) {
    return *std::move(contents);
  }
  std::ifstream file(testbed_.RealPath(path), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

ShimServer::Reply ShimServer::HandleRead(const Question& question, const File& file) {
  const auto count = static_cast<std::size_t>(question.a);
  if (file.kind == Kind::kSysfs) {
    return ReplyFor<Reply>(instrument_.ReadFile(
        file.path, Contents(file.path), static_cast<std::size_t>(question.b), count));
  }
  // A plain read of an SPI device is a message that only receives.
  const std::array transfers = {
      SpiTransfer{.length = static_cast<std::uint32_t>(std::min<std::size_t>(count, UINT32_MAX)),
                  .receives = true}};
  return ReplyFor<Reply>(instrument_.SubmitSpi(
      file.path, {.transfers = transfers, .sent = std::span<const std::uint8_t>()}));
}

ShimServer::Reply ShimServer::HandleWrite(const Question& question,
                                          const File& file,
                                          std::span<const std::uint8_t> bytes,
                                          Pending& pending) {
  switch (file.kind) {
    case Kind::kDevice: {
      // A plain write to an SPI device is a message that only sends.
      const std::array transfers = {
          SpiTransfer{.length = static_cast<std::uint32_t>(bytes.size()), .sends = true}};
      return ReplyFor<Reply>(
          instrument_.SubmitSpi(file.path, {.transfers = transfers, .sent = bytes}));
    }
    case Kind::kSysfs:
      if (instrument_.AttributeContents(file.path)) {
        return ReplyFor<Reply>(instrument_.WriteAttribute(file.path, Characters(bytes)));
      }
      break;
    case Kind::kFile:
      break;
  }
  pending = {.event = FileWriteEvent(file.path, question.a), .bytes = question.a};
  const Fault fault = instrument_.Arrive(pending.event);
  return ReplyFor<Reply>(
      fault,
      {.action = fault.kind == Fault::Kind::kLose ? Action::kDone : Action::kProceed,
       .result = question.a});
}

ShimServer::Reply ShimServer::HandleWritten(const Question& question, const Pending& pending) {
  std::string result;
  if (question.a < 0) {
    result = ErrnoName(static_cast<int>(-question.a));
  } else if (question.a != pending.bytes) {
    result = std::to_string(question.a);
  }
  instrument_.Complete(pending.event, result);
  return {};
}

ShimServer::Reply ShimServer::HandleSpi(const Question& question,
                                        const File& file,
                                        std::span<const std::uint8_t> payload) {
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
  return ReplyFor<Reply>(instrument_.SubmitSpi(file.path, message));
}

ShimServer::Reply ShimServer::HandleI2c(const Question& question,
                                        const File& file,
                                        std::span<const std::uint8_t> payload) {
  const auto wire = CopyStructs<link::I2cMessage>(payload, static_cast<std::size_t>(question.a));
  std::vector<I2cMessage> messages;
  messages.reserve(wire.size());
  for (const link::I2cMessage& message : wire) {
    messages.push_back(
        {.address = message.address, .length = message.length, .reads = message.reads != 0});
  }
  return ReplyFor<Reply>(instrument_.SubmitI2c(
      file.path, messages, payload.subspan(wire.size() * sizeof(link::I2cMessage))));
}

ShimServer::Reply ShimServer::HandleIoctl(const Question& question,
                                          const File& file,
                                          std::span<const std::uint8_t> bytes) {
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
      Reply reply = ReplyFor<Reply>(instrument_.ReadSetting(file.path, row.setting));
      reply.payload.resize(reply.answer.error == 0 ? _IOC_SIZE(request) : 0);
      return reply;
    }
    if (request == row.write) {
      std::uint32_t value = 0;
      std::memcpy(&value, bytes.data(), std::min(bytes.size(), sizeof value));
      return ReplyFor<Reply>(instrument_.WriteSetting(file.path, row.setting, value));
    }
  }
  return ReplyFor<Reply>(instrument_.RefuseRequest(file.path, request));
}

ShimServer::Reply ShimServer::HandleSleep(const Question& question) {
  Reply reply = ReplyFor<Reply>(instrument_.Sleep(std::chrono::nanoseconds(question.a)));
  if (!fast_ && reply.answer.error == 0) {
    reply.answer.action = Action::kProceed;
  }
  return reply;
}

}  // namespace orvane
