#include "rfb/FakeKeyboard.h"

namespace {

#define ASCII U" !\"#$%&'()*+,-./0123456789:;<=>?@ABCXYZ[\\]^_`abcxyz{|}~"

const std::vector<KeyboardRow> us = {{0, 10, {U"1234567890-=", U"!@#$%^&*()_+"}},
                                     {0, 24, {U"qwertyuiop[]", U"QWERTYUIOP{}"}},
                                     {0, 38, {U"asdfghjkl;'`", U"ASDFGHJKL:\"~"}},
                                     {0, 51, {U"\\zxcvbnm,./", U"|ZXCVBNM<>?"}}};

const std::vector<KeyboardRow> de = {
    {0, 10, {U"1234567890ß\u0301", U"!\"§$%&/()=?\u0300", U" ²³   {[]}\\"}},
    {0, 24, {U"qwertzuiopü+", U"QWERTZUIOPÜ*", U"@ €        ~"}},
    {0, 38, {U"asdfghjklöä\u0302", U"ASDFGHJKLÖÄ°"}},
    {0, 51, {U"#yxcvbnm,.-", U"'YXCVBNM;:_", U"       µ"}},
    {0, 94, {U"<", U">", U"|"}}};

const std::vector<KeyboardRow> usIntl = {
    {0, 10, {U"1234567890-=", U"!@#$%\u0302&*()_+", U"¡²³¤€¼½¾‘’¥×", U"¹  £       ÷"}},
    {0, 24, {U"qwertyuiop[]", U"QWERTYUIOP{}"}},
    {0, 38, {U"asdfghjkl;\u0301\u0300", U"ASDFGHJKL:\u0308\u0303", U"áß", U"Á§"}},
    {0, 51, {U"\\zxcvbnm,./", U"|ZXCVBNM<>?", U"¬  ©      ¿", U"¦  ¢"}}};

const std::vector<KeyboardRow> usAndGreek = {us[0],
                                             us[1],
                                             us[2],
                                             us[3],
                                             {1, 24, {U";ςερτυθιοπ[]", U":΅ΕΡΤΥΘΙΟΠ{}"}},
                                             {1, 38, {U"ασδφγηξκλ\u0301'`", U"ΑΣΔΦΓΗΞΚΛ\u0308\"~"}},
                                             {1, 51, {U"\\ζχψωβνμ,./", U"|ΖΧΨΩΒΝΜ<>?"}}};

}  // namespace

const std::vector<KeyboardLayout> keyboardLayouts = {
    {"us", XKB_KEY_Alt_R, true, 0, us, ASCII U"éÉñß€ąŁ"},
    {"us without spare keys", XKB_KEY_Alt_R, false, 0, us, ASCII},
    {"us(intl)", XKB_KEY_ISO_Level3_Shift, true, 0, usIntl, ASCII U"éÉñÑüÜâÂàÀáÁß§€ÿŵẁċ"},
    {"de", XKB_KEY_ISO_Level3_Shift, true, 0, de, ASCII U"äöüÄÖÜß§°²€µéÈêâŝþ"},
    {"de with Mode_switch", XKB_KEY_Mode_switch, true, 0, de, ASCII U"äöüÄÖÜß§°²€µéÈêâ"},
    {"gr", XKB_KEY_ISO_Level3_Shift, true, 1, usAndGreek,
     U"Καλημέρα, κόσμε! ΆΈΉΊΌΎΏ άέήίόύώ ΪΫϊϋ 0123456789:;ς[Σ]abcABC"}};
