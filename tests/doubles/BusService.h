#pragma once

#include <gio/gio.h>

#include <atomic>
#include <future>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// A D-Bus service that answers from a table, on a thread of its own: its clients block the thread
/// of the test. It serves the interface that an introspection file describes, which also decides
/// which arguments reach it and which replies are of the right type.
class BusService {
 public:
  class Answer {
   public:
    /// A reply such as "('i2c-1',)", as GVariant text. One that is not of the type that the
    /// introspection file gives fails the test.
    static Answer Reply(const std::string& text) { return {Kind::kReply, "", text}; }
    /// A reply of any type.
    static Answer UncheckedReply(const std::string& text) {
      return {Kind::kUncheckedReply, "", text};
    }
    static Answer Error(const std::string& name, const std::string& message) {
      return {Kind::kError, name, message};
    }
    /// An error without any message.
    static Answer BareError(const std::string& name) { return {Kind::kBareError, name, ""}; }

    void Send(GDBusMethodInvocation* invocation) const;

   private:
    enum class Kind { kReply, kUncheckedReply, kError, kBareError };

    Answer(Kind kind, std::string errorName, std::string text)
        : kind_(kind), errorName_(std::move(errorName)), text_(std::move(text)) {}

    Kind kind_;
    std::string errorName_;
    std::string text_;  // the reply, or the error message
  };

  /// Serves from here on.
  /// @param address    of the bus
  /// @param file       the introspection file
  /// @param interface  name of the interface in it, and the bus name to own
  /// @param path       of the object
  /// @param answers    one per method; a call of any other fails the test
  BusService(const std::string& address,
             const std::string& file,
             const std::string& interface,
             const std::string& path,
             const std::map<std::string, Answer>& answers);
  BusService(const BusService&) = delete;
  BusService& operator=(const BusService&) = delete;
  ~BusService();

  /// @return the calls so far with their arguments as GVariant text, "GetI2CBus(uint32 4,)"
  std::vector<std::string> Calls();

  /// Replaces the answer to one method.
  void SetAnswer(const std::string& method, const Answer& answer);

 private:
  void Serve(std::promise<std::string>& ready);
  void Answered(GDBusMethodInvocation* invocation);

  const std::string address_;
  const std::string file_;
  const std::string interface_;
  const std::string path_;

  std::mutex mutex_;  // guards the next two
  std::map<std::string, Answer> answers_;
  std::vector<std::string> calls_;

  std::atomic<bool> stop_ = false;
  GMainContext* context_ = nullptr;
  std::thread thread_;
};
