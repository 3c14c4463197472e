#include "rfb/KeyboardLayouts.h"

#include <stdexcept>
#include <string_view>

namespace {

constexpr uint32_t Alt_R = 0xffea, ISO_Level3_Shift = 0xfe03, Mode_switch = 0xff7e;

#define ASCII U" !\"#$%&'()*+,-./0123456789:;<=>?@ABCXYZ[\\]^_`abcxyz{|}~"

const std::vector<KeyboardRow> us = {{0, 10, {U"1234567890-=", U"!@#$%^&*()_+"}},
                                     {0, 24, {U"qwertyuiop[]", U"QWERTYUIOP{}"}},
                                     {0, 38, {U"asdfghjkl;'", U"ASDFGHJKL:\""}},
                                     {0, 49, {U"`", U"~"}},
                                     {0, 51, {U"\\", U"|"}},
                                     {0, 52, {U"zxcvbnm,./", U"ZXCVBNM<>?"}}};

const std::vector<KeyboardRow> de = {
    {0, 10, {U"1234567890ß\u0301", U"!\"§$%&/()=?\u0300", U" ²³   {[]}\\"}},
    {0, 24, {U"qwertzuiopü+", U"QWERTZUIOPÜ*", U"@ €        ~"}},
    {0, 38, {U"asdfghjklöä", U"ASDFGHJKLÖÄ"}},
    {0, 49, {U"\u0302", U"°"}},
    {0, 51, {U"#", U"'"}},
    {0, 52, {U"yxcvbnm,.-", U"YXCVBNM;:_", U"      µ"}},
    {0, 94, {U"<", U">", U"|"}}};

const std::vector<KeyboardRow> usIntl = {
    {0, 10, {U"1234567890-=", U"!@#$%\u0302&*()_+", U"¡²³¤€¼½¾‘’¥×", U"¹  £       ÷"}},
    {0, 24, {U"qwertyuiop[]", U"QWERTYUIOP{}"}},
    {0, 38, {U"asdfghjkl;\u0301", U"ASDFGHJKL:\u0308", U"áß", U"Á§"}},
    {0, 49, {U"\u0300", U"\u0303"}},
    {0, 51, {U"\\", U"|", U"¬", U"¦"}},
    {0, 52, {U"zxcvbnm,./", U"ZXCVBNM<>?", U"  ©      ¿", U"  ¢"}}};

const std::vector<KeyboardRow> greek = {{1, 10, {U"1234567890-=", U"!@#$%^&*()_+"}},
                                        {1, 24, {U";ςερτυθιοπ[]", U":΅ΕΡΤΥΘΙΟΠ{}"}},
                                        {1, 38, {U"ασδφγηξκλ\u0301'", U"ΑΣΔΦΓΗΞΚΛ\u0308\""}},
                                        {1, 49, {U"`", U"~"}},
                                        {1, 51, {U"\\", U"|"}},
                                        {1, 52, {U"ζχψωβνμ,./", U"ΖΧΨΩΒΝΜ<>?"}}};

std::vector<KeyboardRow> operator+(std::vector<KeyboardRow> a, const std::vector<KeyboardRow>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

}  // namespace

const std::vector<KeyboardLayout>& keyboardLayouts() {
  static const std::vector<KeyboardLayout> layouts = {
      {"us", Alt_R, true, 0, us, ASCII U"éÉñß€ąŁ"},
      {"us without spare keys", Alt_R, false, 0, us, ASCII},
      {"us(intl)", ISO_Level3_Shift, true, 0, usIntl, ASCII U"éÉñÑüÜâÂàÀáÁß§€ÿŵẁċ"},
      {"de", ISO_Level3_Shift, true, 0, de, ASCII U"äöüÄÖÜß§°²€µéÈêâŝþ"},
      {"de with Mode_switch", Mode_switch, true, 0, de, ASCII U"äöüÄÖÜß§°²€µéÈêâ"},
      {"gr", ISO_Level3_Shift, true, 1, us + greek,
       U"Καλημέρα, κόσμε! ΆΈΉΊΌΎΏ άέήίόύώ ΪΫϊϋ 0123456789:;ς[Σ]abcABC"}};
  return layouts;
}

const KeyboardLayout& keyboardLayout(const char* name) {
  for (const KeyboardLayout& layout : keyboardLayouts())
    if (layout.name == std::string_view(name)) return layout;
  throw std::out_of_range(name);
}
