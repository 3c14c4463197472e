#pragma once

namespace tx {

// Keeps events that nobody needs from ever entering Xlib's queue, which grows without bound when
// other clients cause events faster than they are dispatched: events that only a server makes but a
// client has sent, and those that a tx::TXWindow does not want. Takes effect for what Xlib reads
// from now on. To be called again when client libraries may have registered events of their own
// since; costs next to nothing then.
void sieveEvents();

}  // namespace tx
