#include "plat/shm/SharedMem.h"

#include <atomic>

namespace plat {

namespace {

std::atomic<uint64_t> nextSerial{0};

}  // namespace

SharedMem::SharedMem(uint32_t size) : size_(size), serial_(nextSerial++) {}

}  // namespace plat
