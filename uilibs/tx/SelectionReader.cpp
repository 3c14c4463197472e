#include "tx/SelectionReader.h"

#include <X11/Xatom.h>

#include <algorithm>

#include "plat/Time.h"
#include "plat/log/LogSrc.h"
#include "tx/Atoms.h"
#include "tx/ErrorCatcher.h"
#include "tx/TXDisplay.h"
#include "tx/XResources.h"

namespace tx {

namespace {

plat::LogSrc vlog("TXWindow");

// Properties of similar names.
constexpr int kNames = 4;
// A transfer in pieces that is longer, or pauses longer, is given up; small pieces count as more.
constexpr size_t kMaxTransfer = 64 * 1024 * 1024;
constexpr size_t kMinPiece = 4096;
constexpr int kPieceTimeoutMs = 5000;
// As long as that after an answer the same owner may give it again.
constexpr int64_t kTwiceTicks = plat::kTicksPerSecond;

Atom similarName(const char* name, int index) {
  if (index == 0) return internAtom(name);
  return internAtom((std::string(name) + "_" + std::to_string(index + 1)).c_str());
}

// Removes a UTF-8 sequence whose end has been cut off.
void dropIncompleteCharacter(std::string* text) {
  for (size_t back = 1; back <= 3 && back <= text->size(); ++back) {
    const auto byte = static_cast<unsigned char>((*text)[text->size() - back]);
    if ((byte & 0xC0) == 0x80) continue;
    const size_t length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 1;
    if (length > back) text->resize(text->size() - back);
    return;
  }
}

}  // namespace

SelectionReader::SelectionReader(TXWindow& window, Callback& callback)
    : window_(window), callback_(callback), pieceTimer_(this) {}

bool SelectionReader::isOwed(Atom selection, Atom target) const {
  return std::any_of(owed_.begin(), owed_.end(), [&](const Request& r) {
    return r.selection == selection && r.target == target;
  });
}

bool SelectionReader::isClogged(const char* property) const {
  if (transfers_.size() < kNames) return false;
  for (int i = 0; i < kNames; ++i) {
    if (transfers_.count(similarName(property, i)) == 0) return false;
  }
  return true;
}

Atom SelectionReader::freeProperty(const char* name) {
  const int64_t now = plat::monotonicTime();
  Atom best = None;
  for (int i = 0; i < kNames; ++i) {
    const Atom property = similarName(name, i);
    const bool isOwed = std::any_of(owed_.begin(), owed_.end(), [property](const Request& r) {
      return r.property == property;
    });
    if (isOwed || transfers_.count(property) != 0) continue;
    const auto answered = answeredAt_.find(property);
    if (answered == answeredAt_.end() || now - answered->second > kTwiceTicks) return property;
    if (best == None || answered->second < answeredAt_[best]) best = property;
  }
  if (best != None) return best;
  // Owners that never answer do not get them all: the one that is owed an answer longest.
  for (auto it = owed_.begin(); it != owed_.end(); ++it) {
    for (int i = 0; i < kNames; ++i) {
      const Atom property = similarName(name, i);
      if (it->property != property) continue;
      owed_.erase(it);
      return property;
    }
  }
  return internAtom(name);
}

void SelectionReader::request(Atom selection, Atom target, const char* property, Content content,
                              uint32_t time) {
  const Request made{selection, target, freeProperty(property), content, time};
  owed_.push_back(made);
  properties_.insert(made.property);
  isWaiting_ = true;
  Display* const display = TXDisplay::display();
  // The window may be gone; then it will be made anew.
  const ErrorCatcher trap;
  // Nothing of an earlier answer is taken for this one's.
  XDeleteProperty(display, window_.id(), made.property);
  XConvertSelection(display, selection, target, made.property, window_.id(), time);
}

void SelectionReader::forget() {
  owed_.clear();
  transfers_.clear();
  answeredAt_.clear();
  isWaiting_ = false;
  pieceTimer_.stop();
}

bool SelectionReader::wants(const XEvent& event) const {
  if (event.type == SelectionNotify) return findOwed(event.xselection) != owed_.end();
  return event.type == PropertyNotify && event.xproperty.state == PropertyNewValue &&
         transfers_.count(event.xproperty.atom) != 0;
}

void SelectionReader::handleEvent(const XEvent& event) {
  if (event.type == SelectionNotify) answered(event.xselection);
  if (event.type == PropertyNotify && event.xproperty.state == PropertyNewValue) {
    drain(event.xproperty.atom);
  }
}

// By the property; a refusal names none, or one that was never asked for. Requests of different
// times are told apart by these, as far as owners return them.
std::vector<SelectionReader::Request>::const_iterator SelectionReader::findOwed(
    const XSelectionEvent& event) const {
  const bool isForeign = properties_.count(event.property) == 0;
  const auto find = [&](bool sameTime) {
    return std::find_if(owed_.begin(), owed_.end(), [&](const Request& r) {
      return r.selection == event.selection && r.target == event.target &&
             (event.property == r.property || isForeign) &&
             (!sameTime || r.time == static_cast<uint32_t>(event.time));
    });
  };
  const auto exact = find(true);
  return exact != owed_.end() ? exact : find(false);
}

void SelectionReader::answered(const XSelectionEvent& event) {
  const auto owed = findOwed(event);
  if (owed == owed_.end()) return;
  const Request request = *owed;
  const bool isAwaited = isWaiting_ && owed + 1 == owed_.end();
  owed_.erase(owed);
  Answer answer{request.selection,
                request.target,
                static_cast<uint32_t>(event.time),
                event.property != request.property,
                {}};
  if (!answer.isRefused) {
    if (request.content == Content::kData) {
      answeredAt_[request.property] = plat::monotonicTime();
    }
    answer.property = read(request.property);
  }
  if (!isAwaited) return;
  isWaiting_ = false;
  callback_.selectionAnswered(answer);
}

PropertyBytes SelectionReader::read(Atom property) {
  const Atom utf8String = internAtom("UTF8_STRING");
  const Atom incr = internAtom("INCR");
  // When it announces pieces, the first one may come as soon as this is done: nothing may be read
  // from the server before it is known that they are wanted.
  PropertyBytes bytes = readProperty(window_.id(), property, true);
  if (bytes.isCut && bytes.type == utf8String) dropIncompleteCharacter(&bytes.data);
  if (bytes.type == incr) {
    vlog.info("Ignoring large selection - replacing with empty string");
    bytes = {utf8String, 8, {}, false};
    transfers_[property] = {};
    pieceTimer_.start(kPieceTimeoutMs);
  }
  return bytes;
}

void SelectionReader::drain(Atom property) {
  const auto transfer = transfers_.find(property);
  if (transfer == transfers_.end()) return;
  Display* const display = TXDisplay::display();
  Atom type = None;
  int format = 0;
  unsigned long count = 0;
  unsigned long left = 0;
  unsigned char* memory = nullptr;
  const ErrorCatcher trap;
  // Deleted without being fetched.
  if (XGetWindowProperty(display, window_.id(), property, 0, 0, True, AnyPropertyType, &type,
                         &format, &count, &left, &memory) != Success) {
    return;
  }
  const XMemory<unsigned char> nothing(memory);
  // An owner that takes the deletion of any property for this one's writes pieces over each other:
  // the second notification then finds no property, which is no end.
  if (left == 0 && type != None) {
    transfers_.erase(transfer);
    if (transfers_.empty()) pieceTimer_.stop();
    return;
  }
  transfer->second.bytes += std::max<size_t>(left, kMinPiece);
  if (transfer->second.bytes > kMaxTransfer) {
    window_.remake();
    return;
  }
  if (left == 0) return;
  XDeleteProperty(display, window_.id(), property);
  pieceTimer_.start(kPieceTimeoutMs);
}

// Its owner would write its pieces into a later request's property: it cannot reach a new window.
void SelectionReader::timerCallback(plat::Timer&) {
  if (TXDisplay::isOpen()) window_.remake();
}

}  // namespace tx
