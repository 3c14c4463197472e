#pragma once

#include <utility>
#include <vector>

namespace plat {

// A scope for temporary changes to the state of keys: what is changed within it is undone in
// reverse order when it ends.
class KeyStateModifier {
 public:
  class Callback {
   public:
    virtual ~Callback() = default;
    virtual void changeKeyState(int keycode, bool down) noexcept = 0;
  };

  // The callback is not owned and must outlive the scope.
  explicit KeyStateModifier(Callback& callback) : callback_(callback) {}
  ~KeyStateModifier() {
    for (auto it = changes_.rbegin(); it != changes_.rend(); ++it) {
      callback_.changeKeyState(it->first, !it->second);
    }
  }
  KeyStateModifier(const KeyStateModifier&) = delete;
  KeyStateModifier& operator=(const KeyStateModifier&) = delete;

  // Presses or releases a key at once.
  void change(int keycode, bool down) {
    changes_.emplace_back(keycode, down);
    callback_.changeKeyState(keycode, down);
  }

 private:
  Callback& callback_;
  std::vector<std::pair<int, bool>> changes_;
};

}  // namespace plat
