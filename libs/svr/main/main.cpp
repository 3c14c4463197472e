#include <fcntl.h>
#include <malloc.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <new>

#include "plat/shm/Leftovers.h"
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

// Without memory the program can end before, after or beneath what would catch that: while objects
// of static lifetime are made, or in a destructor. It ends in good order all the same.
void endWithoutMemory() {
  try {
    const std::exception_ptr current = std::current_exception();
    if (current) std::rethrow_exception(current);
  } catch (const std::bad_alloc&) {
    constexpr char kLine[] = "Out of memory\n";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, kLine, sizeof kLine - 1);
    plat::Leftovers::removeAll();
    _exit(1);
  } catch (...) {
  }
  abort();
}

// Before the first object of static lifetime is made.
[[gnu::constructor(101)]] void catchWhatNobodyCatches() {
  std::set_terminate(endWithoutMemory);
}

// Other processes of the same user, and core files, are not to show what passed through the memory
// of a process of root.
void hideMemory() {
  if (geteuid() == 0) prctl(PR_SET_DUMPABLE, 0);
}

// Frames and large texts come and go. Their memory goes with them, whatever malloc learns from
// those that went before.
void returnLargeBlocks() {
#ifdef __GLIBC__
  constexpr int kLargeBlock = 1 << 20;  // bytes
  mallopt(M_MMAP_THRESHOLD, kLargeBlock);
  mallopt(M_TRIM_THRESHOLD, 2 * kLargeBlock);
#endif
}

}  // namespace

int main(int argc, char** argv) {
  hideMemory();
  returnLargeBlocks();
  occupyStandardDescriptors();
  // A server that has gone shows as a write error.
  std::signal(SIGPIPE, SIG_IGN);
  return svr::initAgent(argc, argv);
}
