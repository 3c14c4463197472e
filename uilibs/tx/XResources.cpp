#include "tx/XResources.h"

#include <sys/ipc.h>

#include <utility>

#include "tx/DamageExtension.h"
#include "tx/ErrorCatcher.h"
#include "tx/FixesExtension.h"

namespace tx {

void freePixmap(Display* display, Pixmap pixmap) {
  XFreePixmap(display, pixmap);
}
void freeGC(Display* display, GC gc) {
  XFreeGC(display, gc);
}

void destroyDamage(Display* display, XID damage) {
  // The server destroys a damage object with its window.
  const ErrorCatcher trap;
  if (const DamageExtension* extension = DamageExtension::get()) {
    extension->destroy(display, damage);
  }
}

void destroyFixesRegion(Display* display, XID region) {
  if (const FixesExtension* extension = FixesExtension::get()) {
    extension->destroyRegion(display, region);
  }
}

bool XShmAttachment::attach(int segmentId, void* address) {
  detach();
  info_ = XShmSegmentInfo{};
  info_.shmid = segmentId;
  info_.shmaddr = static_cast<char*>(address);
  info_.readOnly = False;
  // The server finds out only when it tries: a remote one, or one in another container, cannot.
  ErrorCatcher trap;
  attached_ = XShmAttach(TXDisplay::display(), &info_) && !trap.failed();
  return attached_;
}

void XShmAttachment::detach() {
  if (!std::exchange(attached_, false)) return;
  TXDisplay::attempt([this] { XShmDetach(TXDisplay::display(), &info_); });
}

}  // namespace tx
