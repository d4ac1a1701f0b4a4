#pragma once

#include <optional>
#include <string>

/// @param slot  number of a physical PCI slot
/// @return the attribute, in sysfs, with the address of the device in it; there is none when the
///         kernel does not know the slot
std::string PciSlotAddressPath(unsigned slot);

/// @param slot  as for PciSlotAddressPath()
/// @return the DDDD:BB:dd (domain, bus, device; hexadecimal) of the device in it; nothing when the
///         slot's attribute cannot be read or holds anything else
std::optional<std::string> ReadPciSlotAddress(unsigned slot);

/// @param address  as ReadPciSlotAddress() returns it
/// @return the directory, in sysfs, of a module's endpoint: function 0 of the device there
std::string PciEndpointPath(const std::string& address);
