// Written by unicodeTables.py.
//
// Names, aliases and MIB numbers follow IANA's registry of character sets, further aliases ICU's converters,
// code pages Microsoft's list of code page identifiers.
#include "unicodeTableInt.h"

namespace {

constexpr int32_t kNoMib = -1;
constexpr uint32_t kNoCodePage = kUnicodeNoCodePage;

}  // namespace

// clang-format off
const UnicodeXRef xRef[kUnicodeXRefRows] = {
    // ASCII
    {3, 20127, STRING_ENCODING_US_ASCII, true, 4,
     {"ANSI_X3.4-1968", "iso-ir-6", "ANSI_X3.4-1986", "ISO_646.irv:1991", "ASCII", "ISO646-US", "US-ASCII",
      "us", "IBM367", "cp367", "csASCII", "646", "ascii7"}},
    // ISO-8859-1
    {4, 28591, STRING_ENCODING_ISO_8859_1, true, 3,
     {"ISO_8859-1:1987", "iso-ir-100", "ISO_8859-1", "ISO-8859-1", "latin1", "l1", "IBM819", "CP819",
      "csISOLatin1", "8859_1", "819"}},
    // ISO-8859-2
    {5, 28592, STRING_ENCODING_ISO_8859_2, true, 3,
     {"ISO_8859-2:1987", "iso-ir-101", "ISO_8859-2", "ISO-8859-2", "latin2", "l2", "csISOLatin2",
      "ibm-912_P100-1995", "ibm-912", "8859_2", "cp912", "912"}},
    // ISO-8859-3
    {6, 28593, STRING_ENCODING_ISO_8859_3, true, 3,
     {"ISO_8859-3:1988", "iso-ir-109", "ISO_8859-3", "ISO-8859-3", "latin3", "l3", "csISOLatin3",
      "ibm-913_P100-2000", "ibm-913", "8859_3", "cp913", "913"}},
    // ISO-8859-4
    {7, 28594, STRING_ENCODING_ISO_8859_4, true, 3,
     {"ISO_8859-4:1988", "iso-ir-110", "ISO_8859-4", "ISO-8859-4", "latin4", "l4", "csISOLatin4",
      "ibm-914_P100-1995", "ibm-914", "8859_4", "cp914", "914"}},
    // ISO-8859-5
    {8, 28595, STRING_ENCODING_ISO_8859_5, true, 3,
     {"ISO_8859-5:1988", "iso-ir-144", "ISO_8859-5", "ISO-8859-5", "cyrillic", "csISOLatinCyrillic",
      "ibm-915_P100-1995", "ibm-915", "8859_5", "cp915", "915"}},
    // ISO-8859-6
    {9, 28596, STRING_ENCODING_ISO_8859_6, true, 3,
     {"ISO_8859-6:1987", "iso-ir-127", "ISO_8859-6", "ISO-8859-6", "ECMA-114", "ASMO-708", "arabic",
      "csISOLatinArabic", "ibm-1089_P100-1995", "ibm-1089", "8859_6", "cp1089", "1089", "x-ISO-8859-6S"}},
    // ASMO-708
    {9, 708, STRING_ENCODING_ISO_8859_6, true, 0,
     {"ASMO-708"}},
    // ISO-8859-7
    {10, 28597, STRING_ENCODING_ISO_8859_7, true, 3,
     {"ISO_8859-7:1987", "iso-ir-126", "ISO_8859-7", "ISO-8859-7", "ELOT_928", "ECMA-118", "greek",
      "greek8", "csISOLatinGreek", "ibm-9005_X110-2007", "ibm-9005", "8859_7", "sun_eu_greek"}},
    // ISO-8859-8
    {11, 28598, STRING_ENCODING_ISO_8859_8, true, 3,
     {"ISO_8859-8:1988", "iso-ir-138", "ISO_8859-8", "ISO-8859-8", "hebrew", "csISOLatinHebrew",
      "ibm-5012_P100-1999", "ibm-5012", "8859_8", "hebrew8"}},
    // ISO-8859-9
    {12, 28599, STRING_ENCODING_ISO_8859_9, true, 3,
     {"ISO_8859-9:1989", "iso-ir-148", "ISO_8859-9", "ISO-8859-9", "latin5", "l5", "csISOLatin5",
      "ibm-920_P100-1995", "ibm-920", "8859_9", "cp920", "920", "ECMA-128", "turkish8", "turkish"}},
    // ISO-8859-10
    {13, kNoCodePage, STRING_ENCODING_ISO_8859_10, true, 0,
     {"ISO-8859-10", "iso-ir-157", "l6", "ISO_8859-10:1992", "csISOLatin6", "latin6", "iso-8859_10-1998"}},
    // ISO_6937-2-add
    {14, kNoCodePage, StringEncoding{18}, false, 0,
     {"ISO_6937-2-add", "iso-ir-142", "csISOTextComm"}},
    // JIS_X0201
    {15, kNoCodePage, StringEncoding{19}, false, 0,
     {"JIS_X0201", "X0201", "csHalfWidthKatakana"}},
    // JIS_Encoding
    {16, kNoCodePage, StringEncoding{20}, false, 0,
     {"JIS_Encoding", "csJISEncoding", "ibm-5054", "JIS", "x-windows-50221"}},
    // Shift_JIS
    {17, kNoCodePage, StringEncoding{21}, true, 0,
     {"Shift_JIS", "MS_Kanji", "csShiftJIS", "ibm-943_P15A-2003", "ibm-943", "x-sjis", "cp943c",
      "IBM-943C", "pck", "sjis", "ibm-943_VSUB_VPUA"}},
    // EUC-JP
    {18, 20932, StringEncoding{22}, false, 2,
     {"Extended_UNIX_Code_Packed_Format_for_Japanese", "csEUCPkdFmtJapanese", "EUC-JP", "euc-jp-2007",
      "X-EUC-JP", "eucjis", "ujis"}},
    // EUC-JP
    {18, 51932, StringEncoding{22}, false, 0,
     {"EUC-JP"}},
    // Extended_UNIX_Code_Fixed_Width_for_Japanese
    {19, kNoCodePage, StringEncoding{23}, false, 0,
     {"Extended_UNIX_Code_Fixed_Width_for_Japanese", "csEUCFixWidJapanese"}},
    // BS_4730
    {20, kNoCodePage, StringEncoding{24}, false, 0,
     {"BS_4730", "iso-ir-4", "ISO646-GB", "gb", "uk", "csISO4UnitedKingdom"}},
    // SEN_850200_C
    {21, kNoCodePage, StringEncoding{25}, false, 0,
     {"SEN_850200_C", "iso-ir-11", "ISO646-SE2", "se2", "csISO11SwedishForNames"}},
    // IT
    {22, kNoCodePage, StringEncoding{26}, false, 0,
     {"IT", "iso-ir-15", "ISO646-IT", "csISO15Italian"}},
    // ES
    {23, kNoCodePage, StringEncoding{27}, false, 0,
     {"ES", "iso-ir-17", "ISO646-ES", "csISO17Spanish"}},
    // DIN_66003
    {24, kNoCodePage, StringEncoding{28}, false, 0,
     {"DIN_66003", "iso-ir-21", "de", "ISO646-DE", "csISO21German"}},
    // NS_4551-1
    {25, kNoCodePage, StringEncoding{29}, false, 0,
     {"NS_4551-1", "iso-ir-60", "ISO646-NO", "no", "csISO60DanishNorwegian", "csISO60Norwegian1"}},
    // NF_Z_62-010
    {26, kNoCodePage, StringEncoding{30}, false, 0,
     {"NF_Z_62-010", "iso-ir-69", "ISO646-FR", "fr", "csISO69French"}},
    // ISO-10646-UTF-1
    {27, kNoCodePage, StringEncoding{31}, false, 0,
     {"ISO-10646-UTF-1", "csISO10646UTF1"}},
    // ISO_646.basic:1983
    {28, kNoCodePage, StringEncoding{32}, false, 0,
     {"ISO_646.basic:1983", "ref", "csISO646basic1983"}},
    // INVARIANT
    {29, kNoCodePage, StringEncoding{33}, false, 0,
     {"INVARIANT", "csINVARIANT"}},
    // ISO_646.irv:1983
    {30, kNoCodePage, StringEncoding{43}, true, 0,
     {"ISO_646.irv:1983", "iso-ir-2", "irv", "csISO2IntlRefVersion"}},
    // NATS-SEFI
    {31, kNoCodePage, StringEncoding{44}, false, 0,
     {"NATS-SEFI", "iso-ir-8-1", "csNATSSEFI"}},
    // NATS-SEFI-ADD
    {32, kNoCodePage, StringEncoding{45}, false, 0,
     {"NATS-SEFI-ADD", "iso-ir-8-2", "csNATSSEFIADD"}},
    // NATS-DANO
    {33, kNoCodePage, StringEncoding{46}, false, 0,
     {"NATS-DANO", "iso-ir-9-1", "csNATSDANO"}},
    // NATS-DANO-ADD
    {34, kNoCodePage, StringEncoding{47}, false, 0,
     {"NATS-DANO-ADD", "iso-ir-9-2", "csNATSDANOADD"}},
    // SEN_850200_B
    {35, kNoCodePage, StringEncoding{48}, false, 0,
     {"SEN_850200_B", "iso-ir-10", "FI", "ISO646-FI", "ISO646-SE", "se", "csISO10Swedish"}},
    // KS_C_5601-1987
    {36, 949, StringEncoding{49}, true, 0,
     {"KS_C_5601-1987", "iso-ir-149", "KS_C_5601-1989", "KSC_5601", "korean", "csKSC56011987",
      "ibm-1363_P11B-1998", "ibm-1363", "cp1363", "ksc", "ibm-1363_VSUB_VPUA", "x-IBM1363C"}},
    // ISO-2022-KR
    {37, 50225, StringEncoding{50}, false, 0,
     {"ISO-2022-KR", "csISO2022KR"}},
    // EUC-KR
    {38, 51949, StringEncoding{51}, false, 0,
     {"EUC-KR", "csEUCKR", "ibm-970_P110_P110-2006_U2", "ibm-970", "ibm-eucKR", "5601", "cp970", "970",
      "ibm-970_VPUA", "x-IBM970"}},
    // ISO-2022-JP
    {39, 50220, StringEncoding{52}, false, 0,
     {"ISO-2022-JP", "csISO2022JP", "x-windows-iso2022jp", "x-windows-50220"}},
    // ISO-2022-JP-1
    {kNoMib, kNoCodePage, StringEncoding{53}, false, 0,
     {"ISO-2022-JP-1"}},
    // ISO-2022-JP-2
    {40, kNoCodePage, StringEncoding{54}, false, 0,
     {"ISO-2022-JP-2", "csISO2022JP2"}},
    // JIS_C6220-1969-jp
    {41, kNoCodePage, StringEncoding{55}, false, 0,
     {"JIS_C6220-1969-jp", "JIS_C6220-1969", "iso-ir-13", "katakana", "x0201-7", "csISO13JISC6220jp"}},
    // JIS_C6220-1969-ro
    {42, kNoCodePage, StringEncoding{56}, false, 0,
     {"JIS_C6220-1969-ro", "iso-ir-14", "jp", "ISO646-JP", "csISO14JISC6220ro"}},
    // PT
    {43, kNoCodePage, StringEncoding{57}, false, 0,
     {"PT", "iso-ir-16", "ISO646-PT", "csISO16Portuguese"}},
    // greek7-old
    {44, kNoCodePage, StringEncoding{58}, false, 0,
     {"greek7-old", "iso-ir-18", "csISO18Greek7Old"}},
    // latin-greek
    {45, kNoCodePage, StringEncoding{59}, false, 0,
     {"latin-greek", "iso-ir-19", "csISO19LatinGreek"}},
    // NF_Z_62-010_(1973)
    {46, kNoCodePage, StringEncoding{60}, false, 0,
     {"NF_Z_62-010_(1973)", "iso-ir-25", "ISO646-FR1", "csISO25French"}},
    // Latin-greek-1
    {47, kNoCodePage, StringEncoding{61}, false, 0,
     {"Latin-greek-1", "iso-ir-27", "csISO27LatinGreek1"}},
    // ISO_5427
    {48, kNoCodePage, StringEncoding{62}, false, 0,
     {"ISO_5427", "iso-ir-37", "csISO5427Cyrillic"}},
    // JIS_C6226-1978
    {49, kNoCodePage, StringEncoding{63}, false, 0,
     {"JIS_C6226-1978", "iso-ir-42", "csISO42JISC62261978"}},
    // BS_viewdata
    {50, kNoCodePage, StringEncoding{64}, false, 0,
     {"BS_viewdata", "iso-ir-47", "csISO47BSViewdata"}},
    // INIS
    {51, kNoCodePage, StringEncoding{65}, false, 0,
     {"INIS", "iso-ir-49", "csISO49INIS"}},
    // INIS-8
    {52, kNoCodePage, StringEncoding{66}, false, 0,
     {"INIS-8", "iso-ir-50", "csISO50INIS8"}},
    // INIS-cyrillic
    {53, kNoCodePage, StringEncoding{67}, false, 0,
     {"INIS-cyrillic", "iso-ir-51", "csISO51INISCyrillic"}},
    // ISO_5427:1981
    {54, kNoCodePage, StringEncoding{68}, false, 0,
     {"ISO_5427:1981", "iso-ir-54", "ISO5427Cyrillic1981", "csISO54271981"}},
    // ISO_5428:1980
    {55, kNoCodePage, StringEncoding{69}, false, 0,
     {"ISO_5428:1980", "iso-ir-55", "csISO5428Greek"}},
    // GB_1988-80
    {56, kNoCodePage, StringEncoding{70}, false, 0,
     {"GB_1988-80", "iso-ir-57", "cn", "ISO646-CN", "csISO57GB1988"}},
    // GB_2312-80
    {57, 20936, StringEncoding{71}, false, 0,
     {"GB_2312-80", "iso-ir-58", "chinese", "csISO58GB231280", "ibm-5478_P100-1995", "ibm-5478",
      "gb2312-1980", "GB2312.1980-0"}},
    // NS_4551-2
    {58, kNoCodePage, StringEncoding{72}, false, 0,
     {"NS_4551-2", "ISO646-NO2", "iso-ir-61", "no2", "csISO61Norwegian2"}},
    // videotex-suppl
    {59, kNoCodePage, StringEncoding{73}, false, 0,
     {"videotex-suppl", "iso-ir-70", "csISO70VideotexSupp1"}},
    // PT2
    {60, kNoCodePage, StringEncoding{74}, false, 0,
     {"PT2", "iso-ir-84", "ISO646-PT2", "csISO84Portuguese2"}},
    // ES2
    {61, kNoCodePage, StringEncoding{75}, false, 0,
     {"ES2", "iso-ir-85", "ISO646-ES2", "csISO85Spanish2"}},
    // MSZ_7795.3
    {62, kNoCodePage, StringEncoding{76}, false, 0,
     {"MSZ_7795.3", "iso-ir-86", "ISO646-HU", "hu", "csISO86Hungarian"}},
    // JIS_C6226-1983
    {63, kNoCodePage, StringEncoding{77}, false, 0,
     {"JIS_C6226-1983", "iso-ir-87", "x0208", "JIS_X0208-1983", "csISO87JISX0208"}},
    // greek7
    {64, kNoCodePage, StringEncoding{78}, false, 0,
     {"greek7", "iso-ir-88", "csISO88Greek7"}},
    // ASMO_449
    {65, kNoCodePage, StringEncoding{79}, false, 0,
     {"ASMO_449", "ISO_9036", "arabic7", "iso-ir-89", "csISO89ASMO449"}},
    // iso-ir-90
    {66, kNoCodePage, StringEncoding{80}, false, 0,
     {"iso-ir-90", "csISO90"}},
    // JIS_C6229-1984-a
    {67, kNoCodePage, StringEncoding{81}, false, 0,
     {"JIS_C6229-1984-a", "iso-ir-91", "jp-ocr-a", "csISO91JISC62291984a"}},
    // JIS_C6229-1984-b
    {68, kNoCodePage, StringEncoding{82}, false, 0,
     {"JIS_C6229-1984-b", "iso-ir-92", "ISO646-JP-OCR-B", "jp-ocr-b", "csISO92JISC62991984b"}},
    // JIS_C6229-1984-b-add
    {69, kNoCodePage, StringEncoding{83}, false, 0,
     {"JIS_C6229-1984-b-add", "iso-ir-93", "jp-ocr-b-add", "csISO93JIS62291984badd"}},
    // JIS_C6229-1984-hand
    {70, kNoCodePage, StringEncoding{84}, false, 0,
     {"JIS_C6229-1984-hand", "iso-ir-94", "jp-ocr-hand", "csISO94JIS62291984hand"}},
    // JIS_C6229-1984-hand-add
    {71, kNoCodePage, StringEncoding{85}, false, 0,
     {"JIS_C6229-1984-hand-add", "iso-ir-95", "jp-ocr-hand-add", "csISO95JIS62291984handadd"}},
    // JIS_C6229-1984-kana
    {72, kNoCodePage, StringEncoding{86}, false, 0,
     {"JIS_C6229-1984-kana", "iso-ir-96", "csISO96JISC62291984kana"}},
    // ISO_2033-1983
    {73, kNoCodePage, StringEncoding{87}, false, 0,
     {"ISO_2033-1983", "iso-ir-98", "e13b", "csISO2033"}},
    // ANSI_X3.110-1983
    {74, kNoCodePage, StringEncoding{88}, false, 0,
     {"ANSI_X3.110-1983", "iso-ir-99", "CSA_T500-1983", "NAPLPS", "csISO99NAPLPS"}},
    // T.61-7bit
    {75, kNoCodePage, StringEncoding{89}, false, 0,
     {"T.61-7bit", "iso-ir-102", "csISO102T617bit"}},
    // T.61-8bit
    {76, 20261, StringEncoding{90}, false, 0,
     {"T.61-8bit", "T.61", "iso-ir-103", "csISO103T618bit"}},
    // ECMA-cyrillic
    {77, kNoCodePage, StringEncoding{91}, false, 0,
     {"ECMA-cyrillic", "iso-ir-111", "KOI8-E", "csISO111ECMACyrillic"}},
    // CSA_Z243.4-1985-1
    {78, kNoCodePage, StringEncoding{92}, false, 0,
     {"CSA_Z243.4-1985-1", "iso-ir-121", "ISO646-CA", "csa7-1", "csa71", "ca", "csISO121Canadian1"}},
    // CSA_Z243.4-1985-2
    {79, kNoCodePage, StringEncoding{93}, false, 0,
     {"CSA_Z243.4-1985-2", "iso-ir-122", "ISO646-CA2", "csa7-2", "csa72", "csISO122Canadian2"}},
    // CSA_Z243.4-1985-gr
    {80, kNoCodePage, StringEncoding{94}, false, 0,
     {"CSA_Z243.4-1985-gr", "iso-ir-123", "csISO123CSAZ24341985gr"}},
    // ISO-8859-6-E
    {81, kNoCodePage, StringEncoding{95}, true, 2,
     {"ISO_8859-6-E", "csISO88596E", "ISO-8859-6-E"}},
    // ISO-8859-6-I
    {82, kNoCodePage, StringEncoding{96}, true, 2,
     {"ISO_8859-6-I", "csISO88596I", "ISO-8859-6-I"}},
    // T.101-G2
    {83, kNoCodePage, StringEncoding{97}, false, 0,
     {"T.101-G2", "iso-ir-128", "csISO128T101G2"}},
    // ISO-8859-8-E
    {84, kNoCodePage, StringEncoding{98}, true, 2,
     {"ISO_8859-8-E", "csISO88598E", "ISO-8859-8-E"}},
    // ISO-8859-8-I
    {85, kNoCodePage, StringEncoding{99}, true, 2,
     {"ISO_8859-8-I", "csISO88598I", "ISO-8859-8-I"}},
    // CSN_369103
    {86, kNoCodePage, StringEncoding{100}, false, 0,
     {"CSN_369103", "iso-ir-139", "csISO139CSN369103"}},
    // JUS_I.B1.002
    {87, kNoCodePage, StringEncoding{101}, false, 0,
     {"JUS_I.B1.002", "iso-ir-141", "ISO646-YU", "js", "yu", "csISO141JUSIB1002"}},
    // IEC_P27-1
    {88, kNoCodePage, StringEncoding{102}, false, 0,
     {"IEC_P27-1", "iso-ir-143", "csISO143IECP271"}},
    // JUS_I.B1.003-serb
    {89, kNoCodePage, StringEncoding{103}, false, 0,
     {"JUS_I.B1.003-serb", "iso-ir-146", "serbian", "csISO146Serbian"}},
    // JUS_I.B1.003-mac
    {90, kNoCodePage, StringEncoding{104}, false, 0,
     {"JUS_I.B1.003-mac", "macedonian", "iso-ir-147", "csISO147Macedonian"}},
    // greek-ccitt
    {91, kNoCodePage, StringEncoding{105}, false, 0,
     {"greek-ccitt", "iso-ir-150", "csISO150", "csISO150GreekCCITT"}},
    // NC_NC00-10:81
    {92, kNoCodePage, StringEncoding{106}, false, 0,
     {"NC_NC00-10:81", "cuba", "iso-ir-151", "ISO646-CU", "csISO151Cuba"}},
    // ISO_6937-2-25
    {93, kNoCodePage, StringEncoding{107}, false, 0,
     {"ISO_6937-2-25", "iso-ir-152", "csISO6937Add"}},
    // GOST_19768-74
    {94, kNoCodePage, StringEncoding{108}, false, 0,
     {"GOST_19768-74", "ST_SEV_358-88", "iso-ir-153", "csISO153GOST1976874"}},
    // ISO_8859-supp
    {95, kNoCodePage, StringEncoding{109}, false, 0,
     {"ISO_8859-supp", "iso-ir-154", "latin1-2-5", "csISO8859Supp"}},
    // ISO_10367-box
    {96, kNoCodePage, StringEncoding{110}, false, 0,
     {"ISO_10367-box", "iso-ir-155", "csISO10367Box"}},
    // latin-lap
    {97, kNoCodePage, StringEncoding{111}, false, 0,
     {"latin-lap", "lap", "iso-ir-158", "csISO158Lap"}},
    // JIS_X0212-1990
    {98, kNoCodePage, StringEncoding{112}, false, 0,
     {"JIS_X0212-1990", "x0212", "iso-ir-159", "csISO159JISX02121990"}},
    // DS_2089
    {99, kNoCodePage, StringEncoding{113}, false, 0,
     {"DS_2089", "DS2089", "ISO646-DK", "dk", "csISO646Danish"}},
    // us-dk
    {100, kNoCodePage, StringEncoding{114}, false, 0,
     {"us-dk", "csUSDK"}},
    // dk-us
    {101, kNoCodePage, StringEncoding{115}, false, 0,
     {"dk-us", "csDKUS"}},
    // KSC5636
    {102, kNoCodePage, StringEncoding{116}, false, 0,
     {"KSC5636", "ISO646-KR", "csKSC5636"}},
    // UNICODE-1-1-UTF-7
    {103, kNoCodePage, StringEncoding{117}, false, 0,
     {"UNICODE-1-1-UTF-7", "csUnicode11UTF7"}},
    // ISO-2022-CN
    {104, 50227, StringEncoding{118}, false, 0,
     {"ISO-2022-CN", "csISO2022CN", "x-ISO-2022-CN-GB"}},
    // ISO-2022-CN-EXT
    {105, kNoCodePage, StringEncoding{119}, false, 0,
     {"ISO-2022-CN-EXT", "csISO2022CNEXT"}},
    // UTF-8
    {106, 65001, STRING_ENCODING_UTF8, true, 0,
     {"UTF-8", "ibm-1208", "ibm-1209", "ibm-5304", "ibm-5305", "ibm-13496", "ibm-13497", "ibm-17592",
      "ibm-17593", "cp1208"}},
    // ISO-8859-13
    {109, 28603, StringEncoding{120}, true, 0,
     {"ISO-8859-13", "csISO885913", "ibm-921_P100-1995", "ibm-921", "8859_13", "cp921", "921", "x-IBM921"}},
    // ISO-8859-14
    {110, kNoCodePage, StringEncoding{121}, true, 0,
     {"ISO-8859-14", "iso-ir-199", "ISO_8859-14:1998", "ISO_8859-14", "latin8", "iso-celtic", "l8",
      "csISO885914"}},
    // ISO-8859-15
    {111, 28605, StringEncoding{122}, true, 0,
     {"ISO-8859-15", "ISO_8859-15", "Latin-9", "csISO885915", "ibm-923_P100-1998", "ibm-923", "l9",
      "8859_15", "latin0", "csisolatin0", "csisolatin9", "iso8859_15_fdis", "cp923", "923"}},
    // ISO-8859-15
    {111, 874, StringEncoding{122}, true, 0,
     {"ISO-8859-15"}},
    // ISO-8859-16
    {112, kNoCodePage, StringEncoding{123}, false, 0,
     {"ISO-8859-16", "iso-ir-226", "ISO_8859-16:2001", "ISO_8859-16", "latin10", "l10", "csISO885916"}},
    // GBK
    {113, 936, StringEncoding{124}, true, 0,
     {"GBK", "CP936", "MS936", "windows-936", "csGBK", "windows-936-2000"}},
    // GB18030
    {114, 54936, StringEncoding{125}, false, 0,
     {"GB18030", "csGB18030", "ibm-1392"}},
    // OSD_EBCDIC_DF04_15
    {115, kNoCodePage, StringEncoding{126}, false, 0,
     {"OSD_EBCDIC_DF04_15", "csOSDEBCDICDF0415"}},
    // OSD_EBCDIC_DF03_IRV
    {116, kNoCodePage, StringEncoding{127}, false, 0,
     {"OSD_EBCDIC_DF03_IRV", "csOSDEBCDICDF03IRV"}},
    // OSD_EBCDIC_DF04_1
    {117, kNoCodePage, StringEncoding{128}, false, 0,
     {"OSD_EBCDIC_DF04_1", "csOSDEBCDICDF041"}},
    // ISO-11548-1
    {118, kNoCodePage, StringEncoding{129}, false, 0,
     {"ISO-11548-1", "ISO_11548-1", "ISO_TR_11548-1", "csISO115481"}},
    // KZ-1048
    {119, kNoCodePage, StringEncoding{130}, false, 0,
     {"KZ-1048", "STRK1048-2002", "RK1048", "csKZ1048"}},
    // ISO-10646-UCS-2
    {1000, kNoCodePage, StringEncoding{131}, true, 0,
     {"ISO-10646-UCS-2", "csUnicode", "ucs-2"}},
    // ISO-10646-UCS-4
    {1001, kNoCodePage, StringEncoding{132}, true, 0,
     {"ISO-10646-UCS-4", "csUCS4", "ucs-4"}},
    // ISO-10646-UCS-Basic
    {1002, kNoCodePage, StringEncoding{133}, false, 0,
     {"ISO-10646-UCS-Basic", "csUnicodeASCII"}},
    // ISO-10646-Unicode-Latin1
    {1003, kNoCodePage, StringEncoding{134}, false, 0,
     {"ISO-10646-Unicode-Latin1", "csUnicodeLatin1", "ISO-10646"}},
    // ISO-10646-J-1
    {1004, kNoCodePage, StringEncoding{135}, false, 0,
     {"ISO-10646-J-1", "csUnicodeJapanese"}},
    // ISO-Unicode-IBM-1261
    {1005, kNoCodePage, StringEncoding{136}, false, 0,
     {"ISO-Unicode-IBM-1261", "csUnicodeIBM1261"}},
    // ISO-Unicode-IBM-1268
    {1006, kNoCodePage, StringEncoding{137}, false, 0,
     {"ISO-Unicode-IBM-1268", "csUnicodeIBM1268"}},
    // ISO-Unicode-IBM-1276
    {1007, kNoCodePage, StringEncoding{138}, false, 0,
     {"ISO-Unicode-IBM-1276", "csUnicodeIBM1276"}},
    // ISO-Unicode-IBM-1264
    {1008, kNoCodePage, StringEncoding{139}, false, 0,
     {"ISO-Unicode-IBM-1264", "csUnicodeIBM1264"}},
    // ISO-Unicode-IBM-1265
    {1009, kNoCodePage, StringEncoding{140}, false, 0,
     {"ISO-Unicode-IBM-1265", "csUnicodeIBM1265"}},
    // UNICODE-1-1
    {1010, kNoCodePage, StringEncoding{141}, false, 0,
     {"UNICODE-1-1", "csUnicode11"}},
    // SCSU
    {1011, kNoCodePage, StringEncoding{142}, true, 0,
     {"SCSU", "csSCSU", "ibm-1212", "ibm-1213"}},
    // UTF-7
    {1012, 65000, StringEncoding{143}, true, 0,
     {"UTF-7", "unicode-2-0-utf-7"}},
    // UTF-16BE
    {1013, 1201, STRING_ENCODING_UTF16_BE, true, 0,
     {"UTF-16BE", "x-utf-16be", "ibm-1200", "ibm-1201", "ibm-13488", "ibm-13489", "ibm-17584", "ibm-17585",
      "ibm-21680", "ibm-21681", "ibm-25776", "ibm-25777", "ibm-29872", "ibm-29873", "ibm-61955",
      "ibm-61956", "cp1200", "cp1201", "UTF16_BigEndian"}},
    // UTF-16LE
    {1014, 1200, STRING_ENCODING_UTF16_LE, true, 0,
     {"UTF-16LE", "x-utf-16le", "ibm-1202", "ibm-1203", "ibm-13490", "ibm-13491", "ibm-17586", "ibm-17587"}},
    // UTF-16
    {1015, kNoCodePage, STRING_ENCODING_UTF16_XE, true, 0,
     {"UTF-16", "ibm-1204", "ibm-1205", "unicode"}},
    // CESU-8
    {1016, kNoCodePage, StringEncoding{144}, true, 0,
     {"CESU-8", "csCESU8", "csCESU-8", "ibm-9400"}},
    // UTF-32
    {1017, kNoCodePage, STRING_ENCODING_UTF32_XE, true, 0,
     {"UTF-32", "ibm-1236", "ibm-1237"}},
    // UTF-32BE
    {1018, 12001, STRING_ENCODING_UTF32_BE, true, 0,
     {"UTF-32BE", "UTF32_BigEndian", "ibm-1232", "ibm-1233", "ibm-9424"}},
    // UTF-32LE
    {1019, 12000, STRING_ENCODING_UTF32_LE, true, 0,
     {"UTF-32LE", "UTF32_LittleEndian", "ibm-1234", "ibm-1235"}},
    // BOCU-1
    {1020, kNoCodePage, StringEncoding{145}, true, 0,
     {"BOCU-1", "csBOCU1", "csBOCU-1", "ibm-1214", "ibm-1215"}},
    // ISO-8859-1-Windows-3.0-Latin-1
    {2000, kNoCodePage, StringEncoding{146}, false, 0,
     {"ISO-8859-1-Windows-3.0-Latin-1", "csWindows30Latin1"}},
    // ISO-8859-1-Windows-3.1-Latin-1
    {2001, kNoCodePage, StringEncoding{147}, false, 0,
     {"ISO-8859-1-Windows-3.1-Latin-1", "csWindows31Latin1"}},
    // ISO-8859-2-Windows-Latin-2
    {2002, kNoCodePage, StringEncoding{148}, false, 0,
     {"ISO-8859-2-Windows-Latin-2", "csWindows31Latin2"}},
    // ISO-8859-9-Windows-Latin-5
    {2003, kNoCodePage, StringEncoding{149}, false, 0,
     {"ISO-8859-9-Windows-Latin-5", "csWindows31Latin5"}},
    // hp-roman8
    {2004, kNoCodePage, StringEncoding{150}, false, 0,
     {"hp-roman8", "roman8", "r8", "csHPRoman8", "ibm-1051_P100-1995", "ibm-1051", "x-roman8"}},
    // Adobe-Standard-Encoding
    {2005, kNoCodePage, StringEncoding{151}, false, 0,
     {"Adobe-Standard-Encoding", "csAdobeStandardEncoding", "ibm-1276_P100-1995", "ibm-1276"}},
    // Ventura-US
    {2006, kNoCodePage, StringEncoding{152}, false, 0,
     {"Ventura-US", "csVenturaUS"}},
    // Ventura-International
    {2007, kNoCodePage, StringEncoding{153}, false, 0,
     {"Ventura-International", "csVenturaInternational"}},
    // DEC-MCS
    {2008, kNoCodePage, StringEncoding{154}, false, 0,
     {"DEC-MCS", "dec", "csDECMCS"}},
    // IBM850
    {2009, 850, StringEncoding{155}, false, 0,
     {"IBM850", "cp850", "850", "csPC850Multilingual", "ibm-850_P100-1995"}},
    // PC8-Danish-Norwegian
    {2012, kNoCodePage, StringEncoding{156}, false, 0,
     {"PC8-Danish-Norwegian", "csPC8DanishNorwegian"}},
    // IBM862
    {2013, 862, StringEncoding{157}, false, 0,
     {"IBM862", "cp862", "862", "csPC862LatinHebrew", "ibm-862_P100-1995", "DOS-862"}},
    // PC8-Turkish
    {2014, kNoCodePage, StringEncoding{158}, false, 0,
     {"PC8-Turkish", "csPC8Turkish"}},
    // IBM-Symbols
    {2015, kNoCodePage, StringEncoding{159}, false, 0,
     {"IBM-Symbols", "csIBMSymbols"}},
    // IBM-Thai
    {2016, 20838, StringEncoding{160}, false, 0,
     {"IBM-Thai", "csIBMThai", "ibm-838_P100-1995", "ibm-838", "cp838", "838", "ibm-9030"}},
    // HP-Legal
    {2017, kNoCodePage, StringEncoding{161}, false, 0,
     {"HP-Legal", "csHPLegal"}},
    // HP-Pi-font
    {2018, kNoCodePage, StringEncoding{162}, false, 0,
     {"HP-Pi-font", "csHPPiFont"}},
    // HP-Math8
    {2019, kNoCodePage, StringEncoding{163}, false, 0,
     {"HP-Math8", "csHPMath8"}},
    // Adobe-Symbol-Encoding
    {2020, kNoCodePage, StringEncoding{164}, false, 0,
     {"Adobe-Symbol-Encoding", "csHPPSMath"}},
    // HP-DeskTop
    {2021, kNoCodePage, StringEncoding{165}, false, 0,
     {"HP-DeskTop", "csHPDesktop"}},
    // Ventura-Math
    {2022, kNoCodePage, StringEncoding{166}, false, 0,
     {"Ventura-Math", "csVenturaMath"}},
    // Microsoft-Publishing
    {2023, kNoCodePage, StringEncoding{167}, false, 0,
     {"Microsoft-Publishing", "csMicrosoftPublishing"}},
    // Windows-31J
    {2024, 932, StringEncoding{168}, true, 0,
     {"Windows-31J", "csWindows31J", "x-ms-cp932", "cp932", "ms932", "x-MS932_0213"}},
    // GB2312
    {2025, kNoCodePage, StringEncoding{169}, false, 0,
     {"GB2312", "csGB2312", "ibm-1383_P110-1999", "ibm-1383", "cp1383", "1383", "EUC-CN", "ibm-eucCN",
      "hp15CN", "ibm-1383_VPUA"}},
    // Big5
    {2026, 950, StringEncoding{170}, true, 0,
     {"Big5", "csBig5", "windows-950-2000", "x-windows-950", "x-big5", "ms950"}},
    // macintosh
    {2027, kNoCodePage, StringEncoding{171}, false, 0,
     {"macintosh", "mac", "csMacintosh", "macos-0_2-10.2", "macroman", "x-macroman"}},
    // IBM037
    {2028, 37, StringEncoding{172}, false, 0,
     {"IBM037", "cp037", "ebcdic-cp-us", "ebcdic-cp-ca", "ebcdic-cp-wt", "ebcdic-cp-nl", "csIBM037",
      "ibm-37_P100-1995", "ibm-37", "037", "cpibm37", "cp37"}},
    // IBM038
    {2029, kNoCodePage, StringEncoding{173}, false, 0,
     {"IBM038", "EBCDIC-INT", "cp038", "csIBM038"}},
    // IBM273
    {2030, 20273, StringEncoding{174}, false, 0,
     {"IBM273", "CP273", "csIBM273", "ibm-273_P100-1995", "ebcdic-de", "273"}},
    // IBM274
    {2031, kNoCodePage, StringEncoding{175}, false, 0,
     {"IBM274", "EBCDIC-BE", "CP274", "csIBM274"}},
    // IBM275
    {2032, kNoCodePage, StringEncoding{176}, false, 0,
     {"IBM275", "EBCDIC-BR", "cp275", "csIBM275"}},
    // IBM277
    {2033, 20277, StringEncoding{177}, false, 0,
     {"IBM277", "EBCDIC-CP-DK", "EBCDIC-CP-NO", "csIBM277", "ibm-277_P100-1995", "cp277", "ebcdic-dk",
      "277"}},
    // IBM278
    {2034, 20278, StringEncoding{178}, false, 0,
     {"IBM278", "CP278", "ebcdic-cp-fi", "ebcdic-cp-se", "csIBM278", "ibm-278_P100-1995", "ebcdic-sv",
      "278"}},
    // IBM280
    {2035, 20280, StringEncoding{179}, false, 0,
     {"IBM280", "CP280", "ebcdic-cp-it", "csIBM280", "ibm-280_P100-1995", "280"}},
    // IBM281
    {2036, kNoCodePage, StringEncoding{180}, false, 0,
     {"IBM281", "EBCDIC-JP-E", "cp281", "csIBM281"}},
    // IBM284
    {2037, 20284, StringEncoding{181}, false, 0,
     {"IBM284", "CP284", "ebcdic-cp-es", "csIBM284", "ibm-284_P100-1995", "cpibm284", "284"}},
    // IBM285
    {2038, 20285, StringEncoding{182}, false, 0,
     {"IBM285", "CP285", "ebcdic-cp-gb", "csIBM285", "ibm-285_P100-1995", "cpibm285", "ebcdic-gb", "285"}},
    // IBM290
    {2039, 20290, StringEncoding{183}, false, 0,
     {"IBM290", "cp290", "EBCDIC-JP-kana", "csIBM290", "ibm-290_P100-1995"}},
    // IBM297
    {2040, 20297, StringEncoding{184}, false, 0,
     {"IBM297", "cp297", "ebcdic-cp-fr", "csIBM297", "ibm-297_P100-1995", "cpibm297", "297"}},
    // IBM420
    {2041, 20420, StringEncoding{185}, false, 0,
     {"IBM420", "cp420", "ebcdic-cp-ar1", "csIBM420", "ibm-420_X120-1999", "420"}},
    // IBM423
    {2042, 20423, StringEncoding{186}, false, 0,
     {"IBM423", "cp423", "ebcdic-cp-gr", "csIBM423"}},
    // IBM424
    {2043, 20424, StringEncoding{187}, false, 0,
     {"IBM424", "cp424", "ebcdic-cp-he", "csIBM424", "ibm-424_P100-1995", "424"}},
    // IBM437
    {2011, 437, StringEncoding{188}, false, 0,
     {"IBM437", "cp437", "437", "csPC8CodePage437", "ibm-437_P100-1995"}},
    // IBM500
    {2044, 500, StringEncoding{189}, false, 0,
     {"IBM500", "CP500", "ebcdic-cp-be", "ebcdic-cp-ch", "csIBM500", "ibm-500_P100-1995", "500"}},
    // IBM851
    {2045, kNoCodePage, StringEncoding{190}, false, 0,
     {"IBM851", "cp851", "851", "csIBM851", "ibm-851_P100-1995", "csPC851"}},
    // IBM852
    {2010, 852, StringEncoding{191}, false, 0,
     {"IBM852", "cp852", "852", "csPCp852", "ibm-852_P100-1995"}},
    // IBM855
    {2046, 855, StringEncoding{192}, false, 0,
     {"IBM855", "cp855", "855", "csIBM855", "ibm-855_P100-1995", "csPCp855"}},
    // IBM857
    {2047, 857, StringEncoding{193}, false, 0,
     {"IBM857", "cp857", "857", "csIBM857", "ibm-857_P100-1995"}},
    // IBM860
    {2048, 860, StringEncoding{194}, false, 0,
     {"IBM860", "cp860", "860", "csIBM860", "ibm-860_P100-1995"}},
    // IBM861
    {2049, 861, StringEncoding{195}, false, 0,
     {"IBM861", "cp861", "861", "cp-is", "csIBM861", "ibm-861_P100-1995"}},
    // IBM863
    {2050, 863, StringEncoding{196}, false, 0,
     {"IBM863", "cp863", "863", "csIBM863", "ibm-863_P100-1995"}},
    // IBM864
    {2051, 864, StringEncoding{197}, false, 0,
     {"IBM864", "cp864", "csIBM864", "ibm-864_X110-1999"}},
    // IBM865
    {2052, 865, StringEncoding{198}, false, 0,
     {"IBM865", "cp865", "865", "csIBM865", "ibm-865_P100-1995"}},
    // IBM868
    {2053, kNoCodePage, StringEncoding{199}, false, 0,
     {"IBM868", "CP868", "cp-ar", "csIBM868", "ibm-868_P100-1995", "868"}},
    // IBM869
    {2054, 869, StringEncoding{200}, false, 0,
     {"IBM869", "cp869", "869", "cp-gr", "csIBM869", "ibm-869_P100-1995"}},
    // IBM870
    {2055, 870, StringEncoding{201}, false, 0,
     {"IBM870", "CP870", "ebcdic-cp-roece", "ebcdic-cp-yu", "csIBM870", "ibm-870_P100-1995"}},
    // IBM871
    {2056, 20871, StringEncoding{202}, false, 0,
     {"IBM871", "CP871", "ebcdic-cp-is", "csIBM871", "ibm-871_P100-1995", "ebcdic-is", "871"}},
    // IBM880
    {2057, 20880, StringEncoding{203}, false, 0,
     {"IBM880", "cp880", "EBCDIC-Cyrillic", "csIBM880"}},
    // IBM891
    {2058, kNoCodePage, StringEncoding{204}, false, 0,
     {"IBM891", "cp891", "csIBM891"}},
    // IBM903
    {2059, kNoCodePage, StringEncoding{205}, false, 0,
     {"IBM903", "cp903", "csIBM903"}},
    // IBM904
    {2060, kNoCodePage, StringEncoding{206}, false, 0,
     {"IBM904", "cp904", "904", "csIBBM904"}},
    // IBM905
    {2061, 20905, StringEncoding{207}, false, 0,
     {"IBM905", "CP905", "ebcdic-cp-tr", "csIBM905"}},
    // IBM918
    {2062, kNoCodePage, StringEncoding{208}, false, 0,
     {"IBM918", "CP918", "ebcdic-cp-ar2", "csIBM918", "ibm-918_P100-1995"}},
    // IBM1026
    {2063, 1026, StringEncoding{209}, false, 0,
     {"IBM1026", "CP1026", "csIBM1026", "ibm-1026_P100-1995", "1026"}},
    // EBCDIC-AT-DE
    {2064, kNoCodePage, StringEncoding{210}, false, 0,
     {"EBCDIC-AT-DE", "csIBMEBCDICATDE"}},
    // EBCDIC-AT-DE-A
    {2065, kNoCodePage, StringEncoding{211}, false, 0,
     {"EBCDIC-AT-DE-A", "csEBCDICATDEA"}},
    // EBCDIC-CA-FR
    {2066, kNoCodePage, StringEncoding{212}, false, 0,
     {"EBCDIC-CA-FR", "csEBCDICCAFR"}},
    // EBCDIC-DK-NO
    {2067, kNoCodePage, StringEncoding{213}, false, 0,
     {"EBCDIC-DK-NO", "csEBCDICDKNO"}},
    // EBCDIC-DK-NO-A
    {2068, kNoCodePage, StringEncoding{214}, false, 0,
     {"EBCDIC-DK-NO-A", "csEBCDICDKNOA"}},
    // EBCDIC-FI-SE
    {2069, kNoCodePage, StringEncoding{215}, false, 0,
     {"EBCDIC-FI-SE", "csEBCDICFISE"}},
    // EBCDIC-FI-SE-A
    {2070, kNoCodePage, StringEncoding{216}, false, 0,
     {"EBCDIC-FI-SE-A", "csEBCDICFISEA"}},
    // EBCDIC-FR
    {2071, kNoCodePage, StringEncoding{217}, false, 0,
     {"EBCDIC-FR", "csEBCDICFR"}},
    // EBCDIC-IT
    {2072, kNoCodePage, StringEncoding{218}, false, 0,
     {"EBCDIC-IT", "csEBCDICIT"}},
    // EBCDIC-PT
    {2073, kNoCodePage, StringEncoding{219}, false, 0,
     {"EBCDIC-PT", "csEBCDICPT"}},
    // EBCDIC-ES
    {2074, kNoCodePage, StringEncoding{220}, false, 0,
     {"EBCDIC-ES", "csEBCDICES"}},
    // EBCDIC-ES-A
    {2075, kNoCodePage, StringEncoding{221}, false, 0,
     {"EBCDIC-ES-A", "csEBCDICESA"}},
    // EBCDIC-ES-S
    {2076, kNoCodePage, StringEncoding{222}, false, 0,
     {"EBCDIC-ES-S", "csEBCDICESS"}},
    // EBCDIC-UK
    {2077, kNoCodePage, StringEncoding{223}, false, 0,
     {"EBCDIC-UK", "csEBCDICUK"}},
    // EBCDIC-US
    {2078, kNoCodePage, StringEncoding{224}, false, 0,
     {"EBCDIC-US", "csEBCDICUS"}},
    // UNKNOWN-8BIT
    {2079, kNoCodePage, StringEncoding{225}, false, 0,
     {"UNKNOWN-8BIT", "csUnknown8BiT"}},
    // MNEMONIC
    {2080, kNoCodePage, StringEncoding{226}, false, 0,
     {"MNEMONIC", "csMnemonic"}},
    // MNEM
    {2081, kNoCodePage, StringEncoding{227}, false, 0,
     {"MNEM", "csMnem"}},
    // VISCII
    {2082, kNoCodePage, StringEncoding{228}, false, 0,
     {"VISCII", "csVISCII"}},
    // VIQR
    {2083, kNoCodePage, StringEncoding{229}, false, 0,
     {"VIQR", "csVIQR"}},
    // KOI8-R
    {2084, 20866, StringEncoding{230}, false, 0,
     {"KOI8-R", "csKOI8R", "ibm-878_P100-1996", "ibm-878", "koi8", "cp878"}},
    // HZ-GB-2312
    {2085, 52936, StringEncoding{231}, true, 0,
     {"HZ-GB-2312", "HZ"}},
    // IBM866
    {2086, 866, StringEncoding{232}, false, 0,
     {"IBM866", "cp866", "866", "csIBM866", "ibm-866_P100-1995"}},
    // IBM775
    {2087, 775, StringEncoding{233}, false, 0,
     {"IBM775", "cp775", "csPC775Baltic", "ibm-775_P100-1996", "775"}},
    // KOI8-U
    {2088, 21866, StringEncoding{234}, false, 0,
     {"KOI8-U", "csKOI8U", "ibm-1168_P100-2002", "ibm-1168"}},
    // IBM00858
    {2089, 858, StringEncoding{235}, false, 0,
     {"IBM00858", "CCSID00858", "CP00858", "PC-Multilingual-850+euro", "csIBM00858", "ibm-858_P100-1997",
      "ibm-858", "cp858"}},
    // IBM00924
    {2090, 20924, StringEncoding{236}, false, 0,
     {"IBM00924", "CCSID00924", "CP00924", "ebcdic-Latin9--euro", "csIBM00924"}},
    // IBM01140
    {2091, 1140, StringEncoding{237}, false, 0,
     {"IBM01140", "CCSID01140", "CP01140", "ebcdic-us-37+euro", "csIBM01140", "ibm-1140_P100-1997",
      "ibm-1140", "cp1140"}},
    // IBM01141
    {2092, 1141, StringEncoding{238}, false, 0,
     {"IBM01141", "CCSID01141", "CP01141", "ebcdic-de-273+euro", "csIBM01141", "ibm-1141_P100-1997",
      "ibm-1141", "cp1141"}},
    // IBM01142
    {2093, 1142, StringEncoding{239}, false, 0,
     {"IBM01142", "CCSID01142", "CP01142", "ebcdic-dk-277+euro", "ebcdic-no-277+euro", "csIBM01142",
      "ibm-1142_P100-1997", "ibm-1142", "cp1142"}},
    // IBM01143
    {2094, 1143, StringEncoding{240}, false, 0,
     {"IBM01143", "CCSID01143", "CP01143", "ebcdic-fi-278+euro", "ebcdic-se-278+euro", "csIBM01143",
      "ibm-1143_P100-1997", "ibm-1143", "cp1143"}},
    // IBM01144
    {2095, 1144, StringEncoding{241}, false, 0,
     {"IBM01144", "CCSID01144", "CP01144", "ebcdic-it-280+euro", "csIBM01144", "ibm-1144_P100-1997",
      "ibm-1144", "cp1144"}},
    // IBM01145
    {2096, 1145, StringEncoding{242}, false, 0,
     {"IBM01145", "CCSID01145", "CP01145", "ebcdic-es-284+euro", "csIBM01145", "ibm-1145_P100-1997",
      "ibm-1145", "cp1145"}},
    // IBM01146
    {2097, 1146, StringEncoding{243}, false, 0,
     {"IBM01146", "CCSID01146", "CP01146", "ebcdic-gb-285+euro", "csIBM01146", "ibm-1146_P100-1997",
      "ibm-1146", "cp1146"}},
    // IBM01147
    {2098, 1147, StringEncoding{244}, false, 0,
     {"IBM01147", "CCSID01147", "CP01147", "ebcdic-fr-297+euro", "csIBM01147", "ibm-1147_P100-1997",
      "ibm-1147", "cp1147"}},
    // IBM01148
    {2099, 1148, StringEncoding{245}, false, 0,
     {"IBM01148", "CCSID01148", "CP01148", "ebcdic-international-500+euro", "csIBM01148",
      "ibm-1148_P100-1997", "ibm-1148", "cp1148"}},
    // IBM01149
    {2100, 1149, StringEncoding{246}, false, 0,
     {"IBM01149", "CCSID01149", "CP01149", "ebcdic-is-871+euro", "csIBM01149", "ibm-1149_P100-1997",
      "ibm-1149", "cp1149"}},
    // Big5-HKSCS
    {2101, kNoCodePage, StringEncoding{247}, false, 0,
     {"Big5-HKSCS", "csBig5HKSCS", "ibm-1375_P100-2008", "ibm-1375", "big5hk", "HKSCS-BIG5"}},
    // IBM1047
    {2102, 1047, StringEncoding{248}, false, 0,
     {"IBM1047", "IBM-1047", "csIBM1047", "ibm-1047_P100-1995", "cp1047", "1047"}},
    // PTCP154
    {2103, kNoCodePage, StringEncoding{249}, false, 0,
     {"PTCP154", "csPTCP154", "PT154", "CP154", "Cyrillic-Asian"}},
    // Amiga-1251
    {2104, kNoCodePage, StringEncoding{250}, false, 0,
     {"Amiga-1251", "Ami1251", "Amiga1251", "Ami-1251", "csAmiga1251"}},
    // KOI7-switched
    {2105, kNoCodePage, StringEncoding{251}, false, 0,
     {"KOI7-switched", "csKOI7switched"}},
    // BRF
    {2106, kNoCodePage, StringEncoding{252}, false, 0,
     {"BRF", "csBRF"}},
    // TSCII
    {2107, kNoCodePage, StringEncoding{253}, false, 0,
     {"TSCII", "csTSCII"}},
    // windows-1250
    {2250, 1250, STRING_ENCODING_WINDOWS_1250, true, 0,
     {"windows-1250", "ibm-5346_P100-1998", "ibm-5346", "cp1250"}},
    // windows-1251
    {2251, 1251, STRING_ENCODING_WINDOWS_1251, true, 0,
     {"windows-1251", "ibm-5347_P100-1998", "ibm-5347", "cp1251", "ANSI1251"}},
    // windows-1252
    {kNoMib, 1252, STRING_ENCODING_WINDOWS_1252, true, 0,
     {"windows-1252", "ibm-5348_P100-1997", "ibm-5348", "cp1252"}},
    // windows-1253
    {2253, 1253, STRING_ENCODING_WINDOWS_1253, true, 0,
     {"windows-1253", "ibm-5349_P100-1998", "ibm-5349", "cp1253"}},
    // windows-1254
    {2254, 1254, STRING_ENCODING_WINDOWS_1254, true, 0,
     {"windows-1254", "ibm-5350_P100-1998", "ibm-5350", "cp1254"}},
    // windows-1255
    {2255, 1255, STRING_ENCODING_WINDOWS_1255, true, 0,
     {"windows-1255", "ibm-9447_P100-2002", "ibm-9447", "cp1255"}},
    // windows-1256
    {2256, 1256, STRING_ENCODING_WINDOWS_1256, true, 0,
     {"windows-1256", "ibm-9448_X100-2005", "ibm-9448", "cp1256", "x-windows-1256S"}},
    // windows-1257
    {2257, 1257, STRING_ENCODING_WINDOWS_1257, true, 0,
     {"windows-1257", "ibm-9449_P100-2002", "ibm-9449", "cp1257"}},
    // windows-1258
    {2258, 1258, STRING_ENCODING_WINDOWS_1258, true, 0,
     {"windows-1258", "ibm-5354_P100-1998", "ibm-5354", "cp1258"}},
    // TIS-620
    {2259, kNoCodePage, StringEncoding{254}, true, 0,
     {"TIS-620", "csTIS620", "ISO-8859-11", "ibm-874_P100-1995", "ibm-874", "ibm-9066", "cp874",
      "tis620.2533", "eucTH", "x-IBM874"}},
    // Windows-709
    {kNoMib, 709, StringEncoding{255}, false, 0,
     {"Windows-709"}},
    // Windows-710
    {kNoMib, 710, StringEncoding{256}, false, 0,
     {"Windows-710"}},
    // Windows-720
    {kNoMib, 720, StringEncoding{257}, false, 0,
     {"Windows-720", "ibm-720_P100-1997", "ibm-720", "DOS-720", "x-IBM720"}},
    // Windows-737
    {kNoMib, 737, StringEncoding{258}, false, 0,
     {"Windows-737", "ibm-737_P100-1997", "ibm-737", "cp737", "737", "x-IBM737"}},
    // Windows-875
    {kNoMib, 875, StringEncoding{259}, false, 0,
     {"Windows-875"}},
    // Windows-1361
    {kNoMib, 1361, StringEncoding{260}, false, 0,
     {"Windows-1361"}},
    // Windows-10000
    {kNoMib, 10000, StringEncoding{261}, false, 0,
     {"Windows-10000"}},
    // Windows-10001
    {kNoMib, 10001, StringEncoding{262}, false, 0,
     {"Windows-10001"}},
    // Windows-10002
    {kNoMib, 10002, StringEncoding{263}, false, 0,
     {"Windows-10002"}},
    // Windows-10003
    {kNoMib, 10003, StringEncoding{264}, false, 0,
     {"Windows-10003"}},
    // Windows-10004
    {kNoMib, 10004, StringEncoding{265}, false, 0,
     {"Windows-10004"}},
    // Windows-10005
    {kNoMib, 10005, StringEncoding{266}, false, 0,
     {"Windows-10005"}},
    // Windows-10006
    {kNoMib, 10006, StringEncoding{267}, false, 0,
     {"Windows-10006", "macos-6_2-10.4", "x-mac-greek", "macgr"}},
    // Windows-10007
    {kNoMib, 10007, StringEncoding{268}, false, 0,
     {"Windows-10007", "macos-7_3-10.2", "x-mac-cyrillic", "mac-cyrillic", "maccy", "x-MacUkraine"}},
    // Windows-10008
    {kNoMib, 10008, StringEncoding{269}, false, 0,
     {"Windows-10008"}},
    // Windows-10010
    {kNoMib, 10010, StringEncoding{270}, false, 0,
     {"Windows-10010"}},
    // Windows-10017
    {kNoMib, 10017, StringEncoding{271}, false, 0,
     {"Windows-10017"}},
    // Windows-10021
    {kNoMib, 10021, StringEncoding{272}, false, 0,
     {"Windows-10021"}},
    // Windows-10029
    {kNoMib, 10029, StringEncoding{273}, false, 0,
     {"Windows-10029", "macos-29-10.2", "x-mac-centraleurroman", "x-mac-ce", "macce", "maccentraleurope",
      "x-MacCentralEurope"}},
    // Windows-10079
    {kNoMib, 10079, StringEncoding{274}, false, 0,
     {"Windows-10079"}},
    // Windows-10081
    {kNoMib, 10081, StringEncoding{275}, false, 0,
     {"Windows-10081", "macos-35-10.2", "x-mac-turkish", "mactr"}},
    // Windows-10082
    {kNoMib, 10082, StringEncoding{276}, false, 0,
     {"Windows-10082"}},
    // Windows-20000
    {kNoMib, 20000, StringEncoding{277}, false, 0,
     {"Windows-20000"}},
    // Windows-20001
    {kNoMib, 20001, StringEncoding{278}, false, 0,
     {"Windows-20001"}},
    // Windows-20002
    {kNoMib, 20002, StringEncoding{279}, false, 0,
     {"Windows-20002"}},
    // Windows-20003
    {kNoMib, 20003, StringEncoding{280}, false, 0,
     {"Windows-20003"}},
    // Windows-20004
    {kNoMib, 20004, StringEncoding{281}, false, 0,
     {"Windows-20004"}},
    // Windows-20005
    {kNoMib, 20005, StringEncoding{282}, false, 0,
     {"Windows-20005"}},
    // Windows-20105
    {kNoMib, 20105, StringEncoding{283}, false, 0,
     {"Windows-20105"}},
    // Windows-20106
    {kNoMib, 20106, StringEncoding{284}, false, 0,
     {"Windows-20106"}},
    // Windows-20107
    {kNoMib, 20107, StringEncoding{285}, false, 0,
     {"Windows-20107"}},
    // Windows-20108
    {kNoMib, 20108, StringEncoding{286}, false, 0,
     {"Windows-20108"}},
    // Windows-20269
    {kNoMib, 20269, StringEncoding{287}, false, 0,
     {"Windows-20269"}},
    // Windows-20833
    {kNoMib, 20833, StringEncoding{288}, false, 0,
     {"Windows-20833"}},
    // Windows-20949
    {kNoMib, 20949, StringEncoding{289}, false, 0,
     {"Windows-20949"}},
    // Windows-21025
    {kNoMib, 21025, StringEncoding{290}, false, 0,
     {"Windows-21025"}},
    // Windows-21027
    {kNoMib, 21027, StringEncoding{291}, false, 0,
     {"Windows-21027"}},
    // Windows-29001
    {kNoMib, 29001, StringEncoding{292}, false, 0,
     {"Windows-29001"}},
    // Windows-38598
    {kNoMib, 38598, StringEncoding{293}, false, 0,
     {"Windows-38598"}},
    // Windows-50221
    {kNoMib, 50221, StringEncoding{294}, false, 0,
     {"Windows-50221"}},
    // Windows-50222
    {kNoMib, 50222, StringEncoding{295}, false, 0,
     {"Windows-50222"}},
    // Windows-50229
    {kNoMib, 50229, StringEncoding{296}, false, 0,
     {"Windows-50229"}},
    // Windows-50930
    {kNoMib, 50930, StringEncoding{297}, false, 0,
     {"Windows-50930"}},
    // Windows-50931
    {kNoMib, 50931, StringEncoding{298}, false, 0,
     {"Windows-50931"}},
    // Windows-50933
    {kNoMib, 50933, StringEncoding{299}, false, 0,
     {"Windows-50933"}},
    // Windows-50935
    {kNoMib, 50935, StringEncoding{300}, false, 0,
     {"Windows-50935"}},
    // Windows-50936
    {kNoMib, 50936, StringEncoding{301}, false, 0,
     {"Windows-50936"}},
    // Windows-50937
    {kNoMib, 50937, StringEncoding{302}, false, 0,
     {"Windows-50937"}},
    // Windows-50939
    {kNoMib, 50939, StringEncoding{303}, false, 0,
     {"Windows-50939"}},
    // Windows-51936
    {kNoMib, 51936, StringEncoding{304}, false, 0,
     {"Windows-51936"}},
    // Windows-51950
    {kNoMib, 51950, StringEncoding{305}, false, 0,
     {"Windows-51950"}},
    // Windows-57002
    {kNoMib, 57002, StringEncoding{306}, true, 0,
     {"Windows-57002", "x-ISCII91", "x-iscii-de", "iscii-dev", "ibm-4902"}},
    // Windows-57003
    {kNoMib, 57003, StringEncoding{307}, true, 0,
     {"Windows-57003", "x-iscii-be", "iscii-bng"}},
    // Windows-57004
    {kNoMib, 57004, StringEncoding{308}, true, 0,
     {"Windows-57004", "x-iscii-ta", "iscii-tml"}},
    // Windows-57005
    {kNoMib, 57005, StringEncoding{309}, true, 0,
     {"Windows-57005", "x-iscii-te", "iscii-tlg"}},
    // Windows-57006
    {kNoMib, 57006, StringEncoding{310}, true, 0,
     {"Windows-57006", "x-iscii-as"}},
    // Windows-57007
    {kNoMib, 57007, StringEncoding{311}, true, 0,
     {"Windows-57007", "x-iscii-or", "iscii-ori"}},
    // Windows-57008
    {kNoMib, 57008, StringEncoding{312}, true, 0,
     {"Windows-57008", "x-iscii-ka", "iscii-knd"}},
    // Windows-57009
    {kNoMib, 57009, StringEncoding{313}, true, 0,
     {"Windows-57009", "x-iscii-ma", "iscii-mlm"}},
    // Windows-57010
    {kNoMib, 57010, StringEncoding{314}, true, 0,
     {"Windows-57010", "x-iscii-gu", "iscii-guj"}},
    // Windows-57011
    {kNoMib, 57011, StringEncoding{315}, true, 0,
     {"Windows-57011", "x-iscii-pa", "iscii-gur"}},
};

const UnicodeNameReference unicodeNameIndex[kUnicodeNames] = {
    {166, 9}, {203, 4}, {242, 5}, {6, 12}, {163, 5}, {168, 5}, {171, 7}, {172, 7}, {173, 5}, {175, 6},
    {176, 7}, {178, 6}, {179, 5}, {181, 5}, {182, 2}, {183, 6}, {37, 5}, {0, 11}, {261, 4}, {227, 4},
    {1, 10}, {154, 5}, {149, 2}, {184, 2}, {185, 2}, {186, 2}, {187, 2}, {188, 2}, {189, 2}, {151, 2},
    {190, 2}, {192, 2}, {226, 2}, {193, 5}, {194, 2}, {196, 6}, {1, 9}, {107, 4}, {109, 7}, {2, 9}, {3, 9},
    {4, 9}, {5, 8}, {6, 10}, {8, 11}, {9, 8}, {10, 9}, {200, 2}, {2, 11}, {3, 11}, {4, 11}, {5, 10},
    {10, 11}, {107, 6}, {109, 13}, {37, 7}, {145, 0}, {158, 0}, {244, 1}, {244, 3}, {244, 0}, {244, 2},
    {249, 4}, {74, 0}, {0, 0}, {0, 2}, {6, 6}, {65, 2}, {0, 4}, {0, 12}, {65, 0}, {6, 5}, {7, 0}, {164, 0},
    {241, 4}, {241, 0}, {139, 0}, {246, 0}, {19, 0}, {50, 0}, {78, 5}, {229, 1}, {230, 1}, {231, 1},
    {232, 1}, {233, 1}, {234, 1}, {235, 1}, {236, 1}, {237, 1}, {238, 1}, {239, 1}, {240, 1}, {135, 0},
    {57, 2}, {56, 2}, {229, 2}, {230, 2}, {231, 2}, {232, 2}, {233, 2}, {234, 2}, {235, 2}, {236, 2},
    {237, 2}, {238, 2}, {239, 2}, {240, 2}, {166, 1}, {167, 2}, {203, 1}, {242, 4}, {6, 11}, {231, 7},
    {232, 7}, {233, 8}, {234, 8}, {235, 7}, {236, 7}, {237, 7}, {238, 7}, {239, 7}, {240, 7}, {132, 16},
    {132, 17}, {106, 9}, {248, 3}, {249, 3}, {250, 3}, {251, 3}, {252, 3}, {253, 3}, {254, 3}, {255, 3},
    {256, 3}, {35, 8}, {163, 4}, {243, 3}, {168, 1}, {169, 2}, {170, 2}, {171, 5}, {172, 1}, {173, 1},
    {174, 2}, {175, 1}, {176, 1}, {177, 1}, {178, 1}, {0, 9}, {166, 11}, {179, 1}, {180, 1}, {181, 1},
    {182, 1}, {183, 1}, {261, 3}, {227, 1}, {1, 7}, {154, 4}, {149, 1}, {184, 1}, {185, 1}, {186, 1},
    {187, 1}, {229, 7}, {188, 1}, {189, 1}, {151, 1}, {190, 1}, {191, 1}, {192, 1}, {226, 1}, {193, 1},
    {194, 1}, {195, 1}, {196, 1}, {257, 6}, {224, 5}, {197, 1}, {198, 1}, {199, 1}, {200, 1}, {201, 1},
    {2, 10}, {3, 10}, {4, 10}, {5, 9}, {202, 1}, {10, 10}, {107, 5}, {109, 12}, {162, 3}, {112, 1},
    {15, 6}, {37, 6}, {193, 2}, {194, 3}, {175, 5}, {176, 5}, {178, 5}, {166, 10}, {189, 3}, {78, 3},
    {78, 4}, {79, 3}, {79, 4}, {145, 1}, {244, 4}, {0, 10}, {74, 2}, {78, 0}, {79, 0}, {80, 0}, {164, 1},
    {241, 1}, {139, 1}, {139, 2}, {246, 1}, {135, 1}, {135, 2}, {148, 2}, {101, 1}, {205, 1}, {206, 1},
    {207, 1}, {208, 1}, {214, 1}, {215, 1}, {216, 1}, {209, 1}, {210, 1}, {211, 1}, {212, 1}, {213, 1},
    {217, 1}, {218, 1}, {18, 1}, {37, 1}, {16, 1}, {113, 1}, {163, 1}, {112, 4}, {13, 2}, {159, 1},
    {155, 1}, {157, 1}, {156, 1}, {158, 1}, {144, 3}, {200, 3}, {229, 4}, {230, 4}, {231, 4}, {232, 4},
    {233, 5}, {234, 5}, {235, 4}, {236, 4}, {237, 4}, {238, 4}, {239, 4}, {240, 4}, {166, 6}, {167, 3},
    {203, 2}, {242, 2}, {168, 2}, {169, 3}, {170, 3}, {171, 3}, {172, 4}, {173, 3}, {174, 3}, {175, 3},
    {176, 3}, {177, 3}, {178, 3}, {179, 3}, {180, 3}, {181, 3}, {183, 4}, {184, 3}, {186, 3}, {187, 3},
    {188, 3}, {189, 4}, {190, 3}, {191, 2}, {192, 3}, {226, 3}, {193, 3}, {194, 4}, {195, 4}, {196, 3},
    {197, 3}, {198, 2}, {199, 2}, {201, 3}, {202, 3}, {204, 1}, {153, 1}, {154, 1}, {28, 1}, {75, 2},
    {96, 2}, {76, 3}, {26, 1}, {34, 6}, {77, 3}, {117, 3}, {20, 4}, {78, 6}, {79, 5}, {80, 2}, {83, 2},
    {86, 2}, {41, 5}, {87, 5}, {88, 2}, {89, 3}, {90, 3}, {42, 4}, {91, 2}, {91, 3}, {92, 4}, {94, 3},
    {97, 3}, {98, 3}, {21, 3}, {43, 3}, {22, 3}, {44, 2}, {45, 2}, {104, 1}, {105, 1}, {38, 1}, {40, 1},
    {36, 1}, {73, 3}, {23, 4}, {46, 3}, {47, 2}, {29, 3}, {49, 2}, {50, 2}, {51, 2}, {19, 5}, {52, 2},
    {53, 2}, {54, 3}, {48, 2}, {55, 2}, {56, 4}, {57, 3}, {24, 4}, {24, 5}, {58, 4}, {27, 2}, {99, 4},
    {93, 2}, {25, 4}, {59, 2}, {60, 3}, {61, 3}, {62, 4}, {63, 4}, {107, 1}, {108, 7}, {109, 3}, {111, 6},
    {81, 1}, {82, 1}, {84, 1}, {85, 1}, {95, 3}, {64, 2}, {65, 4}, {66, 1}, {67, 3}, {68, 4}, {69, 3},
    {70, 3}, {71, 3}, {72, 2}, {74, 4}, {109, 9}, {1, 8}, {2, 6}, {3, 6}, {4, 6}, {10, 6}, {11, 4},
    {109, 10}, {6, 7}, {5, 5}, {8, 8}, {9, 5}, {12, 2}, {14, 1}, {245, 1}, {224, 1}, {228, 1}, {35, 5},
    {102, 2}, {118, 3}, {165, 2}, {161, 1}, {221, 1}, {220, 1}, {86, 0}, {32, 2}, {33, 2}, {30, 2},
    {31, 2}, {115, 1}, {116, 1}, {114, 1}, {227, 2}, {149, 3}, {184, 5}, {151, 3}, {182, 3}, {150, 1},
    {152, 1}, {185, 3}, {186, 5}, {243, 1}, {130, 1}, {15, 2}, {257, 1}, {247, 1}, {120, 1}, {119, 1},
    {129, 1}, {103, 1}, {121, 1}, {124, 1}, {127, 1}, {128, 1}, {125, 1}, {126, 1}, {123, 1}, {122, 1},
    {219, 1}, {100, 1}, {147, 1}, {160, 1}, {146, 1}, {223, 1}, {222, 1}, {140, 1}, {162, 1}, {141, 1},
    {142, 1}, {143, 1}, {92, 1}, {5, 4}, {243, 4}, {23, 2}, {148, 1}, {148, 0}, {23, 0}, {99, 3}, {101, 0},
    {260, 3}, {151, 5}, {99, 0}, {99, 1}, {73, 2}, {204, 0}, {205, 0}, {169, 1}, {170, 1}, {206, 0},
    {179, 2}, {202, 2}, {183, 2}, {166, 3}, {183, 3}, {171, 1}, {175, 2}, {172, 2}, {178, 2}, {176, 2},
    {180, 2}, {181, 2}, {196, 2}, {173, 2}, {166, 5}, {171, 2}, {195, 2}, {172, 3}, {201, 2}, {166, 2},
    {166, 4}, {195, 3}, {197, 2}, {168, 4}, {232, 3}, {171, 6}, {233, 3}, {207, 0}, {208, 0}, {214, 0},
    {236, 3}, {215, 0}, {216, 0}, {234, 3}, {209, 0}, {210, 0}, {211, 0}, {238, 3}, {176, 6}, {237, 3},
    {167, 1}, {239, 3}, {196, 5}, {240, 3}, {212, 0}, {235, 3}, {174, 1}, {177, 2}, {230, 3}, {233, 4},
    {213, 0}, {234, 4}, {172, 6}, {217, 0}, {218, 0}, {231, 3}, {6, 4}, {8, 5}, {10, 12}, {77, 0}, {8, 4},
    {22, 0}, {61, 0}, {163, 6}, {16, 5}, {16, 2}, {17, 0}, {16, 3}, {37, 0}, {257, 8}, {18, 0}, {16, 0},
    {34, 2}, {25, 3}, {19, 3}, {113, 0}, {56, 0}, {163, 0}, {57, 6}, {57, 7}, {57, 0}, {112, 0}, {94, 0},
    {8, 6}, {64, 0}, {44, 0}, {8, 7}, {91, 0}, {9, 4}, {9, 9}, {241, 5}, {163, 8}, {159, 0}, {155, 0},
    {157, 0}, {156, 0}, {144, 0}, {62, 3}, {225, 1}, {225, 0}, {229, 0}, {230, 0}, {231, 0}, {232, 0},
    {233, 0}, {234, 0}, {235, 0}, {236, 0}, {237, 0}, {238, 0}, {239, 0}, {240, 0}, {166, 0}, {167, 0},
    {203, 0}, {203, 3}, {242, 0}, {242, 1}, {242, 3}, {144, 5}, {144, 4}, {6, 9}, {6, 8}, {231, 6},
    {231, 5}, {232, 6}, {232, 5}, {233, 7}, {233, 6}, {234, 7}, {234, 6}, {235, 6}, {235, 5}, {236, 6},
    {236, 5}, {237, 6}, {237, 5}, {238, 6}, {238, 5}, {239, 6}, {239, 5}, {240, 6}, {240, 5}, {228, 3},
    {228, 2}, {132, 2}, {132, 3}, {133, 2}, {133, 3}, {134, 1}, {134, 2}, {106, 1}, {106, 2}, {130, 2},
    {130, 3}, {139, 3}, {139, 4}, {137, 2}, {137, 3}, {138, 2}, {138, 3}, {136, 1}, {136, 2}, {145, 3},
    {145, 2}, {132, 4}, {132, 5}, {133, 4}, {133, 5}, {106, 5}, {106, 6}, {35, 7}, {35, 6}, {35, 10},
    {241, 3}, {241, 2}, {163, 3}, {163, 2}, {163, 9}, {113, 2}, {132, 6}, {132, 7}, {133, 6}, {133, 7},
    {106, 7}, {106, 8}, {132, 8}, {132, 9}, {132, 10}, {132, 11}, {168, 0}, {168, 3}, {169, 0}, {170, 0},
    {171, 0}, {171, 4}, {172, 0}, {172, 5}, {173, 0}, {173, 4}, {174, 0}, {175, 0}, {175, 4}, {176, 0},
    {176, 4}, {177, 0}, {177, 4}, {178, 0}, {178, 4}, {132, 12}, {132, 13}, {0, 8}, {166, 8}, {166, 7},
    {179, 0}, {179, 4}, {180, 0}, {181, 0}, {181, 4}, {182, 0}, {182, 4}, {309, 4}, {183, 0}, {183, 5},
    {9, 7}, {9, 6}, {14, 2}, {106, 3}, {106, 4}, {248, 2}, {248, 1}, {249, 2}, {249, 1}, {250, 2},
    {250, 1}, {251, 2}, {251, 1}, {252, 2}, {252, 1}, {256, 2}, {256, 1}, {57, 5}, {57, 4}, {132, 14},
    {132, 15}, {260, 2}, {260, 1}, {261, 2}, {261, 1}, {227, 0}, {227, 3}, {1, 6}, {154, 3}, {154, 2},
    {149, 0}, {149, 4}, {184, 0}, {184, 4}, {185, 0}, {185, 4}, {186, 0}, {186, 4}, {187, 0}, {187, 4},
    {229, 6}, {229, 5}, {188, 0}, {188, 4}, {189, 0}, {189, 5}, {151, 0}, {151, 4}, {190, 0}, {190, 4},
    {191, 0}, {191, 3}, {192, 0}, {192, 4}, {226, 0}, {226, 4}, {193, 0}, {193, 4}, {194, 0}, {194, 5},
    {195, 0}, {195, 5}, {196, 0}, {196, 4}, {257, 4}, {257, 3}, {224, 3}, {224, 2}, {197, 0}, {198, 0},
    {8, 10}, {8, 9}, {199, 0}, {154, 6}, {200, 0}, {201, 0}, {257, 5}, {2, 8}, {2, 7}, {3, 8}, {3, 7},
    {4, 8}, {4, 7}, {5, 7}, {5, 6}, {202, 0}, {202, 4}, {10, 8}, {10, 7}, {107, 3}, {107, 2}, {109, 5},
    {109, 4}, {135, 3}, {137, 4}, {15, 4}, {15, 7}, {15, 3}, {15, 10}, {253, 2}, {253, 1}, {254, 2},
    {254, 1}, {255, 2}, {255, 1}, {37, 3}, {37, 2}, {37, 8}, {163, 7}, {37, 4}, {153, 0}, {154, 0},
    {88, 0}, {51, 0}, {52, 0}, {53, 0}, {28, 0}, {29, 2}, {310, 2}, {309, 3}, {317, 2}, {318, 2}, {315, 2},
    {316, 2}, {314, 2}, {312, 2}, {311, 2}, {96, 0}, {122, 2}, {123, 0}, {119, 0}, {120, 0}, {121, 0},
    {122, 0}, {26, 0}, {117, 0}, {117, 1}, {104, 0}, {105, 0}, {38, 0}, {39, 0}, {40, 0}, {36, 0}, {73, 0},
    {48, 0}, {54, 0}, {54, 2}, {55, 0}, {27, 0}, {78, 2}, {79, 2}, {56, 3}, {92, 3}, {23, 3}, {99, 2},
    {22, 2}, {61, 2}, {34, 3}, {25, 2}, {46, 2}, {19, 2}, {62, 2}, {29, 0}, {0, 3}, {21, 2}, {42, 3},
    {68, 2}, {102, 1}, {24, 2}, {58, 1}, {43, 2}, {60, 2}, {34, 4}, {20, 2}, {0, 5}, {87, 2}, {93, 0},
    {12, 0}, {1, 2}, {1, 3}, {11, 0}, {11, 3}, {11, 6}, {257, 2}, {1, 0}, {107, 0}, {108, 0}, {108, 3},
    {108, 2}, {109, 0}, {109, 1}, {110, 0}, {109, 11}, {111, 0}, {111, 3}, {111, 2}, {140, 0}, {141, 0},
    {2, 2}, {2, 3}, {2, 0}, {142, 0}, {3, 2}, {3, 3}, {3, 0}, {4, 2}, {4, 3}, {4, 0}, {5, 2}, {5, 3},
    {5, 0}, {6, 2}, {6, 3}, {6, 0}, {81, 0}, {81, 2}, {82, 0}, {82, 2}, {8, 2}, {8, 3}, {8, 0}, {9, 2},
    {9, 3}, {9, 0}, {84, 0}, {84, 2}, {85, 0}, {85, 2}, {10, 2}, {10, 3}, {10, 0}, {143, 0}, {95, 0},
    {65, 1}, {108, 5}, {34, 1}, {1, 1}, {2, 1}, {75, 1}, {76, 2}, {3, 1}, {20, 1}, {4, 1}, {77, 1},
    {78, 1}, {79, 1}, {80, 1}, {8, 1}, {6, 1}, {83, 1}, {41, 2}, {9, 1}, {86, 1}, {42, 1}, {87, 1},
    {12, 1}, {88, 1}, {5, 1}, {89, 1}, {90, 2}, {10, 1}, {35, 1}, {21, 1}, {91, 1}, {92, 2}, {93, 1},
    {94, 2}, {95, 1}, {96, 1}, {11, 1}, {97, 2}, {98, 2}, {43, 1}, {22, 1}, {44, 1}, {45, 1}, {108, 1},
    {29, 1}, {23, 1}, {111, 1}, {46, 1}, {47, 1}, {48, 1}, {19, 1}, {49, 1}, {50, 1}, {51, 1}, {52, 1},
    {53, 1}, {54, 1}, {55, 1}, {56, 1}, {57, 1}, {0, 1}, {24, 1}, {58, 2}, {25, 1}, {59, 1}, {30, 1},
    {31, 1}, {60, 1}, {61, 1}, {62, 1}, {63, 1}, {64, 1}, {65, 3}, {66, 0}, {32, 1}, {67, 1}, {33, 1},
    {68, 1}, {69, 1}, {70, 1}, {71, 1}, {72, 1}, {73, 1}, {74, 1}, {117, 2}, {124, 0}, {127, 0}, {128, 0},
    {125, 0}, {126, 0}, {21, 0}, {14, 3}, {41, 1}, {41, 0}, {42, 0}, {49, 0}, {63, 0}, {67, 0}, {68, 0},
    {69, 0}, {70, 0}, {71, 0}, {72, 0}, {14, 0}, {13, 0}, {63, 3}, {98, 0}, {42, 2}, {67, 2}, {68, 3},
    {69, 2}, {70, 2}, {71, 2}, {87, 3}, {87, 0}, {90, 0}, {89, 0}, {41, 3}, {245, 0}, {224, 4}, {77, 2},
    {224, 0}, {228, 0}, {35, 4}, {35, 9}, {35, 3}, {35, 0}, {35, 2}, {102, 0}, {118, 0}, {1, 5}, {111, 5},
    {2, 5}, {3, 5}, {4, 5}, {10, 5}, {11, 2}, {108, 6}, {109, 6}, {97, 1}, {109, 8}, {1, 4}, {111, 4},
    {95, 2}, {2, 4}, {3, 4}, {4, 4}, {10, 4}, {11, 5}, {108, 4}, {109, 2}, {45, 0}, {47, 0}, {97, 0},
    {165, 1}, {276, 4}, {276, 5}, {271, 4}, {271, 3}, {90, 1}, {270, 3}, {165, 0}, {165, 3}, {276, 1},
    {278, 1}, {270, 1}, {271, 1}, {165, 4}, {278, 3}, {161, 0}, {221, 0}, {220, 0}, {162, 4}, {112, 2},
    {164, 5}, {15, 1}, {62, 0}, {74, 3}, {32, 0}, {33, 0}, {30, 0}, {31, 0}, {92, 0}, {25, 0}, {46, 0},
    {24, 3}, {58, 3}, {24, 0}, {58, 0}, {115, 0}, {116, 0}, {114, 0}, {150, 0}, {152, 0}, {15, 8},
    {229, 3}, {43, 0}, {243, 2}, {60, 0}, {243, 0}, {144, 2}, {27, 1}, {118, 2}, {144, 1}, {130, 0},
    {34, 5}, {20, 3}, {34, 0}, {20, 0}, {89, 2}, {15, 0}, {15, 9}, {118, 1}, {94, 1}, {8, 12}, {83, 0},
    {76, 1}, {75, 0}, {76, 0}, {257, 0}, {257, 7}, {247, 0}, {10, 14}, {10, 13}, {119, 2}, {120, 2},
    {16, 6}, {19, 4}, {134, 3}, {129, 0}, {103, 0}, {131, 1}, {219, 0}, {0, 7}, {0, 6}, {100, 0}, {134, 0},
    {132, 0}, {132, 18}, {133, 0}, {136, 0}, {137, 0}, {137, 1}, {138, 0}, {138, 1}, {131, 0}, {106, 0},
    {147, 0}, {160, 0}, {146, 0}, {59, 0}, {223, 0}, {222, 0}, {264, 0}, {265, 0}, {266, 0}, {267, 0},
    {268, 0}, {269, 0}, {270, 0}, {271, 0}, {272, 0}, {273, 0}, {274, 0}, {275, 0}, {276, 0}, {277, 0},
    {278, 0}, {279, 0}, {248, 0}, {249, 0}, {250, 0}, {251, 0}, {252, 0}, {253, 0}, {254, 0}, {255, 0},
    {256, 0}, {263, 0}, {280, 0}, {281, 0}, {282, 0}, {283, 0}, {284, 0}, {285, 0}, {286, 0}, {287, 0},
    {288, 0}, {289, 0}, {290, 0}, {291, 0}, {292, 0}, {293, 0}, {294, 0}, {295, 0}, {162, 0}, {296, 0},
    {297, 0}, {298, 0}, {299, 0}, {300, 0}, {301, 0}, {302, 0}, {303, 0}, {304, 0}, {305, 0}, {306, 0},
    {307, 0}, {308, 0}, {309, 0}, {310, 0}, {311, 0}, {312, 0}, {313, 0}, {314, 0}, {315, 0}, {316, 0},
    {317, 0}, {318, 0}, {258, 0}, {259, 0}, {260, 0}, {261, 0}, {262, 0}, {112, 3}, {112, 5}, {164, 2},
    {13, 1}, {41, 4}, {63, 2}, {98, 1}, {164, 4}, {16, 4}, {35, 11}, {260, 4}, {261, 5}, {257, 9},
    {107, 7}, {37, 9}, {309, 1}, {313, 1}, {310, 1}, {309, 2}, {317, 1}, {315, 1}, {316, 1}, {314, 1},
    {318, 1}, {311, 1}, {312, 1}, {104, 2}, {6, 13}, {276, 3}, {276, 6}, {276, 2}, {271, 2}, {270, 2},
    {165, 5}, {278, 2}, {271, 5}, {162, 5}, {162, 2}, {144, 6}, {15, 5}, {132, 1}, {133, 1}, {254, 4},
    {38, 3}, {14, 4}, {164, 3}, {38, 2}, {87, 4},
};

const uint16_t unicodeRowOfEncoding[STRING_ENCODING_COUNT] = {
    106, 133, 132, 134, 138, 137, 136, 0, 1, 2, 3, 4, 5, 6, 8, 9, 10, 11, 12, 13, 14, 15, 16, 18, 19, 20,
    21, 22, 23, 24, 25, 26, 27, 28, 248, 249, 250, 251, 252, 253, 254, 255, 256, 29, 30, 31, 32, 33, 34,
    35, 36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47, 48, 49, 50, 51, 52, 53, 54, 55, 56, 57, 58, 59, 60,
    61, 62, 63, 64, 65, 66, 67, 68, 69, 70, 71, 72, 73, 74, 75, 76, 77, 78, 79, 80, 81, 82, 83, 84, 85, 86,
    87, 88, 89, 90, 91, 92, 93, 94, 95, 96, 97, 98, 99, 100, 101, 102, 103, 104, 105, 107, 108, 109, 111,
    112, 113, 114, 115, 116, 117, 118, 119, 120, 121, 122, 123, 124, 125, 126, 127, 128, 129, 130, 131,
    135, 139, 140, 141, 142, 143, 144, 145, 146, 147, 148, 149, 150, 151, 152, 153, 154, 155, 156, 157,
    158, 159, 160, 161, 162, 163, 164, 165, 166, 167, 168, 169, 170, 171, 172, 173, 174, 175, 176, 177,
    178, 179, 180, 181, 182, 183, 184, 185, 186, 187, 188, 189, 190, 191, 192, 193, 194, 195, 196, 197,
    198, 199, 200, 201, 202, 203, 204, 205, 206, 207, 208, 209, 210, 211, 212, 213, 214, 215, 216, 217,
    218, 219, 220, 221, 222, 223, 224, 225, 226, 227, 228, 229, 230, 231, 232, 233, 234, 235, 236, 237,
    238, 239, 240, 241, 242, 243, 244, 245, 246, 247, 257, 258, 259, 260, 261, 262, 263, 264, 265, 266,
    267, 268, 269, 270, 271, 272, 273, 274, 275, 276, 277, 278, 279, 280, 281, 282, 283, 284, 285, 286,
    287, 288, 289, 290, 291, 292, 293, 294, 295, 296, 297, 298, 299, 300, 301, 302, 303, 304, 305, 306,
    307, 308, 309, 310, 311, 312, 313, 314, 315, 316, 317, 318,
};
// clang-format on
