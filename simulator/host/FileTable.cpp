#include "simulator/host/FileTable.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <utility>

namespace orvane {

namespace {

using link::Kind;

/// SPI and I2C nodes of this machine, which are no part of the instrument.
bool IsForeignNode(std::string_view path) {
  return path.starts_with("/dev/spidev") || path.starts_with("/dev/i2c-");
}

}  // namespace

FileTable::FileTable(Instrument& instrument, const Testbed& testbed, const ControlFiles& controls)
    : instrument_(instrument),
      testbed_(testbed),
      controls_(controls),
      files_(1) {}  // handle 0 stands for no file

std::uint32_t FileTable::HandleFor(std::string_view path) {
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

FileTable::Place FileTable::Locate(const File& file, int flags) const {
  switch (file.kind) {
    case Kind::kDevice:
      return {.realPath = testbed_.RealPath(file.path)};
    case Kind::kSysfs:
      return LocateSysfs(file.path, flags);
    case Kind::kFile:
      break;
  }
  if (IsForeignNode(file.path)) {
    return {.error = ENOENT};
  }
  return {.realPath = file.path.starts_with("/dev/") ? file.path : ""};
}

FileTable::Place FileTable::LocateSysfs(const std::string& path, int flags) const {
  std::string realPath = testbed_.RealPath(path);
  if (::access(realPath.c_str(), F_OK) == 0) {
    std::string sink = controls_.SinkOf(path);
    if ((flags & O_ACCMODE) == O_WRONLY && !sink.empty()) {
      return {.realPath = std::move(sink), .addedFlags = O_APPEND};
    }
    return {.realPath = std::move(realPath)};
  }
  const std::string folder = realPath.substr(0, realPath.rfind('/'));
  const bool creates = (flags & O_CREAT) != 0 && ::access(folder.c_str(), F_OK) == 0;
  return {.error = creates ? EACCES : ENOENT};  // sysfs creates nothing
}

std::string FileTable::Contents(std::string_view path) {
  if (auto contents = instrument_.AttributeContents(path)) {
    return *std::move(contents);
  }
  std::ifstream file(testbed_.RealPath(path), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace orvane
