// Framed messages on a channel.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "Deliveries.h"
#include "io/FdIo.h"
#include "io/FdSelectManager.h"
#include "io/MsgIpc.h"
#include "plat/Exception.h"

namespace {

// Reads every kind of item that messages have.
class Readers : public io::MsgIpc::Reader, public io::MsgIpc::Callback {
 public:
  bool readMsg(const char* name, rdr::InStream& in, io::MsgIpc& ipc) override {
    switch (name[0]) {
      case 'n':
        sum_ += in.readU32() + static_cast<uint32_t>(in.readS32()) + in.readU16();
        return true;
      case 'l':
        while (!ipc.atEndOfMsg()) {
          in.readShortString();
          in.readString(1024);
          sum_ += in.readU32();
        }
        return true;
      case 't':
        return readText(in);
      case 'r':
        ipc.removeReader(name);
        return in.readU8() != 0;
      case 'o':
        return in.readU8() != 0;
      case 'w':
        ipc.writeMsg("answer").writeString(in.readString(300).view());
        ipc.endMsg(in.readU8() != 0);
        return true;
      case 'd':
        ipc.detach();
        return true;
      default:
        in.skip(in.readU64());
        return true;
    }
  }
  void channelClosed(io::MsgIpc&) override { ++closed; }

  int closed = 0;

 private:
  bool readText(rdr::InStream& in) {
    if (textLeft_ == 0) textLeft_ = in.readU32();
    while (textLeft_ > 0) {
      size_t n;
      try {
        n = in.check(1, textLeft_, false);
      } catch (const plat::Exception&) {
        textLeft_ = 0;
        throw;
      }
      if (n == 0) return false;
      in.skip(n);
      textLeft_ -= n;
    }
    return true;
  }

  uint32_t sum_ = 0;
  size_t textLeft_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  Deliveries deliveries(data, size);
  io::FdSelectManager loop;
  Readers readers;
  io::MsgIpc ipc("fuzz");
  ipc.setCallback(&readers);
  const io::MsgIpc::Registration registration(ipc, readers,
                                              {"n", "l", "t", "r", "o", "w", "d", "skip"});
  ipc.attach(std::make_unique<io::FdIo>(deliveries.takeEnd()));
  const auto read = [&] {
    while (loop.process(0)) {
    }
    return ipc.isConnected();
  };

  deliveries.deliver(read);
  const bool connected = ipc.isConnected();
  if (readers.closed != 0 && connected) abort();
  // However the input went, the end of the stream is noticed.
  deliveries.hangUp();
  if (read() || readers.closed > 1 || (connected && readers.closed == 0)) abort();
  return 0;
}
