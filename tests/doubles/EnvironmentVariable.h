#pragma once

#include <cstdlib>
#include <optional>
#include <string>

/// Sets an environment variable while it lives, and then restores the former value. For use while
/// no other thread of the program reads the environment.
class EnvironmentVariable {
 public:
  EnvironmentVariable(const std::string& name, const std::string& value) : name_(name) {
    if (const char* old = std::getenv(name.c_str()); old != nullptr) {
      old_ = old;
    }
    ::setenv(name.c_str(), value.c_str(), 1);
  }
  EnvironmentVariable(const EnvironmentVariable&) = delete;
  EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;
  ~EnvironmentVariable() {
    if (old_) {
      ::setenv(name_.c_str(), old_->c_str(), 1);
    } else {
      ::unsetenv(name_.c_str());
    }
  }

 private:
  std::string name_;
  std::optional<std::string> old_;
};
