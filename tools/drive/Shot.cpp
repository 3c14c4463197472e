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

// The position is told when it changes, so the pointer makes a step to the right and back. At the
// right edge, where nothing comes of the first step, it makes one to the left and back.
void findPointer(Session& session, ShotRecorder& recorder) {
  const auto step = [&](int32_t by) {
    recorder.positioned = false;
    session.agent().pointerEvent(by, 0, 0, true);
  };
  const auto positioned = [&] { return recorder.positioned; };
  const auto wait = [&] { session.waitUntil(positioned, 3000, "the pointer's position"); };
  step(1);
  if (session.agent().processUntil(positioned, 1000)) {
    step(-1);
  } else {
    step(-1);
    wait();
    step(1);
  }
  // By then the image is that of this place, too.
  wait();
}

}  // namespace

void shot(const SessionOptions& sessionOptions, const ShotOptions& options) {
  ShotRecorder recorder;
  Session session(sessionOptions, recorder);
  session.startDesktop();
  if (options.cursor) findPointer(session, recorder);
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
