#include "Picture.h"
#include "View.h"

namespace drive {

namespace {

class ShotRecorder : public Recorder {
 public:
  void setCursorImage(const host::CursorImage& image) override { cursor = image; }
  void setCursorPos(int32_t x, int32_t y) override {
    cursorX = x;
    cursorY = y;
    positioned = true;
  }

  host::CursorImage cursor;
  int32_t cursorX = 0, cursorY = 0;
  bool positioned = false;
};

}  // namespace

void shot(const SessionOptions& sessionOptions, const ShotOptions& options) {
  ShotRecorder recorder;
  Session session(sessionOptions, recorder);
  session.startDesktop();
  if (options.cursor) {
    // The position is told when it changes: a movement to nowhere and back makes it known.
    session.agent().pointerEvent(1, 0, 0, true);
    session.agent().pointerEvent(-1, 0, 0, true);
    session.waitUntil([&] { return recorder.positioned; }, 3000, "the pointer's position");
  }
  Picture picture = Picture::ofFramebuffer(session.agent());
  if (options.cursor) {
    const rfb::Rect& rect = session.agent().pixelBuffer().rect;
    picture.drawCursor(recorder.cursor, recorder.cursorX - rect.tl.x, recorder.cursorY - rect.tl.y);
  }
  picture.writePng(options.file, false);
  session.finish();
}

void cursorShot(const SessionOptions& sessionOptions, const std::string& file) {
  ShotRecorder recorder;
  Session session(sessionOptions, recorder);
  session.startDesktop();
  session.waitUntil([&] { return recorder.cursor.visible; }, 5000, "the cursor's image");
  Picture::ofCursor(recorder.cursor).writePng(file, true);
  session.finish();
}

}  // namespace drive
