#pragma once

#include "svr/RandrScreen.h"

// A screen that obeys the X server's rules, in memory.
class FakeRandr final : public svr::RandrScreen {
 public:
  // Outputs that have all of the modes; each is fed by a CRTC of its own.
  FakeRandr(const std::vector<std::string>& modes, size_t outputs);

  // Switches a CRTC on, from outside. The screen grows when needed.
  void show(size_t crtc, const std::string& mode, rfb::Point position, uint16_t rotation = 1);
  uint32_t modeId(const std::string& name) const;
  std::vector<std::string> ownModes() const;
  // "1024x768 at 0,0" for each CRTC in use; the CRTC's rotation follows unless it is none.
  std::vector<std::string> shown() const;
  std::string modeOf(size_t crtc) const;

  State read(bool probe) override;
  bool allowsSize(const svr::DisplaySize& size) override;
  uint32_t createMode(const std::string& name, const svr::ModeTimings& timings) override;
  void destroyMode(uint32_t mode) override;
  void addOutputMode(uint32_t output, uint32_t mode) override;
  void deleteOutputMode(uint32_t output, uint32_t mode) override;
  void setScreenSize(const svr::DisplaySize& size, const svr::DisplaySize& physical) override;
  void configureCrtc(const Crtc& crtc) override;

  State state;
  svr::DisplaySize largest{4096, 4096};
  bool outputsRefuseNewModes = false;
  // CRTCs may reach beyond the screen.
  bool anyPosition = false;
  // The change, counted from 1, that fails; 0 for none. failsOn: and so do all after it.
  int failAt = 0;
  bool failsOn = false;
  int changes = 0;
  int grabs = 0;

 private:
  void grab() override;
  void ungrab() noexcept override { --grabs; }

  void countChange(const char* what);
  const Mode& mode(uint32_t id) const;
  svr::DisplaySize extent(const Crtc& crtc) const;
  Output& output(uint32_t id);

  uint32_t nextId_ = 100;
};
