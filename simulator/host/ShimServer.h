#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "base/FileDescriptor.h"
#include "simulator/host/QuestionHandler.h"
#include "simulator/host/RunHooks.h"
#include "simulator/host/Testbed.h"
#include "simulator/instrument/EventResult.h"
#include "simulator/instrument/Instrument.h"
#include "simulator/shim/LinkProtocol.h"

namespace orvane {

/// The host's end of the link: accepts the processes of the command and answers their questions,
/// one at a time. Served from the thread's main loop.
class ShimServer {
 public:
  /// @param path        of the socket to listen on
  /// @param fast        sleeps do not wait
  /// @param fileEvents  all calls on ordinary files are events
  /// @param instrument  borrowed
  /// @param testbed     borrowed; gets the files of the instrument's attributes and nodes
  /// @param hooks       borrowed
  /// @throw std::system_error
  ShimServer(const std::string& path,
             bool fast,
             bool fileEvents,
             Instrument& instrument,
             Testbed& testbed,
             const RunHooks& hooks);
  ShimServer(const ShimServer&) = delete;
  ShimServer& operator=(const ShimServer&) = delete;
  ~ShimServer();

  /// Whether a process has ever connected.
  bool HasHadConnections() const { return hasHadConnections_; }
  /// Turns the writes to attributes that came without a question into events. To be called before
  /// the text is drained that programs have printed, before each event, and at the end of the run.
  void TakeUnseenWrites() { handler_.TakeUnseenWrites(); }
  /// Forgets the processes that have ended, and what they have asked.
  void RemoveEnded();

  /// The process that makes the Nth call from now on gets no answer before Release(). Calls are the
  /// questions that are events.
  /// @param call  from 1 on
  void HoldAt(std::uint64_t call) { callsToHold_ = call; }
  /// Answers the process that is held, if it is still there, and forgets a call that was not reached.
  void Release();
  /// @param held  called when a process is held
  void OnHeld(std::function<void()> held) { onHeld_ = std::move(held); }

 private:
  struct Client;

  static int OnListener(int descriptor, int condition, void* self);
  static int OnClient(int descriptor, int condition, void* client);
  static int OnUnseenWrite(int descriptor, int condition, void* self);
  void Accept();
  void Serve(Client& client);
  void Kill(const Client& client, Killed killed);
  void Remove(const Client& client);
  bool Holds(Client& client, link::Op op, LinkReply& reply);

  const RunHooks& hooks_;
  QuestionHandler handler_;
  FileDescriptor listener_;
  unsigned listenerSource_ = 0;
  unsigned watchSource_ = 0;
  std::map<int, std::unique_ptr<Client>> clients_;  // by descriptor
  bool hasHadConnections_ = false;
  std::uint64_t callsToHold_ = 0;  // until one is held; 0: none is
  Client* heldClient_ = nullptr;
  LinkReply heldReply_;
  std::function<void()> onHeld_;
};

}  // namespace orvane
