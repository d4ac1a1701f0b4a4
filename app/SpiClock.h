#pragma once

inline constexpr unsigned kHzPerMHz = 1'000'000;

/// @return the SPI clock in MHz that the environment variable SPI_CLOCK_SPEED asks for, without a
///         range check; 19 when it is not set or its text is no number
unsigned SpiClockMHz();
