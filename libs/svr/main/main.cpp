#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>

#include "svr/initAgent.h"

namespace {

// A launcher may have closed the standard descriptors. The X connection must not become one of
// them, or what is written on standard error would reach the X server.
void occupyStandardDescriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    // The lowest free descriptor is taken, which is this one.
    if (fcntl(fd, F_GETFD) < 0) open("/dev/null", O_RDWR);
  }
}

// Other processes of the same user, and core files, are not to show what passed through the memory
// of a process of root.
void hideMemory() {
  if (geteuid() == 0) prctl(PR_SET_DUMPABLE, 0);
}

}  // namespace

int main(int argc, char** argv) {
  hideMemory();
  occupyStandardDescriptors();
  // A server that has gone shows as a write error.
  std::signal(SIGPIPE, SIG_IGN);
  return svr::initAgent(argc, argv);
}
