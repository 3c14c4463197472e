#pragma once

#include <optional>

#include "svr/RandrScreen.h"
#include "tx/RandrExtension.h"
#include "tx/ServerGrab.h"

namespace svr {

// The default screen of the open display.
class RandrScreenX11 final : public RandrScreen {
 public:
  explicit RandrScreenX11(const tx::RandrExtension& randr) : randr_(randr) {}

  State read(Extent extent) override;
  DisplaySize size() override;
  bool allowsSize(const DisplaySize& size) override;
  uint32_t createMode(const std::string& name, const ModeTimings& timings) override;
  void destroyMode(uint32_t mode) override;
  void addOutputMode(uint32_t output, uint32_t mode) override;
  void deleteOutputMode(uint32_t output, uint32_t mode) override;
  void setScreenSize(const DisplaySize& size, const DisplaySize& physical) override;
  void configureCrtc(const Crtc& crtc) override;

 private:
  void grab() override { grab_.emplace(); }
  void ungrab() noexcept override { grab_.reset(); }

  const tx::RandrExtension& randr_;
  std::optional<tx::ServerGrab> grab_;
};

}  // namespace svr
