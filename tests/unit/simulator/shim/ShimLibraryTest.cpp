#include <gtest/gtest.h>

#include <string>

#include "tests/doubles/ChildProcess.h"
#include "tests/doubles/ScratchDirectory.h"

namespace {

/// @return what a line of the shell prints
std::string OutputOf(const std::string& command) {
  const ScratchDirectory directory;
  EXPECT_EQ(ChildProcess({.words = {"/bin/sh", "-c", command}, .out = "out"}).Wait().ExitCode(), 0);
  return ReadFile("out");
}

TEST(ShimLibraryTest, NeedsNothingButTheCLibrary) {
  // Any other library that it needs would be loaded into every program, also a sanitizer.
  EXPECT_EQ(OutputOf("readelf -d '" ORVANE_SHIM "' | sed -n 's/.*NEEDED.*\\[\\(.*\\)\\]/\\1/p'"),
            "libc.so.6\n");
}

TEST(ShimLibraryTest, OffersTheCallsThatAreEventsAndTheClockAndNothingElse) {
  EXPECT_EQ(OutputOf("readelf -W --dyn-syms '" ORVANE_SHIM
                     "' | awk '$5 == \"GLOBAL\" && $7 != \"UND\" {print $8}' | LC_ALL=C sort"),
            "__open64_2\n__open_2\n__openat64_2\n__openat_2\n__read_chk\nclock_gettime\n"
            "clock_nanosleep\nclose\nclose_range\nclosefrom\ncreat\ncreat64\ndup\ndup2\n"
            "dup3\neaccess\neuidaccess\nexecl\nexecle\nexeclp\nexecv\nexecve\nexecveat\n"
            "execvp\nexecvpe\nfaccessat\nfclose\nfcntl\nfcntl64\nfdatasync\nfexecve\n"
            "flock\nfopen\nfopen64\nfreopen\nfreopen64\nfsync\nftruncate\nftruncate64\n"
            "ioctl\nlinkat\nmkdir\nmkdirat\nnanosleep\nopen\nopen64\nopenat\nopenat64\n"
            "popen\nposix_spawn\nposix_"
            "spawnp\npwrite\npwrite64\nread\nrename\nrenameat\nrenameat2\nrmdir\n"
            "sleep\nsystem\nunlink\nunlinkat\nusleep\nwordexp\nwrite\nwritev\n");
}

}  // namespace
