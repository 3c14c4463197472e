#include "svr/CrtcInfo.h"

#include <new>

#include "plat/Exception.h"
#include "tx/ErrorCatcher.h"
#include "tx/RandrExtension.h"
#include "tx/TXDisplay.h"

// After all others: they define macros that the standard library does not stand.
#include <X11/Xlibint.h>
#include <X11/extensions/randrproto.h>

namespace svr {

namespace {

// Requests for several CRTCs whose replies Xlib hands over as they arrive.
class CrtcRequests {
 public:
  CrtcRequests(Display* display, std::vector<CrtcInfo>& crtcs)
      : display_(display), crtcs_(crtcs), first_(NextRequest(display)) {
    handler_.next = display->async_handlers;
    handler_.handler = take;
    handler_.data = reinterpret_cast<XPointer>(this);
    display->async_handlers = &handler_;
  }
  ~CrtcRequests() { DeqAsyncHandler(display_, &handler_); }
  CrtcRequests(const CrtcRequests&) = delete;
  CrtcRequests& operator=(const CrtcRequests&) = delete;

  void send(int opcode, XID id, Time configTime) {
    Display* const dpy = display_;  // the name that Xlib's macros use
    xRRGetCrtcInfoReq* req = nullptr;
    LockDisplay(dpy);
    GetReq(RRGetCrtcInfo, req);
    req->reqType = static_cast<CARD8>(opcode);
    req->randrReqType = X_RRGetCrtcInfo;
    req->crtc = static_cast<CARD32>(id);
    req->configTimestamp = static_cast<CARD32>(configTime);
    UnlockDisplay(dpy);
  }
  // How many have been answered in full.
  size_t answered() const { return answered_; }

 private:
  // Called while Xlib reads: no request may be made, nothing may be thrown.
  static Bool take(Display* display, xReply* reply, char* buffer, int length, XPointer self) {
    return reinterpret_cast<CrtcRequests*>(self)->take(display, reply, buffer, length);
  }
  Bool take(Display* display, xReply* reply, char* buffer, int length) {
    const unsigned long index = LastKnownRequestProcessed(display) - first_;
    // Errors are for the trap.
    if (index >= crtcs_.size() || reply->generic.type == X_Error) return xFalse;
    xRRGetCrtcInfoReply own;
    const auto& info = *reinterpret_cast<xRRGetCrtcInfoReply*>(
        _XGetAsyncReply(display, reinterpret_cast<char*>(&own), reply, buffer, length, 0, xFalse));
    CrtcInfo& crtc = crtcs_[index];
    crtc.rect = rfb::Rect(info.x, info.y, info.x + int{info.width}, info.y + int{info.height});
    crtc.mode = info.mode;
    crtc.rotation = info.rotation;
    const size_t count = info.length < info.nOutput ? 0 : info.nOutput;
    std::vector<CARD32> outputs;
    try {
      outputs.resize(count);
      crtc.outputs.reserve(count);
      ++answered_;
    } catch (const std::bad_alloc&) {
      outputs.clear();
    }
    _XGetAsyncData(display, reinterpret_cast<char*>(outputs.data()), buffer, length,
                   SIZEOF(xRRGetCrtcInfoReply), static_cast<int>(outputs.size() * sizeof(CARD32)),
                   static_cast<int>(info.length << 2));
    crtc.outputs.assign(outputs.begin(), outputs.end());
    return xTrue;
  }

  Display* const display_;
  std::vector<CrtcInfo>& crtcs_;
  const unsigned long first_;  // number of the first request
  _XAsyncHandler handler_{};
  size_t answered_ = 0;
};

}  // namespace

std::vector<CrtcInfo> fetchCrtcs(const tx::RandrExtension& randr,
                                 const XRRScreenResources& resources) {
  Display* const display = tx::TXDisplay::display();
  std::vector<CrtcInfo> crtcs(static_cast<size_t>(resources.ncrtc));
  tx::ErrorCatcher trap;
  CrtcRequests requests(display, crtcs);
  for (size_t i = 0; i < crtcs.size(); ++i) {
    crtcs[i].id = resources.crtcs[i];
    requests.send(randr.majorOpcode, crtcs[i].id, resources.configTimestamp);
  }
  XSync(display, xFalse);
  trap.check("XRRGetCrtcInfo");
  if (requests.answered() != crtcs.size()) throw plat::Exception("XRRGetCrtcInfo failed");
  return crtcs;
}

}  // namespace svr
