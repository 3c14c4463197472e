#pragma once

#include <X11/Xlib.h>

#include <cstdint>
#include <memory>

#include "plat/shm/SharedMem.h"
#include "plat/shm/SharedMemPermissions.h"
#include "rfb/FullFramePixelBuffer.h"
#include "rfb/Region.h"
#include "tx/ColourMapX11.h"
#include "tx/XResources.h"

namespace tx {

// A copy of (part of) a drawable of the default screen's depth, in memory that the server process
// can map. The X server fills it through a shared pixmap or a shared image; without MIT-SHM its
// pixels travel over the X connection into a POSIX block.
class PixelBufferX11 : public rfb::FullFramePixelBuffer {
 public:
  enum class Mode { kSharedPixmap, kSharedImage, kPlainImage };

  // An empty rectangle means the whole drawable. permissions (may be null, not owned, used only
  // here) gives the owner of the memory. All pixels are zero. Throws plat::Exception when the
  // geometry cannot be read or the memory not be had.
  PixelBufferX11(Drawable drawable, const plat::SharedMemPermissions* permissions,
                 const rfb::Rect& rect = rfb::Rect());
  ~PixelBufferX11() override;

  // Refreshes the region (root coordinates), as far as it lies in the buffer and in the clip. X
  // errors are logged at level 100 and otherwise ignored: a drawable that has just shrunk is
  // followed by a ConfigureNotify. Throws CaptureLostException when another X client has destroyed
  // what the buffer needs; the pixels are then as they were.
  void grabRegion(const rfb::Region& region) override;

  // Has the X server refresh the part of the buffer that lies in a region which it keeps (XFIXES,
  // in root coordinates), where it can do that by itself; returns whether it can. The pixels are
  // there when the answer to any later request has come; errors are for the caller's trap.
  bool requestGrab(XID region);
  // While set, this region has just been refreshed so: grabRegion() has nothing to do for it. Not
  // owned.
  void setFresh(const rfb::Region* region) { fresh_ = region; }

  // Limits what grabRegion() fetches, in root coordinates; an empty region means no limit.
  void setClip(const rfb::Region& clip);

  plat::SharedMem* getSharedMem() override { return memory_.get(); }
  Mode mode() const { return mode_; }
  // Null unless the visual has a colour map.
  ColourMapX11* colourMapX11() { return colourMapX11_.get(); }

  // Sets all pixels to zero.
  void clear();

  // Format of the pixels of a visual at its depth.
  static rfb::PixelFormat pixelFormat(Display* display, Visual* visual, int depth);

 private:
  void createImage(const plat::SharedMemPermissions* permissions);
  // False when the server cannot share memory with us.
  bool createShared(const plat::SharedMemPermissions* permissions);
  bool createSharedPixmap();
  void createSharedImage();
  void createPlain(const plat::SharedMemPermissions* permissions);
  void release();
  void grabPixmap();
  void grabPlain();
  int bytesPerLine() const { return stride_ * format_.bytesPerPixel(); }
  uint32_t sizeBytes() const;

  Drawable drawable_;
  Visual* visual_;
  int depth_;
  int scanlinePad_ = 0;  // bits
  std::unique_ptr<ColourMapX11> colourMapX11_;
  Mode mode_ = Mode::kPlainImage;
  std::unique_ptr<plat::SharedMem> memory_;
  XShmAttachment attachment_;
  XImageOverMemory image_;
  XPixmap pixmap_;
  XGC gc_;
  XGC regionGc_;  // clipped to a region of the X server's
  rfb::Region clip_;
  const rfb::Region* fresh_ = nullptr;
  rfb::Region grab_;  // kept for its memory
};

}  // namespace tx
