#include "tx/TXClipboardWindow.h"

#include <X11/Xatom.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "plat/Exception.h"
#include "plat/Utf8.h"
#include "plat/config/BoolParameter.h"
#include "plat/log/LogSrc.h"
#include "tx/Atoms.h"
#include "tx/CutBufferEventHandler.h"
#include "tx/ServerTime.h"
#include "tx/TXDisplay.h"
#include "tx/XResources.h"

namespace tx {

namespace {

plat::LogSrc vlog("TXClipboardWindow");

plat::BoolParameter useCutBuffer("UseCutBuffer", "Use the cut buffer as well as the X selections",
                                 false, true);

constexpr int kRequestTimeoutMs = 5000;

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

// The first one serves unless an owner is still sending pieces through it, which could replace the
// text of the next.
constexpr const char* kTextProperties[] = {"SELECTION_STRING", "SELECTION_STRING_2",
                                           "SELECTION_STRING_3", "SELECTION_STRING_4"};

bool isTextProperty(Atom property) {
  return std::any_of(std::begin(kTextProperties), std::end(kTextProperties),
                     [property](const char* name) { return internAtom(name) == property; });
}

bool isOurs(Atom selection) {
  return TXWindow::selectionOwner(selection) != nullptr;
}

uint32_t item(const std::string& items, size_t index) {
  uint32_t value;
  memcpy(&value, items.data() + index * sizeof value, sizeof value);
  return value;
}

}  // namespace

TXClipboardWindow::TXClipboardWindow(Callback* callback)
    : callback_(callback), requestTimer_(this) {}

Atom TXClipboardWindow::preferredSelection() const {
  return callback_->sendPrimary() ? XA_PRIMARY : clipboard();
}

void TXClipboardWindow::check(Atom selection, uint32_t time) {
  if (!TXDisplay::isOpen()) return;
  if (selection == None) {
    selection = preferredSelection();
  } else if (selection == XA_PRIMARY) {
    if (!callback_->sendPrimary()) return;
  } else if (selection != clipboard()) {
    throw plat::Exception("Bad selection %ld", static_cast<long>(selection));
  }

  requestTimer_.start(kRequestTimeoutMs);
  if (isOurs(selection)) {
    vlog.debug("%s selection owned by us", atomName(selection).c_str());
    if (time == CurrentTime && selection == XA_PRIMARY && !isOurs(clipboard())) {
      chosenSelection_ = None;
      gotTimestamp_ = true;
      askTimestamp(clipboard());
    } else {
      endCheck(true, false);
    }
    return;
  }
  if (time != CurrentTime) {
    // Something has really been copied: it is not what was there at the start.
    initialFetch_ = false;
    lastTime_ = time;
    askTargets(selection);
    return;
  }
  chosenSelection_ = None;
  gotTimestamp_ = false;
  askTimestamp(selection);
}

void TXClipboardWindow::setSelectionText(std::string_view text, uint32_t time) {
  lastText_ = std::string(text);
  TXWindow::setSelectionText(text, time);
}

void TXClipboardWindow::askTimestamp(Atom selection, uint32_t time) {
  requestSelection(selection, timestamp(), timestamp(), time);
}

void TXClipboardWindow::askTargets(Atom selection) {
  requestSelection(selection, targets(), targets(), CurrentTime);
}

void TXClipboardWindow::selectionNotify(const SelectionData& answer) {
  if (answer.target == timestamp()) {
    gotTimestamp(answer);
  } else if (answer.target == targets()) {
    gotTargets(answer);
  } else if (answer.target == utf8String() || answer.target == XA_STRING) {
    gotText(answer);
  }
}

void TXClipboardWindow::gotTimestamp(const SelectionData& answer) {
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

void TXClipboardWindow::noteTimestamp(const SelectionData& answer) {
  const std::string name = atomName(answer.selection);
  if (answer.property != timestamp()) {
    vlog.debug("No %s selection timestamp", name.c_str());
    return;
  }
  if (answer.format != 32 || answer.data.size() != sizeof(uint32_t)) return;
  const uint32_t time = item(answer.data, 0);
  const bool isNew = time != 0 && (lastTime_ == 0 || isLater(time, lastTime_));
  vlog.debug("%s selection time is %lu, new %d", name.c_str(), static_cast<unsigned long>(time),
             isNew ? 1 : 0);
  if (time == 0) return;
  gotTimestamp_ = true;
  if (!isNew) return;
  lastTime_ = time;
  chosenSelection_ = answer.selection;
}

bool TXClipboardWindow::takeCutBuffer() {
  const uint32_t time = CutBufferEventHandler::cutBufferTime();
  const bool later = time != 0 && (lastTime_ == 0 || isLater(time, lastTime_));
  vlog.debug("Cut buffer time is %lu, later %d", static_cast<unsigned long>(time), later ? 1 : 0);
  if (!later) return false;
  lastTime_ = time;
  int length = 0;
  const XMemory<char> bytes(XFetchBytes(TXDisplay::display(), &length));
  if (!bytes || length <= 0) return false;
  vlog.debug("Using X cut buffer string");
  const std::string_view latin1(bytes.get(), static_cast<size_t>(length));
  // Our own text comes back with what Latin-1 made of it.
  deliver(text() && latin1 == plat::utf8ToLatin1(*text()) ? *text() : plat::latin1ToUtf8(latin1));
  return true;
}

void TXClipboardWindow::gotTargets(const SelectionData& answer) {
  Atom target = XA_STRING;
  if (answer.property == targets() && answer.format == 32) {
    for (size_t i = 0; i < answer.data.size() / sizeof(uint32_t); ++i) {
      if (item(answer.data, i) == utf8String()) target = utf8String();
    }
  }
  requestSelection(answer.selection, target, textProperty(), CurrentTime);
}

Atom TXClipboardWindow::textProperty() {
  for (const char* name : kTextProperties) {
    if (!isDraining(internAtom(name))) return internAtom(name);
  }
  // Owners that never finish do not get them all: in turn.
  nextTextProperty_ = (nextTextProperty_ + 1) % std::size(kTextProperties);
  return internAtom(kTextProperties[nextTextProperty_]);
}

void TXClipboardWindow::gotText(const SelectionData& answer) {
  if (!isTextProperty(answer.property) || answer.format != 8) {
    endCheck(false, false);
    return;
  }
  if (isOurs(answer.selection)) {
    // Taken since it was asked for: what the former owner had is no news.
    vlog.debug("%s selection owned by us", atomName(answer.selection).c_str());
    endCheck(true, false);
    return;
  }
  vlog.debug("Got %s selection as %s", atomName(answer.selection).c_str(),
             atomName(answer.target).c_str());
  deliver(answer.target == XA_STRING ? plat::latin1ToUtf8(answer.data) : answer.data);
}

void TXClipboardWindow::deliver(std::string text) {
  if (lastText_ == text) {
    vlog.debug("Filtering out duplicate cut text");
    endCheck(true, false);
    return;
  }
  lastText_ = std::move(text);
  const bool initial = initialFetch_;
  endCheck();
  if (initial) return;
  // The callback may replace the text.
  const std::string delivered = *lastText_;
  callback_->clipboardChanged(delivered.size(), delivered.c_str());
}

void TXClipboardWindow::endCheck() {
  initialFetch_ = false;
  requestTimer_.stop();
}

void TXClipboardWindow::endCheck(bool gotText, bool timedOut) {
  endCheck();
  callback_->requestDone(gotText, timedOut);
}

void TXClipboardWindow::timerCallback(plat::Timer&) {
  endCheck(false, true);
}

}  // namespace tx
