#include "FirstCopy.h"

#include <X11/extensions/XShm.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include "Subject.h"

namespace bench {

double msOfFirstCopy(Display* display) {
  // Xlib's own record of the size does not follow changes.
  Window root;
  int x, y;
  unsigned width, height, border, depth;
  XGetGeometry(display, DefaultRootWindow(display), &root, &x, &y, &width, &height, &border,
               &depth);
  XShmSegmentInfo segment{};
  segment.shmid = shmget(IPC_PRIVATE, size_t{width} * height * 4, IPC_CREAT | 0600);
  segment.shmaddr = static_cast<char*>(shmat(segment.shmid, nullptr, 0));
  XShmAttach(display, &segment);
  const Pixmap pixmap =
      XShmCreatePixmap(display, root, segment.shmaddr, &segment, width, height, depth);
  XGCValues values{};
  values.subwindow_mode = IncludeInferiors;
  values.graphics_exposures = False;
  const GC gc = XCreateGC(display, pixmap, GCSubwindowMode | GCGraphicsExposures, &values);
  XSync(display, False);
  const Clock::time_point begin = Clock::now();
  XCopyArea(display, root, pixmap, gc, 0, 0, width, height, 0, 0);
  XSync(display, False);
  const double ms = msSince(begin);
  XFreeGC(display, gc);
  XFreePixmap(display, pixmap);
  XShmDetach(display, &segment);
  XSync(display, False);
  shmctl(segment.shmid, IPC_RMID, nullptr);
  shmdt(segment.shmaddr);
  return ms;
}

}  // namespace bench
