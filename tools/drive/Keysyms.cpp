#include "Keysyms.h"

#include <xkbcommon/xkbcommon.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string_view>

#include "Session.h"
#include "plat/Exception.h"
#include "plat/NoCase.h"
#include "plat/Utf8.h"

namespace drive {

namespace {

struct CommonName {
  std::string_view name;
  uint32_t keysym;
};

// As keyboards and other programs call them, upper and lower case alike.
constexpr CommonName kCommonNames[] = {
    {"ctrl", XKB_KEY_Control_L},
    {"control", XKB_KEY_Control_L},
    {"shift", XKB_KEY_Shift_L},
    {"alt", XKB_KEY_Alt_L},
    {"altgr", XKB_KEY_ISO_Level3_Shift},
    {"super", XKB_KEY_Super_L},
    {"win", XKB_KEY_Super_L},
    {"cmd", XKB_KEY_Super_L},
    {"meta", XKB_KEY_Meta_L},
    {"hyper", XKB_KEY_Hyper_L},
    {"esc", XKB_KEY_Escape},
    {"enter", XKB_KEY_Return},
    {"backspace", XKB_KEY_BackSpace},
    {"del", XKB_KEY_Delete},
    {"ins", XKB_KEY_Insert},
    {"pgup", XKB_KEY_Page_Up},
    {"pageup", XKB_KEY_Page_Up},
    {"pgdn", XKB_KEY_Page_Down},
    {"pagedown", XKB_KEY_Page_Down},
    {"capslock", XKB_KEY_Caps_Lock},
    {"numlock", XKB_KEY_Num_Lock},
    {"scrolllock", XKB_KEY_Scroll_Lock},
    {"printscreen", XKB_KEY_Print},
    {"plus", XKB_KEY_plus},
    {"minus", XKB_KEY_minus},
};

// The code points of UTF-8 text. Throws Failure.
std::vector<uint32_t> codePoints(const std::string& text) {
  if (!plat::isValidUtf8(text)) throw Failure("the text is not valid UTF-8");
  std::vector<uint32_t> points;
  for (size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const size_t length = lead < 0x80 ? 1 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    uint32_t point = length == 1 ? lead : lead & (0x7fu >> length);
    for (size_t k = 1; k < length; ++k) {
      point = point << 6 | (static_cast<unsigned char>(text[i + k]) & 0x3f);
    }
    points.push_back(point);
    i += length;
  }
  return points;
}

uint32_t keysymOfCharacter(uint32_t point) {
  if (point == '\n') return XKB_KEY_Return;
  const uint32_t keysym = xkb_utf32_to_keysym(point);
  if (keysym == XKB_KEY_NoSymbol) throw Failure(plat::format("no key symbol for U+%04X", point));
  return keysym;
}

uint32_t keysymOf(const std::string& name) {
  const uint32_t exact = xkb_keysym_from_name(name.c_str(), XKB_KEYSYM_NO_FLAGS);
  if (exact != XKB_KEY_NoSymbol) return exact;
  const auto* common =
      std::find_if(std::begin(kCommonNames), std::end(kCommonNames),
                   [&](const CommonName& c) { return plat::equalNoCase(c.name, name); });
  if (common != std::end(kCommonNames)) return common->keysym;
  if (plat::isValidUtf8(name)) {
    const std::vector<uint32_t> points = codePoints(name);
    if (points.size() == 1) return keysymOfCharacter(points[0]);
  }
  char* end = nullptr;
  const unsigned long number = std::strtoul(name.c_str(), &end, 0);
  if (!name.empty() && *end == '\0' && number <= UINT32_MAX) return static_cast<uint32_t>(number);
  const uint32_t similar = xkb_keysym_from_name(name.c_str(), XKB_KEYSYM_CASE_INSENSITIVE);
  if (similar != XKB_KEY_NoSymbol) return similar;
  throw Failure("'" + name + "' is no key symbol");
}

}  // namespace

std::vector<uint32_t> keysymsOfText(const std::string& text) {
  std::vector<uint32_t> keysyms;
  for (const uint32_t point : codePoints(text)) keysyms.push_back(keysymOfCharacter(point));
  return keysyms;
}

std::vector<uint32_t> keysymsOfCombination(const std::string& combination) {
  std::vector<uint32_t> keysyms;
  // "+" itself is a key when nothing stands before or after it.
  for (size_t begin = 0; begin <= combination.size();) {
    const size_t end = std::min(combination.find('+', begin + 1), combination.size());
    const uint32_t keysym = keysymOf(combination.substr(begin, end - begin));
    // A viewer's keyboard makes capitals of what is pressed with Shift.
    const bool shift = std::any_of(keysyms.begin(), keysyms.end(), [](uint32_t held) {
      return held == XKB_KEY_Shift_L || held == XKB_KEY_Shift_R;
    });
    keysyms.push_back(shift ? xkb_keysym_to_upper(keysym) : keysym);
    begin = end + 1;
  }
  return keysyms;
}

std::string keysymText(uint32_t keysym) {
  char text[64];
  if (xkb_keysym_to_utf8(keysym, text, sizeof text) <= 1) {
    xkb_keysym_get_name(keysym, text, sizeof text);
  }
  return text;
}

}  // namespace drive
