#include "app/Targets.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "app/ModuleResources.h"
#include "devices/I2CDev.h"
#include "programmers/DaxFlashProgrammer.h"
#include "programmers/Pyx1FlashProgrammer.h"
#include "programmers/Pyx2FlashProgrammer.h"
#include "programmers/ZynqFlashProgrammer.h"
#include "programmers/lines/DaxGpioProgramming.h"
#include "programmers/lines/Pyx1GpioProgramming.h"
#include "programmers/lines/Pyx2GpioProgramming.h"

namespace {

template <typename Programmer>
ModuleProgrammer WithRoute(std::unique_ptr<GpioProgrammingInterface> lines,
                           std::unique_ptr<Programmer> programmer) {
  FlashRouteInterface* const route = programmer.get();
  return {std::move(lines), std::move(programmer), route};
}

ModuleProgrammer CreateZynqProgrammer(PCA9535* /*expander*/, SPIDev* spi, unsigned moduleNumber) {
  return WithRoute(nullptr, std::make_unique<ZynqFlashProgrammer>(spi, moduleNumber));
}

template <typename Lines, typename Programmer>
ModuleProgrammer CreateExpanderProgrammer(PCA9535* expander, SPIDev* spi, unsigned moduleNumber) {
  auto lines = std::make_unique<Lines>();
  auto programmer = std::make_unique<Programmer>(expander, spi, lines.get(), moduleNumber);
  return WithRoute(std::move(lines), std::move(programmer));
}

constexpr Target kTargets[] = {
    {"wend", "WEND Programming", std::nullopt, false, CreateZynqProgrammer},
    {"dax",
     "DAX Gpio Programming",
     0,
     false,
     CreateExpanderProgrammer<DaxGpioProgramming, DaxFlashProgrammer>},
    {"pyx1",
     "Pyx1 Gpio Programming",
     std::nullopt,
     true,
     CreateExpanderProgrammer<Pyx1GpioProgramming, Pyx1FlashProgrammer>},
    {"pyx2",
     "Pyx2 Gpio Programming",
     std::nullopt,
     true,
     CreateExpanderProgrammer<Pyx2GpioProgramming, Pyx2FlashProgrammer>},
};

}  // namespace

const Target* FindTarget(const std::string& word) {
  const auto* const found = std::find_if(std::begin(kTargets),
                                         std::end(kTargets),
                                         [&](const Target& target) { return word == target.word; });
  return found == std::end(kTargets) ? nullptr : found;
}

std::span<const Target> AllTargets() { return kTargets; }

std::string FindI2CBusName(const Target& target, unsigned module) {
  const std::string moduleBus = getSolutionI2C(module);
  return target.muxChannel ? I2CDev::FindI2CBusNameOfMuxChannel(moduleBus, *target.muxChannel)
                           : moduleBus;
}
