#pragma once

#include <string>

#include "ruvohost/Framebuffer.h"
#include "ruvohost/Types.h"

namespace ruvohost {

// What an agent tells its server. Every call comes from Agent::process() or processUntil(), and may
// make requests, but not destroy the agent. The defaults do nothing.
class Listener {
 public:
  virtual ~Listener() = default;

  // The desktop as the agent found it, before it is started.
  virtual void greeted(const Rect& /*desktop*/, const PixelFormat& /*format*/) {}
  // There is a (new) framebuffer, all of it valid.
  virtual void framebufferChanged(const Framebuffer& /*framebuffer*/) {}
  // The colours of a colour-map format changed.
  virtual void coloursChanged(const Framebuffer& /*framebuffer*/) {}
  // The answer to Agent::requestUpdate(): what is other than at the last update.
  virtual void updated(const Update& /*update*/) {}
  virtual void cursorChanged(const Cursor& /*cursor*/) {}
  virtual void cursorMoved(int32_t /*x*/, int32_t /*y*/) {}
  virtual void bell() {}
  // Somebody uses the desktop's own keyboard or mouse.
  virtual void localInput() {}
  // Text was copied in the desktop.
  virtual void textCopied(const std::string& /*utf8*/) {}
  virtual void monitorsChanged(const Monitors& /*monitors*/) {}
  // Whether changes are reported incompletely, so that the agent compares pixels instead.
  virtual void captureBroken(bool /*broken*/) {}
  // How the agent finds changes: by comparing pixels, or told by the X server. Told when the
  // agent's log comes at level 30 or above, as it does unless setLogLevel() was called.
  virtual void pollingChanged(bool /*polling*/) {}
  virtual void displaySizesSupported(bool /*supported*/) {}
  virtual void displaySizesChanged() {}
  // Who is logged in to the desktop.
  virtual void desktopOwnerChanged(uint64_t /*userId*/, const std::string& /*xauthority*/) {}
  // The agent wants all viewers disconnected.
  virtual void closeViewers(const std::string& /*text*/) {}
  // The desktop can't be captured (any more). The agent stays and may be started again.
  virtual void desktopFailed(const std::string& /*text*/) {}
  virtual void refused(const Refusal& /*refusal*/) {}
  virtual void logged(const LogLine& /*line*/) {}
  // The agent has gone; nothing comes after this.
  virtual void disconnected() {}
};

}  // namespace ruvohost
