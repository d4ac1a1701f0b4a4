#include "simulator/host/ControlFiles.h"

#include <fcntl.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "base/FileDescriptor.h"

namespace orvane {

namespace {

constexpr int kNoWatch = -1;
constexpr std::size_t kPageBytes = 4096;  // what sysfs takes in one write

/// The path of a sink in the testbed. Programs only see what is below /sys and /dev there.
std::string SinkPath(std::string_view attribute) { return "/sink" + std::string(attribute); }

/// What was written to a file that held `held`: at its end or over its start. A program whose
/// descriptor is beyond the end leaves zeros in between.
std::string_view WrittenPart(std::string_view contents, std::string_view held) {
  if (contents.size() > held.size() && contents.starts_with(held)) {
    contents.remove_prefix(held.size());
    contents.remove_prefix(std::min(contents.find_first_not_of('\0'), contents.size()));
  }
  return contents;
}

/// Cuts bytes into writes: after each newline, and after a page.
void AddWrites(const std::string& path, std::string_view bytes, std::vector<UnseenWrite>& writes) {
  while (!bytes.empty()) {
    const std::size_t newline = std::min(bytes.find('\n'), bytes.size() - 1);
    const std::string_view piece = bytes.substr(0, std::min(newline + 1, kPageBytes));
    writes.push_back({path, std::string(piece)});
    bytes.remove_prefix(piece.size());
  }
}

std::string ReadPart(const std::string& path, std::uint64_t from, std::uint64_t count) {
  std::ifstream file(path, std::ios::binary);
  std::string bytes(static_cast<std::size_t>(count), '\0');
  file.seekg(static_cast<std::streamoff>(from));
  file.read(bytes.data(), static_cast<std::streamsize>(count));
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  return bytes;
}

/// Gives the disk space of a file's start back. Its size and its other bytes stay.
void Release(const std::string& path, std::uint64_t bytes) {
  const FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
  // Without support of the file system nothing is given back: the bytes of one run are few.
  static_cast<void>(::fallocate(
      file.Get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(bytes)));
}

}  // namespace

ControlFiles::ControlFiles(Instrument& instrument, Testbed& testbed)
    : instrument_(instrument), testbed_(testbed) {
  for (const std::string& path : instrument_.NodePaths()) {
    testbed_.AddFile(path, "");
    places_.emplace(watch_.Add(testbed_.RealPath(path)), Place{path, What::kNode});
  }
  for (const std::string& path : instrument_.AttributePaths()) {
    Attribute& attribute = attributes_[path];
    attribute.held = instrument_.AttributeContents(path).value_or("");
    testbed_.AddFile(path, *attribute.held);
    WatchContents(path, attribute);
    // A program that asks for the size of what it has opened is told that of the attribute.
    testbed_.AddFile(SinkPath(path), *attribute.held);
    attribute.taken = attribute.held->size();
    places_.emplace(watch_.Add(testbed_.RealPath(SinkPath(path))), Place{path, What::kSink});
  }
  Update();
}

std::string ControlFiles::SinkOf(std::string_view path) const {
  return attributes_.find(path) == attributes_.end() ? "" : testbed_.RealPath(SinkPath(path));
}

void ControlFiles::WatchContents(const std::string& path, Attribute& attribute) {
  attribute.watch = watch_.Add(testbed_.RealPath(path));
  places_.emplace(attribute.watch, Place{path, What::kContents});
}

/// Notes the files that were written to.
/// @param except  the watch of a file that we have just written ourselves, or kNoWatch
void ControlFiles::Collect(int except) {
  for (const int watch : watch_.Read()) {
    if (watch != except && std::ranges::find(modified_, watch) == modified_.end()) {
      modified_.push_back(watch);
    }
  }
}

void ControlFiles::SetContents(const std::string& path,
                               const Attribute& attribute,
                               std::string_view contents) {
  testbed_.SetFile(path, contents);
  Collect(attribute.watch);
}

void ControlFiles::Update() {
  for (auto& [path, attribute] : attributes_) {
    std::optional<std::string> contents = instrument_.AttributeContents(path);
    if (contents == attribute.held) {
      continue;
    }
    if (!contents) {
      watch_.Remove(attribute.watch);
      places_.erase(attribute.watch);
      testbed_.RemoveFile(path);
    } else if (attribute.held) {
      SetContents(path, attribute, *contents);
    } else {
      testbed_.AddFile(path, *contents);
      WatchContents(path, attribute);
    }
    attribute.held = std::move(contents);
  }
}

std::vector<UnseenWrite> ControlFiles::TakeWrites() {
  Collect(kNoWatch);
  std::vector<UnseenWrite> writes;
  for (const int watch : std::exchange(modified_, {})) {
    const auto found = places_.find(watch);
    if (found != places_.end()) {  // not there: the attribute was removed after the write
      AddWrites(found->second.path, Take(found->second), writes);
    }
  }
  return writes;
}

void ControlFiles::LookForExcess() {
  Collect(kNoWatch);
  for (const int watch : modified_) {
    const auto found = places_.find(watch);
    if (found != places_.end()) {
      static_cast<void>(Waiting(found->second));
    }
  }
}

std::string ControlFiles::RealPath(const Place& place) const {
  return testbed_.RealPath(place.what == What::kSink ? SinkPath(place.path) : place.path);
}

/// The bytes of a file that have not been taken.
/// @throw std::runtime_error when they are more than kMostWaiting
ControlFiles::Range ControlFiles::Waiting(const Place& place) const {
  Range range = {.end = std::filesystem::file_size(RealPath(place))};
  if (place.what == What::kSink) {
    const std::uint64_t taken = attributes_.find(place.path)->second.taken;
    range.begin = std::min(taken, range.end);  // an inheritor may have truncated it
  }
  if (range.end - range.begin > kMostWaiting) {
    throw std::runtime_error("more than " + std::to_string(kMostWaiting) +
                             " bytes were written to " + place.path + " at once");
  }
  return range;
}

/// @return what was written to a file
std::string ControlFiles::Take(const Place& place) {
  const Range range = Waiting(place);
  std::string bytes = ReadPart(RealPath(place), range.begin, range.end - range.begin);
  if (place.what == What::kNode) {
    return bytes;
  }
  Attribute& attribute = attributes_.find(place.path)->second;
  if (place.what == What::kSink) {
    attribute.taken = range.begin + bytes.size();
    if (attribute.taken > attribute.released + kMostWaiting) {
      attribute.released = attribute.taken;
      Release(RealPath(place), attribute.released);
    }
    return bytes;
  }
  const std::string held = attribute.held.value_or("");
  if (bytes != held) {
    SetContents(place.path, attribute, held);
  }
  return std::string(WrittenPart(bytes, held));
}

}  // namespace orvane
