#pragma once

#include "simulator/boards/AttributeFiles.h"
#include "simulator/chips/ModuleSelectorModel.h"

namespace orvane {

/// The attributes of the module selector:
///   /sys/platform/module_selector/slotA, slotB
class ModuleSelectorFiles : public AttributeFiles {
 public:
  /// @param present  false: there are no such files, and no slot is on the SPI master
  explicit ModuleSelectorFiles(bool present) : present_(present) {}

  const ModuleSelectorModel& Selector() const { return selector_; }

  std::vector<std::string> AttributePaths() const override;
  std::optional<std::string> ReadAttribute(std::string_view path) override;
  int WriteAttribute(std::string_view path, std::string_view value) override;

 private:
  bool present_;
  ModuleSelectorModel selector_;
};

}  // namespace orvane
