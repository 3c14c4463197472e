#include "rfb/KeysymAlternates.h"

namespace rfb {

namespace {

struct Pair {
  uint32_t left;
  uint32_t right;
};

// No keysym stands on both sides.
constexpr Pair kPairs[] = {
    {0xffe2, 0xffe1},  // Shift_R, Shift_L
    {0xffe4, 0xffe3},  // Control_R, Control_L
    {0xffe8, 0xffe7},  // Meta_R, Meta_L
    {0xffea, 0xffe9},  // Alt_R, Alt_L
    {0xffec, 0xffeb},  // Super_R, Super_L
    {0xffee, 0xffed},  // Hyper_R, Hyper_L
    {0xff7e, 0xfe03},  // Mode_switch, ISO_Level3_Shift
    {0xff80, 0x0020},  // KP_Space, space
    {0xff89, 0xff09},  // KP_Tab, Tab
    {0xff8d, 0xff0d},  // KP_Enter, Return
    {0xff91, 0xffbe},  // KP_F1, F1
    {0xff92, 0xffbf},  // KP_F2, F2
    {0xff93, 0xffc0},  // KP_F3, F3
    {0xff94, 0xffc1},  // KP_F4, F4
    {0xff95, 0xff50},  // KP_Home, Home
    {0xff96, 0xff51},  // KP_Left, Left
    {0xff97, 0xff52},  // KP_Up, Up
    {0xff98, 0xff53},  // KP_Right, Right
    {0xff99, 0xff54},  // KP_Down, Down
    {0xff9a, 0xff55},  // KP_Prior, Prior
    {0xff9b, 0xff56},  // KP_Next, Next
    {0xff9c, 0xff57},  // KP_End, End
    {0xff9d, 0xff58},  // KP_Begin, Begin
    {0xff9e, 0xff63},  // KP_Insert, Insert
    {0xff9f, 0xffff},  // KP_Delete, Delete
    {0xffbd, 0x003d},  // KP_Equal, equal
    {0xffaa, 0x002a},  // KP_Multiply, asterisk
    {0xffab, 0x002b},  // KP_Add, plus
    {0xffac, 0x002c},  // KP_Separator, comma
    {0xffad, 0x002d},  // KP_Subtract, minus
    {0xffae, 0x002e},  // KP_Decimal, period
    {0xffaf, 0x002f},  // KP_Divide, slash
    {0xffb0, 0x0030},  // KP_0, 0
    {0xffb1, 0x0031},  // KP_1, 1
    {0xffb2, 0x0032},  // KP_2, 2
    {0xffb3, 0x0033},  // KP_3, 3
    {0xffb4, 0x0034},  // KP_4, 4
    {0xffb5, 0x0035},  // KP_5, 5
    {0xffb6, 0x0036},  // KP_6, 6
    {0xffb7, 0x0037},  // KP_7, 7
    {0xffb8, 0x0038},  // KP_8, 8
    {0xffb9, 0x0039},  // KP_9, 9
};

}  // namespace

uint32_t alternateKeysym(uint32_t keysym) {
  for (const Pair& pair : kPairs) {
    if (pair.left == keysym) return pair.right;
  }
  for (const Pair& pair : kPairs) {
    if (pair.right == keysym) return pair.left;
  }
  return 0;
}

}  // namespace rfb
