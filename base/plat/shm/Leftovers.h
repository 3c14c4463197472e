#pragma once

#include <cstddef>

namespace plat {

// What would outlive the process, for a thread that must end it while the others hang: removing it
// makes system calls only.
class Leftovers {
 public:
  // One of them, while the object lives. When there are very many at once, further ones are not
  // kept: the next process of the same user cleans up then.
  class Entry {
   public:
    Entry() = default;
    ~Entry() { clear(); }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

    void setFile(const char* path);
    void setPosixMemory(const char* name);
    void setSysVMemory(int id);
    void clear();

   private:
    int slot_ = -1;
  };

  // From any thread, also while entries come and go.
  static void removeAll();
};

}  // namespace plat
