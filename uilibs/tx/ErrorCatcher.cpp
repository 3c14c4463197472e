#include "tx/ErrorCatcher.h"

#include <vector>

#include "plat/Assert.h"
#include "tx/TXDisplay.h"
#include "tx/XErrorLog.h"

namespace tx {

namespace {

// Request numbers wrap where long has 32 bits.
bool isBefore(unsigned long a, unsigned long b) {
  return static_cast<long>(a - b) < 0;
}

}  // namespace

// The traps of the display by the requests made inside them: those that are open, and those that
// have been left while errors of theirs may still arrive.
class ErrorTraps {
 public:
  static ErrorTraps& get() { return TXDisplay::part<ErrorTraps>(); }
  ErrorTraps() : outer_(XSetErrorHandler(handle)) {}
  ~ErrorTraps() { XSetErrorHandler(outer_); }

  void enter(ErrorCatcher& trap) {
    forgetAnswered();
    traps_.push_back({trap.begin_, 0, &trap});
  }

  void leave(const ErrorCatcher& trap) {
    const ErrorCatcher* innermost = nullptr;
    size_t at = traps_.size();
    while (!innermost && at > 0) innermost = traps_[--at].trap;
    PLAT_ASSERT(innermost == &trap);
    traps_[at].trap = nullptr;
    traps_[at].end = NextRequest(TXDisplay::display());
    forgetAnswered();
  }

 private:
  struct Trap {
    unsigned long begin;
    unsigned long end;   // the number after the last request; of no meaning while it is open
    ErrorCatcher* trap;  // null when it has been left
    bool covers(unsigned long request) const {
      return !isBefore(request, begin) && (trap || isBefore(request, end));
    }
  };

  static int handle(Display* display, XErrorEvent* error) {
    ErrorTraps& self = get();
    if (display != TXDisplay::display()) return self.outer_(display, error);
    // Of traps around the same request the innermost one was entered last.
    for (auto it = self.traps_.rbegin(); it != self.traps_.rend(); ++it) {
      if (!it->covers(error->serial)) continue;
      if (it->trap && !it->trap->error_) it->trap->error_ = *error;
      return 0;
    }
    return self.outer_(display, error);
  }

  void forgetAnswered() {
    const unsigned long answered = LastKnownRequestProcessed(TXDisplay::display());
    std::erase_if(traps_, [answered](const Trap& trap) {
      return !trap.trap && (trap.end == trap.begin || !isBefore(answered, trap.end - 1));
    });
  }

  const XErrorHandler outer_;
  std::vector<Trap> traps_;
};

XErrorException::XErrorException(const std::string& what, const XErrorEvent& error)
    : plat::Exception(Kind{"XErrorException"}, what + ": " + describeXError(error.display, error)),
      errorCode_(error.error_code),
      requestCode_(error.request_code) {}

ErrorCatcher::ErrorCatcher() : begin_(NextRequest(TXDisplay::display())) {
  ErrorTraps::get().enter(*this);
}

ErrorCatcher::~ErrorCatcher() {
  ErrorTraps::get().leave(*this);
}

bool ErrorCatcher::failed() {
  Display* const display = TXDisplay::display();
  const unsigned long last = NextRequest(display) - 1;
  if (!isBefore(last, begin_) && isBefore(LastKnownRequestProcessed(display), last) &&
      TXDisplay::isOpen()) {
    XSync(display, False);
  }
  return error_.has_value();
}

void ErrorCatcher::check(const char* what) {
  if (failed()) throw XErrorException(what, *error_);
}

}  // namespace tx
