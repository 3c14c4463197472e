#pragma once

namespace io {

class FdManager;

// Work of the thread's FdManager that is put off until the loop is about to wait, so that what a
// turn gives rise to is done once.
class BeforeWait {
 public:
  class Callback {
   public:
    virtual void beforeWait() = 0;

   protected:
    ~Callback() = default;
  };

  // The callback is not owned.
  explicit BeforeWait(Callback& callback) : callback_(callback) {}
  ~BeforeWait();
  BeforeWait(const BeforeWait&) = delete;
  BeforeWait& operator=(const BeforeWait&) = delete;

  // Has the callback called once, before the next wait. Nothing more when that is due already.
  void request();

 private:
  friend class FdManager;

  Callback& callback_;
  FdManager* manager_ = nullptr;  // while it is due
};

}  // namespace io
