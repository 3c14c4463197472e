#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "rfb/Point.h"
#include "svr/DisplaySize.h"
#include "svr/ModeTimings.h"

namespace svr {

// A screen as RANDR shows and changes it: outputs (connectors), CRTCs that feed them, and modes.
// Ids are the X server's; 0 is none. What fails throws plat::Exception.
class RandrScreen {
 public:
  // The server's rotations are bits, of which these two swap width and height.
  static constexpr uint16_t kRotate90 = 2;
  static constexpr uint16_t kRotate270 = 8;

  struct Mode {
    uint32_t id = 0;
    std::string name;
    DisplaySize size;
  };
  struct Crtc {
    uint32_t id = 0;
    rfb::Point position;
    uint32_t mode = 0;
    uint16_t rotation = 1;
    std::vector<uint32_t> outputs;

    // Showing something.
    bool inUse() const { return mode != 0 && !outputs.empty(); }
    bool feeds(uint32_t output) const;
    // By a quarter, so that width and height of its mode are swapped on the screen.
    bool isTurned() const { return (rotation & (kRotate90 | kRotate270)) != 0; }
    friend bool operator==(const Crtc&, const Crtc&) = default;
  };
  struct Output {
    uint32_t id = 0;
    std::vector<uint32_t> modes;

    bool hasMode(uint32_t mode) const;
  };
  struct State {
    DisplaySize size;
    DisplaySize physical;  // millimetres
    std::vector<Mode> modes;
    std::vector<Crtc> crtcs;
    std::vector<Output> outputs;

    // The sizes of the modes that the CRTCs in use need to show all of a screen of this size.
    std::vector<DisplaySize> modeSizes(const DisplaySize& screen) const;
    // A mode that shows all of a screen of this size on a CRTC that is turned, or is not, and that
    // every output of the CRTCs in use that are the same has; 0 when there is none.
    uint32_t findMode(const DisplaySize& screen, bool turned) const;
    // Whether there is such a mode for each CRTC in use.
    bool canShow(const DisplaySize& screen) const;
    bool isModeInUse(uint32_t mode) const;
    // Whether a CRTC in use feeds the output.
    bool isShown(uint32_t output) const;
  };

  virtual ~RandrScreen() = default;

  enum class Extent {
    kShown,   // of the outputs only those that show something
    kAll,     // what the server knows
    kProbed,  // it looks at its connectors first, which can take long
  };
  virtual State read(Extent extent) = 0;
  virtual DisplaySize size() = 0;
  // Whether the server allows a screen of this size.
  virtual bool allowsSize(const DisplaySize& size) = 0;

  // Returns the new mode's id.
  virtual uint32_t createMode(const std::string& name, const ModeTimings& timings) = 0;
  virtual void destroyMode(uint32_t mode) = 0;
  virtual void addOutputMode(uint32_t output, uint32_t mode) = 0;
  virtual void deleteOutputMode(uint32_t output, uint32_t mode) = 0;
  virtual void setScreenSize(const DisplaySize& size, const DisplaySize& physical) = 0;
  // Without a mode the CRTC is switched off.
  virtual void configureCrtc(const Crtc& crtc) = 0;

  // Keeps other clients from seeing intermediate states while it lives. These do not nest.
  class Grab {
   public:
    explicit Grab(RandrScreen& screen) : screen_(screen) { screen_.grab(); }
    ~Grab() { screen_.ungrab(); }
    Grab(const Grab&) = delete;
    Grab& operator=(const Grab&) = delete;

   private:
    RandrScreen& screen_;
  };

 protected:
  virtual void grab() = 0;
  virtual void ungrab() noexcept = 0;
};

}  // namespace svr
