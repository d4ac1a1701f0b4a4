#include "simulator/boards/ModuleFactory.h"

#include <stdexcept>

#include "simulator/boards/ExpanderBoard.h"
#include "simulator/boards/WendModule.h"

namespace orvane {

std::unique_ptr<Module> MakeModule(const ModuleOptions& options,
                                   std::span<const std::uint8_t> flashContents,
                                   const ModuleSelectorModel& selector) {
  switch (options.type) {
    case ModuleType::kWend:
      return std::make_unique<WendModule>(options, flashContents);
    case ModuleType::kDax:
    case ModuleType::kPyx1:
    case ModuleType::kPyx2:
      return std::make_unique<ExpanderBoard>(options, flashContents, selector);
  }
  throw std::logic_error("no such type of module");
}

}  // namespace orvane
