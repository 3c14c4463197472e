#include "svr/FakeRandr.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "plat/Exception.h"
#include "svr/WantedModes.h"

FakeRandr::FakeRandr(const std::vector<std::string>& modes, size_t outputs) {
  std::vector<uint32_t> ids;
  for (const std::string& name : modes) {
    state.modes.push_back({nextId_, name, *svr::DisplaySize::parse(name)});
    ids.push_back(nextId_++);
  }
  for (size_t i = 0; i < outputs; i++) {
    state.outputs.push_back({nextId_++, ids});
    Crtc crtc;
    crtc.id = nextId_++;
    state.crtcs.push_back(crtc);
  }
  state.size = {64, 64};
  state.physical = {11, 12};
}

void FakeRandr::show(size_t index, const std::string& name, rfb::Point position,
                     uint16_t rotation) {
  Crtc& crtc = state.crtcs.at(index);
  crtc.position = position;
  crtc.mode = modeId(name);
  crtc.rotation = rotation;
  crtc.outputs = {state.outputs.at(index).id};
  state.size.width = std::max(state.size.width, position.x + extent(crtc).width);
  state.size.height = std::max(state.size.height, position.y + extent(crtc).height);
}

uint32_t FakeRandr::modeId(const std::string& name) const {
  for (const Mode& m : state.modes)
    if (m.name == name) return m.id;
  return 0;
}

std::vector<std::string> FakeRandr::ownModes() const {
  std::vector<std::string> names;
  for (const Mode& m : state.modes)
    if (svr::WantedModes::isOwnName(m.name)) names.push_back(m.name);
  return names;
}

std::vector<std::string> FakeRandr::shown() const {
  std::vector<std::string> result;
  for (const Crtc& crtc : state.crtcs) {
    if (!crtc.inUse()) continue;
    result.push_back(mode(crtc.mode).size.str() +
                     plat::format(" at %d,%d", crtc.position.x, crtc.position.y));
    if (crtc.rotation != 1) result.back() += plat::format(" rotation %d", crtc.rotation);
  }
  return result;
}

std::string FakeRandr::modeOf(size_t crtc) const {
  return mode(state.crtcs.at(crtc).mode).name;
}

svr::RandrScreen::State FakeRandr::read(bool) {
  return state;
}

bool FakeRandr::allowsSize(const svr::DisplaySize& size) {
  return size.width >= 8 && size.height >= 8 && size.width <= largest.width &&
         size.height <= largest.height;
}

uint32_t FakeRandr::createMode(const std::string& name, const svr::ModeTimings& timings) {
  countChange("createMode");
  if (modeId(name)) throw plat::Exception("BadName");
  state.modes.push_back(
      {nextId_, name, {static_cast<int>(timings.width), static_cast<int>(timings.height)}});
  return nextId_++;
}

void FakeRandr::destroyMode(uint32_t id) {
  countChange("destroyMode");
  for (const Output& o : state.outputs)
    if (o.hasMode(id)) throw plat::Exception("BadAccess");
  std::erase_if(state.modes, [id](const Mode& m) { return m.id == id; });
}

void FakeRandr::addOutputMode(uint32_t id, uint32_t mode) {
  countChange("addOutputMode");
  if (outputsRefuseNewModes) throw plat::Exception("BadMatch");
  output(id).modes.push_back(mode);
}

void FakeRandr::deleteOutputMode(uint32_t id, uint32_t mode) {
  countChange("deleteOutputMode");
  if (state.isModeInUse(mode)) throw plat::Exception("BadAccess");
  std::erase(output(id).modes, mode);
}

void FakeRandr::setScreenSize(const svr::DisplaySize& size, const svr::DisplaySize& physical) {
  EXPECT_EQ(grabs, 1);
  countChange("setScreenSize");
  if (!allowsSize(size)) throw plat::Exception("BadValue");
  for (const Crtc& crtc : state.crtcs) {
    const svr::DisplaySize shows = extent(crtc);
    if (crtc.inUse() && (crtc.position.x + shows.width > size.width ||
                         crtc.position.y + shows.height > size.height))
      throw plat::Exception("BadMatch");
  }
  state.size = size;
  state.physical = physical;
}

void FakeRandr::configureCrtc(const Crtc& wanted) {
  EXPECT_EQ(grabs, 1);
  countChange("configureCrtc");
  if (wanted.mode == 0 && !wanted.outputs.empty()) throw plat::Exception("BadMatch");
  for (const uint32_t id : wanted.outputs)
    if (!output(id).hasMode(wanted.mode)) throw plat::Exception("BadMatch");
  if (wanted.mode != 0 && !anyPosition) {
    const svr::DisplaySize shows = extent(wanted);
    if (wanted.position.x < 0 || wanted.position.y < 0 ||
        wanted.position.x + shows.width > state.size.width ||
        wanted.position.y + shows.height > state.size.height)
      throw plat::Exception("BadValue");
  }
  for (Crtc& crtc : state.crtcs)
    if (crtc.id == wanted.id) crtc = wanted;
}

void FakeRandr::grab() {
  EXPECT_EQ(grabs, 0) << "the first release of two grabs ends both";
  ++grabs;
}

void FakeRandr::countChange(const char* what) {
  ++changes;
  if (failAt > 0 && (changes == failAt || (failsOn && changes > failAt)))
    throw plat::Exception("%s fails", what);
}

const svr::RandrScreen::Mode& FakeRandr::mode(uint32_t id) const {
  for (const Mode& m : state.modes)
    if (m.id == id) return m;
  throw plat::Exception("BadMode");
}

svr::DisplaySize FakeRandr::extent(const Crtc& crtc) const {
  if (crtc.mode == 0) return {};
  svr::DisplaySize size = mode(crtc.mode).size;
  if (crtc.rotation & (kRotate90 | kRotate270)) std::swap(size.width, size.height);
  return size;
}

svr::RandrScreen::Output& FakeRandr::output(uint32_t id) {
  for (Output& o : state.outputs)
    if (o.id == id) return o;
  throw plat::Exception("BadOutput");
}
