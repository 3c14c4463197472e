// The floor that the agent is measured against: a program that follows the protocol's rules for
// updates, passes the key "a" on, and does nothing else. No keyboard, pointer, cursors, clipboard,
// tests, clean-up, or answers to what goes wrong.
//
//   floor MODE DESCRIPTOR

#include <X11/Xlib.h>
#include <X11/extensions/XShm.h>
#include <X11/extensions/XTest.h>
#include <X11/extensions/Xdamage.h>
#include <X11/extensions/Xfixes.h>
#include <X11/keysym.h>
#include <sys/select.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include "rdr/MemOutStream.h"
#include "rfb/PixelFormat.h"
#include "rfb/Region.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::string_view kKeyEvent = "\x08keyEvent";
constexpr milliseconds kBatch{1}, kPeriod{25}, kPointer{100};

class Floor {
 public:
  explicit Floor(int channel) : channel_(channel) {
    send("init", [](rdr::MemOutStream& out) { out.writeU32(0x7CCA9ECB); });
    send("initRectAndPf", [this](rdr::MemOutStream& out) {
      writeRect(out);
      format_.write(out);
    });
  }

  void run() {
    for (;;) {
      while (display_ && XPending(display_) > 0) {
        XEvent event;
        XNextEvent(display_, &event);
        if (event.type == damageEvent_ && !batch_) batch_ = Clock::now() + kBatch;
      }
      std::optional<Clock::time_point> next = pointer_;
      if (batch_ && requested_) {
        const Clock::time_point due = std::max(*batch_, lastUpdate_ + kPeriod);
        next = next ? std::min(*next, due) : due;
      }
      timeval wait{};
      if (next) {
        const auto left = std::chrono::ceil<milliseconds>(*next - Clock::now()).count();
        wait.tv_usec = static_cast<suseconds_t>(std::max<int64_t>(left, 0) * 1000);
      }
      fd_set readable;
      FD_ZERO(&readable);
      FD_SET(channel_, &readable);
      const int connection = display_ ? ConnectionNumber(display_) : channel_;
      FD_SET(connection, &readable);
      select(std::max(channel_, connection) + 1, &readable, nullptr, nullptr,
             next ? &wait : nullptr);
      if (FD_ISSET(channel_, &readable) && !read()) return;
      const Clock::time_point now = Clock::now();
      if (pointer_ && now >= *pointer_) askPointer();
      if (batch_ && requested_ && now >= std::max(*batch_, lastUpdate_ + kPeriod)) update();
    }
  }

 private:
  void start() {
    display_ = XOpenDisplay(nullptr);
    root_ = DefaultRootWindow(display_);
    keycode_ = XKeysymToKeycode(display_, XK_a);
    width_ = DisplayWidth(display_, 0);
    height_ = DisplayHeight(display_, 0);
    const size_t size = static_cast<size_t>(width_) * static_cast<size_t>(height_) * 4;
    segment_.shmid = shmget(IPC_PRIVATE, size, IPC_CREAT | 0600);
    segment_.shmaddr = static_cast<char*>(shmat(segment_.shmid, nullptr, 0));
    XShmAttach(display_, &segment_);
    const auto width = static_cast<unsigned>(width_), height = static_cast<unsigned>(height_);
    pixmap_ = XShmCreatePixmap(display_, root_, segment_.shmaddr, &segment_, width, height,
                               static_cast<unsigned>(DefaultDepth(display_, 0)));
    XGCValues values{};
    values.subwindow_mode = IncludeInferiors;
    values.graphics_exposures = False;
    gc_ = XCreateGC(display_, pixmap_, GCSubwindowMode | GCGraphicsExposures, &values);
    XCopyArea(display_, root_, pixmap_, gc_, 0, 0, width, height, 0, 0);
    int error;
    XFixesQueryExtension(display_, &damageEvent_, &error);
    XDamageQueryExtension(display_, &damageEvent_, &error);
    damage_ = XDamageCreate(display_, root_, XDamageReportDeltaRectangles);
    region_ = XFixesCreateRegion(display_, nullptr, 0);
    XDamageSubtract(display_, damage_, None, region_);
    XSync(display_, False);
    // It stays as long as it is attached, and can be until then.
    shmctl(segment_.shmid, IPC_RMID, nullptr);
    send("setPixelBuffer", [this](rdr::MemOutStream& out) {
      format_.write(out);
      writeRect(out);
      out.writeU32(static_cast<uint32_t>(width_));
      out.writeU8(1);
      out.writeU8(1);
      out.writeU32(static_cast<uint32_t>(width_ * height_ * 4));
      out.writeU32(static_cast<uint32_t>(segment_.shmid));
    });
    pointer_ = Clock::now() + kPointer;
  }

  // Only these three messages are known, and only whole.
  bool read() {
    char bytes[4096];
    const ssize_t length = ::read(channel_, bytes, sizeof bytes);
    if (length <= 0) return false;
    const std::string_view text(bytes, static_cast<size_t>(length));
    if (text.find("\x05start") != text.npos) start();
    if (text.find("fbUpdateRequest") != text.npos) requested_ = true;
    size_t key = text.find(kKeyEvent);
    const bool hasKeys = key != text.npos;
    for (; key != text.npos; key = text.find(kKeyEvent, key + 1)) {
      const bool down = text.substr(key + kKeyEvent.size() + 4).starts_with('\x01');
      XTestFakeKeyEvent(display_, keycode_, down, CurrentTime);
    }
    if (hasKeys) XFlush(display_);
    return true;
  }

  void askPointer() {
    Window window;
    int x, y;
    unsigned mask;
    XQueryPointer(display_, root_, &window, &window, &x, &y, &x, &y, &mask);
    pointer_ = Clock::now() + kPointer;
  }

  void update() {
    batch_.reset();
    requested_ = false;
    lastUpdate_ = Clock::now();
    XDamageSubtract(display_, damage_, None, region_);
    int count = 0;
    XRectangle bounds;
    XRectangle* const rects = XFixesFetchRegionAndBounds(display_, region_, &count, &bounds);
    rfb::Region changed;
    for (int i = 0; i < count; ++i) {
      const XRectangle& r = rects[i];
      changed |= rfb::Rect(r.x, r.y, r.x + r.width, r.y + r.height);
      XCopyArea(display_, root_, pixmap_, gc_, r.x, r.y, r.width, r.height, r.x, r.y);
    }
    if (rects) XFree(rects);
    XSync(display_, False);
    send("fbUpdate", [&](rdr::MemOutStream& out) {
      rfb::Region().write(out);
      out.writeU64(0);
      changed.write(out);
    });
  }

  void writeRect(rdr::MemOutStream& out) const {
    for (const int edge : {0, 0, width_, height_}) out.writeS32(edge);
  }

  void send(std::string_view name, const std::function<void(rdr::MemOutStream&)>& body) {
    out_.clear();
    out_.writeU16(0);
    out_.writeShortString(name);
    body(out_);
    std::vector<uint8_t> frame(out_.data(), out_.data() + out_.size());
    const size_t length = frame.size() - 2;
    frame[0] = static_cast<uint8_t>(0x80 | length >> 8);
    frame[1] = static_cast<uint8_t>(length);
    [[maybe_unused]] const ssize_t written = write(channel_, frame.data(), frame.size());
  }

  const int channel_;
  rdr::MemOutStream out_;
  const rfb::PixelFormat format_{32, 24, false, true, 255, 255, 255, 16, 8, 0};
  Display* display_ = nullptr;
  Window root_ = None;
  KeyCode keycode_ = 0;
  int width_ = 0, height_ = 0;
  XShmSegmentInfo segment_{};
  Pixmap pixmap_ = None;
  GC gc_ = nullptr;
  Damage damage_ = None;
  XserverRegion region_ = None;
  int damageEvent_ = 0;
  bool requested_ = false;
  Clock::time_point lastUpdate_;
  std::optional<Clock::time_point> batch_, pointer_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  Floor(std::atoi(argv[2])).run();
  return 0;
}
