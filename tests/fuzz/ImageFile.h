#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

struct gzFile_s;

/// What gzopen() finds at the one image path while an object lives: contents that zlib reads from
/// memory. At the end it closes what the program leaves open on purpose. One object at a time.
class ImageFile {
 public:
  /// @param contents  as zlib finds them; none when there is no such file
  ImageFile(std::string path, std::optional<std::string> contents);
  ImageFile(const ImageFile&) = delete;
  ImageFile& operator=(const ImageFile&) = delete;
  ~ImageFile();

  /// @return how many files are open
  [[nodiscard]] std::size_t OpenCount() const { return open_.size(); }

  /// With an image that zlib cannot decompress the program reads without end, on purpose. Here the
  /// image ends after a few reads that failed.
  /// @return whether that has happened
  [[nodiscard]] bool HasFailed() const { return failures_ != 0; }

  // What the seams call.
  static ImageFile* Current();
  gzFile_s* Open(const char* path);
  int Read(gzFile_s* file, void* buffer, unsigned length);
  int Close(gzFile_s* file);

 private:
  std::string path_;
  std::optional<std::string> contents_;
  std::vector<gzFile_s*> open_;
  int failures_ = 0;
};

/// @return the bytes as a gzip file, not compressed
std::string InGzip(const std::string& bytes);
