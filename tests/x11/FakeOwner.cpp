#include "x11/FakeOwner.h"

#include <X11/Xatom.h>

#include <algorithm>
#include <utility>

FakeOwner::FakeOwner(const std::string& display)
    : connection_(support::connectTo(display)),
      display_(connection_.get()),
      window_(XCreateSimpleWindow(display_, DefaultRootWindow(display_), 0, 0, 1, 1, 0, 0, 0)) {}

void FakeOwner::answerTargets(const std::vector<std::string>& targets) {
  Answer answer{{}, "ATOM", 32, "", {}};
  for (const std::string& target : targets) answer.items.push_back(static_cast<long>(atom(target)));
  this->answer("TARGETS", answer);
}

void FakeOwner::own(const std::string& selection) {
  XSetSelectionOwner(display_, atom(selection), window_, CurrentTime);
  XSync(display_, False);
}

std::string FakeOwner::name(Atom atom) const {
  char* const text = XGetAtomName(display_, atom);
  const std::string name = text != nullptr ? text : "";
  XFree(text);
  return name;
}

void FakeOwner::pump() {
  while (XPending(display_) > 0) {
    XEvent event;
    XNextEvent(display_, &event);
    if (event.type == SelectionRequest) serve(event.xselectionrequest);
    if (event.type == PropertyNotify && event.xproperty.state == PropertyDelete) {
      for (Transfer& transfer : transfers_) {
        if (transfer.requestor == event.xproperty.window &&
            transfer.property == event.xproperty.atom) {
          sendPiece(transfer);
        }
      }
    }
  }
  XSync(display_, False);
}

void FakeOwner::sendPiece(Transfer& transfer) {
  if (piecesTaken >= maxPieces) {
    held_ = true;
    return;
  }
  ++piecesTaken;
  if (transfer.ending && transfer.left.empty()) return;
  const std::string piece = transfer.left.substr(0, 100000);
  transfer.left.erase(0, piece.size());
  transfer.ending = piece.empty();
  XChangeProperty(display_, transfer.requestor, transfer.property, transfer.type, 8,
                  PropModeReplace, reinterpret_cast<const unsigned char*>(piece.data()),
                  static_cast<int>(piece.size()));
}

void FakeOwner::resume() {
  if (std::exchange(held_, false)) sendPiece(transfers_.back());
}

void FakeOwner::serve(const XSelectionRequestEvent& request) {
  const std::string target = name(request.target);
  asked += name(request.selection) + ":" + target + " ";
  const auto it = answers_.find(target);
  const Answer answer =
      it == answers_.end() ? Answer{Answer::Kind::kRefuse, "", 8, "", {}} : it->second;
  if (answer.kind == Answer::Kind::kSilence) return;

  XEvent reply{};
  reply.xselection.type = SelectionNotify;
  reply.xselection.requestor = request.requestor;
  reply.xselection.selection = request.selection;
  reply.xselection.target = request.target;
  reply.xselection.time = request.time;
  reply.xselection.property = request.property;
  if (answer.kind == Answer::Kind::kRefuse) reply.xselection.property = None;
  if (answer.kind == Answer::Kind::kOtherProperty) reply.xselection.property = atom("OTHER");
  if (answer.kind == Answer::Kind::kIncremental) {
    XSelectInput(display_, request.requestor, PropertyChangeMask);
    const long size = static_cast<long>(answer.data.size());
    XChangeProperty(display_, request.requestor, request.property, atom("INCR"), 32,
                    PropModeReplace, reinterpret_cast<const unsigned char*>(&size), 1);
    std::erase_if(transfers_,
                  [&](const Transfer& transfer) { return transfer.property == request.property; });
    transfers_.push_back(
        {request.requestor, request.property, atom(answer.type), answer.data, false});
  } else if (reply.xselection.property != None) {
    const bool wide = answer.format == 32;
    XChangeProperty(
        display_, request.requestor, reply.xselection.property, atom(answer.type), answer.format,
        PropModeReplace,
        wide ? reinterpret_cast<const unsigned char*>(answer.items.data())
             : reinterpret_cast<const unsigned char*>(answer.data.data()),
        static_cast<int>(wide ? answer.items.size()
                              : answer.data.size() / static_cast<size_t>(answer.format / 8)));
  }
  XSendEvent(display_, request.requestor, False, NoEventMask, &reply);
}
