#pragma once

#include "io/FdManager.h"

namespace io {

// Work of the thread's FdManager that is put off until the loop is about to wait, so that what a
// turn gives rise to is done once.
class BeforeWait : private FdManager::Due {
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
  // FdManager::Due
  void due() override;
  void forgotten() override { manager_ = nullptr; }

  Callback& callback_;
  FdManager* manager_ = nullptr;  // while it is due
};

}  // namespace io
