#include "x11/Interpose.h"

#include <X11/Xlib.h>
#include <X11/extensions/XShm.h>
#include <dlfcn.h>

Interpose& Interpose::instance() {
  static Interpose instance;
  return instance;
}

namespace {

template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// The toolkit is linked statically, so that its calls come here first.
extern "C" {

Bool XShmQueryVersion(Display* display, int* major, int* minor, Bool* pixmaps) {
  if (Interpose::instance().noShm) return False;
  const Bool result =
      next<decltype(XShmQueryVersion)>("XShmQueryVersion")(display, major, minor, pixmaps);
  if (Interpose::instance().noShmPixmaps) *pixmaps = False;
  return result;
}

Bool XShmAttach(Display* display, XShmSegmentInfo* info) {
  const int id = info->shmid;
  if (Interpose::instance().badAttach) info->shmid = -1;
  const Bool result = next<decltype(XShmAttach)>("XShmAttach")(display, info);
  info->shmid = id;
  return result;
}

int XSync(Display* display, Bool discard) {
  ++Interpose::instance().syncs;
  return next<decltype(XSync)>("XSync")(display, discard);
}

}  // extern "C"
