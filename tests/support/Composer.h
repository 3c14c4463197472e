#pragma once

#include <xkbcommon/xkbcommon-compose.h>
#include <xkbcommon/xkbcommon.h>

#include <stdexcept>
#include <string>

namespace support {

// The text of a keysym in UTF-8; empty for one that is no printable character.
inline std::string textOf(uint32_t keysym) {
  const uint32_t c = xkb_keysym_to_utf32(keysym);
  if (c < 0x20 || (c >= 0x7f && c <= 0x9f)) return "";
  char buffer[8];
  xkb_keysym_to_utf8(keysym, buffer, sizeof buffer);
  return buffer;
}

// What applications make of dead keys.
class Composer {
 public:
  Composer()
      : context_(xkb_context_new(XKB_CONTEXT_NO_DEFAULT_INCLUDES)),
        table_(
            xkb_compose_table_new_from_locale(context_, "C.UTF-8", XKB_COMPOSE_COMPILE_NO_FLAGS)) {
    if (!table_) throw std::runtime_error("no compose table");
    state_ = xkb_compose_state_new(table_, XKB_COMPOSE_STATE_NO_FLAGS);
  }
  ~Composer() {
    xkb_compose_state_unref(state_);
    xkb_compose_table_unref(table_);
    xkb_context_unref(context_);
  }
  Composer(const Composer&) = delete;
  Composer& operator=(const Composer&) = delete;

  // Empty if the two make nothing.
  std::string compose(uint32_t first, uint32_t second) const {
    xkb_compose_state_reset(state_);
    xkb_compose_state_feed(state_, first);
    xkb_compose_state_feed(state_, second);
    if (xkb_compose_state_get_status(state_) != XKB_COMPOSE_COMPOSED) return "";
    char buffer[64];
    xkb_compose_state_get_utf8(state_, buffer, sizeof buffer);
    return buffer;
  }

 private:
  xkb_context* context_;
  xkb_compose_table* table_;
  xkb_compose_state* state_ = nullptr;
};

}  // namespace support
