#pragma once

#include <X11/Xlib.h>

#include <map>
#include <string>
#include <vector>

#include "support/XServer.h"

// A client that owns selections and answers for them as told, right or wrong. Runs on a connection
// of its own, whenever pump() is called.
class FakeOwner {
 public:
  struct Answer {
    enum class Kind { kProperty, kRefuse, kSilence, kOtherProperty, kIncremental };
    Kind kind = Kind::kProperty;
    std::string type;
    int format = 8;
    // Items of format 32 are taken from items instead.
    std::string data;
    std::vector<long> items;
  };

  explicit FakeOwner(const std::string& display);

  // What is said for targets that have no answer here is no.
  void answer(const std::string& target, Answer answer) { answers_[target] = std::move(answer); }
  void answerTimestamp(uint32_t time) {
    answer("TIMESTAMP", {{}, "INTEGER", 32, "", {long(time)}});
  }
  void answerTargets(const std::vector<std::string>& targets);
  void answerText(const std::string& target, const std::string& text) {
    answer(target, {{}, target, 8, text, {}});
  }

  void own(const std::string& selection);
  void pump();

  // Targets asked for, in order, as "SELECTION:TARGET ".
  std::string asked;
  // Pieces of incremental transfers that the requestor has taken, counting the empty one at the
  // end. Pieces go out while this allows it.
  int piecesTaken = 0;
  int maxPieces = 1 << 30;
  // Sends the piece that maxPieces held back.
  void resume();

  Atom atom(const std::string& name) const { return XInternAtom(display_, name.c_str(), False); }
  Display* display() const { return display_; }
  Window window() const { return window_; }

 private:
  struct Transfer {
    Window requestor;
    Atom property;
    Atom type;
    std::string left;
    bool ending;
  };
  void serve(const XSelectionRequestEvent& request);
  void sendPiece(Transfer& transfer);
  std::string name(Atom atom) const;

  support::XConnection connection_;
  Display* display_;
  Window window_;
  std::map<std::string, Answer> answers_;
  std::vector<Transfer> transfers_;
  bool held_ = false;
};
