#include "tx/PixelBufferX11.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <optional>

#include "plat/Assert.h"
#include "plat/Exception.h"
#include "plat/config/BoolParameter.h"
#include "plat/config/IntParameter.h"
#include "plat/log/LogSrc.h"
#include "plat/shm/SharedMemPosix.h"
#include "plat/shm/SharedMemSysV.h"
#include "tx/CaptureLostException.h"
#include "tx/ErrorCatcher.h"
#include "tx/FixesExtension.h"
#include "tx/TXDisplay.h"
#include "tx/XErrorLog.h"

namespace tx {

namespace {

plat::LogSrc vlog("PixelBufferX11");

plat::BoolParameter useXShm("_UseXShm", "", true);
plat::IntParameter maxGrabRects("_MaxGrabRects", "", 20, 0, std::numeric_limits<int>::max());

// How the server stores images of a depth.
XPixmapFormatValues pixmapFormat(Display* display, int depth) {
  int count = 0;
  const XMemory<XPixmapFormatValues> formats{XListPixmapFormats(display, &count)};
  for (int i = 0; i < count; ++i) {
    if (formats.get()[i].depth == depth) return formats.get()[i];
  }
  throw plat::Exception("X server has no pixmap format of depth %d", depth);
}

rfb::Rect geometry(Drawable drawable) {
  Window root;
  int x;
  int y;
  unsigned int width;
  unsigned int height;
  unsigned int border;
  unsigned int depth;
  const ErrorCatcher trap;
  if (!XGetGeometry(TXDisplay::display(), drawable, &root, &x, &y, &width, &height, &border,
                    &depth)) {
    throw plat::Exception("XGetGeometry failed");
  }
  return {0, 0, static_cast<int>(width), static_cast<int>(height)};
}

// Whether the error means that a pixmap, graphics context or segment is not there any more.
bool tellsOfLoss(int errorCode) {
  return errorCode == BadDrawable || errorCode == BadPixmap || errorCode == BadGC ||
         errorCode >= FirstExtensionError;
}

int nBitsSet(int value) {
  return std::popcount(static_cast<unsigned int>(value));
}

}  // namespace

rfb::PixelFormat PixelBufferX11::pixelFormat(Display* display, Visual* visual, int depth) {
  const int bpp = pixmapFormat(display, depth).bits_per_pixel;
  const bool bigEndian = ImageByteOrder(display) == MSBFirst;
  if (visual->c_class != TrueColor && visual->c_class != DirectColor) {
    return {bpp, depth, bigEndian, false};
  }
  const auto shift = [](unsigned long mask) { return mask == 0 ? 0 : std::countr_zero(mask); };
  const auto max = [&shift](unsigned long mask) { return static_cast<int>(mask >> shift(mask)); };
  return {bpp,
          depth,
          bigEndian,
          true,
          max(visual->red_mask),
          max(visual->green_mask),
          max(visual->blue_mask),
          shift(visual->red_mask),
          shift(visual->green_mask),
          shift(visual->blue_mask)};
}

PixelBufferX11::PixelBufferX11(Drawable drawable, const plat::SharedMemPermissions* permissions,
                               const rfb::Rect& rect)
    : drawable_(drawable), visual_(TXDisplay::visual()), depth_(TXDisplay::depth()) {
  Display* const display = TXDisplay::display();
  const rfb::PixelFormat pf = pixelFormat(display, visual_, depth_);
  const int scanlinePad = pixmapFormat(display, depth_).scanline_pad;
  if (!pf.trueColour) {
    colourMapX11_ = std::make_unique<ColourMapX11>(visual_);
    colourMap_ = colourMapX11_.get();
  }
  format_ = pf;
  rect_ = rect.isEmpty() ? geometry(drawable) : rect;

  PLAT_ASSERT_MSG(nBitsSet(scanlinePad) == 1 && (scanlinePad % pf.bpp) == 0,
                  "Bad X server scanline pad %d", scanlinePad);
  scanlinePad_ = scanlinePad;
  const int64_t unit = scanlinePad / pf.bpp;
  const int64_t stride = (int64_t{width()} + unit - 1) / unit * unit;
  const int64_t size = stride * height() * pf.bytesPerPixel();
  // Regions have coordinates of 16 bits.
  constexpr int kMaxCoordinate = std::numeric_limits<int16_t>::max();
  if (rect_.br.x > kMaxCoordinate || rect_.br.y > kMaxCoordinate) {
    throw plat::Exception("Cannot capture %s: the limit of width and height is %d",
                          rect_.str().c_str(), kMaxCoordinate);
  }
  if (width() <= 0 || height() <= 0 || size > std::numeric_limits<int32_t>::max()) {
    throw plat::Exception("Cannot capture %s: too large", rect_.str().c_str());
  }
  stride_ = static_cast<int>(stride);

  createImage(permissions);
  data_ = memory_->data();
}

PixelBufferX11::~PixelBufferX11() {
  release();
  // The server lets go of the segment now rather than at some later flush.
  TXDisplay::attempt([] { XFlush(TXDisplay::display()); });
}

void PixelBufferX11::release() {
  // Other clients may have destroyed some of it.
  std::optional<ErrorCatcher> trap;
  if (TXDisplay::isOpen()) trap.emplace();
  memory_.reset();
  attachment_.detach();
  gc_.reset();
  regionGc_.reset();
  pixmap_.reset();
  image_.reset();
}

uint32_t PixelBufferX11::sizeBytes() const {
  return static_cast<uint32_t>(height()) * static_cast<uint32_t>(bytesPerLine());
}

void PixelBufferX11::clear() {
  memset(data_, 0, sizeBytes());
}

void PixelBufferX11::createImage(const plat::SharedMemPermissions* permissions) {
  if (useXShm.value() && createShared(permissions)) return;
  release();
  createPlain(permissions);
}

bool PixelBufferX11::createShared(const plat::SharedMemPermissions* permissions) {
  const TXDisplay::Throwing throwing;
  Display* const display = TXDisplay::display();
  int major = 0;
  int minor = 0;
  Bool pixmaps = False;
  if (!XShmQueryExtension(display) || !XShmQueryVersion(display, &major, &minor, &pixmaps)) {
    vlog.error("%s", "No XShm extension");
    return false;
  }
  vlog.info("XShm extension present - version %d.%d (with%s pixmaps)", major, minor,
            pixmaps ? "" : "out");

  std::unique_ptr<plat::SharedMemSysV> memory;
  try {
    memory = std::make_unique<plat::SharedMemSysV>(sizeBytes(), permissions);
  } catch (const plat::SharedMemSysV::NoneLeft& e) {
    vlog.error("%s", e.text());
    return false;
  }
  const int id = memory->id();
  memory_ = std::move(memory);
  if (!attachment_.attach(id, memory_->data())) {
    vlog.error("Failed to attach the X server to shared memory %d", id);
    return false;
  }
  if (pixmaps && XShmPixmapFormat(display) == ZPixmap && createSharedPixmap()) {
    mode_ = Mode::kSharedPixmap;
    vlog.info("Using shared memory Pixmap");
    return true;
  }
  createSharedImage();
  mode_ = Mode::kSharedImage;
  vlog.info("Using shared memory XImage");
  return true;
}

bool PixelBufferX11::createSharedPixmap() {
  Display* const display = TXDisplay::display();
  ErrorCatcher trap;
  pixmap_.reset(XShmCreatePixmap(display, drawable_, attachment_.info()->shmaddr,
                                 attachment_.info(), static_cast<unsigned int>(width()),
                                 static_cast<unsigned int>(height()),
                                 static_cast<unsigned int>(depth_)));
  XGCValues values{};
  values.subwindow_mode = IncludeInferiors;
  values.graphics_exposures = False;
  for (XGC* gc : {&gc_, &regionGc_}) {
    gc->reset(XCreateGC(display, pixmap_.get(), GCSubwindowMode | GCGraphicsExposures, &values));
  }
  if (!trap.failed()) return true;
  vlog.error("Failed to create a shared pixmap: %s",
             describeXError(display, *trap.error()).c_str());
  // What was not made is not known to the server: the errors end in this trap, too.
  gc_.reset();
  regionGc_.reset();
  pixmap_.reset();
  return false;
}

void PixelBufferX11::createSharedImage() {
  XImage* const xim =
      XShmCreateImage(TXDisplay::display(), visual_, static_cast<unsigned int>(depth_), ZPixmap,
                      attachment_.info()->shmaddr, attachment_.info(),
                      static_cast<unsigned int>(width()), static_cast<unsigned int>(height()));
  if (xim == nullptr) throw plat::Exception("XShmCreateImage failed");
  image_.reset(xim);
  PLAT_ASSERT(xim->bytes_per_line == bytesPerLine());
}

void PixelBufferX11::createPlain(const plat::SharedMemPermissions* permissions) {
  memory_ = std::make_unique<plat::SharedMemPosix>(sizeBytes(), permissions);
  image_.reset(XCreateImage(TXDisplay::display(), visual_, static_cast<unsigned int>(depth_),
                            ZPixmap, 0, reinterpret_cast<char*>(memory_->data()),
                            static_cast<unsigned int>(width()), static_cast<unsigned int>(height()),
                            scanlinePad_, bytesPerLine()));
  if (!image_) throw plat::Exception("XCreateImage failed");
  mode_ = Mode::kPlainImage;
  vlog.info("Using non-shm XImage");
}

void PixelBufferX11::setClip(const rfb::Region& clip) {
  // What does not limit is left out.
  clip_ = (rfb::Region(rect_) - clip).isEmpty() ? rfb::Region() : clip;
}

bool PixelBufferX11::requestGrab(XID region) {
  if (mode_ != Mode::kSharedPixmap || !clip_.isEmpty()) return false;
  Display* const display = TXDisplay::display();
  FixesExtension::get()->setGCClipRegion(display, regionGc_.get(), -rect_.tl.x, -rect_.tl.y,
                                         region);
  XCopyArea(display, drawable_, pixmap_.get(), regionGc_.get(), rect_.tl.x, rect_.tl.y,
            static_cast<unsigned int>(width()), static_cast<unsigned int>(height()), 0, 0);
  return true;
}

void PixelBufferX11::grabRegion(const rfb::Region& region) {
  if (!TXDisplay::isOpen()) return;
  // Larger regions are refreshed as a whole.
  if (fresh_ && region == *fresh_ && region.numRects() <= maxGrabRects.value()) return;
  if (region.numRects() <= maxGrabRects.value()) {
    grab_ = region;
  } else {
    grab_ = region.boundingRect();
  }
  if (!clip_.isEmpty()) grab_ &= clip_;
  grab_ &= rect_;
  if (grab_.isEmpty()) return;

  ErrorCatcher trap;
  switch (mode_) {
    case Mode::kSharedPixmap:
      grabPixmap();
      break;
    case Mode::kSharedImage:
      XShmGetImage(TXDisplay::display(), drawable_, image_.get(), rect_.tl.x, rect_.tl.y,
                   AllPlanes);
      break;
    case Mode::kPlainImage:
      grabPlain();
      break;
  }
  // All modes end in a round trip, so that no error is outstanding.
  if (!trap.error()) return;
  const std::string error = describeXError(TXDisplay::display(), *trap.error());
  vlog.debug("grab of %s: %s", grab_.boundingRect().str().c_str(), error.c_str());
  if (tellsOfLoss(trap.error()->error_code)) throw CaptureLostException(error);
}

void PixelBufferX11::grabPixmap() {
  Display* const display = TXDisplay::display();
  for (const rfb::Rect& r : grab_.rects()) {
    XCopyArea(display, drawable_, pixmap_.get(), gc_.get(), r.tl.x, r.tl.y,
              static_cast<unsigned int>(r.width()), static_cast<unsigned int>(r.height()),
              r.tl.x - rect_.tl.x, r.tl.y - rect_.tl.y);
  }
  XSync(display, False);
}

// XGetSubImage would do the same pixel by pixel, and drop the bits that no channel uses.
void PixelBufferX11::grabPlain() {
  for (const rfb::Rect& r : grab_.rects()) {
    const XOwnImage part(XGetImage(TXDisplay::display(), drawable_, r.tl.x, r.tl.y,
                                   static_cast<unsigned int>(r.width()),
                                   static_cast<unsigned int>(r.height()), AllPlanes, ZPixmap));
    if (!part) continue;
    PLAT_ASSERT(part->bits_per_pixel == image_->bits_per_pixel);
    uint8_t* row = getPixelsRW(r, nullptr);
    const char* from = part->data;
    for (int y = 0; y < r.height(); ++y, row += bytesPerLine(), from += part->bytes_per_line) {
      memcpy(row, from, static_cast<size_t>(r.width() * format_.bytesPerPixel()));
    }
  }
}

}  // namespace tx
