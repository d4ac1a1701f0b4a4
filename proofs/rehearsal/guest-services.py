"""The two D-Bus services of the platform, and the Zynq of the wend, in the guest.

The services answer as those of the virtual instrument do. The Zynq's DONE falls with its reset and rises
20 ms after the release.
"""
import time

from jeepney import HeaderFields, MessageType, new_error, new_method_return
from jeepney.bus_messages import message_bus
from jeepney.io.blocking import open_dbus_connection

ADDRESS = "unix:path=/run/dbus/system_bus_socket"
NAMES = ("org.orvane.SystemInventory1", "org.orvane.ModuleResources1")
RESET = "/sys/platform_m1/zynq_hw_reset_n/value"
DONE = "/sys/platform_m1/zynq_done/value"
BOOT_SECONDS = 0.02
LOOK_SECONDS = 0.01

# Of each slot: the I2C bus and the SPI device.
MODULES = {1: ("i2c-1", "spidev1.0"), 4: ("i2c-0", "spidev4.0"), 5: ("i2c-2", "spidev5.0")}


def answer(call):
    member = call.header.fields.get(HeaderFields.member)
    if member == "GetModuleLocations":
        return new_method_return(call, "ai", (sorted(MODULES),))
    if member in ("GetI2CBus", "GetSPIDev") and call.body[0] in MODULES:
        return new_method_return(call, "s", (MODULES[call.body[0]][member == "GetSPIDev"],))
    return new_error(call, "org.freedesktop.DBus.Error.Failed", "s", ("no such module",))


class Zynq:
    def __init__(self):
        self.boots_at = None  # in or just after a reset: when DONE rises

    def look(self):
        """Sets DONE by what the reset line is now."""
        with open(RESET) as file:
            runs = file.read(1) == "1"
        if not runs:
            self.boots_at = time.monotonic() + BOOT_SECONDS
            self.set("0")
        elif self.boots_at is not None and time.monotonic() >= self.boots_at:
            self.boots_at = None
            self.set("1")

    def set(self, level):
        with open(DONE, "r+") as file:  # one byte over another: a reader always finds one
            file.write(level)


def main():
    connection = open_dbus_connection(ADDRESS)
    for name in NAMES:
        connection.send_and_get_reply(message_bus.RequestName(name))
    open("/run/services-are-there", "w").close()
    zynq = Zynq()
    while True:
        try:
            message = connection.receive(timeout=LOOK_SECONDS)
        except TimeoutError:
            zynq.look()
            continue
        if message.header.message_type == MessageType.method_call:
            connection.send(answer(message))
        zynq.look()


main()
