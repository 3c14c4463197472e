#pragma once

#include <xkbcommon/xkbcommon-compose.h>
#include <xkbcommon/xkbcommon.h>

#include <memory>
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
  Composer() {
    if (!state_) throw std::runtime_error("no compose table");
  }

  // Empty if the two make nothing.
  std::string compose(uint32_t first, uint32_t second) const {
    xkb_compose_state_reset(state_.get());
    xkb_compose_state_feed(state_.get(), first);
    xkb_compose_state_feed(state_.get(), second);
    if (xkb_compose_state_get_status(state_.get()) != XKB_COMPOSE_COMPOSED) return "";
    char buffer[64];
    xkb_compose_state_get_utf8(state_.get(), buffer, sizeof buffer);
    return buffer;
  }

 private:
  template <auto unref>
  struct Unref {
    void operator()(auto* object) const { unref(object); }
  };
  const std::unique_ptr<xkb_context, Unref<xkb_context_unref>> context_{
      xkb_context_new(XKB_CONTEXT_NO_DEFAULT_INCLUDES)};
  const std::unique_ptr<xkb_compose_table, Unref<xkb_compose_table_unref>> table_{
      xkb_compose_table_new_from_locale(context_.get(), "C.UTF-8", XKB_COMPOSE_COMPILE_NO_FLAGS)};
  const std::unique_ptr<xkb_compose_state, Unref<xkb_compose_state_unref>> state_{
      table_ ? xkb_compose_state_new(table_.get(), XKB_COMPOSE_STATE_NO_FLAGS) : nullptr};
};

}  // namespace support
