#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

/// A value as it is written to an attribute, without the newline that shells add.
inline std::string_view WithoutNewline(std::string_view value) {
  return value.ends_with('\n') ? value.substr(0, value.size() - 1) : value;
}

/// A part of the instrument that answers for files under /sys.
class AttributeFiles {
 public:
  AttributeFiles() = default;
  AttributeFiles(const AttributeFiles&) = delete;
  AttributeFiles& operator=(const AttributeFiles&) = delete;
  virtual ~AttributeFiles() = default;

  /// The paths of all files that can exist.
  virtual std::vector<std::string> AttributePaths() const { return {}; }

  /// @param path  one of these
  /// @return the whole contents; none: the file does not exist now
  virtual std::optional<std::string> ReadAttribute(std::string_view /*path*/) {
    return std::nullopt;
  }

  /// @param path  one of these
  /// @return 0, or the errno that the write fails with
  virtual int WriteAttribute(std::string_view path, std::string_view value) = 0;
};

}  // namespace orvane
