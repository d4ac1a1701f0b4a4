#pragma once

/// One run of the program: checks the four words, finds the module's devices, has its programmer
/// bring the flash up to date and prints the result line. The environment variable SPI_CLOCK_SPEED
/// sets the SPI clock in MHz.
/// @param argc,argv  as main() gets them: program name, TARGET, COMMAND, MODULE, FILE
/// @return the exit code: the value of the status printed, or 0 after the help.
///         Throws what the platform's clients and an unreadable boot header throw.
int runTarnwick(int argc, char** argv);
