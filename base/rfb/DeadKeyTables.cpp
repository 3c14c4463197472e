#include "rfb/DeadKeyTables.h"

namespace rfb {

namespace {

constexpr SpacingDead kSpacingTable[] = {
    {0x0060, 0xfe50},     // grave, dead_grave
    {0x0027, 0xfe51},     // apostrophe, dead_acute
    {0x00b4, 0xfe51},     // acute, dead_acute
    {0x1000384, 0xfe51},  // Greek tonos, dead_acute
    {0x005e, 0xfe52},     // asciicircum, dead_circumflex
    {0x007e, 0xfe53},     // asciitilde, dead_tilde
    {0x00af, 0xfe54},     // macron, dead_macron
    {0x01a2, 0xfe55},     // breve, dead_breve
    {0x01ff, 0xfe56},     // abovedot, dead_abovedot
    {0x0022, 0xfe57},     // quotedbl, dead_diaeresis
    {0x00a8, 0xfe57},     // diaeresis, dead_diaeresis
    {0x00b0, 0xfe58},     // degree, dead_abovering
    {0x01bd, 0xfe59},     // doubleacute, dead_doubleacute
    {0x01b7, 0xfe5a},     // caron, dead_caron
    {0x00b8, 0xfe5b},     // cedilla, dead_cedilla
    {0x01b2, 0xfe5c},     // ogonek, dead_ogonek
    {0x10002da, 0xfe58},  // ring above, dead_abovering
    {0x07ae, 0x1000344},  // Greek_accentdieresis, combining dialytika tonos
    {0x10002c6, 0xfe52},  // modifier circumflex, dead_circumflex
    {0x10002dc, 0xfe53},  // small tilde, dead_tilde
};

// ISO 8859-1.
constexpr Composition kLatin1Table[] = {
    {0x00c0, 0xfe50, 0x0041},  // Agrave, dead_grave, A
    {0x00c8, 0xfe50, 0x0045},  // Egrave, dead_grave, E
    {0x00cc, 0xfe50, 0x0049},  // Igrave, dead_grave, I
    {0x00d2, 0xfe50, 0x004f},  // Ograve, dead_grave, O
    {0x00d9, 0xfe50, 0x0055},  // Ugrave, dead_grave, U
    {0x00e0, 0xfe50, 0x0061},  // agrave, dead_grave, a
    {0x00e8, 0xfe50, 0x0065},  // egrave, dead_grave, e
    {0x00ec, 0xfe50, 0x0069},  // igrave, dead_grave, i
    {0x00f2, 0xfe50, 0x006f},  // ograve, dead_grave, o
    {0x00f9, 0xfe50, 0x0075},  // ugrave, dead_grave, u
    {0x00c1, 0xfe51, 0x0041},  // Aacute, dead_acute, A
    {0x00c9, 0xfe51, 0x0045},  // Eacute, dead_acute, E
    {0x00cd, 0xfe51, 0x0049},  // Iacute, dead_acute, I
    {0x00d3, 0xfe51, 0x004f},  // Oacute, dead_acute, O
    {0x00da, 0xfe51, 0x0055},  // Uacute, dead_acute, U
    {0x00dd, 0xfe51, 0x0059},  // Yacute, dead_acute, Y
    {0x00e1, 0xfe51, 0x0061},  // aacute, dead_acute, a
    {0x00e9, 0xfe51, 0x0065},  // eacute, dead_acute, e
    {0x00ed, 0xfe51, 0x0069},  // iacute, dead_acute, i
    {0x00f3, 0xfe51, 0x006f},  // oacute, dead_acute, o
    {0x00fa, 0xfe51, 0x0075},  // uacute, dead_acute, u
    {0x00fd, 0xfe51, 0x0079},  // yacute, dead_acute, y
    {0x00c2, 0xfe52, 0x0041},  // Acircumflex, dead_circumflex, A
    {0x00ca, 0xfe52, 0x0045},  // Ecircumflex, dead_circumflex, E
    {0x00ce, 0xfe52, 0x0049},  // Icircumflex, dead_circumflex, I
    {0x00d4, 0xfe52, 0x004f},  // Ocircumflex, dead_circumflex, O
    {0x00db, 0xfe52, 0x0055},  // Ucircumflex, dead_circumflex, U
    {0x00e2, 0xfe52, 0x0061},  // acircumflex, dead_circumflex, a
    {0x00ea, 0xfe52, 0x0065},  // ecircumflex, dead_circumflex, e
    {0x00ee, 0xfe52, 0x0069},  // icircumflex, dead_circumflex, i
    {0x00f4, 0xfe52, 0x006f},  // ocircumflex, dead_circumflex, o
    {0x00fb, 0xfe52, 0x0075},  // ucircumflex, dead_circumflex, u
    {0x00c3, 0xfe53, 0x0041},  // Atilde, dead_tilde, A
    {0x00d1, 0xfe53, 0x004e},  // Ntilde, dead_tilde, N
    {0x00d5, 0xfe53, 0x004f},  // Otilde, dead_tilde, O
    {0x00e3, 0xfe53, 0x0061},  // atilde, dead_tilde, a
    {0x00f1, 0xfe53, 0x006e},  // ntilde, dead_tilde, n
    {0x00f5, 0xfe53, 0x006f},  // otilde, dead_tilde, o
    {0x00c4, 0xfe57, 0x0041},  // Adiaeresis, dead_diaeresis, A
    {0x00cb, 0xfe57, 0x0045},  // Ediaeresis, dead_diaeresis, E
    {0x00cf, 0xfe57, 0x0049},  // Idiaeresis, dead_diaeresis, I
    {0x00d6, 0xfe57, 0x004f},  // Odiaeresis, dead_diaeresis, O
    {0x00dc, 0xfe57, 0x0055},  // Udiaeresis, dead_diaeresis, U
    {0x00e4, 0xfe57, 0x0061},  // adiaeresis, dead_diaeresis, a
    {0x00eb, 0xfe57, 0x0065},  // ediaeresis, dead_diaeresis, e
    {0x00ef, 0xfe57, 0x0069},  // idiaeresis, dead_diaeresis, i
    {0x00f6, 0xfe57, 0x006f},  // odiaeresis, dead_diaeresis, o
    {0x00fc, 0xfe57, 0x0075},  // udiaeresis, dead_diaeresis, u
    {0x00ff, 0xfe57, 0x0079},  // ydiaeresis, dead_diaeresis, y
    {0x00c5, 0xfe58, 0x0041},  // Aring, dead_abovering, A
    {0x00e5, 0xfe58, 0x0061},  // aring, dead_abovering, a
    {0x00c7, 0xfe5b, 0x0043},  // Ccedilla, dead_cedilla, C
    {0x00e7, 0xfe5b, 0x0063},  // ccedilla, dead_cedilla, c
    {0x0060, 0xfe50, 0x0020},  // grave, dead_grave, space
    {0x0027, 0xfe51, 0x0020},  // apostrophe, dead_acute, space
    {0x00b4, 0xfe51, 0x0020},  // acute, dead_acute, space
    {0x005e, 0xfe52, 0x0020},  // asciicircum, dead_circumflex, space
    {0x007e, 0xfe53, 0x0020},  // asciitilde, dead_tilde, space
    {0x0022, 0xfe57, 0x0020},  // quotedbl, dead_diaeresis, space
    {0x00a8, 0xfe57, 0x0020},  // diaeresis, dead_diaeresis, space
    {0x00b0, 0xfe58, 0x0020},  // degree, dead_abovering, space
    {0x00b8, 0xfe5b, 0x0020},  // cedilla, dead_cedilla, space
};

// ISO 8859-2, what is new in it.
constexpr Composition kLatin2Table[] = {
    {0x01a6, 0xfe51, 0x0053},  // Sacute, dead_acute, S
    {0x01ac, 0xfe51, 0x005a},  // Zacute, dead_acute, Z
    {0x01c0, 0xfe51, 0x0052},  // Racute, dead_acute, R
    {0x01c5, 0xfe51, 0x004c},  // Lacute, dead_acute, L
    {0x01c6, 0xfe51, 0x0043},  // Cacute, dead_acute, C
    {0x01d1, 0xfe51, 0x004e},  // Nacute, dead_acute, N
    {0x01b6, 0xfe51, 0x0073},  // sacute, dead_acute, s
    {0x01bc, 0xfe51, 0x007a},  // zacute, dead_acute, z
    {0x01e0, 0xfe51, 0x0072},  // racute, dead_acute, r
    {0x01e5, 0xfe51, 0x006c},  // lacute, dead_acute, l
    {0x01e6, 0xfe51, 0x0063},  // cacute, dead_acute, c
    {0x01f1, 0xfe51, 0x006e},  // nacute, dead_acute, n
    {0x01aa, 0xfe5b, 0x0053},  // Scedilla, dead_cedilla, S
    {0x01de, 0xfe5b, 0x0054},  // Tcedilla, dead_cedilla, T
    {0x01ba, 0xfe5b, 0x0073},  // scedilla, dead_cedilla, s
    {0x01fe, 0xfe5b, 0x0074},  // tcedilla, dead_cedilla, t
    {0x01d9, 0xfe58, 0x0055},  // Uring, dead_abovering, U
    {0x01f9, 0xfe58, 0x0075},  // uring, dead_abovering, u
    {0x01a1, 0xfe5c, 0x0041},  // Aogonek, dead_ogonek, A
    {0x01ca, 0xfe5c, 0x0045},  // Eogonek, dead_ogonek, E
    {0x01b1, 0xfe5c, 0x0061},  // aogonek, dead_ogonek, a
    {0x01ea, 0xfe5c, 0x0065},  // eogonek, dead_ogonek, e
    {0x01c3, 0xfe55, 0x0041},  // Abreve, dead_breve, A
    {0x01e3, 0xfe55, 0x0061},  // abreve, dead_breve, a
    {0x01a3, 0xfe63, 0x004c},  // Lstroke, dead_stroke, L
    {0x01d0, 0xfe63, 0x0044},  // Dstroke, dead_stroke, D
    {0x01b3, 0xfe63, 0x006c},  // lstroke, dead_stroke, l
    {0x01f0, 0xfe63, 0x0064},  // dstroke, dead_stroke, d
    {0x01a5, 0xfe5a, 0x004c},  // Lcaron, dead_caron, L
    {0x01a9, 0xfe5a, 0x0053},  // Scaron, dead_caron, S
    {0x01ab, 0xfe5a, 0x0054},  // Tcaron, dead_caron, T
    {0x01ae, 0xfe5a, 0x005a},  // Zcaron, dead_caron, Z
    {0x01c8, 0xfe5a, 0x0043},  // Ccaron, dead_caron, C
    {0x01cc, 0xfe5a, 0x0045},  // Ecaron, dead_caron, E
    {0x01cf, 0xfe5a, 0x0044},  // Dcaron, dead_caron, D
    {0x01d2, 0xfe5a, 0x004e},  // Ncaron, dead_caron, N
    {0x01d8, 0xfe5a, 0x0052},  // Rcaron, dead_caron, R
    {0x01b5, 0xfe5a, 0x006c},  // lcaron, dead_caron, l
    {0x01b9, 0xfe5a, 0x0073},  // scaron, dead_caron, s
    {0x01bb, 0xfe5a, 0x0074},  // tcaron, dead_caron, t
    {0x01be, 0xfe5a, 0x007a},  // zcaron, dead_caron, z
    {0x01e8, 0xfe5a, 0x0063},  // ccaron, dead_caron, c
    {0x01ec, 0xfe5a, 0x0065},  // ecaron, dead_caron, e
    {0x01ef, 0xfe5a, 0x0064},  // dcaron, dead_caron, d
    {0x01f2, 0xfe5a, 0x006e},  // ncaron, dead_caron, n
    {0x01f8, 0xfe5a, 0x0072},  // rcaron, dead_caron, r
    {0x01af, 0xfe56, 0x005a},  // Zabovedot, dead_abovedot, Z
    {0x01bf, 0xfe56, 0x007a},  // zabovedot, dead_abovedot, z
    {0x01d5, 0xfe59, 0x004f},  // Odoubleacute, dead_doubleacute, O
    {0x01db, 0xfe59, 0x0055},  // Udoubleacute, dead_doubleacute, U
    {0x01f5, 0xfe59, 0x006f},  // odoubleacute, dead_doubleacute, o
    {0x01fb, 0xfe59, 0x0075},  // udoubleacute, dead_doubleacute, u
    {0x01b2, 0xfe5c, 0x0020},  // ogonek, dead_ogonek, space
    {0x01a2, 0xfe55, 0x0020},  // breve, dead_breve, space
    {0x01b7, 0xfe5a, 0x0020},  // caron, dead_caron, space
    {0x01ff, 0xfe56, 0x0020},  // abovedot, dead_abovedot, space
    {0x01bd, 0xfe59, 0x0020},  // doubleacute, dead_doubleacute, space
};

// ISO 8859-3, what is new in it.
constexpr Composition kLatin3Table[] = {
    {0x02a1, 0xfe63, 0x0048},  // Hstroke, dead_stroke, H
    {0x02b1, 0xfe63, 0x0068},  // hstroke, dead_stroke, h
    {0x02a6, 0xfe52, 0x0048},  // Hcircumflex, dead_circumflex, H
    {0x02ac, 0xfe52, 0x004a},  // Jcircumflex, dead_circumflex, J
    {0x02c6, 0xfe52, 0x0043},  // Ccircumflex, dead_circumflex, C
    {0x02d8, 0xfe52, 0x0047},  // Gcircumflex, dead_circumflex, G
    {0x02de, 0xfe52, 0x0053},  // Scircumflex, dead_circumflex, S
    {0x02b6, 0xfe52, 0x0068},  // hcircumflex, dead_circumflex, h
    {0x02bc, 0xfe52, 0x006a},  // jcircumflex, dead_circumflex, j
    {0x02e6, 0xfe52, 0x0063},  // ccircumflex, dead_circumflex, c
    {0x02f8, 0xfe52, 0x0067},  // gcircumflex, dead_circumflex, g
    {0x02fe, 0xfe52, 0x0073},  // scircumflex, dead_circumflex, s
    {0x02c5, 0xfe56, 0x0043},  // Cabovedot, dead_abovedot, C
    {0x02d5, 0xfe56, 0x0047},  // Gabovedot, dead_abovedot, G
    {0x02a9, 0xfe56, 0x0049},  // Iabovedot, dead_abovedot, I
    {0x02e5, 0xfe56, 0x0063},  // cabovedot, dead_abovedot, c
    {0x02f5, 0xfe56, 0x0067},  // gabovedot, dead_abovedot, g
    {0x02ab, 0xfe55, 0x0047},  // Gbreve, dead_breve, G
    {0x02dd, 0xfe55, 0x0055},  // Ubreve, dead_breve, U
    {0x02bb, 0xfe55, 0x0067},  // gbreve, dead_breve, g
    {0x02fd, 0xfe55, 0x0075},  // ubreve, dead_breve, u
};

// ISO 8859-4, what is new in it.
constexpr Composition kLatin4Table[] = {
    {0x03a3, 0xfe5b, 0x0052},  // Rcedilla, dead_cedilla, R
    {0x03a6, 0xfe5b, 0x004c},  // Lcedilla, dead_cedilla, L
    {0x03ab, 0xfe5b, 0x0047},  // Gcedilla, dead_cedilla, G
    {0x03d1, 0xfe5b, 0x004e},  // Ncedilla, dead_cedilla, N
    {0x03d3, 0xfe5b, 0x004b},  // Kcedilla, dead_cedilla, K
    {0x03b3, 0xfe5b, 0x0072},  // rcedilla, dead_cedilla, r
    {0x03b6, 0xfe5b, 0x006c},  // lcedilla, dead_cedilla, l
    {0x03bb, 0xfe5b, 0x0067},  // gcedilla, dead_cedilla, g
    {0x03f1, 0xfe5b, 0x006e},  // ncedilla, dead_cedilla, n
    {0x03f3, 0xfe5b, 0x006b},  // kcedilla, dead_cedilla, k
    {0x03a5, 0xfe53, 0x0049},  // Itilde, dead_tilde, I
    {0x03dd, 0xfe53, 0x0055},  // Utilde, dead_tilde, U
    {0x03b5, 0xfe53, 0x0069},  // itilde, dead_tilde, i
    {0x03fd, 0xfe53, 0x0075},  // utilde, dead_tilde, u
    {0x03aa, 0xfe54, 0x0045},  // Emacron, dead_macron, E
    {0x03c0, 0xfe54, 0x0041},  // Amacron, dead_macron, A
    {0x03cf, 0xfe54, 0x0049},  // Imacron, dead_macron, I
    {0x03d2, 0xfe54, 0x004f},  // Omacron, dead_macron, O
    {0x03de, 0xfe54, 0x0055},  // Umacron, dead_macron, U
    {0x03ba, 0xfe54, 0x0065},  // emacron, dead_macron, e
    {0x03e0, 0xfe54, 0x0061},  // amacron, dead_macron, a
    {0x03ef, 0xfe54, 0x0069},  // imacron, dead_macron, i
    {0x03f2, 0xfe54, 0x006f},  // omacron, dead_macron, o
    {0x03fe, 0xfe54, 0x0075},  // umacron, dead_macron, u
    {0x03c7, 0xfe5c, 0x0049},  // Iogonek, dead_ogonek, I
    {0x03d9, 0xfe5c, 0x0055},  // Uogonek, dead_ogonek, U
    {0x03e7, 0xfe5c, 0x0069},  // iogonek, dead_ogonek, i
    {0x03f9, 0xfe5c, 0x0075},  // uogonek, dead_ogonek, u
    {0x03cc, 0xfe56, 0x0045},  // Eabovedot, dead_abovedot, E
    {0x03ec, 0xfe56, 0x0065},  // eabovedot, dead_abovedot, e
};

// Letters of Welsh and ISO 8859-14, whose keysyms are Unicode numbers.
constexpr Composition kWelshTable[] = {
    {0x1001e02, 0xfe56, 0x0042},  // Babovedot, dead_abovedot, B
    {0x1001e0a, 0xfe56, 0x0044},  // Dabovedot, dead_abovedot, D
    {0x1001e1e, 0xfe56, 0x0046},  // Fabovedot, dead_abovedot, F
    {0x1001e40, 0xfe56, 0x004d},  // Mabovedot, dead_abovedot, M
    {0x1001e56, 0xfe56, 0x0050},  // Pabovedot, dead_abovedot, P
    {0x1001e60, 0xfe56, 0x0053},  // Sabovedot, dead_abovedot, S
    {0x1001e6a, 0xfe56, 0x0054},  // Tabovedot, dead_abovedot, T
    {0x1001e03, 0xfe56, 0x0062},  // babovedot, dead_abovedot, b
    {0x1001e0b, 0xfe56, 0x0064},  // dabovedot, dead_abovedot, d
    {0x1001e1f, 0xfe56, 0x0066},  // fabovedot, dead_abovedot, f
    {0x1001e41, 0xfe56, 0x006d},  // mabovedot, dead_abovedot, m
    {0x1001e57, 0xfe56, 0x0070},  // pabovedot, dead_abovedot, p
    {0x1001e61, 0xfe56, 0x0073},  // sabovedot, dead_abovedot, s
    {0x1001e6b, 0xfe56, 0x0074},  // tabovedot, dead_abovedot, t
    {0x1001e80, 0xfe50, 0x0057},  // Wgrave, dead_grave, W
    {0x1001e81, 0xfe50, 0x0077},  // wgrave, dead_grave, w
    {0x1001ef2, 0xfe50, 0x0059},  // Ygrave, dead_grave, Y
    {0x1001ef3, 0xfe50, 0x0079},  // ygrave, dead_grave, y
    {0x1001e82, 0xfe51, 0x0057},  // Wacute, dead_acute, W
    {0x1001e83, 0xfe51, 0x0077},  // wacute, dead_acute, w
    {0x1001e84, 0xfe57, 0x0057},  // Wdiaeresis, dead_diaeresis, W
    {0x1001e85, 0xfe57, 0x0077},  // wdiaeresis, dead_diaeresis, w
    {0x1000174, 0xfe52, 0x0057},  // Wcircumflex, dead_circumflex, W
    {0x1000175, 0xfe52, 0x0077},  // wcircumflex, dead_circumflex, w
    {0x1000176, 0xfe52, 0x0059},  // Ycircumflex, dead_circumflex, Y
    {0x1000177, 0xfe52, 0x0079},  // ycircumflex, dead_circumflex, y
};

// ISO 8859-15, what is new in it.
constexpr Composition kLatin9Table[] = {
    {0x13be, 0xfe57, 0x0059},  // Ydiaeresis, dead_diaeresis, Y
};

// ISO 8859-7.
constexpr Composition kGreekTable[] = {
    {0x07a1, 0xfe51, 0x07c1},     // Greek_ALPHAaccent, dead_acute, Greek_ALPHA
    {0x07b1, 0xfe51, 0x07e1},     // Greek_alphaaccent, dead_acute, Greek_alpha
    {0x07a2, 0xfe51, 0x07c5},     // Greek_EPSILONaccent, dead_acute, Greek_EPSILON
    {0x07b2, 0xfe51, 0x07e5},     // Greek_epsilonaccent, dead_acute, Greek_epsilon
    {0x07a3, 0xfe51, 0x07c7},     // Greek_ETAaccent, dead_acute, Greek_ETA
    {0x07b3, 0xfe51, 0x07e7},     // Greek_etaaccent, dead_acute, Greek_eta
    {0x07a4, 0xfe51, 0x07c9},     // Greek_IOTAaccent, dead_acute, Greek_IOTA
    {0x07b4, 0xfe51, 0x07e9},     // Greek_iotaaccent, dead_acute, Greek_iota
    {0x07a7, 0xfe51, 0x07cf},     // Greek_OMICRONaccent, dead_acute, Greek_OMICRON
    {0x07b7, 0xfe51, 0x07ef},     // Greek_omicronaccent, dead_acute, Greek_omicron
    {0x07a8, 0xfe51, 0x07d5},     // Greek_UPSILONaccent, dead_acute, Greek_UPSILON
    {0x07b8, 0xfe51, 0x07f5},     // Greek_upsilonaccent, dead_acute, Greek_upsilon
    {0x07ab, 0xfe51, 0x07d9},     // Greek_OMEGAaccent, dead_acute, Greek_OMEGA
    {0x07bb, 0xfe51, 0x07f9},     // Greek_omegaaccent, dead_acute, Greek_omega
    {0x07a5, 0xfe57, 0x07c9},     // Greek_IOTAdieresis, dead_diaeresis, Greek_IOTA
    {0x07b5, 0xfe57, 0x07e9},     // Greek_iotadieresis, dead_diaeresis, Greek_iota
    {0x07a9, 0xfe57, 0x07d5},     // Greek_UPSILONdieresis, dead_diaeresis, Greek_UPSILON
    {0x07b9, 0xfe57, 0x07f5},     // Greek_upsilondieresis, dead_diaeresis, Greek_upsilon
    {0x07ae, 0x1000344, 0x0020},  // Greek_accentdieresis, combining dialytika tonos, space
    {0x07b6, 0x1000344, 0x07e9},  // Greek_iotaaccentdieresis, combining dialytika tonos, Greek_iota
    {0x07ba, 0x1000344,
     0x07f5},  // Greek_upsilonaccentdieresis, combining dialytika tonos, Greek_upsilon
};

}  // namespace

const std::span<const SpacingDead> kSpacingDeads = kSpacingTable;

const std::span<const Composition> kLatin1Compositions = kLatin1Table;
const std::span<const Composition> kLatin2Compositions = kLatin2Table;
const std::span<const Composition> kLatin3Compositions = kLatin3Table;
const std::span<const Composition> kLatin4Compositions = kLatin4Table;
const std::span<const Composition> kWelshCompositions = kWelshTable;
const std::span<const Composition> kLatin9Compositions = kLatin9Table;
const std::span<const Composition> kGreekCompositions = kGreekTable;

}  // namespace rfb
