#!/usr/bin/env python3
"""Writes the tables of lib/unicode from the published facts.

  lib/unicode/unicodeTables.py [--output DIRECTORY]

The character sets' names, aliases and MIB numbers come from IANA's registry as libi18n-charset-perl carries
it, further aliases from ICU's converters (`uconv -l --canon`), and the case folding from the Unicode Character
Database (unicode-data). The rows, their order, their code pages and what is supported are this program's own
and stand below.
"""

import argparse
import os
import re
import subprocess

REGISTRY = '/usr/share/perl5/I18N/Charset.pm'
CASE_FOLDING = '/usr/share/unicode/CaseFolding.txt'
DERIVED_AGE = '/usr/share/unicode/DerivedAge.txt'
WIDTH = 110

# The primary name of each row. Three character sets have a second row for a second code page.
PRIMARY_NAMES = """
ASCII ISO-8859-1 ISO-8859-2 ISO-8859-3 ISO-8859-4 ISO-8859-5 ISO-8859-6 ASMO-708 ISO-8859-7 ISO-8859-8
ISO-8859-9 ISO-8859-10 ISO_6937-2-add JIS_X0201 JIS_Encoding Shift_JIS EUC-JP EUC-JP
Extended_UNIX_Code_Fixed_Width_for_Japanese BS_4730 SEN_850200_C IT ES DIN_66003 NS_4551-1 NF_Z_62-010
ISO-10646-UTF-1 ISO_646.basic:1983 INVARIANT ISO_646.irv:1983 NATS-SEFI NATS-SEFI-ADD NATS-DANO NATS-DANO-ADD
SEN_850200_B KS_C_5601-1987 ISO-2022-KR EUC-KR ISO-2022-JP ISO-2022-JP-1 ISO-2022-JP-2 JIS_C6220-1969-jp
JIS_C6220-1969-ro PT greek7-old latin-greek NF_Z_62-010_(1973) Latin-greek-1 ISO_5427 JIS_C6226-1978
BS_viewdata INIS INIS-8 INIS-cyrillic ISO_5427:1981 ISO_5428:1980 GB_1988-80 GB_2312-80 NS_4551-2
videotex-suppl PT2 ES2 MSZ_7795.3 JIS_C6226-1983 greek7 ASMO_449 iso-ir-90 JIS_C6229-1984-a JIS_C6229-1984-b
JIS_C6229-1984-b-add JIS_C6229-1984-hand JIS_C6229-1984-hand-add JIS_C6229-1984-kana ISO_2033-1983
ANSI_X3.110-1983 T.61-7bit T.61-8bit ECMA-cyrillic CSA_Z243.4-1985-1 CSA_Z243.4-1985-2 CSA_Z243.4-1985-gr
ISO-8859-6-E ISO-8859-6-I T.101-G2 ISO-8859-8-E ISO-8859-8-I CSN_369103 JUS_I.B1.002 IEC_P27-1
JUS_I.B1.003-serb JUS_I.B1.003-mac greek-ccitt NC_NC00-10:81 ISO_6937-2-25 GOST_19768-74 ISO_8859-supp
ISO_10367-box latin-lap JIS_X0212-1990 DS_2089 us-dk dk-us KSC5636 UNICODE-1-1-UTF-7 ISO-2022-CN
ISO-2022-CN-EXT UTF-8 ISO-8859-13 ISO-8859-14 ISO-8859-15 ISO-8859-15 ISO-8859-16 GBK GB18030
OSD_EBCDIC_DF04_15 OSD_EBCDIC_DF03_IRV OSD_EBCDIC_DF04_1 ISO-11548-1 KZ-1048 ISO-10646-UCS-2 ISO-10646-UCS-4
ISO-10646-UCS-Basic ISO-10646-Unicode-Latin1 ISO-10646-J-1 ISO-Unicode-IBM-1261 ISO-Unicode-IBM-1268
ISO-Unicode-IBM-1276 ISO-Unicode-IBM-1264 ISO-Unicode-IBM-1265 UNICODE-1-1 SCSU UTF-7 UTF-16BE UTF-16LE UTF-16
CESU-8 UTF-32 UTF-32BE UTF-32LE BOCU-1 ISO-8859-1-Windows-3.0-Latin-1 ISO-8859-1-Windows-3.1-Latin-1
ISO-8859-2-Windows-Latin-2 ISO-8859-9-Windows-Latin-5 hp-roman8 Adobe-Standard-Encoding Ventura-US
Ventura-International DEC-MCS IBM850 PC8-Danish-Norwegian IBM862 PC8-Turkish IBM-Symbols IBM-Thai HP-Legal
HP-Pi-font HP-Math8 Adobe-Symbol-Encoding HP-DeskTop Ventura-Math Microsoft-Publishing Windows-31J GB2312 Big5
macintosh IBM037 IBM038 IBM273 IBM274 IBM275 IBM277 IBM278 IBM280 IBM281 IBM284 IBM285 IBM290 IBM297 IBM420
IBM423 IBM424 IBM437 IBM500 IBM851 IBM852 IBM855 IBM857 IBM860 IBM861 IBM863 IBM864 IBM865 IBM868 IBM869
IBM870 IBM871 IBM880 IBM891 IBM903 IBM904 IBM905 IBM918 IBM1026 EBCDIC-AT-DE EBCDIC-AT-DE-A EBCDIC-CA-FR
EBCDIC-DK-NO EBCDIC-DK-NO-A EBCDIC-FI-SE EBCDIC-FI-SE-A EBCDIC-FR EBCDIC-IT EBCDIC-PT EBCDIC-ES EBCDIC-ES-A
EBCDIC-ES-S EBCDIC-UK EBCDIC-US UNKNOWN-8BIT MNEMONIC MNEM VISCII VIQR KOI8-R HZ-GB-2312 IBM866 IBM775 KOI8-U
IBM00858 IBM00924 IBM01140 IBM01141 IBM01142 IBM01143 IBM01144 IBM01145 IBM01146 IBM01147 IBM01148 IBM01149
Big5-HKSCS IBM1047 PTCP154 Amiga-1251 KOI7-switched BRF TSCII windows-1250 windows-1251 windows-1252
windows-1253 windows-1254 windows-1255 windows-1256 windows-1257 windows-1258 TIS-620 Windows-709 Windows-710
Windows-720 Windows-737 Windows-875 Windows-1361 Windows-10000 Windows-10001 Windows-10002 Windows-10003
Windows-10004 Windows-10005 Windows-10006 Windows-10007 Windows-10008 Windows-10010 Windows-10017
Windows-10021 Windows-10029 Windows-10079 Windows-10081 Windows-10082 Windows-20000 Windows-20001
Windows-20002 Windows-20003 Windows-20004 Windows-20005 Windows-20105 Windows-20106 Windows-20107
Windows-20108 Windows-20269 Windows-20833 Windows-20949 Windows-21025 Windows-21027 Windows-29001
Windows-38598 Windows-50221 Windows-50222 Windows-50229 Windows-50930 Windows-50931 Windows-50933
Windows-50935 Windows-50936 Windows-50937 Windows-50939 Windows-51936 Windows-51950 Windows-57002
Windows-57003 Windows-57004 Windows-57005 Windows-57006 Windows-57007 Windows-57008 Windows-57009
Windows-57010 Windows-57011
""".split()
SECOND_ROWS = {'ASMO-708': 'ISO-8859-6', 'ISO-8859-15': 'ISO-8859-15', 'EUC-JP': 'EUC-JP'}

# Microsoft's code page identifiers for the rows whose name doesn't tell: "windows-1252" and "Windows-20269" do.
CODE_PAGES = {
    'ASCII': [20127], 'ISO-8859-1': [28591], 'ISO-8859-2': [28592], 'ISO-8859-3': [28593], 'ISO-8859-4': [28594],
    'ISO-8859-5': [28595], 'ISO-8859-6': [28596], 'ASMO-708': [708], 'ISO-8859-7': [28597], 'ISO-8859-8': [28598],
    'ISO-8859-9': [28599], 'ISO-8859-13': [28603],
    # 874 is wanted here, though Thai is what it names elsewhere.
    'ISO-8859-15': [28605, 874],
    'EUC-JP': [20932, 51932], 'EUC-KR': [51949], 'ISO-2022-JP': [50220], 'ISO-2022-KR': [50225],
    'ISO-2022-CN': [50227], 'Windows-31J': [932], 'GBK': [936], 'KS_C_5601-1987': [949], 'Big5': [950],
    'GB_2312-80': [20936], 'HZ-GB-2312': [52936], 'GB18030': [54936], 'T.61-8bit': [20261], 'KOI8-R': [20866],
    'KOI8-U': [21866], 'UTF-16LE': [1200], 'UTF-16BE': [1201], 'UTF-32LE': [12000], 'UTF-32BE': [12001],
    'UTF-7': [65000], 'UTF-8': [65001], 'IBM-Thai': [20838], 'IBM00858': [858], 'IBM00924': [20924],
}
CODE_PAGES |= {f'IBM{page:03}': [page] for page in (
    37, 437, 500, 775, 850, 852, 855, 857, 860, 861, 862, 863, 864, 865, 866, 869, 870, 1026, 1047)}
CODE_PAGES |= {f'IBM{page:03}': [20000 + page] for page in (
    273, 277, 278, 280, 284, 285, 290, 297, 420, 423, 424, 871, 880, 905)}
CODE_PAGES |= {f'IBM{page:05}': [page] for page in range(1140, 1150)}

SUPPORTED = set("""
ASCII ISO-8859-1 ISO-8859-2 ISO-8859-3 ISO-8859-4 ISO-8859-5 ISO-8859-6 ASMO-708 ISO-8859-7 ISO-8859-8 ISO-8859-9
ISO-8859-10 ISO-8859-13 ISO-8859-14 ISO-8859-15 ISO-8859-6-E ISO-8859-6-I ISO-8859-8-E ISO-8859-8-I Shift_JIS
Windows-31J ISO_646.irv:1983 KS_C_5601-1987 UTF-8 UTF-7 CESU-8 UTF-16 UTF-16BE UTF-16LE UTF-32 UTF-32BE UTF-32LE
ISO-10646-UCS-2 ISO-10646-UCS-4 SCSU BOCU-1 GBK Big5 HZ-GB-2312 TIS-620 windows-1250 windows-1251 windows-1252
windows-1253 windows-1254 windows-1255 windows-1256 windows-1257 windows-1258 Windows-57002 Windows-57003
Windows-57004 Windows-57005 Windows-57006 Windows-57007 Windows-57008 Windows-57009 Windows-57010 Windows-57011
""".split())

# The values that are fixed; all others are the free numbers in the order of the rows.
ENCODINGS = {'UTF-8': 0, 'UTF-16LE': 1, 'UTF-16BE': 2, 'UTF-16': 3, 'UTF-32LE': 4, 'UTF-32BE': 5, 'UTF-32': 6,
             'ASCII': 7}
ENCODINGS |= {f'ISO-8859-{part}': 7 + part for part in range(1, 11)}
ENCODINGS |= {f'windows-{page}': 34 + page - 1250 for page in range(1250, 1259)}

# The names of these rows stand in an order of their own.
NAMES = {
    'ASCII': 'ANSI_X3.4-1968 iso-ir-6 ANSI_X3.4-1986 ISO_646.irv:1991 ASCII ISO646-US US-ASCII us IBM367 cp367 '
             'csASCII 646 ascii7'.split(),
    'UTF-16LE': 'UTF-16LE x-utf-16le ibm-1202 ibm-1203 ibm-13490 ibm-13491 ibm-17586 ibm-17587'.split(),
}
# Rows without the MIB number that the registry has.
WITHOUT_MIB = {'windows-1252'}
# The registry's names that no row takes: late ones that repeat the name.
OMITTED = re.compile(r'cs(utf|windows125)\w+', re.IGNORECASE)
# ICU's names that no row takes: those of code pages, and ones that mean a guess.
OMITTED_ALIASES = re.compile(r'windows-\d+|x?-?unicode-[12]-[01]-utf-8|x-UTF_8J|UnicodeBigUnmarked|'
                             r'x-JISAutoDetect|.*,.*', re.IGNORECASE)
# ICU has one converter where the rows are two: the row that takes these of its names.
ROW_OF_ALIAS = {'cp932': 'Windows-31J', 'ms932': 'Windows-31J', 'x-ms-cp932': 'Windows-31J',
                'x-MS932_0213': 'Windows-31J', 'ucs-2': 'ISO-10646-UCS-2', 'ucs-4': 'ISO-10646-UCS-4',
                'x-iscii-as': 'Windows-57006'}
MOST_NAMES = 19


def normalize(name):
    return re.sub(r'[^a-z0-9]', '', name.lower())


def read_registry():
    """The registry's character sets: (names, the main one first; MIB number)."""
    with open(REGISTRY, encoding='latin-1') as file:
        text = file.read()
    text = text[text.index('<registry xmlns='):]
    records = []
    for record in re.findall(r'<record[^>]*>(.*?)</record>', text, re.DOTALL):
        names = re.findall(r'<name>(.*?)</name>', record, re.DOTALL)
        names += re.findall(r'<alias>(.*?)</alias>', record, re.DOTALL)
        # A remark may stand behind an alias.
        names = list(dict.fromkeys(name.split()[0] for name in names))
        records.append((names, int(re.search(r'<value>(\d+)</value>', record).group(1))))
    return records


def read_converters():
    """ICU's converters: for each the (name, standards) in order, a standard's own name marked with a star."""
    lines = subprocess.run(['uconv', '-l', '--canon'], check=True, capture_output=True, text=True).stdout.splitlines()
    converters = []
    for line in lines[1:]:
        if not line.startswith('\t'):
            converters.append([])
        name, _, standards = line.strip().partition(' ')
        converters[-1].append((name, set(re.findall(r'[A-Z0-9]+\*?', standards))))
    return converters


def code_page(primary, nth):
    match = re.fullmatch(r'windows-(\d+)', primary, re.IGNORECASE)
    if match:
        return int(match.group(1))
    pages = CODE_PAGES.get(primary, [])
    return pages[nth] if nth < len(pages) else None


def make_rows():
    registry = read_registry()
    free = iter(sorted(set(range(len(PRIMARY_NAMES))) - set(ENCODINGS.values())))
    encodings = dict(ENCODINGS)
    rows = []
    for primary in PRIMARY_NAMES:
        nth = sum(row['primary'] == primary for row in rows)
        second = primary == 'ASMO-708' or nth > 0
        charset = SECOND_ROWS[primary] if second else primary
        if charset not in encodings:
            encodings[charset] = next(free)
        names, mib = next(((names, mib) for names, mib in registry if charset in names + ['ASCII'] * (mib == 3)),
                          ([primary], None))
        if second:
            names = [primary]
        rows.append({
            'primary': primary,
            'mib': None if primary in WITHOUT_MIB else mib,
            'page': code_page(primary, nth),
            'encoding': encodings[charset],
            'supported': primary in SUPPORTED,
            'names': NAMES.get(primary) or [name for name in names if name == primary or not OMITTED.fullmatch(name)],
            'second': second,
        })
    return rows


def row_of_converter(converter, rows):
    """The row that a converter's aliases go to: the one with the best standard's name for it."""
    wanted = [r'IANA\*', r'MIME\*', r'WINDOWS\*', r'[A-Z]+\*', r'IANA']
    for standard in wanted:
        names = {name.lower() for name, standards in converter if any(re.fullmatch(standard, s) for s in standards)}
        for row in rows:
            if not row['second'] and names & {name.lower() for name in row['names']}:
                return row
    return None


def add_icu_aliases(rows):
    by_primary = {row['primary']: row for row in rows if not row['second']}
    taken = {normalize(name) for row in rows for name in row['names']}
    served = set(NAMES)
    for converter in read_converters():
        row = row_of_converter(converter, rows)
        if row is None or row['primary'] in served:
            continue
        served.add(row['primary'])
        for name, _ in converter:
            if normalize(name) not in taken and not OMITTED_ALIASES.fullmatch(name):
                by_primary[ROW_OF_ALIAS.get(name, row['primary'])]['names'].append(name)
                taken.add(normalize(name))


def encoding_text(value):
    names = ['UTF8', 'UTF16_LE', 'UTF16_BE', 'UTF16_XE', 'UTF32_LE', 'UTF32_BE', 'UTF32_XE', 'US_ASCII']
    names += [f'ISO_8859_{part}' for part in range(1, 11)]
    if value < len(names):
        return f'STRING_ENCODING_{names[value]}'
    if 34 <= value <= 42:
        return f'STRING_ENCODING_WINDOWS_{1250 + value - 34}'
    return f'StringEncoding{{{value}}}'


def wrap(items, indent):
    """The items with commas between them, in lines of at most WIDTH columns."""
    lines = ['']
    for item in items:
        if lines[-1] and len(indent) + len(lines[-1]) + len(item) + 2 > WIDTH - 3:
            lines.append('')
        lines[-1] += (' ' if lines[-1] else '') + item + ','
    return f'\n{indent}'.join(lines).removesuffix(',')


def row_text(row):
    names = row['names']
    facts = ', '.join([
        'kNoMib' if row['mib'] is None else str(row['mib']),
        'kNoCodePage' if row['page'] is None else str(row['page']),
        encoding_text(row['encoding']), 'true' if row['supported'] else 'false', str(names.index(row['primary'])),
    ])
    text = wrap([f'"{name}"' for name in names], ' ' * 6)
    return f"    // {row['primary']}\n    {{{facts},\n     {{{text}}}}},\n"


def table_text(rows):
    order = sorted((normalize(name), r, n) for r, row in enumerate(rows) for n, name in enumerate(row['names']))
    rows_of_encodings = {}
    for r, row in enumerate(rows):
        rows_of_encodings.setdefault(row['encoding'], r)
    first_rows = wrap([str(rows_of_encodings[encoding]) for encoding in sorted(rows_of_encodings)], ' ' * 4)
    index = wrap([f'{{{r}, {n}}}' for _, r, n in order], ' ' * 4)
    return f"""// Written by unicodeTables.py.
//
// Names, aliases and MIB numbers follow IANA's registry of character sets, further aliases ICU's converters,
// code pages Microsoft's list of code page identifiers.
#include "unicodeTableInt.h"

namespace {{

constexpr int32_t kNoMib = -1;
constexpr uint32_t kNoCodePage = kUnicodeNoCodePage;

}}  // namespace

// clang-format off
const UnicodeXRef xRef[kUnicodeXRefRows] = {{
{''.join(row_text(row) for row in rows)}}};

const UnicodeNameReference unicodeNameIndex[kUnicodeNames] = {{
    {index},
}};

const uint16_t unicodeRowOfEncoding[STRING_ENCODING_COUNT] = {{
    {first_rows},
}};
// clang-format on
"""


def read_ages():
    """The code points that Unicode 5.0 has."""
    known = set()
    with open(DERIVED_AGE, encoding='utf-8') as file:
        for line in file:
            match = re.match(r'([0-9A-F]+)(?:\.\.([0-9A-F]+))?\s*;\s*(\d+)\.(\d+)', line)
            if match and (int(match.group(3)), int(match.group(4))) <= (5, 0):
                known.update(range(int(match.group(1), 16), int(match.group(2) or match.group(1), 16) + 1))
    return known


def read_folding():
    known = read_ages()
    folding = {}
    with open(CASE_FOLDING, encoding='utf-8') as file:
        for line in file:
            match = re.match(r'([0-9A-F]{4}); [CS]; ([0-9A-F]{4});', line)
            if match and int(match.group(1), 16) in known and int(match.group(2), 16) in known:
                folding[int(match.group(1), 16)] = int(match.group(2), 16)
    return folding


def page_text(high, folding):
    units = [f'0x{folding.get(unit, unit):04X}' for unit in range(high << 8, (high + 1) << 8)]
    lines = ''.join('    ' + ', '.join(units[i:i + 8]) + ',\n' for i in range(0, 256, 8))
    return f'constexpr utf16_t kPage{high:02X}[256] = {{\n{lines}}};\n'


def folding_text():
    folding = read_folding()
    pages = sorted({unit >> 8 for unit in folding})
    content = '\n'.join(page_text(high, folding) for high in pages)
    entries = [f'kPage{high:02X}' if high in pages else 'nullptr' for high in range(256)]
    lines = ''.join('    ' + ', '.join(entries[i:i + 8]) + ',\n' for i in range(0, 256, 8))
    return f"""// Written by unicodeTables.py.
//
// Simple case folding (CaseFolding.txt of the Unicode Character Database, status C and S) of what Unicode 5.0
// has in the Basic Multilingual Plane. A page without a folding is absent.
#include "unicodeCaseFoldInt.h"

// clang-format off
namespace {{

{content}
}}  // namespace

const utf16_t *const unicodeCaseFoldPages[256] = {{
{lines}}};
// clang-format on
"""


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('--output', default=os.path.dirname(os.path.abspath(__file__)))
    output = parser.parse_args().output
    rows = make_rows()
    add_icu_aliases(rows)
    assert max(len(row['names']) for row in rows) <= MOST_NAMES
    for name, text in (('unicodeTable.cc', table_text(rows)), ('unicodeCaseFoldTable.cc', folding_text())):
        with open(os.path.join(output, name), 'w', encoding='ascii') as file:
            file.write(text)


if __name__ == '__main__':
    main()
