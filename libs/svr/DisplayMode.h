#pragma once

#include <memory>
#include <vector>

#include "plat/String.h"
#include "plat/config/ParameterChangedCallback.h"
#include "svr/RandrScreen.h"
#include "svr/WantedModes.h"

namespace svr {

// Resizes the X screen by RANDR. It adds modes of its own for sizes that are asked for or listed in
// the parameter `RandR`, and removes those that are not wanted any more.
class DisplayMode final : private plat::ParameterChangedCallback {
 public:
  class Callback {
   public:
    // The set of own modes has changed.
    virtual void displayModesChanged() = 0;

   protected:
    ~Callback() = default;
  };

  // For the open display. The callback is not owned, and not called before updateModes() or
  // setDisplayMode().
  explicit DisplayMode(Callback& callback);
  // For a screen of another kind; null stands for a server without RANDR.
  DisplayMode(Callback& callback, std::unique_ptr<RandrScreen> screen);
  ~DisplayMode();
  DisplayMode(const DisplayMode&) = delete;
  DisplayMode& operator=(const DisplayMode&) = delete;

  // Whether requests have any effect.
  bool isAvailable() const { return screen_ != nullptr; }
  // Whether the parameter `RandR` lists anything.
  bool hasListedSizes() const { return !sizes_.empty(); }

  // Makes the screen this large, and has every monitor in use show all of it, turned as it is. What
  // fails is logged and leaves the screen as it was.
  void setDisplayMode(uint32_t width, uint32_t height);
  // Adds the modes that are wanted and missing, deletes own modes that are not wanted and not in
  // use. What fails is logged.
  void updateModes(const std::vector<DisplaySize>& requested = {});

 private:
  // plat::ParameterChangedCallback
  void paramChanged(plat::ConfigParameter* param, int priority) override;

  // These throw plat::Exception.
  void change(const DisplaySize& size);
  // False when there is no mode for it.
  bool trySwitchTo(const DisplaySize& size);
  // Only deletes unless adding.
  void update(const std::vector<DisplaySize>& requested, bool adding);
  bool add(const std::string& name, const RandrScreen::State& state);
  bool remove(const RandrScreen::Mode& mode, const RandrScreen::State& state);

  Callback& callback_;
  std::unique_ptr<RandrScreen> screen_;
  // The sizes that the modes were last updated for.
  plat::String sizes_;
};

}  // namespace svr
