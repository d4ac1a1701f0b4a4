#include "simulator/host/RunFiles.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "simulator/host/FilePlace.h"
#include "simulator/host/OutputFile.h"
#include "simulator/host/WholeFile.h"

namespace orvane {

namespace {

/// What is written while the command runs.
struct StreamOption {
  StreamKind kind;
  const char* name;  // for texts
  std::string Options::*path;
};

constexpr StreamOption kStreams[] = {{StreamKind::kLog, "log file", &Options::logFile},
                                     {StreamKind::kTrace, "trace file", &Options::traceFile},
                                     {StreamKind::kVcd, "VCD file", &Options::vcdFile}};

struct NamedFile {
  std::string name;  // for texts: "log file 'x'"
  const FilePlace* place;
};

/// Devices and pipes can be shared.
bool IsDevice(const FilePlace& place) {
  const std::optional<struct stat> status = place.StatusOfFile();
  return status && !S_ISREG(status->st_mode);
}

void RefuseSharing(const std::vector<NamedFile>& files) {
  for (std::size_t i = 0; i < files.size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      if (!IsDevice(*files[i].place) && files[i].place->IsSameAs(*files[j].place)) {
        throw UsageError(files[j].name + " and " + files[i].name + " are one file");
      }
    }
  }
}

/// Whether it is not the file that is wrong.
bool IsShortage(const std::error_code& error) {
  return error == std::errc::too_many_files_open || error == std::errc::not_enough_memory ||
         error == std::errc::too_many_files_open_in_system;
}

std::optional<OutputFile> Output(const std::string& kind, const std::string& path) {
  return path.empty() ? std::nullopt : std::optional<OutputFile>(std::in_place, kind, path);
}

/// The files that are written, but for the flash files: not opened yet.
struct Outputs {
  explicit Outputs(const Options& options) : state(Output("state file", options.stateFile)) {
    for (const StreamOption& stream : kStreams) {
      if (const std::string& path = options.*stream.path; !path.empty()) {
        streams.emplace_back(stream, OutputFile(stream.name, path));
      }
    }
    for (const ModuleOptions& module : options.modules) {
      if (!module.loadedFile.empty()) {
        loaded.emplace_back(module.loadedFile, OutputFile("loaded file", module.loadedFile));
      }
    }
  }

  std::vector<std::pair<StreamOption, OutputFile>> streams;
  std::optional<OutputFile> state;
  std::vector<std::pair<std::string, OutputFile>> loaded;  // with their paths
};

/// Refuses two files that are one.
void CheckPlaces(const Options& options, const Outputs& outputs) {
  std::vector<FilePlace> flashes;
  flashes.reserve(options.modules.size());
  std::vector<NamedFile> files;
  for (const ModuleOptions& module : options.modules) {
    const std::string& path = module.flashFile;
    if (!path.empty()) {
      flashes.emplace_back(path, "cannot open flash file '" + path + "'");
      files.push_back({"flash file '" + path + "'", &flashes.back()});
    }
  }
  for (const auto& [path, file] : outputs.loaded) {
    files.push_back({"loaded file '" + path + "'", &file.Place()});
  }
  for (const auto& [stream, file] : outputs.streams) {
    files.push_back({stream.name + (" '" + options.*stream.path + "'"), &file.Place()});
  }
  if (outputs.state) {
    files.push_back({"state file '" + options.stateFile + "'", &outputs.state->Place()});
  }
  RefuseSharing(files);
}

/// Locks a file that is not a flash file, if it is there, so that no other instrument takes it for
/// one. Other instruments may write to it too.
/// @param name  for texts
/// @throw std::runtime_error when it is the flash file of another instrument
FileDescriptor LockOutput(const std::string& name, const std::string& path) {
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!file.IsOpen() || ::fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return FileDescriptor();  // whether it can be written shows later
  }
  if (::flock(file.Get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    throw std::runtime_error(name + " '" + path + "' is a flash file of another instrument");
  }
  return file;
}

}  // namespace

RunFiles::RunFiles(const Options& options) {
  try {
    Outputs outputs(options);
    CheckPlaces(options, outputs);
    for (const auto& [path, file] : outputs.loaded) {
      locks_.push_back(LockOutput("loaded file", path));
    }
    for (const auto& [stream, file] : outputs.streams) {
      locks_.push_back(LockOutput(stream.name, options.*stream.path));
    }
    if (outputs.state) {
      locks_.push_back(LockOutput("state file", options.stateFile));
    }
    for (const ModuleOptions& module : options.modules) {
      if (!module.flashFile.empty()) {
        flashes_.emplace(module.flashFile, module.flashFile);
      }
    }
    for (auto& [path, file] : outputs.loaded) {
      loaded_.emplace(path, std::move(file));
    }
    if (outputs.state) {
      state_.emplace(std::move(*outputs.state));
    }
    for (auto& [stream, file] : outputs.streams) {
      streams_.try_emplace(stream.kind, std::move(file));
    }
    for (auto& [kind, file] : streams_) {
      file.Empty();
    }
  } catch (const std::system_error& error) {
    if (IsShortage(error.code())) {
      throw;
    }
    throw UsageError(error.what());
  } catch (const std::runtime_error& error) {
    throw UsageError(error.what());
  }
}

std::ostream* RunFiles::Stream(StreamKind kind) {
  const auto stream = streams_.find(kind);
  return stream == streams_.end() ? nullptr : &stream->second;
}

std::vector<std::string> RunFiles::FinishStreams() {
  std::vector<std::string> problems;
  for (auto& [kind, file] : streams_) {
    if (!file.flush()) {
      problems.push_back(file.Failing());
    }
  }
  return problems;
}

std::vector<std::uint8_t> RunFiles::TakeFlash(const ModuleOptions& module) {
  const auto flash = flashes_.find(module.flashFile);
  return flash == flashes_.end() ? std::vector<std::uint8_t>() : std::move(flash->second.contents);
}

void RunFiles::SaveFlash(const ModuleOptions& module,
                         std::span<const std::uint8_t> contents) const {
  const auto flash = flashes_.find(module.flashFile);
  if (flash != flashes_.end()) {
    flash->second.file.Save(contents);
  }
}

void RunFiles::SaveLoaded(const ModuleOptions& module,
                          std::span<const std::uint8_t> contents) const {
  const auto file = loaded_.find(module.loadedFile);
  if (file != loaded_.end()) {
    file->second.Write({reinterpret_cast<const char*>(contents.data()), contents.size()});
  }
}

void RunFiles::SaveState(std::string_view text) const {
  if (state_) {
    state_->Write(text);
  }
}

void RunFiles::RemoveTemporaries(const Options& options, pid_t host) {
  for (const ModuleOptions& module : options.modules) {
    for (const std::string& path : {module.flashFile, module.loadedFile}) {
      if (!path.empty()) {
        WholeFile::RemoveTemporary(path, host);
      }
    }
  }
  if (!options.stateFile.empty()) {
    WholeFile::RemoveTemporary(options.stateFile, host);
  }
}

}  // namespace orvane
