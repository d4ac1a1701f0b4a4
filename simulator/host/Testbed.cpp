#include "simulator/host/Testbed.h"

#include <fcntl.h>
#include <glib.h>
#include <umockdev.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "base/FileDescriptor.h"

namespace orvane {

namespace {

constexpr const char* kTemporaryFilesVariable = "TMPDIR";
constexpr const char* kTestbedVariable = "UMOCKDEV_DIR";
const std::string kSocPath = "platform/soc/";  // below /sys/devices

std::string TakeText(char* text) {
  std::string copy = text == nullptr ? "" : text;
  g_free(text);
  return copy;
}

/// The library builds its tree in the directory for temporary files, which GLib looks up once. Then
/// the variable gets its old value back, which the command inherits.
void SettleTemporaryFiles(const std::string& directory) {
  const char* const before = std::getenv(kTemporaryFilesVariable);
  const std::optional<std::string> saved =
      before == nullptr ? std::nullopt : std::optional<std::string>(before);
  g_setenv(kTemporaryFilesVariable, directory.c_str(), TRUE);
  static_cast<void>(g_get_tmp_dir());
  if (saved) {
    g_setenv(kTemporaryFilesVariable, saved->c_str(), TRUE);
  } else {
    g_unsetenv(kTemporaryFilesVariable);
  }
}

/// The path below /sys/devices; a channel of a multiplexer is below its parent, as in the kernel.
std::string DevicePath(const I2cAdapter& adapter) {
  std::string path = kSocPath;
  if (adapter.parent) {
    path += "i2c-" + std::to_string(*adapter.parent) + "/";
  }
  return path + adapter.BusName();
}

}  // namespace

Testbed::Testbed(const std::string& directory) {
  SettleTemporaryFiles(directory);
  // The library starts a thread that reads variables, and sets this one only after that. It is set
  // here already, so that the list of variables does not move while the thread reads it.
  g_setenv(kTestbedVariable, "", TRUE);
  testbed_ = umockdev_testbed_new();
  if (testbed_ == nullptr) {
    throw std::runtime_error("cannot create the device trees in " + directory);
  }
  root_ = TakeText(umockdev_testbed_get_root_dir(testbed_));
}

Testbed::~Testbed() { g_object_unref(testbed_); }

std::string Testbed::RealPath(std::string_view path) const { return root_ + std::string(path); }

void Testbed::AddFile(std::string_view path, std::string_view contents) const {
  const std::filesystem::path real = RealPath(path);
  std::filesystem::create_directories(real.parent_path());
  std::ofstream file(real, std::ios::binary);
  file << contents;
  if (!file.flush()) {
    throw std::runtime_error("cannot write " + real.string());
  }
}

void Testbed::RemoveFile(std::string_view path) const { std::filesystem::remove(RealPath(path)); }

void Testbed::SetFile(std::string_view path, std::string_view contents) const {
  const FileDescriptor file(::open(RealPath(path).c_str(), O_WRONLY | O_CLOEXEC));
  if (!file.IsOpen() || ::write(file.Get(), contents.data(), contents.size()) < 0 ||
      ::ftruncate(file.Get(), static_cast<off_t>(contents.size())) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot write " + RealPath(path));
  }
}

void Testbed::AddAdapter(const I2cAdapter& adapter) {
  AddI2cDevice(DevicePath(adapter), adapter.name);
}

void Testbed::AddClient(const I2cClient& client) {
  AddI2cDevice(kSocPath + I2cAdapter{.number = client.bus}.BusName() + "/" + client.busName,
               client.name);
}

void Testbed::AddI2cDevice(const std::string& path, const std::string& name) {
  const std::string attribute = name + "\n";
  char* attributes[] = {const_cast<char*>("name"), const_cast<char*>(attribute.c_str()), nullptr};
  char* properties[] = {nullptr};
  static_cast<void>(TakeText(umockdev_testbed_add_devicev(
      testbed_, "i2c", path.c_str(), nullptr, attributes, properties)));
}

}  // namespace orvane
