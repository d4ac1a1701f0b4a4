#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/host/FileWatch.h"
#include "simulator/host/Testbed.h"
#include "simulator/instrument/Instrument.h"

namespace orvane {

/// A write to an attribute or a node that no question announced: by a call inside the C library, or
/// of a program that inherited the descriptor. It has happened already.
struct UnseenWrite {
  std::string path;
  std::string bytes;
};

/// The files of the attributes and nodes in the testbed. Programs whose calls are seen read and
/// write them over the link; all others read and write the files themselves. This class keeps the
/// files up to date, and finds what was written to them.
///
/// An attribute has two files. One holds its contents. The other, the sink, is what a program gets
/// that opens the attribute only for writing. Programs only append to a sink, so nothing that is
/// written to it can be lost or overwritten, whoever writes at the same time.
class ControlFiles {
 public:
  /// How many bytes may be written to one file before they are taken.
  static constexpr std::uint64_t kMostWaiting = 1U << 20;

  /// Creates the files.
  /// @param instrument  borrowed
  /// @param testbed     borrowed; the files are added to it
  /// @throw std::runtime_error
  ControlFiles(Instrument& instrument, Testbed& testbed);

  /// The file that programs append to which open an attribute only for writing.
  /// @return empty: the instrument has no such attribute
  std::string SinkOf(std::string_view path) const;

  /// Brings the files of the attributes up to date. To be called after an event that may have
  /// changed one.
  /// @throw std::exception when a file cannot be written
  void Update();

  /// What has been written to the files since the last call, in order. One line is taken as one
  /// write, and so are 4096 bytes without a line's end: where a call ended cannot be seen. Bytes that
  /// were written to a file at different times may come as one write. The files of attributes get
  /// their contents back.
  /// @throw std::exception when a file cannot be read or written, or more than kMostWaiting bytes
  ///        were written to one
  std::vector<UnseenWrite> TakeWrites();

  /// Readable when LookForExcess() is to be called.
  int Descriptor() const { return watch_.Descriptor(); }
  /// Takes nothing.
  /// @throw std::runtime_error when more than kMostWaiting bytes were written to one file
  void LookForExcess();

 private:
  struct Attribute {
    std::optional<std::string> held;  // what its file holds; nothing: it does not exist now
    int watch = -1;                   // of this file
    std::uint64_t taken = 0;          // bytes of the sink, from its start
    std::uint64_t released = 0;       // likewise, whose disk space was given back
  };
  enum class What { kContents, kSink, kNode };
  /// A file that is watched.
  struct Place {
    std::string path;  // of the attribute or node
    What what;
  };
  struct Range {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
  };

  void Collect(int except);
  void SetContents(const std::string& path, const Attribute& attribute, std::string_view contents);
  void WatchContents(const std::string& path, Attribute& attribute);
  std::string RealPath(const Place& place) const;
  Range Waiting(const Place& place) const;
  std::string Take(const Place& place);

  Instrument& instrument_;
  Testbed& testbed_;
  FileWatch watch_;
  std::map<std::string, Attribute, std::less<>> attributes_;
  std::map<int, Place> places_;  // by the number of the watch
  std::vector<int> modified_;    // files that were written to and not read yet, each once, in order
};

}  // namespace orvane
