#pragma once

#include <string>

/// Each of these asks the platform's services again; nothing is cached. Exceptions of the clients
/// are not caught.

/// @param module  slot number
/// @return true when it is one of the populated module locations
bool checkAddress(int module);

/// @param module  slot number
/// @return the module's I2C bus node name, such as "i2c-1"; empty when the module is not populated
///         (the resource service is then not asked) or has none
std::string getSolutionI2C(unsigned module);

/// @param module  slot number
/// @return the module's spidev node name, such as "spidev1.0"; empty as for getSolutionI2C()
std::string getSolutionSpiDev(unsigned module);
