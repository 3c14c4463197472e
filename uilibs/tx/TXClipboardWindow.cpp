#include "tx/TXClipboardWindow.h"

#include <X11/Xatom.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "plat/Exception.h"
#include "plat/Utf8.h"
#include "plat/config/BoolParameter.h"
#include "plat/log/LogSrc.h"
#include "tx/Atoms.h"
#include "tx/CutBufferEventHandler.h"
#include "tx/ErrorCatcher.h"
#include "tx/FixesExtension.h"
#include "tx/ServerTime.h"
#include "tx/TXDisplay.h"

namespace tx {

namespace {

plat::LogSrc vlog("TXClipboardWindow");
plat::LogSrc windowLog("TXWindow");

plat::BoolParameter useCutBuffer("UseCutBuffer", "Use the cut buffer as well as the X selections",
                                 false, true);

constexpr int kRequestTimeoutMs = 5000;
// Whoever destroys the window again and again does not keep us busy.
constexpr int kRemakeMs = 50;
constexpr const char* kTextProperty = "SELECTION_STRING";

Atom clipboard() {
  return internAtom("CLIPBOARD");
}
Atom targets() {
  return internAtom("TARGETS");
}
Atom timestamp() {
  return internAtom("TIMESTAMP");
}
Atom utf8String() {
  return internAtom("UTF8_STRING");
}

bool isOurs(Atom selection) {
  return SelectionOwner::find(selection) != nullptr;
}

uint32_t item(const std::string& items, size_t index) {
  uint32_t value;
  memcpy(&value, items.data() + index * sizeof value, sizeof value);
  return value;
}

}  // namespace

TXClipboardWindow::TXClipboardWindow(Callback* callback)
    : callback_(callback),
      owner_(*this),
      reader_(*this, *this),
      requestTimer_(this),
      patienceTimer_(this),
      remakeTimer_(this) {}

// The window

void TXClipboardWindow::handleEvent(const XEvent& event) {
  owner_.handleEvent(event);
  reader_.handleEvent(event);
  if (event.type == DestroyNotify && event.xdestroywindow.window == id()) {
    remakeTimer_.start(kRemakeMs);
  }
}

bool TXClipboardWindow::wants(const XEvent& event) {
  return TXWindow::wants(event) || owner_.wants(event) || reader_.wants(event);
}

void TXClipboardWindow::remade() {
  remakeTimer_.stop();
  reader_.forget();
  owner_.takeBack();
  selectChanges();
  // What was asked for is not answered any more, and of what changed meanwhile nobody has told.
  if (current_) waiting_.insert(waiting_.begin(), *current_);
  current_.reset();
  requestTimer_.stop();
  if (isWatching_) check();
  beginNext();
}

void TXClipboardWindow::setWatching(bool on) {
  isWatching_ = on;
  selectChanges();
}

void TXClipboardWindow::selectChanges() {
  const FixesExtension* const xfixes = TXDisplay::isOpen() ? FixesExtension::get() : nullptr;
  if (!xfixes) return;
  const unsigned long mask = isWatching_ ? XFixesSetSelectionOwnerNotifyMask : 0;
  const ErrorCatcher trap;
  for (const Atom selection : {XA_PRIMARY, clipboard()}) {
    xfixes->selectSelectionInput(TXDisplay::display(), id(), selection, mask);
  }
}

// Offering

void TXClipboardWindow::setSelectionText(std::string_view text, uint32_t time) {
  windowLog.debug("Acquiring PRIMARY and CLIPBOARD selections timestamp %lu",
                  static_cast<unsigned long>(time));
  lastText_ = std::string(text);
  owner_.setText(text);
  if (!TXDisplay::isOpen()) return;
  if (!fitsInRequest(text.size())) {
    windowLog.error("Unable to offer %lu bytes of text: the X server takes less at once",
                    static_cast<unsigned long>(text.size()));
  }
  CutBufferEventHandler::store(owner_.latin1());
  const bool tookPrimary = owner_.take(XA_PRIMARY, time);
  const bool tookClipboard = owner_.take(clipboard(), time);
  if (tookPrimary || tookClipboard || TXDisplay::isLost()) return;
  // The window may have been destroyed.
  remake();
  owner_.take(XA_PRIMARY, time);
  owner_.take(clipboard(), time);
}

// Fetching

Atom TXClipboardWindow::preferredSelection() const {
  return callback_->sendPrimary() ? XA_PRIMARY : clipboard();
}

void TXClipboardWindow::check(Atom selection, uint32_t time) {
  if (!TXDisplay::isOpen()) return;
  if (selection == XA_PRIMARY) {
    if (!callback_->sendPrimary()) return;
  } else if (selection != None && selection != clipboard()) {
    throw plat::Exception("Bad selection %ld", static_cast<long>(selection));
  }
  const Change change{selection, time};
  if (current_ && initialFetch_ && time != CurrentTime) {
    // Something has really been copied: it is not what was there at the start.
    reader_.abandon();
    endCheck();
  }
  if (!current_) {
    begin(change);
    return;
  }
  std::erase_if(waiting_, [selection](const Change& c) { return c.selection == selection; });
  waiting_.push_back(change);
  if (!patienceTimer_.isRunning()) startPatience();
}

// A look at what may have changed has all the time that the others need.
void TXClipboardWindow::startPatience() {
  const bool isChanged = std::any_of(waiting_.begin(), waiting_.end(),
                                     [](const Change& c) { return c.time != CurrentTime; });
  if (isChanged) {
    patienceTimer_.start(kPatienceMs);
  } else {
    patienceTimer_.stop();
  }
}

void TXClipboardWindow::begin(const Change& change) {
  if (reader_.isClogged(kTextProperty)) {
    waiting_.push_back(change);
    remake();
    return;
  }
  current_ = change;
  const Atom selection = change.selection != None ? change.selection : preferredSelection();
  requestTimer_.start(kRequestTimeoutMs);
  if (isOurs(selection)) {
    vlog.debug("%s selection owned by us", atomName(selection).c_str());
    if (change.time == CurrentTime && selection == XA_PRIMARY && !isOurs(clipboard())) {
      chosenSelection_ = None;
      gotTimestamp_ = true;
      askTimestamp(clipboard());
    } else {
      endCheck(true, false);
    }
    return;
  }
  if (change.time != CurrentTime) {
    initialFetch_ = false;
    lastTime_ = change.time;
    askTargets(selection);
    return;
  }
  chosenSelection_ = None;
  gotTimestamp_ = false;
  askTimestamp(selection);
}

void TXClipboardWindow::beginNext() {
  if (current_) return;
  while (!current_ && !waiting_.empty() && TXDisplay::isOpen()) {
    const Change next = waiting_.front();
    waiting_.erase(waiting_.begin());
    begin(next);
  }
  startPatience();
}

void TXClipboardWindow::timerCallback(plat::Timer& timer) {
  if (&timer == &remakeTimer_) {
    if (TXDisplay::isOpen()) remake();
    return;
  }
  reader_.abandon();
  if (&timer == &requestTimer_) {
    endCheck(false, true);
  } else {
    endCheck();
  }
  beginNext();
}

void TXClipboardWindow::ask(Atom selection, Atom target, uint32_t time) {
  isAskedTwice_ = false;
  const bool isControl = target == timestamp() || target == targets();
  // The time tells this request from one before that is still owed an answer.
  if (time == CurrentTime && current_ && reader_.isOwed(selection, target)) time = current_->time;
  reader_.request(selection, target,
                  target == timestamp() ? "TIMESTAMP"
                  : target == targets() ? "TARGETS"
                                        : kTextProperty,
                  isControl ? SelectionReader::Content::kControl : SelectionReader::Content::kData,
                  time);
}

void TXClipboardWindow::askTimestamp(Atom selection, uint32_t time) {
  ask(selection, timestamp(), time);
}

void TXClipboardWindow::askTargets(Atom selection) {
  ask(selection, targets(), CurrentTime);
}

void TXClipboardWindow::selectionAnswered(const SelectionReader::Answer& answer) {
  if (!answer.isRefused && answer.property.type == None && !isAskedTwice_) {
    // The owner has answered, and something has taken the answer away.
    ask(answer.selection, answer.target, answer.time);
    isAskedTwice_ = true;
    return;
  }
  if (answer.target == timestamp()) {
    gotTimestamp(answer);
  } else if (answer.target == targets()) {
    gotTargets(answer);
  } else {
    gotText(answer);
  }
  beginNext();
}

void TXClipboardWindow::gotTimestamp(const SelectionReader::Answer& answer) {
  noteTimestamp(answer);
  if (answer.selection == XA_PRIMARY) {
    if (!isOurs(clipboard())) {
      askTimestamp(clipboard(), answer.time);
      return;
    }
  } else if (answer.selection != clipboard()) {
    vlog.debug("Unknown selection %lu", static_cast<unsigned long>(answer.selection));
    return;
  }

  if (initialFetch_ && gotTimestamp_) {
    vlog.debug("Got initial selection timestamps");
    endCheck();
    return;
  }
  if (useCutBuffer.value() && takeCutBuffer()) return;
  if (chosenSelection_ != None) {
    askTargets(chosenSelection_);
  } else if (gotTimestamp_) {
    vlog.debug("Selections were old; ignoring");
    endCheck(false, false);
  } else {
    askTargets(preferredSelection());
  }
}

void TXClipboardWindow::noteTimestamp(const SelectionReader::Answer& answer) {
  const std::string name = atomName(answer.selection);
  if (answer.isRefused) {
    vlog.debug("No %s selection timestamp", name.c_str());
    return;
  }
  const PropertyBytes& property = answer.property;
  if (property.format != 32 || property.data.size() != sizeof(uint32_t)) return;
  uint32_t time = item(property.data, 0);
  const bool isNew = time != 0 && (lastTime_ == 0 || isLater(time, lastTime_));
  vlog.debug("%s selection time is %lu, new %d", name.c_str(), static_cast<unsigned long>(time),
             isNew ? 1 : 0);
  if (time == 0) return;
  gotTimestamp_ = true;
  if (!isNew) return;
  // A time that is still to come would be newer than all copies until then.
  if (const uint32_t now = getServerTime(); now != CurrentTime && isLater(time, now)) time = now;
  lastTime_ = time;
  chosenSelection_ = answer.selection;
}

bool TXClipboardWindow::takeCutBuffer() {
  const uint32_t time = CutBufferEventHandler::cutBufferTime();
  const bool later = time != 0 && (lastTime_ == 0 || isLater(time, lastTime_));
  vlog.debug("Cut buffer time is %lu, later %d", static_cast<unsigned long>(time), later ? 1 : 0);
  if (!later) return false;
  lastTime_ = time;
  const std::string latin1 = CutBufferEventHandler::fetch();
  if (latin1.empty()) return false;
  vlog.debug("Using X cut buffer string");
  // Our own text comes back with what Latin-1 made of it.
  const bool isOwn =
      owner_.text() && latin1 == std::string_view(owner_.latin1()).substr(0, kMaxPropertyBytes);
  deliver(isOwn ? *owner_.text() : plat::latin1ToUtf8(latin1));
  return true;
}

void TXClipboardWindow::gotTargets(const SelectionReader::Answer& answer) {
  if (endedByOwning(answer.selection)) return;
  Atom target = XA_STRING;
  const PropertyBytes& property = answer.property;
  for (size_t i = 0; property.format == 32 && i < property.data.size() / sizeof(uint32_t); ++i) {
    if (item(property.data, i) == utf8String()) target = utf8String();
  }
  ask(answer.selection, target, CurrentTime);
}

void TXClipboardWindow::gotText(const SelectionReader::Answer& answer) {
  const PropertyBytes& property = answer.property;
  if (property.format != 8) {
    endCheck(false, false);
    return;
  }
  if (endedByOwning(answer.selection)) return;
  // The owner says what it has given; one that says neither has been asked for the target.
  const bool isKnown = property.type == utf8String() || property.type == XA_STRING;
  const Atom type = isKnown ? property.type : answer.target;
  vlog.debug("Got %s selection as %s", atomName(answer.selection).c_str(), atomName(type).c_str());
  deliver(type == XA_STRING ? plat::latin1ToUtf8(property.data) : property.data);
}

// A selection that was taken since it was asked for: what the former owner had is no news, and our
// own text need not come by way of the X server.
bool TXClipboardWindow::endedByOwning(Atom selection) {
  if (!isOurs(selection)) return false;
  vlog.debug("%s selection owned by us", atomName(selection).c_str());
  endCheck(true, false);
  return true;
}

void TXClipboardWindow::deliver(std::string text) {
  if (lastText_ == text) {
    vlog.debug("Filtering out duplicate cut text");
    endCheck(true, false);
    return;
  }
  const std::optional<std::string> former = std::exchange(lastText_, text);
  const bool initial = initialFetch_;
  endCheck();
  if (initial || callback_->clipboardChanged(text.size(), text.c_str())) return;
  if (lastText_ == text) lastText_ = former;
}

void TXClipboardWindow::endCheck() {
  current_.reset();
  initialFetch_ = false;
  requestTimer_.stop();
}

void TXClipboardWindow::endCheck(bool gotText, bool timedOut) {
  endCheck();
  callback_->requestDone(gotText, timedOut);
}

}  // namespace tx
