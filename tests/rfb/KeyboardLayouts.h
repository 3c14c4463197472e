#pragma once

#include <cstdint>
#include <vector>

// Keyboard layouts as tables: a new one is one more row of the list.

// Neighbouring keys. Each level is a string with a character for each key; a blank is no symbol, a
// combining mark the dead key of that accent. Levels: plain, Shift, AltGr, both.
struct KeyboardRow {
  int group;
  int firstKeycode;
  const char32_t* levels[4];
};

struct KeyboardLayout {
  const char* name;
  uint32_t altGr;  // the keysym of the key right of the space bar
  bool spareKeys;  // whether there are keycodes without symbols
  int group;       // the one in force
  std::vector<KeyboardRow> rows;
  const char32_t* sample;  // text that can be typed on it
};

const std::vector<KeyboardLayout>& keyboardLayouts();
const KeyboardLayout& keyboardLayout(const char* name);
