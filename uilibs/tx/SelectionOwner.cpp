#include "tx/SelectionOwner.h"

#include <X11/Xatom.h>

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "plat/Utf8.h"
#include "tx/Atoms.h"
#include "tx/ErrorCatcher.h"
#include "tx/PropertyBytes.h"
#include "tx/TXDisplay.h"
#include "tx/XClients.h"

namespace tx {

namespace {

// Serving that much needs no rest before the next request.
constexpr std::chrono::milliseconds kUnrestedMs{20};
// Requests of one client that are taken before they are served; more are not answered.
constexpr int kMaxUnserved = 128;
// From this size on it is worth waiting to hear whether the server had room for the text.
constexpr size_t kLargeText = 4 * 1024 * 1024;

struct SelectionOwners {
  std::map<Atom, SelectionOwner*> bySelection;
};

std::map<Atom, SelectionOwner*>& owners() {
  return TXDisplay::part<SelectionOwners>().bySelection;
}

}  // namespace

SelectionOwner::SelectionOwner(TXWindow& window) : window_(window), timer_(this) {}

SelectionOwner::~SelectionOwner() {
  if (!TXDisplay::current()) return;
  std::erase_if(owners(), [this](const auto& entry) { return entry.second == this; });
}

const SelectionOwner* SelectionOwner::find(Atom selection) {
  const auto it = owners().find(selection);
  return it == owners().end() ? nullptr : it->second;
}

void SelectionOwner::setText(std::string_view text) {
  text_ = std::string(text);
  latin1_ = plat::utf8ToLatin1(text);
}

bool SelectionOwner::take(Atom selection, uint32_t time) {
  Display* const display = TXDisplay::display();
  // The window may be gone.
  const ErrorCatcher trap;
  const unsigned long request = NextRequest(display);
  XSetSelectionOwner(display, selection, window_.id(), time);
  if (XGetSelectionOwner(display, selection) != window_.id()) return false;
  SelectionOwner*& owner = owners()[selection];
  if (owner && owner != this) owner->owned_.erase(selection);
  owner = this;
  owned_[selection] = {time, request};
  return true;
}

void SelectionOwner::takeBack() {
  // Requests to the former window are not seen any more.
  unserved_.clear();
  const std::map<Atom, Taken> before = owned_;
  for (const auto& [selection, taken] : before) {
    forget(selection);
    // Times have only milliseconds, within which somebody may have taken it.
    if (XGetSelectionOwner(TXDisplay::display(), selection) == None) take(selection, taken.time);
  }
}

bool SelectionOwner::wants(const XEvent& event) {
  if (event.type != SelectionRequest) return false;
  int& unserved = unserved_[clientOf(event.xselectionrequest.requestor)];
  if (unserved >= kMaxUnserved) return false;
  ++unserved;
  return true;
}

void SelectionOwner::handleEvent(const XEvent& event) {
  if (event.type == SelectionClear) lost(event.xselectionclear);
  if (event.type == SelectionRequest) asked(event.xselectionrequest);
}

void SelectionOwner::lost(const XSelectionClearEvent& event) {
  const auto it = owned_.find(event.selection);
  // It may have been taken back since: numbers wrap where long has 32 bits.
  if (it == owned_.end() || static_cast<long>(event.serial - it->second.request) < 0) return;
  forget(event.selection);
}

void SelectionOwner::forget(Atom selection) {
  owned_.erase(selection);
  if (find(selection) == this) owners().erase(selection);
}

bool SelectionOwner::mayServe() const {
  return Clock::now() + kUnrestedMs >= rested_;
}

void SelectionOwner::asked(const XSelectionRequestEvent& request) {
  if (waiting_.empty() && mayServe()) {
    serve(request);
    return;
  }
  waiting_.push_back(request);
  if (!timer_.isRunning()) timer_.start(1);
}

void SelectionOwner::timerCallback(plat::Timer&) {
  while (!waiting_.empty() && mayServe() && TXDisplay::isOpen()) {
    const XSelectionRequestEvent request = waiting_.front();
    waiting_.pop_front();
    serve(request);
  }
  if (waiting_.empty()) return;
  const auto wait =
      std::chrono::ceil<std::chrono::milliseconds>(rested_ - kUnrestedMs - Clock::now());
  timer_.start(std::max(static_cast<int>(wait.count()), 1));
}

void SelectionOwner::serve(const XSelectionRequestEvent& request) {
  const auto client = unserved_.find(clientOf(request.requestor));
  if (client != unserved_.end() && --client->second == 0) unserved_.erase(client);
  const Clock::time_point begin = Clock::now();
  Display* const display = TXDisplay::display();
  // Requestors older than the ICCCM leave the property to us.
  const Atom property = request.property != None ? request.property : request.target;
  XEvent reply{};
  reply.xselection.type = SelectionNotify;
  reply.xselection.display = display;
  reply.xselection.requestor = request.requestor;
  reply.xselection.selection = request.selection;
  reply.xselection.target = request.target;
  reply.xselection.property = writeAnswer(request, property) ? property : None;
  reply.xselection.time = request.time;
  // The requestor may be gone.
  const ErrorCatcher trap;
  XSendEvent(display, request.requestor, False, 0, &reply);
  rested_ = std::max(rested_, begin) + 2 * (Clock::now() - begin);
}

bool SelectionOwner::writeAnswer(const XSelectionRequestEvent& request, Atom property) {
  const auto owned = owned_.find(request.selection);
  if (!text_ || owned == owned_.end()) return false;
  // The requestor may be gone, and the server may have no room for the text.
  ErrorCatcher trap;
  const auto set = [&](Atom type, int format, const void* items, size_t count) {
    XChangeProperty(TXDisplay::display(), request.requestor, property, type, format,
                    PropModeReplace, static_cast<const unsigned char*>(items),
                    static_cast<int>(count));
    return count < kLargeText || !trap.failed();
  };
  const auto setText = [&](Atom type, const std::string& text) {
    return fitsInRequest(text.size()) && set(type, 8, text.data(), text.size());
  };
  const Atom utf8String = internAtom("UTF8_STRING");
  const Atom timestamp = internAtom("TIMESTAMP");
  if (request.target == internAtom("TARGETS")) {
    const Atom targets[] = {timestamp, utf8String, XA_STRING};
    return set(XA_ATOM, 32, targets, std::size(targets));
  }
  if (request.target == timestamp) {
    const long time = static_cast<long>(owned->second.time);
    return set(XA_INTEGER, 32, &time, 1);
  }
  if (request.target == utf8String) return setText(utf8String, *text_);
  if (request.target == XA_STRING) return setText(XA_STRING, latin1_);
  return false;
}

}  // namespace tx
