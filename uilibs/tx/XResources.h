#pragma once

// One small owner for each kind of X resource of the process's display. Release makes no request
// once the display is lost or closed.

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>

#include <memory>
#include <utility>

#include "tx/TXDisplay.h"

namespace tx {

struct XFreeDeleter {
  void operator()(void* memory) const { XFree(memory); }
};
// Memory that Xlib allocated and XFree releases.
template <typename T>
using XMemory = std::unique_ptr<T, XFreeDeleter>;

struct XImageDeleter {
  // The pixels never belong to the image, so that Xlib does not free them.
  void operator()(XImage* image) const {
    image->data = nullptr;
    XDestroyImage(image);
  }
};
// An image over memory that somebody else owns.
using XImageOverMemory = std::unique_ptr<XImage, XImageDeleter>;

struct XOwnImageDeleter {
  void operator()(XImage* image) const { XDestroyImage(image); }
};
// An image with its own pixels, as XGetImage returns.
using XOwnImage = std::unique_ptr<XImage, XOwnImageDeleter>;

// Owner of a server-side resource that is released by one function of (Display*, id). One with
// memory on our side is released when the display is lost, too: Xlib then makes no request.
template <typename Id, auto Release, bool kHasMemory = false>
class XResource {
 public:
  XResource() = default;
  explicit XResource(Id id) : id_(id) {}
  ~XResource() { reset(); }
  XResource(const XResource&) = delete;
  XResource& operator=(const XResource&) = delete;

  Id get() const { return id_; }
  explicit operator bool() const { return id_ != Id{}; }
  void reset(Id id = Id{}) {
    const Id old = std::exchange(id_, id);
    if (old == Id{}) return;
    if (kHasMemory && TXDisplay::isLost()) Release(TXDisplay::display(), old);
    TXDisplay::attempt([old] { Release(TXDisplay::display(), old); });
  }

 private:
  Id id_{};
};

void freePixmap(Display* display, Pixmap pixmap);
void freeGC(Display* display, GC gc);
// Through tx::DamageExtension and tx::FixesExtension.
void destroyDamage(Display* display, XID damage);
void destroyFixesRegion(Display* display, XID region);

using XPixmap = XResource<Pixmap, freePixmap>;
using XGC = XResource<GC, freeGC, true>;
using XDamageHandle = XResource<XID, destroyDamage>;
using XFixesRegion = XResource<XID, destroyFixesRegion>;

// The X server's attachment of a System V segment that this process has attached already.
class XShmAttachment {
 public:
  XShmAttachment() = default;
  ~XShmAttachment() { detach(); }
  XShmAttachment(const XShmAttachment&) = delete;
  XShmAttachment& operator=(const XShmAttachment&) = delete;

  // Attaches and waits for the outcome. Returns whether the server could attach the segment.
  bool attach(int segmentId, void* address);
  void detach();
  bool attached() const { return attached_; }
  XShmSegmentInfo* info() { return &info_; }

 private:
  XShmSegmentInfo info_{};
  bool attached_ = false;
};

}  // namespace tx
