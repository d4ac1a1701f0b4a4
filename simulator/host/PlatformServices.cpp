#include "simulator/host/PlatformServices.h"

#include <gio/gio.h>
#include <signal.h>

#include <cstdint>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "simulator/bus/BusConnection.h"
#include "simulator/host/ServiceInterfaces.h"
#include "simulator/instrument/EventResult.h"

namespace orvane {

namespace {

struct Unref {
  void operator()(GVariant* value) const { g_variant_unref(value); }
};

GVariant* NumbersReply(const std::vector<int>& numbers) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("ai"));
  for (const int number : numbers) {
    g_variant_builder_add(&builder, "i", number);
  }
  return g_variant_new("(ai)", &builder);
}

}  // namespace

struct PlatformServices::State {
  Instrument& instrument;
  const RunHooks& hooks;
  BusConnection bus;

  void Offer(const char* xml) {
    bus.Offer(xml, [this](GDBusMethodInvocation* invocation) { Serve(invocation); });
  }
  void Serve(GDBusMethodInvocation* invocation);
  void Kill(GDBusMethodInvocation* invocation, Killed killed);
  void KillCaller(GDBusMethodInvocation* invocation, bool withSession);
};

void PlatformServices::State::Kill(GDBusMethodInvocation* invocation, Killed killed) {
  if (killed == Killed::kAll) {
    hooks.killAll();
  } else {
    KillCaller(invocation, killed == Killed::kSession);
  }
}

void PlatformServices::State::KillCaller(GDBusMethodInvocation* invocation, bool withSession) {
  const char* const caller = g_dbus_method_invocation_get_sender(invocation);
  try {
    const auto process = static_cast<pid_t>(
        bus.AskDaemon("GetConnectionUnixProcessID", g_variant_new("(s)", caller)));
    if (withSession) {
      hooks.killSession(process);
    } else {
      ::kill(process, SIGKILL);
    }
  } catch (const std::runtime_error&) {  // it is gone already
  }
}

void PlatformServices::State::Serve(GDBusMethodInvocation* invocation) {
  const std::string_view method = g_dbus_method_invocation_get_method_name(invocation);
  hooks.beforeEvent();
  DBusResult result;
  GVariant* reply = nullptr;
  if (method == "GetModuleLocations") {
    result = instrument.GetModuleLocations();
    reply = NumbersReply(result.numbers);
  } else {
    guint32 slot = 0;
    g_variant_get(g_dbus_method_invocation_get_parameters(invocation), "(u)", &slot);
    result = method == "GetI2CBus" ? instrument.GetI2CBus(slot) : instrument.GetSPIDev(slot);
    reply = g_variant_new("(s)", result.text.c_str());
  }
  const std::unique_ptr<GVariant, Unref> owned(g_variant_ref_sink(reply));
  if (result.killed != Killed::kNo) {
    Kill(invocation, result.killed);
    g_object_unref(invocation);  // its caller does not exist any more
  } else if (!result.error.empty()) {
    g_dbus_method_invocation_return_dbus_error(
        invocation, result.error.c_str(), "The instrument was told to fail here");
  } else {
    g_dbus_method_invocation_return_value(invocation, owned.get());
  }
}

PlatformServices::PlatformServices(const std::string& busAddress,
                                   Wanted wanted,
                                   Instrument& instrument,
                                   const RunHooks& hooks)
    : state_(new State{instrument, hooks, BusConnection(busAddress)}) {
  if (wanted.inventory) {
    state_->Offer(kSystemInventoryXml);
  }
  if (wanted.resources) {
    state_->Offer(kModuleResourcesXml);
  }
}

PlatformServices::~PlatformServices() = default;

}  // namespace orvane
