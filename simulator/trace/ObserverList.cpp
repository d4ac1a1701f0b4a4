#include "simulator/trace/ObserverList.h"

namespace orvane {

void ObserverList::OnStart(std::span<const ObservedModule> modules,
                           std::span<const std::string> chassisI2c) {
  for (RunObserver* const observer : observers_) {
    observer->OnStart(modules, chassisI2c);
  }
}

void ObserverList::OnSpi(const ObservedSpi& message) {
  for (RunObserver* const observer : observers_) {
    observer->OnSpi(message);
  }
}

void ObserverList::OnI2c(const ObservedI2c& transfer) {
  for (RunObserver* const observer : observers_) {
    observer->OnI2c(transfer);
  }
}

void ObserverList::OnAccess(const ObservedAccess& access) {
  for (RunObserver* const observer : observers_) {
    observer->OnAccess(access);
  }
}

void ObserverList::OnDBus(std::string_view call, std::chrono::nanoseconds at, Outcome outcome) {
  for (RunObserver* const observer : observers_) {
    observer->OnDBus(call, at, outcome);
  }
}

void ObserverList::OnSleep(Period period) {
  for (RunObserver* const observer : observers_) {
    observer->OnSleep(period);
  }
}

void ObserverList::OnUnseen(Period period) {
  for (RunObserver* const observer : observers_) {
    observer->OnUnseen(period);
  }
}

void ObserverList::OnConsole(int descriptor, std::string_view bytes, std::chrono::nanoseconds at) {
  for (RunObserver* const observer : observers_) {
    observer->OnConsole(descriptor, bytes, at);
  }
}

void ObserverList::OnOther(std::string_view text, std::chrono::nanoseconds at) {
  for (RunObserver* const observer : observers_) {
    observer->OnOther(text, at);
  }
}

void ObserverList::OnChipBusy(unsigned slot,
                              ChipWork work,
                              std::uint32_t address,
                              std::chrono::nanoseconds at) {
  for (RunObserver* const observer : observers_) {
    observer->OnChipBusy(slot, work, address, at);
  }
}

void ObserverList::OnChipReady(unsigned slot, std::chrono::nanoseconds at) {
  for (RunObserver* const observer : observers_) {
    observer->OnChipReady(slot, at);
  }
}

void ObserverList::OnLine(unsigned slot, LineLevel level, std::chrono::nanoseconds at) {
  for (RunObserver* const observer : observers_) {
    observer->OnLine(slot, level, at);
  }
}

void ObserverList::OnEnd(std::chrono::nanoseconds at) {
  for (RunObserver* const observer : observers_) {
    observer->OnEnd(at);
  }
}

}  // namespace orvane
