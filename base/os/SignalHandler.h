#pragma once

#include <csignal>
#include <map>
#include <string>

#include "io/FdKicker.h"

namespace os {

// Brings signals into the loop: callbacks run on the loop's thread, never in signal context.
class SignalHandler : private io::FdKicker::Callback {
 public:
  class Callback {
   public:
    virtual void gotSignal(int signal) = 0;

   protected:
    ~Callback() = default;
  };

  // The process's instance, made on first use; it wakes the thread of that use.
  static SignalHandler& instance();

  // Catches the signal; the callback (not owned) replaces an earlier one. Throws SystemException
  // for a signal that cannot be caught.
  void add(int signal, Callback* callback);
  // Puts the signal's former disposition back. Harmless for one that is not caught.
  void remove(int signal);
  // Removes every signal of the callback.
  void remove(Callback* callback);

  // Also has each signal that is caught write the number 1, eight bytes long, to this descriptor
  // (not owned; -1 for none), at once and whatever the loop does.
  static void setAlarm(int fd);

  // "SIGINT", "SIGTERM" and so on; "signal <number>" for one without a name.
  static std::string name(int signal);

 protected:
  ~SignalHandler();

 private:
  struct Caught {
    Callback* callback;
    struct sigaction former;
  };

  SignalHandler();

  void kicked(io::FdKicker& kicker) override;

  io::FdKicker kicker_;
  std::map<int, Caught> caught_;
};

}  // namespace os
