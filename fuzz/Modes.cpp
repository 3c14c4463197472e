// Screens as the X server may describe them, sizes asked for, and selections of monitors.

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "plat/Exception.h"
#include "plat/config/Configuration.h"
#include "plat/log/LogManager.h"
#include "svr/DisplayMode.h"
#include "svr/MonitorList.h"

namespace {

// Says anything, and refuses now and then.
class AnyScreen : public svr::RandrScreen {
 public:
  explicit AnyScreen(FuzzedDataProvider& input) : input_(input) {
    const auto number = [&] { return input.ConsumeIntegralInRange<size_t>(0, 4); };
    const auto size = [&] {
      return svr::DisplaySize{input.ConsumeIntegral<uint16_t>(), input.ConsumeIntegral<uint16_t>()};
    };
    const auto ids = [&] {
      std::vector<uint32_t> list(number());
      for (uint32_t& id : list) id = input.ConsumeIntegralInRange(0u, 5u);
      return list;
    };
    state_.size = size();
    for (size_t n = number(); n > 0; --n) {
      state_.modes.push_back(
          {static_cast<uint32_t>(n),
           input.ConsumeBool() ? input.ConsumeRandomLengthString(12) : "640x480_ruvo", size()});
    }
    for (size_t n = number(); n > 0; --n) {
      state_.crtcs.push_back({static_cast<uint32_t>(n),
                              {input.ConsumeIntegral<int16_t>(), input.ConsumeIntegral<int16_t>()},
                              input.ConsumeIntegralInRange(0u, 5u),
                              input.ConsumeIntegral<uint16_t>(),
                              ids()});
    }
    for (size_t n = number(); n > 0; --n)
      state_.outputs.push_back({static_cast<uint32_t>(n), ids()});
  }

  State read(bool) override {
    mayFail();
    return state_;
  }
  bool allowsSize(const svr::DisplaySize&) override {
    return input_.ConsumeIntegral<uint8_t>() < 250;
  }
  uint32_t createMode(const std::string& name, const svr::ModeTimings&) override {
    mayFail();
    if (state_.modes.size() > 50) throw plat::Exception("too many");
    const auto id = static_cast<uint32_t>(100 + created_++);
    state_.modes.push_back({id, name, state_.size});
    return id;
  }
  void destroyMode(uint32_t mode) override {
    mayFail();
    std::erase_if(state_.modes, [mode](const Mode& m) { return m.id == mode; });
  }
  void addOutputMode(uint32_t, uint32_t) override { mayFail(); }
  void deleteOutputMode(uint32_t, uint32_t) override { mayFail(); }
  void setScreenSize(const svr::DisplaySize& size, const svr::DisplaySize&) override {
    mayFail();
    state_.size = size;
  }
  void configureCrtc(const Crtc& crtc) override {
    mayFail();
    for (Crtc& known : state_.crtcs) {
      if (known.id == crtc.id) known = crtc;
    }
  }

 protected:
  void grab() override { check(++grabs_ == 1); }
  void ungrab() noexcept override { check(--grabs_ == 0); }

 private:
  static void check(bool condition) {
    if (!condition) abort();
  }
  void mayFail() {
    if (input_.ConsumeIntegral<uint8_t>() > 230) throw plat::Exception("refused");
  }

  FuzzedDataProvider& input_;
  State state_;
  int created_ = 0;
  int grabs_ = 0;
};

class Nobody : public svr::DisplayMode::Callback {
  void displayModesChanged() override {}
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  plat::LogManager::instance().setLogSpec("");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  std::vector<rfb::Rect> rects(input.ConsumeIntegralInRange<size_t>(0, 16));
  for (rfb::Rect& rect : rects) {
    const int x = input.ConsumeIntegral<int16_t>();
    const int y = input.ConsumeIntegral<int16_t>();
    rect =
        rfb::Rect(x, y, x + input.ConsumeIntegral<uint8_t>(), y + input.ConsumeIntegral<uint8_t>());
  }
  const svr::MonitorList monitors(std::move(rects));
  try {
    const rfb::Rect all = monitors.region().boundingRect();
    const rfb::Rect selected =
        monitors.select(plat::String(input.ConsumeRandomLengthString(40).c_str()));
    if (!selected.isEmpty() && selected.intersect(all) != selected) abort();
  } catch (const plat::Exception&) {
    // No monitor of that number.
  }
  Nobody nobody;
  plat::Configuration::global().getParam("RandR").setParam(
      input.ConsumeRandomLengthString(60).c_str(), 10);
  svr::DisplayMode mode(nobody, std::make_unique<AnyScreen>(input));
  for (int turns = 0; input.remaining_bytes() > 0 && turns < 8; ++turns) {
    if (input.ConsumeBool()) mode.updateModes();
    mode.setDisplayMode(input.ConsumeIntegral<uint32_t>() >> input.ConsumeIntegralInRange(0, 31),
                        input.ConsumeIntegral<uint16_t>());
  }
  return 0;
}
