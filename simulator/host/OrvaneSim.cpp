#include <cerrno>
#include <cstddef>
#include <exception>
#include <iostream>
#include <span>
#include <string>

#include "cli/CommandLine.h"
#include "simulator/host/Host.h"
#include "simulator/host/Options.h"

namespace {

constexpr int kInstrumentFailed = 125;
constexpr int kNotExecutable = 126;
constexpr int kNotFound = 127;

int Fail(int status, const std::string& why) {
  std::cerr << "orvane-sim: " << why << std::endl;
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  const orvane::InheritedDescriptors descriptors = orvane::SecureDescriptors();
  try {
    const std::span<const char* const> words(argv, static_cast<std::size_t>(argc));
    const orvane::Options options = orvane::ParseOptions(words.subspan(argc > 0 ? 1 : 0));
    if (options.answer) {
      std::cout << *options.answer << std::flush;
      return 0;
    }
    return orvane::RunOnInstrument(options, descriptors);
  } catch (const orvane::UsageError& error) {
    std::cerr << cli::UsageText("orvane-sim", error.what()) << std::flush;
    return cli::kExitUsage;
  } catch (const orvane::CommandError& error) {
    return Fail(error.code().value() == ENOENT ? kNotFound : kNotExecutable, error.what());
  } catch (const std::exception& error) {
    return Fail(kInstrumentFailed, error.what());
  }
}
