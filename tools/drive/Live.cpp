#include <signal.h>
#include <unistd.h>

#include <memory>
#include <optional>

#include "BlockCanvas.h"
#include "KittyCanvas.h"
#include "Picture.h"
#include "SixelCanvas.h"
#include "Terminal.h"
#include "TerminalScreen.h"
#include "View.h"

namespace drive {

namespace {

constexpr double kPeriod = 0.05;  // seconds between pictures at least

std::unique_ptr<Canvas> makeCanvas(TerminalScreen& screen) {
  if (screen.graphics().kitty) return std::make_unique<KittyCanvas>(screen);
  if (screen.graphics().sixel && SixelCanvas::isAvailable()) {
    return std::make_unique<SixelCanvas>(screen);
  }
  return std::make_unique<BlockCanvas>(screen);
}

}  // namespace

void live(const SessionOptions& sessionOptions, double seconds) {
  if (isatty(STDOUT_FILENO) != 1) throw Failure("the desktop is shown in a terminal only");
  host::Transcript seen(host::Transcript::Keep::kLast);
  Session session(sessionOptions, seen);
  session.startDesktop();
  {
    std::optional<TerminalScreen> screen;
    std::unique_ptr<Canvas> canvas;
    int shown = 0, asked = 0;
    TerminalSize size;
    for (double passed = 0; seconds <= 0 || passed < seconds; passed += kPeriod) {
      if (interrupted() || !session.agent().isConnected()) break;
      if (screen && screen->isStopWanted()) {
        // The shell gets its terminal as it was.
        canvas.reset();
        screen.reset();
        raise(SIGTSTP);
      }
      if (!screen) {
        canvas = makeCanvas(screen.emplace());
        size = {};
      }
      const int now = seen.count("fbUpdate") + seen.count("setPixelBuffer");
      if (now != shown || size != screen->size()) {
        size = screen->size();
        canvas->draw(Picture::ofFramebuffer(session.agent(), session.agent().pixelBuffer().rect),
                     size);
        if (!screen->flush() && !interrupted()) throw Failure("the terminal takes no more");
      }
      shown = now;
      if (asked <= seen.count("fbUpdate")) {
        session.agent().fbUpdateRequest();
        asked = seen.count("fbUpdate") + 1;
      }
      session.run(kPeriod, [] { return false; });
    }
  }
  session.finish();
}

}  // namespace drive
