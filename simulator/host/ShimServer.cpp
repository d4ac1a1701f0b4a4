#include "simulator/host/ShimServer.h"

#include <glib-unix.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>
#include <span>
#include <string>
#include <system_error>
#include <utility>

#include "simulator/guard/ProcessTree.h"
#include "simulator/host/LinkConnection.h"

namespace orvane {

namespace {

constexpr int kBacklog = 64;

/// No function here runs a main loop, so none is called again while it runs. The source is told that
/// it may be: otherwise it is blocked during each call, which costs four system calls.
/// @return the source's number
unsigned WatchForInput(int descriptor, int (*function)(int, int, void*), void* data) {
  GSource* const source = g_unix_fd_source_new(descriptor, G_IO_IN);
  g_source_set_priority(source, G_PRIORITY_HIGH);
  g_source_set_can_recurse(source, TRUE);
  auto* const callback = reinterpret_cast<void (*)()>(function);  // the source knows its true type
  g_source_set_callback(source, reinterpret_cast<GSourceFunc>(callback), data, nullptr);
  const unsigned number = g_source_attach(source, nullptr);
  g_source_unref(source);
  return number;
}

}  // namespace

/// One process, and the call that it is making.
struct ShimServer::Client {
  Client(ShimServer& owner, int descriptor)
      : server(owner), connection(descriptor), source(WatchForInput(descriptor, OnClient, this)) {}
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client() { g_source_remove(source); }

  ShimServer& server;
  LinkConnection connection;
  PendingCall pending;
  unsigned source;
};

ShimServer::ShimServer(const std::string& path,
                       bool fast,
                       bool fileEvents,
                       Instrument& instrument,
                       Testbed& testbed,
                       const RunHooks& hooks)
    : hooks_(hooks),
      handler_(fast, fileEvents, instrument, testbed, hooks),
      listener_(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  if (!listener_.IsOpen() ||
      ::bind(listener_.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listener_.Get(), kBacklog) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot listen for programs");
  }
  listenerSource_ = WatchForInput(listener_.Get(), OnListener, this);
  watchSource_ = WatchForInput(handler_.WatchDescriptor(), OnUnseenWrite, this);
}

ShimServer::~ShimServer() {
  clients_.clear();
  g_source_remove(watchSource_);
  g_source_remove(listenerSource_);
}

int ShimServer::OnListener(int /*descriptor*/, int /*condition*/, void* self) {
  auto* const server = static_cast<ShimServer*>(self);
  try {
    server->Accept();
  } catch (const std::exception& error) {
    server->hooks_.fail(error.what());
  }
  return G_SOURCE_CONTINUE;
}

int ShimServer::OnClient(int /*descriptor*/, int /*condition*/, void* client) {
  auto* const from = static_cast<Client*>(client);
  ShimServer& server = from->server;
  try {
    server.Serve(*from);  // may end the client
  } catch (const std::exception& error) {
    server.hooks_.fail(error.what());
  }
  return G_SOURCE_CONTINUE;
}

/// The writes become events only before the next question, so that a run does not depend on how fast
/// this process is.
int ShimServer::OnUnseenWrite(int /*descriptor*/, int /*condition*/, void* self) {
  static_cast<ShimServer*>(self)->handler_.LookForExcess();
  return G_SOURCE_CONTINUE;
}

void ShimServer::Accept() {
  const int descriptor = ::accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC);
  if (descriptor >= 0) {
    hasHadConnections_ = true;
    clients_.emplace(descriptor, std::make_unique<Client>(*this, descriptor));
    TakeUnseenWrites();
  } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
    hooks_.fail(std::string("cannot connect a process of the command: ") + std::strerror(errno));
  }
}

void ShimServer::Serve(Client& client) {
  link::Question question{};
  std::span<const std::uint8_t> payload;
  if (!client.connection.Receive(question, payload)) {
    Remove(client);
    return;
  }
  LinkReply reply = handler_.Handle(question, payload, client.pending);
  if (reply.killed != Killed::kNo) {
    Kill(client, reply.killed);
    return;  // the end of the connection follows
  }
  if (Holds(client, question.op, reply)) {
    return;
  }
  if (!client.connection.Send(reply.answer, reply.payload)) {
    Remove(client);
  }
}

void ShimServer::Kill(const Client& client, Killed killed) {
  if (killed == Killed::kAll) {
    hooks_.killAll();
  } else if (const pid_t process = client.connection.Process();
             process <=
             0) {  // it cannot be seen from here; kill() would take its number for many processes
    hooks_.fail("a process of the command that is to be killed cannot be found");
  } else if (killed == Killed::kSession) {
    hooks_.killSession(process);  // ends the client
  } else {
    ::kill(process, SIGKILL);
  }
}

void ShimServer::RemoveEnded() {
  std::erase_if(clients_, [this](const auto& entry) {
    const pid_t process = entry.second->connection.Process();
    const bool hasEnded = process > 0 && process_tree::HasEnded(process);
    if (hasEnded && heldClient_ == entry.second.get()) {
      heldClient_ = nullptr;
    }
    return hasEnded;
  });
  TakeUnseenWrites();
}

bool ShimServer::Holds(Client& client, link::Op op, LinkReply& reply) {
  const bool isCall = op != link::Op::kOpened && op != link::Op::kWritten &&
                      op != link::Op::kFileCalled && op != link::Op::kSync;
  if (!isCall || callsToHold_ == 0 || --callsToHold_ > 0) {
    return false;
  }
  heldClient_ = &client;
  heldReply_ = std::move(reply);
  if (onHeld_) {
    onHeld_();
  }
  return true;
}

void ShimServer::Release() {
  callsToHold_ = 0;
  if (Client* const client = std::exchange(heldClient_, nullptr); client != nullptr) {
    const LinkReply reply = std::exchange(heldReply_, {});
    if (!client->connection.Send(reply.answer, reply.payload)) {
      Remove(*client);
    }
  }
}

void ShimServer::Remove(const Client& client) {
  if (heldClient_ == &client) {
    heldClient_ = nullptr;
  }
  clients_.erase(client.connection.Descriptor());
  TakeUnseenWrites();
}

}  // namespace orvane
