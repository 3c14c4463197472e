#include "svr/Watchdog.h"

#include <gtest/gtest.h>

#include "support/SocketPair.h"

namespace svr {
namespace {

// It stands by while nobody asks for the end, and goes with its object when the loop has ended.
TEST(Watchdog, GoesQuietly) {
  for (const bool hasChannel : {false, true}) {
    support::SocketPair pair;
    Watchdog watchdog(hasChannel ? pair.ours.get() : -1);
    pair.peer.reset();
    watchdog.loopTurned();
  }
}

}  // namespace
}  // namespace svr
