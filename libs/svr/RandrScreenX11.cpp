#include "svr/RandrScreenX11.h"

#include "plat/Exception.h"
#include "svr/CrtcInfo.h"
#include "tx/ErrorCatcher.h"
#include "tx/TXDisplay.h"

namespace svr {

namespace {

Display* openDisplay() {
  if (!tx::TXDisplay::isOpen()) throw plat::Exception("The X display is gone");
  return tx::TXDisplay::display();
}

std::vector<uint32_t> ids(const XID* first, int count) {
  std::vector<uint32_t> result;
  for (int i = 0; i < count; ++i) result.push_back(static_cast<uint32_t>(first[i]));
  return result;
}

// Makes one request and waits for its outcome.
template <typename Request>
void run(const char* what, Request request) {
  Display* const display = openDisplay();
  tx::ErrorCatcher trap;
  request(display);
  trap.check(what);
}

}  // namespace

RandrScreen::State RandrScreenX11::read(Extent extent) {
  Display* const display = openDisplay();
  const Window root = tx::TXDisplay::root();
  tx::ErrorCatcher trap;
  const tx::XRRResources resources = randr_.resources(display, root, extent == Extent::kProbed);
  trap.check("XRRGetScreenResources");
  if (!resources) throw plat::Exception("XRRGetScreenResources failed");

  State state;
  for (int i = 0; i < resources->nmode; ++i) {
    const XRRModeInfo& mode = resources->modes[i];
    state.modes.push_back({static_cast<uint32_t>(mode.id),
                           std::string(mode.name, mode.nameLength),
                           {static_cast<int>(mode.width), static_cast<int>(mode.height)}});
  }
  for (const CrtcInfo& crtc : fetchCrtcs(randr_, *resources)) {
    state.crtcs.push_back({static_cast<uint32_t>(crtc.id), crtc.rect.tl,
                           static_cast<uint32_t>(crtc.mode), crtc.rotation,
                           ids(crtc.outputs.data(), static_cast<int>(crtc.outputs.size()))});
  }
  for (int i = 0; i < resources->noutput; ++i) {
    // Each is a round trip.
    const auto id = static_cast<uint32_t>(resources->outputs[i]);
    if (extent == Extent::kShown && !state.isShown(id)) continue;
    const tx::XRROutput output(
        randr_.getOutputInfo(display, resources.get(), resources->outputs[i]));
    trap.check("XRRGetOutputInfo");
    if (!output) throw plat::Exception("XRRGetOutputInfo failed");
    state.outputs.push_back({id, ids(output->modes, output->nmode)});
  }

  state.size = size();
  // Xlib knows the physical size of the screen that it found at first.
  const int screen = tx::TXDisplay::screen();
  if (state.size == DisplaySize{DisplayWidth(display, screen), DisplayHeight(display, screen)}) {
    state.physical = {DisplayWidthMM(display, screen), DisplayHeightMM(display, screen)};
  } else {
    state.physical = state.size.physical();
  }
  return state;
}

DisplaySize RandrScreenX11::size() {
  Window root;
  int x, y;
  unsigned width, height, border, depth;
  if (!XGetGeometry(openDisplay(), tx::TXDisplay::root(), &root, &x, &y, &width, &height, &border,
                    &depth)) {
    throw plat::Exception("XGetGeometry failed");
  }
  return {static_cast<int>(width), static_cast<int>(height)};
}

bool RandrScreenX11::allowsSize(const DisplaySize& size) {
  int minWidth = 0, minHeight = 0, maxWidth = 0, maxHeight = 0;
  run("XRRGetScreenSizeRange", [&](Display* display) {
    if (!randr_.getScreenSizeRange(display, tx::TXDisplay::root(), &minWidth, &minHeight, &maxWidth,
                                   &maxHeight)) {
      throw plat::Exception("XRRGetScreenSizeRange failed");
    }
  });
  return size.width >= minWidth && size.width <= maxWidth && size.height >= minHeight &&
         size.height <= maxHeight;
}

uint32_t RandrScreenX11::createMode(const std::string& name, const ModeTimings& timings) {
  XID id = None;
  run("XRRCreateMode", [&](Display* display) {
    const tx::XRRMode mode(randr_.allocModeInfo(name.c_str(), static_cast<int>(name.size())));
    if (!mode) throw plat::Exception("XRRAllocModeInfo failed");
    mode->width = timings.width;
    mode->hSyncStart = timings.hSyncStart;
    mode->hSyncEnd = timings.hSyncEnd;
    mode->hTotal = timings.hTotal;
    mode->height = timings.height;
    mode->vSyncStart = timings.vSyncStart;
    mode->vSyncEnd = timings.vSyncEnd;
    mode->vTotal = timings.vTotal;
    mode->dotClock = timings.dotClock;
    mode->modeFlags = RR_HSyncPositive | RR_VSyncNegative;
    id = randr_.createMode(display, tx::TXDisplay::root(), mode.get());
  });
  if (id == None) throw plat::Exception("XRRCreateMode failed");
  return static_cast<uint32_t>(id);
}

void RandrScreenX11::destroyMode(uint32_t mode) {
  run("XRRDestroyMode", [&](Display* display) { randr_.destroyMode(display, mode); });
}

void RandrScreenX11::addOutputMode(uint32_t output, uint32_t mode) {
  run("XRRAddOutputMode", [&](Display* display) { randr_.addOutputMode(display, output, mode); });
}

void RandrScreenX11::deleteOutputMode(uint32_t output, uint32_t mode) {
  run("XRRDeleteOutputMode",
      [&](Display* display) { randr_.deleteOutputMode(display, output, mode); });
}

void RandrScreenX11::setScreenSize(const DisplaySize& size, const DisplaySize& physical) {
  run("XRRSetScreenSize", [&](Display* display) {
    randr_.setScreenSize(display, tx::TXDisplay::root(), size.width, size.height, physical.width,
                         physical.height);
  });
}

void RandrScreenX11::configureCrtc(const Crtc& crtc) {
  Status status = RRSetConfigFailed;
  run("XRRSetCrtcConfig", [&](Display* display) {
    // For their time stamp: the server takes no configuration that is older than a later change.
    const tx::XRRResources resources = randr_.resources(display, tx::TXDisplay::root());
    if (!resources) throw plat::Exception("XRRGetScreenResources failed");
    std::vector<RROutput> outputs;
    if (crtc.mode != None) outputs.assign(crtc.outputs.begin(), crtc.outputs.end());
    status = randr_.setCrtcConfig(display, resources.get(), crtc.id, CurrentTime, crtc.position.x,
                                  crtc.position.y, crtc.mode, crtc.rotation,
                                  outputs.empty() ? nullptr : outputs.data(),
                                  static_cast<int>(outputs.size()));
  });
  if (status != RRSetConfigSuccess) {
    throw plat::Exception("XRRSetCrtcConfig failed: status %d", static_cast<int>(status));
  }
}

}  // namespace svr
