#include "rdr/SharedMemDescriptor.h"

#include "plat/Exception.h"
#include "plat/log/LogSrc.h"
#include "plat/shm/openSharedMem.h"
#include "rdr/InStream.h"
#include "rdr/OutStream.h"

namespace rdr {

namespace {

using Kind = plat::SharedMemDescriptor::Kind;

plat::LogSrc posixLog("SharedMemPosix");
plat::LogSrc sysVLog("SharedMemSysV");

constexpr size_t kMaxName = 4096;

}  // namespace

void writeSharedMem(OutStream& out, const plat::SharedMem& memory) {
  const plat::SharedMemDescriptor d = memory.descriptor();
  out.writeU8(static_cast<uint8_t>(d.kind));
  out.writeU32(d.size);
  if (d.kind == Kind::kPosix) {
    out.writeString(d.name.view());
    out.writeU8(d.isFile ? 1 : 0);
    out.writeU64(d.pos);
  } else {
    sysVLog.debug("sending %d size %#x", d.id, d.size);
    out.writeU32(static_cast<uint32_t>(d.id));
  }
}

plat::SharedMemDescriptor readSharedMemDescriptor(InStream& in) {
  plat::SharedMemDescriptor d;
  const uint8_t kind = in.readU8();
  if (kind == static_cast<uint8_t>(Kind::kPosix)) {
    d.kind = Kind::kPosix;
    d.size = in.readU32();
    d.name = in.readString(kMaxName);
    d.isFile = in.readU8() != 0;
    d.pos = in.readU64();
    posixLog.debug("Receive %s size %#x pos %#llx isFile %d", d.name.c_str(), d.size,
                   static_cast<unsigned long long>(d.pos), d.isFile ? 1 : 0);
  } else if (kind == static_cast<uint8_t>(Kind::kSysV)) {
    d.kind = Kind::kSysV;
    d.size = in.readU32();
    d.id = in.readS32();
    sysVLog.debug("Receive %d size %#x", d.id, d.size);
  } else {
    throw plat::Exception("Unsupported memory type received");
  }
  return d;
}

std::unique_ptr<plat::SharedMem> readSharedMem(InStream& in) {
  return plat::openSharedMem(readSharedMemDescriptor(in));
}

}  // namespace rdr
