#pragma once

#include <sys/types.h>

#include <string>

namespace orvane {

/// A D-Bus daemon of our own. It ends with the object, and also when this process is killed.
class PrivateBus {
 public:
  /// @param directory  for its configuration and socket
  /// @throw std::runtime_error
  explicit PrivateBus(const std::string& directory);
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;
  ~PrivateBus();

  const std::string& Address() const { return address_; }

 private:
  std::string address_;
  pid_t daemon_ = -1;
};

}  // namespace orvane
