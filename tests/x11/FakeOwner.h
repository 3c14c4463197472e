#pragma once

#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/SelectionReply.h"
#include "support/XServer.h"

// A client that owns selections and answers for them as told, right or wrong, in pump().
class FakeOwner {
 public:
  struct Answer {
    // kNothing: said to be there, but is not.
    enum Kind { kProperty, kNothing, kRefuse, kElsewhere, kSilence, kIncremental };
    Kind kind = kRefuse;
    std::string type = "STRING";
    int format = 8;
    std::string data = "x";
    std::vector<long> items = {};  // of format 32, in place of data
  };

  explicit FakeOwner(const std::string& name)
      : connection_(support::connectTo(name)),
        display(connection_.get()),
        window(XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1, 1, 0, 0, 0)) {}

  // What is said for targets that have no answer here is no.
  void answer(const std::string& target, Answer answer) { answers_[target] = std::move(answer); }
  void answerTimestamp(uint32_t time) {
    answer("TIMESTAMP", {Answer::kProperty, "INTEGER", 32, "", {long(time)}});
  }
  void answerText(const std::string& target, const std::string& text) {
    if (target == "UTF8_STRING") {
      answer("TARGETS", {Answer::kProperty, "ATOM", 32, "", {long(atom(target))}});
    }
    answer(target, {Answer::kProperty, target, 8, text, {}});
  }
  void own(const std::string& selection) {
    XSetSelectionOwner(display, atom(selection), window, CurrentTime);
    XSync(display, False);
  }
  Atom atom(const std::string& name) const { return XInternAtom(display, name.c_str(), False); }
  void pump() {
    while (XPending(display) > 0) {
      XEvent event;
      XNextEvent(display, &event);
      if (event.type == SelectionRequest) {
        held.push_back(event.xselectionrequest);
        if (!isHolding) answerHeld();
      }
      if (event.type != PropertyNotify || event.xproperty.state != PropertyDelete) continue;
      if (event.xproperty.window == requestor_ && event.xproperty.atom == property_) sendPiece();
    }
    XSync(display, False);
  }
  // Answers what has been held back, each that many times.
  void answerHeld(bool reverse = false, int times = 1) {
    std::vector<XSelectionRequestEvent> requests = std::exchange(held, {});
    if (reverse) std::reverse(requests.begin(), requests.end());
    for (const XSelectionRequestEvent& request : requests) {
      for (int i = 0; i < times; ++i) serve(request);
    }
    XSync(display, False);
  }
  // Sends the next piece of an incremental transfer, unless all have gone.
  void sendPiece() {
    if (piecesTaken >= maxPieces) return;
    ++piecesTaken;
    if (std::exchange(ended_, left_.empty())) return;
    put(requestor_, property_,
        {Answer::kProperty, "UTF8_STRING", 8, left_.substr(0, pieceSize), {}});
    left_.erase(0, pieceSize);
  }

 private:
  const support::XConnection connection_;

 public:
  Display* const display;
  const Window window;
  // Targets asked for, in order, as "SELECTION:TARGET ".
  std::string asked;
  // Pieces that the requestor has taken, counting the empty one at the end.
  int piecesTaken = 0;
  int maxPieces = 1 << 30;
  size_t pieceSize = 100000;
  // Whether requests are held back.
  bool isHolding = false;
  std::vector<XSelectionRequestEvent> held;

 private:
  std::string name(Atom named) const {
    const std::unique_ptr<char, int (*)(void*)> text(XGetAtomName(display, named), XFree);
    return text.get();
  }
  void put(Window requestor, Atom property, const Answer& answer) {
    const bool wide = answer.format == 32;
    const size_t count =
        wide ? answer.items.size() : answer.data.size() / static_cast<size_t>(answer.format / 8);
    const void* const data = wide ? static_cast<const void*>(answer.items.data())
                                  : static_cast<const void*>(answer.data.data());
    XChangeProperty(display, requestor, property, atom(answer.type), answer.format, PropModeReplace,
                    static_cast<const unsigned char*>(data), static_cast<int>(count));
  }
  void serve(const XSelectionRequestEvent& request) {
    const std::string target = name(request.target);
    asked += name(request.selection) + ":" + target + " ";
    const Answer& answer = answers_[target];
    if (answer.kind == Answer::kSilence) return;
    XEvent reply = support::selectionReply(request, None);
    if (answer.kind == Answer::kIncremental) {
      XSelectInput(display, request.requestor, PropertyChangeMask);
      put(request.requestor, request.property, {Answer::kProperty, "INCR", 32, "", {1}});
      requestor_ = request.requestor;
      property_ = request.property;
      left_ = answer.data;
      ended_ = false;
    }
    if (answer.kind == Answer::kProperty) put(request.requestor, request.property, answer);
    if (answer.kind != Answer::kRefuse) reply.xselection.property = request.property;
    if (answer.kind == Answer::kElsewhere) reply.xselection.property = XA_CUT_BUFFER7;
    XSendEvent(display, request.requestor, False, NoEventMask, &reply);
  }

  std::map<std::string, Answer> answers_;
  Window requestor_ = None;
  Atom property_ = None;
  std::string left_;
  bool ended_ = false;
};
