#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/host/Testbed.h"
#include "simulator/instrument/Instrument.h"
#include "simulator/shim/LinkProtocol.h"

namespace orvane {

/// The host's end of the link: takes the questions of all programs, one at a time, hands them to
/// the instrument and answers. Served from the thread's main loop.
class ShimServer {
 public:
  /// @param path         of the socket to listen on
  /// @param fast         sleeps do not wait
  /// @param instrument   borrowed
  /// @param testbed      borrowed, has the other files; gets those of the instrument's attributes
  /// @param beforeEvent  run before each event
  /// @throw std::system_error
  ShimServer(const std::string& path,
             bool fast,
             Instrument& instrument,
             Testbed& testbed,
             std::function<void()> beforeEvent);
  ShimServer(const ShimServer&) = delete;
  ShimServer& operator=(const ShimServer&) = delete;
  ~ShimServer();

  /// The processes that are connected now.
  std::vector<int> ConnectedProcesses() const;

 private:
  class Connection;
  struct File {
    std::string path;  // as the program gave it
    link::Kind kind;
  };
  /// An event whose real call the program makes, until it reports the result.
  struct Pending {
    Event event{};
    std::int64_t bytes = 0;  // of a write: how many the program asked for
  };

  /// What goes back: nothing at all when `killed`.
  struct Reply {
    link::Answer answer{};
    std::vector<std::uint8_t> payload;
    bool killed = false;
  };

  static int OnListener(int descriptor, int condition, void* self);
  static int OnConnection(int descriptor, int condition, void* connection);
  void Accept();
  void Serve(Connection& connection);
  Reply Handle(const link::Question& question,
               std::span<const std::uint8_t> payload,
               Pending& pending);

  Reply HandleOpen(const link::Question& question, std::string_view path, Pending& pending);
  Reply HandleOpened(const link::Question& question, const Pending& pending);
  Reply HandleClose(const link::Question& question);
  Reply HandleRead(const link::Question& question, const File& file);
  Reply HandleWrite(const link::Question& question,
                    const File& file,
                    std::span<const std::uint8_t> bytes,
                    Pending& pending);
  Reply HandleWritten(const link::Question& question, const Pending& pending);
  Reply HandleSpi(const link::Question& question,
                  const File& file,
                  std::span<const std::uint8_t> payload);
  Reply HandleI2c(const link::Question& question,
                  const File& file,
                  std::span<const std::uint8_t> payload);
  Reply HandleIoctl(const link::Question& question,
                    const File& file,
                    std::span<const std::uint8_t> bytes);
  Reply HandleSleep(const link::Question& question);

  std::uint32_t HandleFor(std::string_view path);
  int OpenProblem(std::string_view path, link::Kind kind, int flags, std::string& realPath);
  std::string Contents(std::string_view path);
  void MirrorAttributes();

  bool fast_;
  Instrument& instrument_;
  Testbed& testbed_;
  std::function<void()> beforeEvent_;
  int listener_ = -1;
  unsigned listenerSource_ = 0;
  std::map<int, std::unique_ptr<Connection>> connections_;  // by descriptor
  std::vector<File> files_;                                 // by handle
  std::map<std::string, std::uint32_t, std::less<>> handles_;
  /// What the files of the instrument's attributes hold. Reads that are reported do not need them,
  /// those that are not do: C streams read without telling.
  std::map<std::string, std::optional<std::string>, std::less<>> mirror_;
};

}  // namespace orvane
