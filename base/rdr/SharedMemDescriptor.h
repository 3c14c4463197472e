#pragma once

#include <memory>

#include "plat/shm/SharedMem.h"

namespace rdr {

class InStream;
class OutStream;

// Writes what the peer needs to map the block: U8 kind, U32 size, then for POSIX the name as a
// string, U8 isFile and U64 pos, for System V the U32 id.
void writeSharedMem(OutStream& out, const plat::SharedMem& memory);

// Reads a descriptor, without mapping anything. Throws plat::Exception for an unknown kind.
plat::SharedMemDescriptor readSharedMemDescriptor(InStream& in);

// Reads a descriptor and maps the block; see plat::openSharedMem.
std::unique_ptr<plat::SharedMem> readSharedMem(InStream& in);

}  // namespace rdr
