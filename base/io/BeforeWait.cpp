#include "io/BeforeWait.h"

namespace io {

BeforeWait::~BeforeWait() {
  if (manager_) manager_->cancelBeforeWait(*this);
}

void BeforeWait::request() {
  if (manager_) return;
  FdManager& manager = FdManager::instance();
  manager.doBeforeWait(*this);
  manager_ = &manager;
}

void BeforeWait::due() {
  manager_ = nullptr;
  callback_.beforeWait();
}

}  // namespace io
