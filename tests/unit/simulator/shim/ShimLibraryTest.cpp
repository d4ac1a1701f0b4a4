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

TEST(ShimLibraryTest, OffersTheCallsThatAreEventsOrTakeTimeAndNothingElse) {
  EXPECT_EQ(OutputOf("readelf -W --dyn-syms '" ORVANE_SHIM
                     "' | awk '$5 == \"GLOBAL\" && $7 != \"UND\" {print $8}' | LC_ALL=C sort"),
            "__open64_2\n__open_2\n__openat64_2\n__openat_2\n__poll_chk\n"
            "__ppoll_chk\n__read_chk\nclock_gettime\nclock_nanosleep\nclose\n"
            "close_range\nclosefrom\ncreat\ncreat64\ndup\ndup2\ndup3\neaccess\n"
            "epoll_pwait\nepoll_wait\neuidaccess\nexecl\nexecle\nexeclp\nexecv\n"
            "execve\nexecveat\nexecvp\nexecvpe\nfaccessat\nfclose\nfcntl\nfcntl64\n"
            "fdatasync\nfexecve\nflock\nfopen\nfopen64\nfreopen\nfreopen64\nfsync\n"
            "ftruncate\nftruncate64\nioctl\nlinkat\nmkdir\nmkdirat\nnanosleep\n"
            "open\nopen64\nopenat\nopenat64\npoll\npopen\nposix_spawn\n"
            "posix_spawnp\nppoll\npselect\npwrite\npwrite64\nread\nrename\n"
            "renameat\nrenameat2\nrmdir\nselect\nsleep\nsystem\nunlink\nunlinkat\n"
            "usleep\nwordexp\nwrite\nwritev\n");
}

}  // namespace
