#include "simulator/host/RunControl.h"

#include <glib-unix.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <sstream>
#include <vector>

namespace orvane {

namespace {

constexpr std::size_t kMaxQuestionBytes = 256;
constexpr std::size_t kMaxAnswerBytes = 128U << 10;  // less than a socket takes at once

std::string Part(std::span<const std::uint8_t> bytes, std::size_t first, std::size_t count) {
  const auto tail = bytes.subspan(std::min(first, bytes.size()));
  const auto part = tail.first(std::min({count, tail.size(), kMaxAnswerBytes}));
  return {part.begin(), part.end()};
}

}  // namespace

RunControl::RunControl(int descriptor,
                       Instrument& instrument,
                       ShimServer& server,
                       const RunHooks& hooks)
    : descriptor_(descriptor), instrument_(instrument), server_(server), hooks_(hooks) {
  source_ = g_unix_fd_add_full(G_PRIORITY_HIGH,
                               descriptor,
                               G_IO_IN,
                               reinterpret_cast<GUnixFDSourceFunc>(OnQuestion),
                               this,
                               nullptr);
  server_.OnHeld([this] { Send("held"); });
}

RunControl::~RunControl() {
  server_.OnHeld({});
  g_source_remove(source_);
}

int RunControl::OnQuestion(int descriptor, int /*condition*/, void* self) {
  auto* const control = static_cast<RunControl*>(self);
  std::array<char, kMaxQuestionBytes> question{};
  const ssize_t bytes = ::recv(descriptor, question.data(), question.size(), MSG_DONTWAIT);
  if (bytes <= 0) {
    return G_SOURCE_CONTINUE;
  }
  control->hooks_.beforeEvent();
  control->Send(control->AnswerTo({question.data(), static_cast<std::size_t>(bytes)}));
  return G_SOURCE_CONTINUE;
}

std::string RunControl::AnswerTo(const std::string& question) {
  std::istringstream words(question);
  std::string word;
  words >> word;
  if (question == "state") {
    return instrument_.DescribeModules() + instrument_.DescribeTime();
  }
  if (question == "faults off" || question == "faults on") {
    instrument_.SetFaultsActive(question == "faults on");
    return "done";
  }
  if (question == "go") {
    server_.Release();
    return "done";
  }
  if (std::uint64_t call = 0; (word == "hold" || word == "go") && words >> call && call > 0) {
    if (word == "go") {
      server_.Release();
    }
    server_.HoldAt(call);
    return "done";
  }
  if (word == "flash" || word == "loaded") {
    unsigned slot = 0;
    std::size_t first = 0;
    std::size_t count = 0;
    if (words >> slot >> first >> count) {
      return Bytes(word, slot, first, count);
    }
  }
  return "error: not a question: '" + question + "'";
}

std::string RunControl::Bytes(const std::string& what,
                              unsigned slot,
                              std::size_t first,
                              std::size_t count) {
  for (const auto& module : instrument_.Modules()) {
    if (module->Slot() != slot) {
      continue;
    }
    if (what == "flash") {
      return Part(module->Flash().Contents(), first, count);
    }
    const std::optional<std::vector<std::uint8_t>> loaded = module->LoadedContents();
    return loaded ? Part(*loaded, first, count) : "";
  }
  return "error: no module in slot " + std::to_string(slot);
}

/// A driver that does not listen gets nothing: the run does not wait for it.
void RunControl::Send(std::string_view answer) const {
  static_cast<void>(
      !::send(descriptor_, answer.data(), answer.size(), MSG_DONTWAIT | MSG_NOSIGNAL));
}

}  // namespace orvane
