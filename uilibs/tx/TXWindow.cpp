#include "tx/TXWindow.h"

#include <X11/Xatom.h>

#include <cstring>
#include <vector>

#include "plat/Utf8.h"
#include "plat/log/LogSrc.h"
#include "tx/Atoms.h"
#include "tx/ErrorCatcher.h"
#include "tx/TXDisplay.h"
#include "tx/XResources.h"

namespace tx {

namespace {

plat::LogSrc vlog("TXWindow");

// In units of 32 bits.
constexpr long kMaxPropertyLength = 0x10000;

// What windows of this process there are, and which of them own selections.
struct Windows {
  std::map<Window, TXWindow*> byId;
  std::map<Atom, TXWindow*> selectionOwners;
};

std::map<Window, TXWindow*>& windows() {
  return TXDisplay::part<Windows>().byId;
}

std::map<Atom, TXWindow*>& selectionOwners() {
  return TXDisplay::part<Windows>().selectionOwners;
}

WindowPosTracker* posTracker = nullptr;

void forgetOwner(Atom selection, const TXWindow* window) {
  const auto it = selectionOwners().find(selection);
  if (it != selectionOwners().end() && it->second == window) selectionOwners().erase(it);
}

// Whether a property of that many bytes can be set in one request.
bool fitsInRequest(size_t bytes) {
  Display* const display = TXDisplay::display();
  long units = XExtendedMaxRequestSize(display);
  if (units == 0) units = XMaxRequestSize(display);
  constexpr size_t kHeader = 32;  // ChangeProperty, with the longer length field
  return bytes + kHeader <= static_cast<size_t>(units) * 4;
}

// Xlib hands out items of 32 bits as longs.
std::string unpack(const unsigned char* items, unsigned long count, int format) {
  std::string data;
  if (format == 8) {
    data.assign(reinterpret_cast<const char*>(items), count);
  } else if (format == 16) {
    data.assign(reinterpret_cast<const char*>(items), count * 2);
  } else if (format == 32) {
    const auto* const longs = reinterpret_cast<const unsigned long*>(items);
    for (unsigned long i = 0; i < count; ++i) {
      const auto item = static_cast<uint32_t>(longs[i]);
      data.append(reinterpret_cast<const char*>(&item), sizeof item);
    }
  }
  return data;
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

TXWindow::TXWindow(const rfb::Rect& rect) : rect_(rect) {
  XSetWindowAttributes attributes{};
  attributes.override_redirect = True;
  attributes.event_mask = PropertyChangeMask | StructureNotifyMask;
  id_ = XCreateWindow(TXDisplay::display(), TXDisplay::root(), rect.tl.x, rect.tl.y,
                      static_cast<unsigned int>(rect.width()),
                      static_cast<unsigned int>(rect.height()), 0, 0, InputOnly, CopyFromParent,
                      CWOverrideRedirect | CWEventMask, &attributes);
  windows()[id_] = this;
}

TXWindow::~TXWindow() {
  if (!TXDisplay::current()) return;
  for (const auto& [selection, time] : owned_) forgetOwner(selection, this);
  const auto it = windows().find(id_);
  if (it == windows().end() || it->second != this) return;
  windows().erase(it);
  // Others can have destroyed it.
  const ErrorCatcher trap;
  if (TXDisplay::isOpen()) XDestroyWindow(TXDisplay::display(), id_);
}

TXWindow* TXWindow::find(Window id) {
  const auto it = windows().find(id);
  return it == windows().end() ? nullptr : it->second;
}

void TXWindow::setPosTracker(WindowPosTracker* tracker) {
  posTracker = tracker;
}

void TXWindow::handleEvent(const XEvent& event) {
  switch (event.type) {
    case ConfigureNotify: {
      const XConfigureEvent& configure = event.xconfigure;
      const rfb::Rect from = rect_;
      rect_ = rfb::Rect(configure.x, configure.y, configure.x + configure.width,
                        configure.y + configure.height);
      if (posTracker != nullptr && rect_ != from) posTracker->windowMoved(from, rect_);
      break;
    }
    case SelectionClear:
      selectionClear(event.xselectionclear);
      break;
    case SelectionRequest:
      serveRequest(event.xselectionrequest);
      break;
    case SelectionNotify:
      receiveAnswer(event.xselection);
      break;
    case PropertyNotify:
      if (event.xproperty.state == PropertyNewValue) drain(event.xproperty.atom);
      break;
    default:
      break;
  }
}

void TXWindow::setSelectionText(std::string_view text, uint32_t time) {
  vlog.debug("Acquiring PRIMARY and CLIPBOARD selections timestamp %lu",
             static_cast<unsigned long>(time));
  text_ = std::string(text);
  if (!TXDisplay::isOpen()) return;
  if (!fitsInRequest(text.size())) {
    vlog.error("Unable to offer %lu bytes of text: the X server takes less at once",
               static_cast<unsigned long>(text.size()));
  }
  const std::string latin1 = plat::utf8ToLatin1(text);
  if (fitsInRequest(latin1.size())) {
    XStoreBytes(TXDisplay::display(), latin1.data(), static_cast<int>(latin1.size()));
  }
  takeSelection(XA_PRIMARY, time);
  takeSelection(internAtom("CLIPBOARD"), time);
}

TXWindow* TXWindow::selectionOwner(Atom selection) {
  const auto it = selectionOwners().find(selection);
  return it == selectionOwners().end() ? nullptr : it->second;
}

void TXWindow::takeSelection(Atom selection, uint32_t time) {
  Display* const display = TXDisplay::display();
  XSetSelectionOwner(display, selection, id_, time);
  if (XGetSelectionOwner(display, selection) != id_) return;
  TXWindow* const former = selectionOwner(selection);
  if (former != nullptr && former != this) former->owned_.erase(selection);
  owned_[selection] = time;
  selectionOwners()[selection] = this;
}

void TXWindow::selectionClear(const XSelectionClearEvent& event) {
  const auto it = owned_.find(event.selection);
  if (it == owned_.end()) return;
  // It may have been taken back since.
  if (XGetSelectionOwner(TXDisplay::display(), event.selection) == id_) return;
  owned_.erase(it);
  forgetOwner(event.selection, this);
}

void TXWindow::serveRequest(const XSelectionRequestEvent& request) {
  Display* const display = TXDisplay::display();
  // Requestors older than the ICCCM leave the property to us.
  const Atom property = request.property != None ? request.property : request.target;
  // The requestor may be gone, and the server may have no room for the text.
  ErrorCatcher trap;
  bool written = owned_.count(request.selection) != 0 && writeAnswer(request, property);
  if (written && trap.failed()) written = false;
  XEvent reply{};
  reply.xselection.type = SelectionNotify;
  reply.xselection.display = display;
  reply.xselection.requestor = request.requestor;
  reply.xselection.selection = request.selection;
  reply.xselection.target = request.target;
  reply.xselection.property = written ? property : None;
  reply.xselection.time = request.time;
  XSendEvent(display, request.requestor, False, 0, &reply);
}

bool TXWindow::writeAnswer(const XSelectionRequestEvent& request, Atom property) {
  if (!text_) return false;
  Display* const display = TXDisplay::display();
  const Atom utf8String = internAtom("UTF8_STRING");
  const auto set = [&](Atom type, int format, const void* items, size_t count) {
    XChangeProperty(display, request.requestor, property, type, format, PropModeReplace,
                    static_cast<const unsigned char*>(items), static_cast<int>(count));
    return true;
  };
  if (request.target == internAtom("TARGETS")) {
    const Atom targets[] = {internAtom("TIMESTAMP"), utf8String, XA_STRING};
    return set(XA_ATOM, 32, targets, std::size(targets));
  }
  if (request.target == internAtom("TIMESTAMP")) {
    const long time = static_cast<long>(owned_.at(request.selection));
    return set(XA_INTEGER, 32, &time, 1);
  }
  if (request.target == utf8String) {
    return fitsInRequest(text_->size()) && set(utf8String, 8, text_->data(), text_->size());
  }
  if (request.target == XA_STRING) {
    const std::string latin1 = plat::utf8ToLatin1(*text_);
    return fitsInRequest(latin1.size()) && set(XA_STRING, 8, latin1.data(), latin1.size());
  }
  return false;
}

void TXWindow::requestSelection(Atom selection, Atom target, Atom property, uint32_t time) {
  draining_.erase(property);
  XConvertSelection(TXDisplay::display(), selection, target, property, id_, time);
}

void TXWindow::receiveAnswer(const XSelectionEvent& event) {
  SelectionData answer{event.selection,
                       event.target,
                       event.property,
                       static_cast<uint32_t>(event.time),
                       None,
                       0,
                       {}};
  if (answer.property != None) readAnswer(&answer);
  selectionNotify(answer);
}

void TXWindow::readAnswer(SelectionData* answer) {
  Display* const display = TXDisplay::display();
  unsigned long count = 0;
  unsigned long left = 0;
  unsigned char* memory = nullptr;
  if (XGetWindowProperty(display, id_, answer->property, 0, kMaxPropertyLength, True,
                         AnyPropertyType, &answer->type, &answer->format, &count, &left,
                         &memory) != Success) {
    answer->type = None;
    return;
  }
  const XMemory<unsigned char> items(memory);
  answer->data = unpack(items.get(), count, answer->format);
  if (left > 0) {
    // Only what has been read to its end is deleted by reading.
    XDeleteProperty(display, id_, answer->property);
    if (answer->type == internAtom("UTF8_STRING")) dropIncompleteCharacter(&answer->data);
  }
  if (answer->type == internAtom("INCR")) {
    vlog.info("Ignoring large selection - replacing with empty string");
    answer->type = internAtom("UTF8_STRING");
    answer->format = 8;
    answer->data.clear();
    draining_.insert(answer->property);
  }
}

void TXWindow::drain(Atom property) {
  if (draining_.count(property) == 0) return;
  Display* const display = TXDisplay::display();
  Atom type = None;
  int format = 0;
  unsigned long count = 0;
  unsigned long left = 0;
  unsigned char* memory = nullptr;
  if (XGetWindowProperty(display, id_, property, 0, kMaxPropertyLength, True, AnyPropertyType,
                         &type, &format, &count, &left, &memory) != Success) {
    return;
  }
  const XMemory<unsigned char> items(memory);
  if (left > 0) XDeleteProperty(display, id_, property);
  // An owner that takes the deletion of any property for this one's writes pieces over each other:
  // the second notification then finds no property, which is no end.
  if (count == 0 && type != None) draining_.erase(property);
}

void TXWindow::selectionNotify(const SelectionData&) {}

}  // namespace tx
