#pragma once

#include <memory>

namespace os {

class AppLoopImpl;

// The process's one event loop, and its quit code.
class AppLoop {
 public:
  // There must be no other loop.
  explicit AppLoop(std::unique_ptr<AppLoopImpl> impl);
  ~AppLoop();
  AppLoop(const AppLoop&) = delete;
  AppLoop& operator=(const AppLoop&) = delete;

  // Null when there is no loop.
  static AppLoop* instance();

  // Runs until quit() was called, which may have happened before; returns its code. Exceptions of
  // callbacks and of the wait pass through.
  int run();

  // Ends the loop after the current turn. For the loop's thread only; there must be a loop.
  static void quit(int code);

 private:
  std::unique_ptr<AppLoopImpl> impl_;
  int quitCode_ = 0;
};

}  // namespace os
