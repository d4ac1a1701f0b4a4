#include "simulator/host/RunOnInstrument.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "cli/CommandLine.h"
#include "simulator/guard/CommandProcess.h"
#include "simulator/guard/ExitStatus.h"
#include "simulator/guard/Guard.h"
#include "simulator/guard/ProcessTree.h"
#include "simulator/guard/RunDirectory.h"
#include "simulator/host/ConsoleSockets.h"
#include "simulator/host/Host.h"
#include "simulator/host/RunFiles.h"
#include "simulator/shim/ExecutableCheck.h"
#include "simulator/shim/LinkProtocol.h"

namespace orvane {

namespace {

int Fail(int status, const std::string& why) {
  std::cerr << "orvane-sim: " << why << std::endl;
  return status;
}

/// Refuses a command that would run outside of the instrument.
void CheckCommand(const std::vector<std::string>& words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (const std::string& word : words) {
    arguments.push_back(const_cast<char*>(word.c_str()));  // they are only read
  }
  arguments.push_back(nullptr);
  const executable::Verdict verdict = executable::JudgeSearched(
      words[0].c_str(), std::getenv("PATH"), arguments.data(), executable::OwnMachine());
  if (executable::IsRefused(verdict)) {
    throw std::runtime_error(executable::TextOf(verdict).text);
  }
}

std::array<int, 3> StandardOfCommand(const StartState& start, const ConsoleSockets* console) {
  std::array<int, 3> standard{};
  for (int descriptor = 0; descriptor < 3; ++descriptor) {
    int& place = standard.at(static_cast<std::size_t>(descriptor));
    if (!start.standard.at(static_cast<std::size_t>(descriptor))) {
      place = CommandProcess::kClosed;
    } else if (console != nullptr && descriptor != STDIN_FILENO) {
      place = console->WriterFor(descriptor);
    } else {
      place = descriptor;
    }
  }
  return standard;
}

}  // namespace

StartState SecureStart() {
  StartState start;
  // A limit on the size of files makes writes fail, standard error included, and kills nobody.
  static_cast<void>(::signal(SIGXFSZ, SIG_IGN));
  for (int descriptor = 0; descriptor < 3; ++descriptor) {
    const bool isOpen = ::fcntl(descriptor, F_GETFD) != -1;
    start.standard.at(static_cast<std::size_t>(descriptor)) = isOpen;
    if (!isOpen) {
      static_cast<void>(::open("/dev/null", O_RDWR));  // the lowest free one is `descriptor`
    }
  }
  if (!process_tree::IsReadable()) {
    throw std::runtime_error("/proc cannot be read, or is that of another PID namespace");
  }
  std::vector<int> listed;  // contains that of the directory itself, which is closed by then
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    listed.push_back(std::stoi(entry.path().filename()));
  }
  for (const int descriptor : listed) {
    if (descriptor > STDERR_FILENO && ::fcntl(descriptor, F_GETFD) != -1) {
      start.others.push_back(descriptor);
    }
  }
  return start;
}

int RunOnInstrument(const Options& options, const StartState& start) {
  if (std::getenv(link::kAddressVariable) != nullptr) {
    throw std::runtime_error(
        "it runs on a virtual instrument already; a second one cannot be inside");
  }
  CheckCommand(options.command);
  FileDescriptor signals = Guard::BlockSignals(start.signals);
  const RunDirectory directory;
  std::optional<ConsoleSockets> console;
  if (options.KeepsConsole()) {
    console.emplace();
  }
  ConsoleSockets* const sockets = console ? &*console : nullptr;
  Guard guard(
      {.host =
           [&](HostEnds ends) {
             return Reported([&] { return RunHost(options, directory, sockets, std::move(ends)); });
           },
       .cleanUp = [&](pid_t host) { RunFiles::RemoveTemporaries(options, host); },
       .command = {.words = options.command,
                   .environment = {},
                   .standard = StandardOfCommand(start, sockets),
                   .kept = start.others},
       .onStarted =
           [&] {
             if (console) {
               console->CloseWriters();
             }
           }},
      start.signals,
      std::move(signals));
  return guard.Run();
}

int Reported(const std::function<int()>& part) {
  try {
    return part();
  } catch (const UsageError& error) {
    std::cerr << cli::UsageText("orvane-sim", error.what()) << std::flush;
    return kInstrumentFailed;
  } catch (const CommandError& error) {
    return Fail(error.code().value() == ENOENT ? kNotFound : kNotExecutable, error.what());
  } catch (const std::exception& error) {
    return Fail(kInstrumentFailed, error.what());
  }
}

}  // namespace orvane
