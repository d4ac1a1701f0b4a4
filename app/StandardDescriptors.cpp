#include "app/StandardDescriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>

void openMissingStandardDescriptors() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(fd, F_GETFD) == -1) {
      // The lowest free descriptor is `fd`: those below are open by now. It stays open.
      static_cast<void>(::open("/dev/null", O_RDWR));
    }
  }
}
