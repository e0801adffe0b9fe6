#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "unicodeCaseFoldInt.h"
#include "unicodeTableInt.h"
#include "unicodeTestInt.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr char kPrimaryNames[] =
    "ASCII ISO-8859-1 ISO-8859-2 ISO-8859-3 ISO-8859-4 ISO-8859-5 ISO-8859-6 ASMO-708 ISO-8859-7 "
    "ISO-8859-8 ISO-8859-9 ISO-8859-10 ISO_6937-2-add JIS_X0201 JIS_Encoding Shift_JIS EUC-JP EUC-JP "
    "Extended_UNIX_Code_Fixed_Width_for_Japanese BS_4730 SEN_850200_C IT ES DIN_66003 NS_4551-1 "
    "NF_Z_62-010 ISO-10646-UTF-1 ISO_646.basic:1983 INVARIANT ISO_646.irv:1983 NATS-SEFI NATS-SEFI-ADD "
    "NATS-DANO NATS-DANO-ADD SEN_850200_B KS_C_5601-1987 ISO-2022-KR EUC-KR ISO-2022-JP ISO-2022-JP-1 "
    "ISO-2022-JP-2 JIS_C6220-1969-jp JIS_C6220-1969-ro PT greek7-old latin-greek NF_Z_62-010_(1973) "
    "Latin-greek-1 ISO_5427 JIS_C6226-1978 BS_viewdata INIS INIS-8 INIS-cyrillic ISO_5427:1981 "
    "ISO_5428:1980 GB_1988-80 GB_2312-80 NS_4551-2 videotex-suppl PT2 ES2 MSZ_7795.3 JIS_C6226-1983 "
    "greek7 ASMO_449 iso-ir-90 JIS_C6229-1984-a JIS_C6229-1984-b JIS_C6229-1984-b-add JIS_C6229-1984-hand "
    "JIS_C6229-1984-hand-add JIS_C6229-1984-kana ISO_2033-1983 ANSI_X3.110-1983 T.61-7bit T.61-8bit "
    "ECMA-cyrillic CSA_Z243.4-1985-1 CSA_Z243.4-1985-2 CSA_Z243.4-1985-gr ISO-8859-6-E ISO-8859-6-I "
    "T.101-G2 ISO-8859-8-E ISO-8859-8-I CSN_369103 JUS_I.B1.002 IEC_P27-1 JUS_I.B1.003-serb "
    "JUS_I.B1.003-mac greek-ccitt NC_NC00-10:81 ISO_6937-2-25 GOST_19768-74 ISO_8859-supp ISO_10367-box "
    "latin-lap JIS_X0212-1990 DS_2089 us-dk dk-us KSC5636 UNICODE-1-1-UTF-7 ISO-2022-CN ISO-2022-CN-EXT "
    "UTF-8 ISO-8859-13 ISO-8859-14 ISO-8859-15 ISO-8859-15 ISO-8859-16 GBK GB18030 OSD_EBCDIC_DF04_15 "
    "OSD_EBCDIC_DF03_IRV OSD_EBCDIC_DF04_1 ISO-11548-1 KZ-1048 ISO-10646-UCS-2 ISO-10646-UCS-4 "
    "ISO-10646-UCS-Basic ISO-10646-Unicode-Latin1 ISO-10646-J-1 ISO-Unicode-IBM-1261 ISO-Unicode-IBM-1268 "
    "ISO-Unicode-IBM-1276 ISO-Unicode-IBM-1264 ISO-Unicode-IBM-1265 UNICODE-1-1 SCSU UTF-7 UTF-16BE "
    "UTF-16LE UTF-16 CESU-8 UTF-32 UTF-32BE UTF-32LE BOCU-1 ISO-8859-1-Windows-3.0-Latin-1 "
    "ISO-8859-1-Windows-3.1-Latin-1 ISO-8859-2-Windows-Latin-2 ISO-8859-9-Windows-Latin-5 hp-roman8 "
    "Adobe-Standard-Encoding Ventura-US Ventura-International DEC-MCS IBM850 PC8-Danish-Norwegian IBM862 "
    "PC8-Turkish IBM-Symbols IBM-Thai HP-Legal HP-Pi-font HP-Math8 Adobe-Symbol-Encoding HP-DeskTop "
    "Ventura-Math Microsoft-Publishing Windows-31J GB2312 Big5 macintosh IBM037 IBM038 IBM273 IBM274 "
    "IBM275 IBM277 IBM278 IBM280 IBM281 IBM284 IBM285 IBM290 IBM297 IBM420 IBM423 IBM424 IBM437 IBM500 "
    "IBM851 IBM852 IBM855 IBM857 IBM860 IBM861 IBM863 IBM864 IBM865 IBM868 IBM869 IBM870 IBM871 IBM880 "
    "IBM891 IBM903 IBM904 IBM905 IBM918 IBM1026 EBCDIC-AT-DE EBCDIC-AT-DE-A EBCDIC-CA-FR EBCDIC-DK-NO "
    "EBCDIC-DK-NO-A EBCDIC-FI-SE EBCDIC-FI-SE-A EBCDIC-FR EBCDIC-IT EBCDIC-PT EBCDIC-ES EBCDIC-ES-A "
    "EBCDIC-ES-S EBCDIC-UK EBCDIC-US UNKNOWN-8BIT MNEMONIC MNEM VISCII VIQR KOI8-R HZ-GB-2312 IBM866 "
    "IBM775 KOI8-U IBM00858 IBM00924 IBM01140 IBM01141 IBM01142 IBM01143 IBM01144 IBM01145 IBM01146 "
    "IBM01147 IBM01148 IBM01149 Big5-HKSCS IBM1047 PTCP154 Amiga-1251 KOI7-switched BRF TSCII "
    "windows-1250 windows-1251 windows-1252 windows-1253 windows-1254 windows-1255 windows-1256 "
    "windows-1257 windows-1258 TIS-620 Windows-709 Windows-710 Windows-720 Windows-737 Windows-875 "
    "Windows-1361 Windows-10000 Windows-10001 Windows-10002 Windows-10003 Windows-10004 Windows-10005 "
    "Windows-10006 Windows-10007 Windows-10008 Windows-10010 Windows-10017 Windows-10021 Windows-10029 "
    "Windows-10079 Windows-10081 Windows-10082 Windows-20000 Windows-20001 Windows-20002 Windows-20003 "
    "Windows-20004 Windows-20005 Windows-20105 Windows-20106 Windows-20107 Windows-20108 Windows-20269 "
    "Windows-20833 Windows-20949 Windows-21025 Windows-21027 Windows-29001 Windows-38598 Windows-50221 "
    "Windows-50222 Windows-50229 Windows-50930 Windows-50931 Windows-50933 Windows-50935 Windows-50936 "
    "Windows-50937 Windows-50939 Windows-51936 Windows-51950 Windows-57002 Windows-57003 Windows-57004 "
    "Windows-57005 Windows-57006 Windows-57007 Windows-57008 Windows-57009 Windows-57010 Windows-57011";

constexpr char kSupported[] =
    "ASCII ISO-8859-1 ISO-8859-2 ISO-8859-3 ISO-8859-4 ISO-8859-5 ISO-8859-6 ISO-8859-7 ISO-8859-8 "
    "ISO-8859-9 "
    "ISO-8859-10 ISO-8859-13 ISO-8859-14 ISO-8859-15 ISO-8859-6-E ISO-8859-6-I ISO-8859-8-E ISO-8859-8-I "
    "Shift_JIS Windows-31J ISO_646.irv:1983 KS_C_5601-1987 UTF-8 UTF-7 CESU-8 UTF-16 UTF-16BE UTF-16LE "
    "UTF-32 "
    "UTF-32BE UTF-32LE ISO-10646-UCS-2 ISO-10646-UCS-4 SCSU BOCU-1 GBK Big5 HZ-GB-2312 TIS-620 windows-1250 "
    "windows-1251 windows-1252 windows-1253 windows-1254 windows-1255 windows-1256 windows-1257 windows-1258 "
    "Windows-57002 Windows-57003 Windows-57004 Windows-57005 Windows-57006 Windows-57007 Windows-57008 "
    "Windows-57009 Windows-57010 Windows-57011";

std::vector<std::string> Words(const char *text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), {}};
}

std::vector<std::string> NamesOf(const UnicodeXRef &row) {
  std::vector<std::string> names;
  for (const char *const *name = row.names; *name != nullptr; name++) {
    names.emplace_back(*name);
  }
  return names;
}

std::string PrimaryName(const UnicodeXRef &row) {
  return row.names[row.preferredMime];
}

// The first row with this primary name.
const UnicodeXRef &Row(const std::string &primary) {
  const auto *const row = std::find_if(std::begin(xRef), std::end(xRef),
                                       [&](const UnicodeXRef &each) { return PrimaryName(each) == primary; });
  EXPECT_NE(row, std::end(xRef)) << primary;
  return *row;
}

std::string Normalized(const std::string &name) {
  std::string normalized;
  for (const char c : name) {
    if (isalnum(static_cast<unsigned char>(c)) != 0) {
      normalized += static_cast<char>(tolower(static_cast<unsigned char>(c)));
    }
  }
  return normalized;
}

template <typename Predicate>
auto CountRows(Predicate predicate) {
  return std::count_if(std::begin(xRef), std::end(xRef), predicate);
}

TEST(XRef, HasItsRowsInTheirOrder) {
  std::vector<std::string> names;
  for (const UnicodeXRef &row : xRef) {
    names.push_back(PrimaryName(row));
  }
  EXPECT_EQ(names.size(), 319U);
  EXPECT_THAT(names, ElementsAreArray(Words(kPrimaryNames)));
}

TEST(XRef, CountsAsTold) {
  EXPECT_EQ(CountRows([](const UnicodeXRef &row) { return row.mibEnum == -1; }), 63);
  EXPECT_EQ(CountRows([](const UnicodeXRef &row) { return row.windowsCodePage == 0xFFFFFFFF; }), 167);
  EXPECT_EQ(CountRows([](const UnicodeXRef &row) { return row.isSupported; }), 60);
  size_t longest = 0;
  for (const UnicodeXRef &row : xRef) {
    longest = std::max(longest, NamesOf(row).size());
  }
  EXPECT_EQ(longest, 19U);
}

TEST(XRef, HasEachEncodingOnceButForThree) {
  std::map<int, std::vector<uint32_t>> pages;
  for (const UnicodeXRef &row : xRef) {
    pages[row.encoding].push_back(row.windowsCodePage);
  }
  EXPECT_EQ(pages.size(), 316U);
  EXPECT_EQ(pages.begin()->first, 0);
  EXPECT_EQ(pages.rbegin()->first, 315);
  EXPECT_THAT(pages[Row("ISO-8859-6").encoding], ElementsAre(28596, 708));
  EXPECT_THAT(pages[Row("ISO-8859-15").encoding], ElementsAre(28605, 874));
  EXPECT_THAT(pages[Row("EUC-JP").encoding], ElementsAre(20932, 51932));
  EXPECT_EQ(Row("ASMO-708").encoding, Row("ISO-8859-6").encoding);
}

TEST(XRef, GivesTheNamedEncodingsTheirValues) {
  EXPECT_EQ(Row("UTF-8").encoding, 0);
  EXPECT_EQ(Row("UTF-16LE").encoding, 1);
  EXPECT_EQ(Row("UTF-16BE").encoding, 2);
  EXPECT_EQ(Row("UTF-16").encoding, 3);
  EXPECT_EQ(Row("UTF-32LE").encoding, 4);
  EXPECT_EQ(Row("UTF-32BE").encoding, 5);
  EXPECT_EQ(Row("UTF-32").encoding, 6);
  EXPECT_EQ(Row("ASCII").encoding, 7);
  for (int part = 1; part <= 10; part++) {
    EXPECT_EQ(Row("ISO-8859-" + std::to_string(part)).encoding, 7 + part);
  }
  EXPECT_EQ(STRING_ENCODING_ISO_8859_10, 17);
  for (int page = 1250; page <= 1258; page++) {
    EXPECT_EQ(Row("windows-" + std::to_string(page)).encoding, 34 + page - 1250);
  }
  EXPECT_EQ(STRING_ENCODING_WINDOWS_1258, 42);
  EXPECT_EQ(Row("ISO-10646-UCS-2").encoding, STRING_ENCODING_UCS2);
  EXPECT_EQ(Row("ISO-10646-UCS-4").encoding, STRING_ENCODING_UCS4);
}

TEST(XRef, NumbersTheOtherEncodingsByTheirRows) {
  int last = -1;
  for (const UnicodeXRef &row : xRef) {
    const int value = row.encoding;
    const bool isNamed = value <= 17 || (value >= 34 && value <= 42);
    if (isNamed || unicodeRowOfEncoding[value] != &row - xRef) {
      continue;
    }
    EXPECT_GT(value, last) << PrimaryName(row);
    last = value;
  }
  EXPECT_EQ(last, 315);
}

TEST(XRef, SupportsTheSetsThatAreTold) {
  std::set<std::string> supported;
  for (const UnicodeXRef &row : xRef) {
    if (row.isSupported) {
      supported.insert(PrimaryName(row));
    }
  }
  const std::vector<std::string> told = Words(kSupported);
  std::set<std::string> expected(told.begin(), told.end());
  // The second row of ISO-8859-6 goes with the first.
  expected.insert("ASMO-708");
  EXPECT_EQ(supported, expected);
}

TEST(XRef, HasTheTellingRows) {
  const UnicodeXRef &ascii = Row("ASCII");
  EXPECT_EQ(ascii.mibEnum, 3);
  EXPECT_EQ(ascii.windowsCodePage, 20127U);
  EXPECT_THAT(NamesOf(ascii),
              ElementsAre("ANSI_X3.4-1968", "iso-ir-6", "ANSI_X3.4-1986", "ISO_646.irv:1991", "ASCII",
                          "ISO646-US", "US-ASCII", "us", "IBM367", "cp367", "csASCII", "646", "ascii7"));
  const UnicodeXRef &latin1 = Row("ISO-8859-1");
  EXPECT_EQ(latin1.mibEnum, 4);
  EXPECT_EQ(latin1.windowsCodePage, 28591U);
  EXPECT_THAT(NamesOf(latin1),
              ElementsAre("ISO_8859-1:1987", "iso-ir-100", "ISO_8859-1", "ISO-8859-1", "latin1", "l1",
                          "IBM819", "CP819", "csISOLatin1", "8859_1", "819"));
  const UnicodeXRef &utf8 = Row("UTF-8");
  EXPECT_EQ(utf8.mibEnum, 106);
  EXPECT_EQ(utf8.windowsCodePage, 65001U);
  EXPECT_THAT(NamesOf(utf8), ElementsAre("UTF-8", "ibm-1208", "ibm-1209", "ibm-5304", "ibm-5305", "ibm-13496",
                                         "ibm-13497", "ibm-17592", "ibm-17593", "cp1208"));
  const UnicodeXRef &utf16 = Row("UTF-16LE");
  EXPECT_EQ(utf16.mibEnum, 1014);
  EXPECT_EQ(utf16.windowsCodePage, 1200U);
  EXPECT_THAT(NamesOf(utf16), ElementsAre("UTF-16LE", "x-utf-16le", "ibm-1202", "ibm-1203", "ibm-13490",
                                          "ibm-13491", "ibm-17586", "ibm-17587"));
  const UnicodeXRef &windows = Row("windows-1252");
  EXPECT_EQ(windows.mibEnum, -1);
  EXPECT_EQ(windows.windowsCodePage, 1252U);
  EXPECT_THAT(NamesOf(windows), ElementsAre("windows-1252", "ibm-5348_P100-1997", "ibm-5348", "cp1252"));
}

TEST(XRef, FollowsTheRegistryAndIcu) {
  EXPECT_EQ(Row("IBM037").mibEnum, 2028);
  EXPECT_EQ(Row("IBM037").windowsCodePage, 37U);
  const std::vector<std::string> names = NamesOf(Row("IBM037"));
  for (const char *name : {"cp037", "ebcdic-cp-us", "csIBM037", "ibm-37_P100-1995"}) {
    EXPECT_EQ(std::count(names.begin(), names.end(), name), 1) << name;
  }
  EXPECT_EQ(Row("KOI8-R").mibEnum, 2084);
  EXPECT_EQ(Row("KOI8-R").windowsCodePage, 20866U);
  EXPECT_EQ(Row("GB18030").windowsCodePage, 54936U);
  EXPECT_EQ(Row("windows-1250").mibEnum, 2250);
  EXPECT_EQ(Row("TIS-620").mibEnum, 2259);
  EXPECT_EQ(Row("Windows-57011").mibEnum, -1);
  EXPECT_EQ(Row("Windows-57011").windowsCodePage, 57011U);
  EXPECT_EQ(Row("ISO-2022-JP-1").mibEnum, -1);
}

TEST(XRef, GivesACodePageToOneRow) {
  std::set<uint32_t> pages;
  for (const UnicodeXRef &row : xRef) {
    if (row.windowsCodePage != kUnicodeNoCodePage) {
      EXPECT_TRUE(pages.insert(row.windowsCodePage).second) << PrimaryName(row);
    }
  }
}

TEST(XRef, HasWellFormedNames) {
  for (const UnicodeXRef &row : xRef) {
    const std::vector<std::string> names = NamesOf(row);
    EXPECT_LT(row.preferredMime, names.size());
    for (const std::string &name : names) {
      EXPECT_FALSE(Normalized(name).empty()) << PrimaryName(row);
      EXPECT_TRUE(std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c < 0x7F; })) << name;
      EXPECT_EQ(std::count(names.begin(), names.end(), name), 1) << name;
    }
  }
}

TEST(XRefIndex, HoldsEachNameInItsOrder) {
  std::set<std::pair<int, int>> seen;
  for (size_t i = 0; i < kUnicodeNames; i++) {
    const UnicodeNameReference &reference = unicodeNameIndex[i];
    ASSERT_LT(reference.row, kUnicodeXRefRows);
    ASSERT_LT(reference.name, NamesOf(xRef[reference.row]).size());
    EXPECT_TRUE(seen.emplace(reference.row, reference.name).second);
    if (i == 0) {
      continue;
    }
    const UnicodeNameReference &before = unicodeNameIndex[i - 1];
    const int order = Normalized(xRef[before.row].names[before.name])
                          .compare(Normalized(xRef[reference.row].names[reference.name]));
    EXPECT_TRUE(order < 0 ||
                (order == 0 && std::pair(before.row, before.name) < std::pair(reference.row, reference.name)))
        << i;
  }
  size_t names = 0;
  for (const UnicodeXRef &row : xRef) {
    names += NamesOf(row).size();
  }
  EXPECT_EQ(seen.size(), names);
}

TEST(XRefIndex, HasTheFirstRowOfEachEncoding) {
  for (int encoding = 0; encoding < 316; encoding++) {
    const auto *const first =
        std::find_if(std::begin(xRef), std::end(xRef),
                     [encoding](const UnicodeXRef &row) { return row.encoding == encoding; });
    EXPECT_EQ(unicodeRowOfEncoding[encoding], first - xRef) << encoding;
  }
}

// The sources are what the published facts give: the script that wrote them would write them again.
TEST(Tables, AreWhatTheirScriptWrites) {
  testhost::Host host;
  host.Directory("/t");
  host.Enter();
  const std::string folder = OST_SOURCE_DIR "/lib/unicode/";
  std::string output;
  ASSERT_EQ(testhost::Run("python3 -B " + folder + "unicodeTables.py --output /t", &output), 0) << output;
  for (const char *file : {"unicodeTable.cc", "unicodeCaseFoldTable.cc"}) {
    EXPECT_FALSE(testhost::ReadFile(folder + file).empty());
    EXPECT_EQ(testhost::ReadFile(std::string("/t/") + file), testhost::ReadFile(folder + file)) << file;
  }
}

// The protection of the page that the address lies in: "r--p" or the like.
std::string ProtectionOf(const void *address) {
  std::istringstream maps(testhost::ReadFile("/proc/self/maps"));
  std::string line;
  while (std::getline(maps, line)) {
    uintptr_t begin = 0;
    uintptr_t end = 0;
    char protection[5] = "";
    if (sscanf(line.c_str(), "%lx-%lx %4s", &begin, &end, protection) == 3 &&
        reinterpret_cast<uintptr_t>(address) >= begin && reinterpret_cast<uintptr_t>(address) < end) {
      return protection;
    }
  }
  return "";
}

TEST(Tables, AreConstantData) {
  EXPECT_EQ(ProtectionOf(xRef), "r--p");
  EXPECT_EQ(ProtectionOf(unicodeNameIndex), "r--p");
  EXPECT_EQ(ProtectionOf(unicodeRowOfEncoding), "r--p");
  EXPECT_EQ(ProtectionOf(unicodeCaseFoldPages), "r--p");
  EXPECT_EQ(ProtectionOf(unicodeCaseFoldPages[0]), "r--p");
}

TEST(CaseFold, HasThePagesThatAreTold) {
  std::vector<int> pages;
  for (int high = 0; high < 256; high++) {
    if (unicodeCaseFoldPages[high] != nullptr) {
      pages.push_back(high);
    }
  }
  EXPECT_THAT(pages,
              ElementsAre(0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x10, 0x1E, 0x1F, 0x21, 0x24, 0x2C, 0xFF));
}

TEST(CaseFold, FoldsSimply) {
  EXPECT_EQ(UnicodeSimpleCaseFold(0x41), 0x61);
  EXPECT_EQ(UnicodeSimpleCaseFold(0x61), 0x61);
  EXPECT_EQ(UnicodeSimpleCaseFold(0x3A3), 0x3C3);
  EXPECT_EQ(UnicodeSimpleCaseFold(0x3C2), 0x3C3);
  EXPECT_EQ(UnicodeSimpleCaseFold(0x2126), 0x3C9);
  EXPECT_EQ(UnicodeSimpleCaseFold(0x10A0), 0x2D00);
  EXPECT_EQ(UnicodeSimpleCaseFold(0x24B6), 0x24D0);
  EXPECT_EQ(UnicodeSimpleCaseFold(0x2C00), 0x2C30);
  EXPECT_EQ(UnicodeSimpleCaseFold(0xFF21), 0xFF41);
  EXPECT_EQ(UnicodeSimpleCaseFold(0xB5), 0x3BC);
}

TEST(CaseFold, LeavesTheRestAlone) {
  for (const int value : {0x130, 0x131, 0xDF, 0x1E9E, 0x30, 0xD801, 0xDC00, 0x4E00, 0xFFFF, 0}) {
    EXPECT_EQ(UnicodeSimpleCaseFold(static_cast<utf16_t>(value)), value);
  }
  // Newer than the folding's edition.
  EXPECT_EQ(UnicodeSimpleCaseFold(0x370), 0x370);
  EXPECT_EQ(UnicodeSimpleCaseFold(0xA640), 0xA640);
}

TEST(CaseFold, FoldsOnce) {
  for (uint32_t unit = 0; unit <= 0xFFFF; unit++) {
    const utf16_t folded = UnicodeSimpleCaseFold(static_cast<utf16_t>(unit));
    EXPECT_EQ(UnicodeSimpleCaseFold(folded), folded) << std::hex << unit;
  }
}

}  // namespace
