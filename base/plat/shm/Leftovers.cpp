#include "plat/shm/Leftovers.h"

#include <sys/mman.h>
#include <sys/shm.h>
#include <unistd.h>

#include <atomic>
#include <cstring>

namespace plat {

namespace {

enum Kind { kNone, kReserved, kFile, kPosix, kSysV };

struct Slot {
  std::atomic<int> kind = kNone;
  int id = -1;
  char name[256] = {};
};

// A buffer and its successor have two each.
Slot slots[32];

int take() {
  for (int i = 0; i < static_cast<int>(std::size(slots)); ++i) {
    int expected = kNone;
    if (slots[i].kind.compare_exchange_strong(expected, kReserved)) return i;
  }
  return -1;
}

int keep(Kind kind, const char* name, int id) {
  if (strlen(name) >= sizeof Slot::name) return -1;
  const int i = take();
  if (i < 0) return i;
  strcpy(slots[i].name, name);
  slots[i].id = id;
  slots[i].kind = kind;
  return i;
}

}  // namespace

void Leftovers::Entry::setFile(const char* path) {
  clear();
  slot_ = keep(kFile, path, -1);
}

void Leftovers::Entry::setPosixMemory(const char* name) {
  clear();
  slot_ = keep(kPosix, name, -1);
}

void Leftovers::Entry::setSysVMemory(int id) {
  clear();
  slot_ = keep(kSysV, "", id);
}

void Leftovers::Entry::clear() {
  if (slot_ >= 0) slots[slot_].kind = kNone;
  slot_ = -1;
}

void Leftovers::removeAll() {
  for (Slot& slot : slots) {
    switch (slot.kind) {
      case kFile:
        unlink(slot.name);
        break;
      case kPosix:
        shm_unlink(slot.name);
        break;
      case kSysV:
        shmctl(slot.id, IPC_RMID, nullptr);
        break;
      default:
        break;
    }
  }
}

}  // namespace plat
