#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

class SPIDev;

/// What the doubles and seams answer in the running test. While none exists the seams call through
/// to the system.
class ExpanderScript {
 public:
  /// @param slotDirectory  where the selector's slot files are found instead
  explicit ExpanderScript(std::string slotDirectory);
  ExpanderScript(const ExpanderScript&) = delete;
  ExpanderScript& operator=(const ExpanderScript&) = delete;
  ~ExpanderScript();

  /// @return the running test's; null without one
  static ExpanderScript* Current();

  // The expander.
  std::vector<bool> connectResults = {};                         ///< one a connect; then true
  std::function<unsigned short(unsigned short bits)> port = {};  ///< of getPort; 0 without
  bool disconnectThrows = false;

  // The flash driver.
  SPIDev* spi = nullptr;  ///< the one expected by its constructor
  int flashConnect = 0;
  int flashRead = 0;
  int flashErase = 0;
  int flashProgram = 0;
  std::string flashHead = {};  ///< written by ReadDevice as it is, also when that fails

  // Files that the tested code opens itself. Those still open are known by their number in the log.
  std::size_t readLimit = 0;        ///< most bytes a read() returns; 0 for no limit
  std::set<int> failingReads = {};  ///< the read() calls that fail, counted from 1
  int reads = 0;                    ///< calls so far
  int filesOpened = 0;
  std::map<int, int> openFiles = {};  ///< number, by descriptor

  // The module selector.
  bool selectorMissing = false;
  bool selectorInsertFails = false;
  bool selectorWriteFails = false;
  std::string directory;

  // Time.
  std::function<void()> onNanosleep = {};         ///< called once the sleep is in the log
  std::vector<long> interruptedSleepsLeave = {};  ///< nanoseconds left, one a nanosleep; then none
  bool logsPolls = true;                          ///< getPort and usleep go into the log
  int polls = 0;                                  ///< getPort calls so far
  int usleeps = 0;
};
