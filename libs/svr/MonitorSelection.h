#pragma once

#include "plat/String.h"
#include "rfb/Rect.h"

namespace svr {

class MonitorList;

// Which monitors are captured: those that the parameter `Monitor` names, else those that the server
// has chosen, else all.
class MonitorSelection {
 public:
  struct Area {
    rfb::Rect rect;     // empty for everything
    plat::String text;  // that chose it, null for everything
  };

  // Forgets the server's choice.
  void clear() { chosen_ = plat::String(); }
  // The server's choice: decimal numbers with commas between; null or empty for all. Returns
  // whether that changed anything; a text that names no monitors does not, and is logged.
  bool choose(const plat::String& text);
  // What is in force with these monitors. Texts that name none of them are logged.
  Area area(const MonitorList& monitors) const;

  // The value of the parameter `Monitor`.
  static plat::String parameter();

 private:
  plat::String chosen_;
};

}  // namespace svr
