#include "io/BeforeWait.h"

#include "io/FdManager.h"

namespace io {

BeforeWait::~BeforeWait() {
  if (manager_) std::erase(manager_->beforeWait_, this);
}

void BeforeWait::request() {
  if (manager_) return;
  FdManager& manager = FdManager::instance();
  manager.beforeWait_.push_back(this);
  manager_ = &manager;
}

}  // namespace io
