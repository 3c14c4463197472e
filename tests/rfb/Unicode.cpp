#include "rfb/Unicode.h"

#include <map>

namespace unicode {

namespace {

// Characters of consecutive keysyms. U+FFFD stands for no character.
struct Page {
  uint32_t firstKeysym;
  std::u32string_view characters;
};

const Page pages[] = {
    {0x20,
     U" !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNO"
     U"PQRSTUVWXYZ[\\]^_`abcdefghijklmnopqrstuvwxyz{|}~"},
    // Latin 1.
    {0xa0,
     U"\u00a0¡¢£¤¥¦§¨©ª«¬\u00ad®¯°±²³´µ¶·¸¹º»¼½¾¿ÀÁÂÃÄÅÆÇÈÉÊËÌÍÎÏ"
     U"ÐÑÒÓÔÕÖ×ØÙÚÛÜÝÞßàáâãäåæçèéêëìíîïðñòóôõö÷øùúûüýþÿ"},
    // Latin 2.
    {0x1a0,
     U"\u00a0Ą˘Ł¤ĽŚ§¨ŠŞŤŹ\u00adŽŻ°ą˛ł´ľśˇ¸šşťź˝žżŔÁÂĂÄĹĆÇČÉĘËĚÍÎĎ"
     U"ĐŃŇÓÔŐÖ×ŘŮÚŰÜÝŢßŕáâăäĺćçčéęëěíîďđńňóôőö÷řůúűüýţ˙"},
    // Latin 3.
    {0x2a0,
     U"\u00a0Ħ˘£¤\ufffdĤ§¨İŞĞĴ\u00ad\ufffdŻ°ħ²³´µĥ·¸ışğĵ½\ufffdżÀÁÂ\ufffdÄĊĈÇÈÉÊËÌÍÎÏ"
     U"\ufffdÑÒÓÔĠÖ×ĜÙÚÛÜŬŜßàáâ\ufffdäċĉçèéêëìíîï\ufffdñòóôġö÷ĝùúûüŭŝ˙"},
    // Latin 4.
    {0x3a0,
     U"\u00a0ĄĸŖ¤ĨĻ§¨ŠĒĢŦ\u00adŽ¯°ą˛ŗ´ĩļˇ¸šēģŧŊžŋĀÁÂÃÄÅÆĮČÉĘËĖÍÎĪ"
     U"ĐŅŌĶÔÕÖ×ØŲÚÛÜŨŪßāáâãäåæįčéęëėíîīđņōķôõö÷øųúûüũū˙"},
    // Cyrillic.
    {0x6c0,
     U"юабцдефгхийклмнопярстужвьызшэщчъЮАБЦДЕФГХИЙКЛМНО"
     U"ПЯРСТУЖВЬЫЗШЭЩЧЪ"},
    // Greek.
    {0x7a1,
     U"ΆΈΉΊΪ\ufffdΌΎΫ\ufffdΏ\ufffd\ufffd΅―\ufffdάέήίϊΐόύϋΰώ\ufffd\ufffd\ufffd\ufffd\ufffdΑΒΓΔΕΖΗΘΙΚ"
     U"ΛΜΝΞΟΠ"
     U"ΡΣ\ufffdΤΥΦΧΨΩ\ufffd\ufffd\ufffd\ufffd\ufffd\ufffd\ufffdαβγδεζηθικλμνξοπρσςτυφχψω\ufffd"
     U"\ufffd\ufffd\ufffd\ufffd\ufffd"},
    {0x6a3, U"ё"},
    {0x6b0, U"№"},
    {0x6b3, U"Ё"},
    {0x13be, U"Ÿ"},
    {0x20ac, U"€"}};

// Each mark with the letters that it combines with: the letter, then the composed character.
struct Combinations {
  char32_t mark;
  std::u32string_view pairs;
};

const Combinations combinations[] = {
    {U'\u0300', U"AÀEÈIÌOÒUÙaàeèiìoòuùWẀwẁYỲyỳ"},
    {U'\u0301',
     U"AÁEÉIÍOÓUÚYÝaáeéiíoóuúyýCĆcćLĹlĺNŃnńRŔrŕSŚsśZŹzź"
     U"¨΅ΑΆΕΈΗΉΙΊΟΌΥΎΩΏϊΐαάεέηήιίϋΰοόυύωώWẂwẃ"},
    {U'\u0302', U"AÂEÊIÎOÔUÛaâeêiîoôuûCĈcĉGĜgĝHĤhĥJĴjĵSŜsŝWŴwŵYŶyŷ"},
    {U'\u0303', U"AÃNÑOÕaãnñoõIĨiĩUŨuũ"},
    {U'\u0304', U"AĀaāEĒeēIĪiīOŌoōUŪuū"},
    {U'\u0306', U"AĂaăGĞgğUŬuŭ"},
    {U'\u0307', U"CĊcċEĖeėGĠgġIİZŻzżBḂbḃDḊdḋFḞfḟMṀmṁPṖpṗSṠsṡTṪtṫ"},
    {U'\u0308', U"AÄEËIÏOÖUÜaäeëiïoöuüyÿYŸΙΪΥΫιϊυϋWẄwẅ"},
    {U'\u030a', U"AÅaåUŮuů"},
    {U'\u030b', U"OŐoőUŰuű"},
    {U'\u030c', U"CČcčDĎdďEĚeěLĽlľNŇnňRŘrřSŠsšTŤtťZŽzž"},
    {U'\u0327', U"CÇcçGĢgģKĶkķLĻlļNŅnņRŖrŗSŞsşTŢtţ"},
    {U'\u0328', U"AĄaąEĘeęIĮiįUŲuų"}};

}  // namespace

uint32_t keysymOf(char32_t character) {
  static const std::map<char32_t, uint32_t> keysyms = [] {
    std::map<char32_t, uint32_t> result;
    for (const Page& page : pages)
      for (size_t i = 0; i < page.characters.size(); i++)
        result.emplace(page.characters[i], page.firstKeysym + static_cast<uint32_t>(i));
    return result;
  }();
  const auto found = keysyms.find(character);
  return found != keysyms.end() ? found->second : 0x1000000 + static_cast<uint32_t>(character);
}

char32_t characterOf(uint32_t keysym) {
  for (const Page& page : pages) {
    const size_t i = keysym - page.firstKeysym;
    if (keysym >= page.firstKeysym && i < page.characters.size())
      return page.characters[i] == U'\ufffd' ? 0 : page.characters[i];
  }
  return keysym >> 24 == 1 ? keysym & 0xffffff : 0;
}

const std::vector<Decomposition>& decompositions() {
  static const std::vector<Decomposition> all = [] {
    std::vector<Decomposition> result;
    for (const Combinations& c : combinations)
      for (size_t i = 0; i + 1 < c.pairs.size(); i += 2)
        result.push_back({c.pairs[i + 1], c.pairs[i], c.mark});
    return result;
  }();
  return all;
}

char32_t composed(char32_t base, char32_t mark) {
  for (const Decomposition& d : decompositions())
    if (d.base == base && d.mark == mark) return d.composed;
  return 0;
}

}  // namespace unicode
