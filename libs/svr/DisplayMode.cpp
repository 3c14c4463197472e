#include "svr/DisplayMode.h"

#include "plat/Exception.h"
#include "plat/Text.h"
#include "plat/config/StringParameter.h"
#include "plat/log/LogSrc.h"
#include "svr/RandrScreenX11.h"
#include "svr/ScreenSwitch.h"

namespace svr {

namespace {

plat::LogSrc vlog("Randr");

// "WxH" with commas between.
plat::StringParameter randrSizes("RandR",
                                 "Comma-separated list of display geometries to make available via "
                                 "the RANDR extension, if enabled.",
                                 "");

std::unique_ptr<RandrScreen> probe() {
  const tx::RandrExtension* randr = tx::RandrExtension::probe(vlog);
  return randr ? std::make_unique<RandrScreenX11>(*randr) : nullptr;
}

// Whether a request of the server's succeeds, which it need not.
template <typename Request>
bool succeeds(Request request) {
  try {
    request();
    return true;
  } catch (const plat::Exception& e) {
    vlog.debug("%s", e.text());
    return false;
  }
}

}  // namespace

DisplayMode::DisplayMode(Callback& callback) : DisplayMode(callback, probe()) {}

DisplayMode::DisplayMode(Callback& callback, std::unique_ptr<RandrScreen> screen)
    : callback_(callback), screen_(std::move(screen)), sizes_(randrSizes.value()) {
  randrSizes.addCallback(this);
}

DisplayMode::~DisplayMode() {
  randrSizes.removeCallback(this);
}

void DisplayMode::paramChanged(plat::ConfigParameter*, int) {
  if (randrSizes.value() == sizes_) return;
  sizes_ = randrSizes.value();
  updateModes();
}

void DisplayMode::setDisplayMode(uint32_t width, uint32_t height) {
  if (!screen_) return;
  const std::optional<DisplaySize> size = DisplaySize::of(width, height);
  if (!size) {
    vlog.debug("Ignoring display mode %ux%u", width, height);
    return;
  }
  vlog.info("Setting display mode to %dx%d", size->width, size->height);
  try {
    change(*size);
  } catch (const plat::Exception& e) {
    vlog.info("%s", e.text());
    vlog.error("Unable to set display mode to %dx%d", size->width, size->height);
  }
}

void DisplayMode::change(const DisplaySize& size) {
  if (!screen_->allowsSize(size)) throw plat::Exception("The X server allows no screen this size");
  // Mostly what the server knows will do, and the screen is looked at only once.
  if (trySwitchTo(size)) return;
  const RandrScreen::State before = screen_->read(RandrScreen::Extent::kProbed);
  const bool mustUpdate = !before.canShow(size);
  const std::vector<DisplaySize> modes = before.modeSizes(size);
  if (mustUpdate) update(modes, true);
  try {
    if (!trySwitchTo(size)) {
      throw plat::Exception("No mode of this size that all outputs in use have");
    }
  } catch (...) {
    // The mode was made in vain.
    if (mustUpdate) updateModes();
    throw;
  }
  // The mode of the request before was in use until now.
  if (mustUpdate) update(modes, false);
}

bool DisplayMode::trySwitchTo(const DisplaySize& size) {
  const RandrScreen::Grab grab(*screen_);
  // Other clients may have changed modes and CRTCs until now.
  const RandrScreen::State state = screen_->read(RandrScreen::Extent::kShown);
  if (!state.canShow(size)) return false;
  ScreenSwitch(*screen_, state).apply(size);
  return true;
}

void DisplayMode::updateModes(const std::vector<DisplaySize>& requested) {
  if (!screen_) return;
  try {
    update(requested, true);
  } catch (const plat::Exception& e) {
    vlog.error("Unable to update display modes: %s", e.text());
  }
}

void DisplayMode::update(const std::vector<DisplaySize>& requested, bool adding) {
  const WantedModes wanted(requested, randrSizes.value().view());
  bool changed = false;
  {
    const RandrScreen::Grab grab(*screen_);
    const RandrScreen::State state = screen_->read(RandrScreen::Extent::kAll);
    if (adding) {
      for (const std::string& name : wanted.names()) changed |= add(name, state);
    }
    for (const RandrScreen::Mode& mode : state.modes) {
      if (!WantedModes::isOwnName(mode.name) || wanted.contains(mode.name)) continue;
      if (!state.isModeInUse(mode.id)) changed |= remove(mode, state);
    }
  }
  if (changed) callback_.displayModesChanged();
}

bool DisplayMode::add(const std::string& name, const RandrScreen::State& state) {
  uint32_t id = 0;
  for (const RandrScreen::Mode& mode : state.modes) {
    if (mode.name == name) id = mode.id;
  }
  const bool isNew = id == 0;
  if (isNew &&
      !succeeds([&] { id = screen_->createMode(name, ModeTimings(*WantedModes::sizeOf(name))); })) {
    vlog.error("Unable to add mode %s", name.c_str());
    return false;
  }
  int count = 0;
  for (const RandrScreen::Output& output : state.outputs) {
    // Somebody may have taken a mode that is there from an output.
    if (isNew || !output.hasMode(id)) {
      count += succeeds([&] { screen_->addOutputMode(output.id, id); });
    }
  }
  if (!isNew) return count > 0;
  if (count == 0) {
    vlog.error("Unable to add mode %s", name.c_str());
    succeeds([&] { screen_->destroyMode(id); });
    return false;
  }
  vlog.info("Added mode %s to %d outputs", name.c_str(), count);
  return true;
}

bool DisplayMode::remove(const RandrScreen::Mode& mode, const RandrScreen::State& state) {
  int count = 0;
  for (const RandrScreen::Output& output : state.outputs) {
    if (output.hasMode(mode.id)) {
      count += succeeds([&] { screen_->deleteOutputMode(output.id, mode.id); });
    }
  }
  if (!succeeds([&] { screen_->destroyMode(mode.id); })) return count > 0;
  vlog.info("Deleted mode %s from %d outputs", plat::escapedControls(mode.name).c_str(), count);
  return true;
}

}  // namespace svr
