#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "codesetUtfInt.h"
#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "owned.h"

namespace {

enum class Order { kLittle, kBig };
using Result = CodeSetUtf_Result;

constexpr Order kNativeOrder = std::endian::native == std::endian::little ? Order::kLittle : Order::kBig;

// Text is looked at in blocks where that much is left: one vector of the x86-64 baseline, and what the
// compiler makes of it elsewhere.
constexpr size_t kBlock = 16;
using Bytes [[gnu::vector_size(kBlock)]] = uint8_t;
using SignedBytes [[gnu::vector_size(kBlock)]] = int8_t;
using HalfBytes [[gnu::vector_size(kBlock / 2)]] = uint8_t;
using Units [[gnu::vector_size(kBlock)]] = uint16_t;
using HalfUnits [[gnu::vector_size(kBlock / 2)]] = uint16_t;
using Quads [[gnu::vector_size(kBlock)]] = uint32_t;
using Words [[gnu::vector_size(kBlock)]] = uint64_t;
using DoubleUnits [[gnu::vector_size(kBlock * 2)]] = uint16_t;

template <typename T>
T Load(const char *at) {
  T value;
  memcpy(&value, at, sizeof value);
  return value;
}

template <typename T>
char *Store(const T &value, char *out) {
  memcpy(out, &value, sizeof value);
  return out + sizeof value;
}

char *StoreByte(uint32_t value, char *out) {
  return Store(static_cast<uint8_t>(value), out);
}

uint8_t LoadByte(const char *at) {
  return Load<uint8_t>(at);
}

template <Order order>
uint32_t LoadUnit(const char *at) {
  const auto unit = Load<uint16_t>(at);
  return order == kNativeOrder ? unit : __builtin_bswap16(unit);
}

char *StoreUnitLe(uint32_t value, char *out) {
  const auto unit = static_cast<uint16_t>(value);
  return Store(kNativeOrder == Order::kLittle ? unit : __builtin_bswap16(unit), out);
}

template <Order order, typename T>
void SetOrder(T &units) {
  if constexpr (order != kNativeOrder) {
    units = units << 8 | units >> 8;
  }
}

template <typename T, Order order>
T LoadUnits(const char *at) {
  auto units = Load<T>(at);
  SetOrder<order>(units);
  return units;
}

// A bit for each byte that has its top bit set, the first byte's lowest.
uint32_t TopBits(Bytes bytes) {
#ifdef __SSE2__
  return static_cast<uint32_t>(_mm_movemask_epi8(std::bit_cast<__m128i>(bytes)));
#else
  uint32_t bits = 0;
  for (size_t i = 0; i < kBlock; i++) {
    bits |= uint32_t{bytes[i]} >> 7 << i;
  }
  return bits;
#endif
}

// How many bytes stand before the first with its top bit set; kBlock when there is none.
size_t BeforeTopBit(Bytes bytes) {
  return static_cast<size_t>(std::countr_zero(TopBits(bytes) | 1U << kBlock));
}

bool IsThreeBytes(uint32_t codePoint) {
  const uint32_t upper = codePoint & 0xF800;
  return upper != 0 && upper != 0xD800;
}

// Whether each is a code point that has three bytes in UTF-8, given that none is above U+FFFF.
bool AllThreeBytes(Quads codePoints) {
  const Quads upper = codePoints & 0xF800;
  return TopBits(std::bit_cast<Bytes>((upper == 0) | (upper == 0xD800))) == 0;
}

// The lanes of a counter are summed before they can overflow: each step adds at most 2 to one of 8 bits, and
// 3 to one of 16.
constexpr size_t kStepsOfBytes = 0xFF / 2;
constexpr size_t kStepsOfUnits = 0xFFFF / 3;

// The lanes of each of these are added by their neighbours, until one is left.
size_t SumOfUnits(Units counts) {
  const auto pairs = std::bit_cast<Words>(counts);
  const Words sums = (pairs & 0xFFFF) + (pairs >> 16 & 0xFFFF) + (pairs >> 32 & 0xFFFF) + (pairs >> 48);
  return sums[0] + sums[1];
}

size_t SumOfBytes(Bytes counts) {
  const auto units = std::bit_cast<Units>(counts);
  return SumOfUnits((units & 0xFF) + (units >> 8));
}

// What each byte of well-formed UTF-8 stands for in UTF-16: a unit for one that begins a sequence, and one
// more for one that begins a sequence of four.
Bytes UnitsOfEach(Bytes bytes) {
  const auto begins = std::bit_cast<SignedBytes>(bytes) > static_cast<int8_t>(0xBF);
  return -std::bit_cast<Bytes>(begins) - std::bit_cast<Bytes>(bytes >= 0xF0);
}

// What each unit of well-formed UTF-16 has in UTF-8: one to three bytes, and two for each half of a pair.
Units BytesOfEach(Units units) {
  const auto isSurrogate = std::bit_cast<Units>((units & 0xF800) == 0xD800);
  return 1 - std::bit_cast<Units>(units > 0x7F) - std::bit_cast<Units>(units > 0x7FF) + isSurrogate;
}

// All bits in the last `size` bytes of a block.
Bytes LastBytes(size_t size) {
  static constexpr char kNoneAndAll[2 * kBlock + 1] =
      "\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"
      "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF";
  return Load<Bytes>(kNoneAndAll + size);
}

// The size of well-formed UTF-8 in UTF-16.
size_t Utf16Size(const char *text, size_t size) {
  const char *const end = text + size;
  size_t units = 0;
  while (static_cast<size_t>(end - text) >= kBlock) {
    Bytes counts = {};
    const size_t steps = std::min(static_cast<size_t>(end - text) / kBlock, kStepsOfBytes);
    for (size_t i = 0; i < steps; i++, text += kBlock) {
      counts += UnitsOfEach(Load<Bytes>(text));
    }
    units += SumOfBytes(counts);
  }
  if (size >= kBlock) {
    const auto last = UnitsOfEach(Load<Bytes>(end - kBlock));
    units += SumOfBytes(last & LastBytes(static_cast<size_t>(end - text)));
    text = end;
  }
  for (; text < end; text++) {
    units += size_t{(LoadByte(text) & 0xC0) != 0x80} + size_t{LoadByte(text) >= 0xF0};
  }
  return units * sizeof(uint16_t);
}

// The size of well-formed UTF-16 in UTF-8.
template <Order order>
size_t Utf8Size(const char *text, size_t size) {
  const char *const end = text + size;
  size_t bytes = 0;
  while (static_cast<size_t>(end - text) >= kBlock) {
    Units counts = {};
    const size_t steps = std::min(static_cast<size_t>(end - text) / kBlock, kStepsOfUnits);
    for (size_t i = 0; i < steps; i++, text += kBlock) {
      counts += BytesOfEach(LoadUnits<Units, order>(text));
    }
    bytes += SumOfUnits(counts);
  }
  if (size >= kBlock) {
    const auto last = BytesOfEach(LoadUnits<Units, order>(end - kBlock));
    bytes += SumOfUnits(last & std::bit_cast<Units>(LastBytes(static_cast<size_t>(end - text))));
    text = end;
  }
  for (; text < end; text += sizeof(uint16_t)) {
    const uint32_t unit = LoadUnit<order>(text);
    bytes += size_t{1} + size_t{unit > 0x7F} + size_t{unit > 0x7FF} - size_t{(unit & 0xF800) == 0xD800};
  }
  return bytes;
}

// The first byte is the lowest.
uint32_t LoadFour(const char *at) {
  const auto four = Load<uint32_t>(at);
  return kNativeOrder == Order::kLittle ? four : __builtin_bswap32(four);
}

void StoreFour(uint32_t four, char *out) {
  Store(kNativeOrder == Order::kLittle ? four : __builtin_bswap32(four), out);
}

// The same at the end of a text: NULs stand behind it, which complete no sequence.
uint32_t LoadFour(const char *at, const char *end) {
  if (end - at >= 4) [[likely]] {
    return LoadFour(at);
  }
  uint32_t four = 0;
  while (end > at) {
    four = four << 8 | LoadByte(--end);
  }
  return four;
}

struct Sequence {
  uint32_t codePoint;
  size_t length;  // 0 when it is malformed
};

// The sequence beyond ASCII that four bytes begin with.
//
// The masks test the lead byte and the continuations at once. Overlong sequences have none of the bits that
// their length is for: of a lead byte with two bytes its upper four, with three bytes its four and the second
// byte's highest. Surrogates are the three bytes that begin with 1101 1.
inline Sequence Decode(uint32_t four) {
  constexpr Sequence kMalformed = {0, 0};
  if ((four & 0xC0C0F0) == 0x8080E0) {
    const uint32_t highest = four & 0x200F;
    const uint32_t codePoint = (four & 0x0F) << 12 | (four >> 2 & 0xFC0) | (four >> 16 & 0x3F);
    return highest == 0 || highest == 0x200D ? kMalformed : Sequence{codePoint, 3};
  }
  if ((four & 0xC0E0) == 0x80C0) {
    return (four & 0x1E) == 0 ? kMalformed : Sequence{(four & 0x1F) << 6 | (four >> 8 & 0x3F), 2};
  }
  if ((four & 0xC0C0C0F8) == 0x808080F0) {
    const uint32_t codePoint =
        (four & 0x07) << 18 | (four << 4 & 0x3F000) | (four >> 10 & 0xFC0) | (four >> 24 & 0x3F);
    return codePoint < 0x10000 || codePoint > 0x10FFFF ? kMalformed : Sequence{codePoint, 4};
  }
  return kMalformed;
}

// Text is converted in stripes of so many units. What a stripe's last block and last character reach beyond
// it is there to be read and to be written on.
constexpr size_t kStripe = 64;
constexpr size_t kStripeAndBeyond = kStripe + kBlock;

// The two forms that text is converted from. In both a unit is ASCII or a part of something else, and
// four characters of three bytes in UTF-8, as in Chinese, Japanese and Korean, make a run.

struct FromUtf8 {
  static constexpr size_t kUnitSize = 1;
  static constexpr size_t kAsciiSize = 2;  // of an ASCII character in the target
  static constexpr size_t kLargest = 2;    // of what a unit becomes
  static constexpr size_t kRun = 12;       // units

  static size_t TargetSize(const char *text, size_t size) { return Utf16Size(text, size); }

  // A bit for each unit of a block, the first unit's lowest.
  static uint32_t BeyondAscii(const char *text) { return TopBits(Load<Bytes>(text)); }

  static bool CopyAscii(const char *text, char *&out) {
    const uint8_t byte = LoadByte(text);
    if (byte >= 0x80) {
      return false;
    }
    out = StoreUnitLe(byte, out);
    return true;
  }

  // Writes what the units of a block become if they are ASCII.
  static void CopyBlock(const char *text, char *out) {
    auto units = __builtin_convertvector(Load<Bytes>(text), DoubleUnits);
    SetOrder<Order::kLittle>(units);
    Store(units, out);
  }

  // Returns false when it is no run.
  static bool ConvertRun(const char *text, char *&out) {
    const Quads fours = {LoadFour(text), LoadFour(text + 3), LoadFour(text + 6), LoadFour(text + 9)};
    const Quads codePoints = (fours & 0x0F) << 12 | (fours >> 2 & 0xFC0) | (fours >> 16 & 0x3F);
    const auto isOther = std::bit_cast<Bytes>((fours & 0xC0C0F0) != 0x8080E0);
    if (TopBits(isOther) != 0 || !AllThreeBytes(codePoints)) {
      return false;
    }
    auto units = __builtin_convertvector(codePoints, HalfUnits);
    SetOrder<Order::kLittle>(units);
    out = Store(units, out);
    return true;
  }

  // Converts a character beyond ASCII, or a run where more than kRun units are left. Returns how many units
  // that were, 0 when there is malformed text.
  [[gnu::always_inline]] static size_t Convert(const char *text, const char *end, bool mayBeRun, char *&out) {
    if (mayBeRun && (LoadByte(text) & 0xF0) == 0xE0 && ConvertRun(text, out)) {
      return kRun;
    }
    const Sequence sequence = Decode(LoadFour(text, end));
    uint32_t unit = sequence.codePoint;
    if (unit >= 0x10000) {
      out = StoreUnitLe(0xD7C0 + (unit >> 10), out);
      unit = 0xDC00 | (unit & 0x3FF);
    }
    out = StoreUnitLe(unit, out);
    return sequence.length;
  }
};

template <Order order>
struct FromUtf16 {
  static constexpr size_t kUnitSize = 2;
  static constexpr size_t kAsciiSize = 1;
  static constexpr size_t kLargest = 3;
  static constexpr size_t kRun = 4;

  static size_t TargetSize(const char *text, size_t size) { return Utf8Size<order>(text, size); }

  static uint32_t BeyondAscii(const char *text) {
    const auto first = std::bit_cast<Bytes>(LoadUnits<Units, order>(text) > 0x7F);
    const auto second = std::bit_cast<Bytes>(LoadUnits<Units, order>(text + kBlock) > 0x7F);
    return TopBits(
        __builtin_shufflevector(first, second, 0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30));
  }

  static bool CopyAscii(const char *text, char *&out) {
    const uint32_t unit = LoadUnit<order>(text);
    if (unit >= 0x80) {
      return false;
    }
    out = StoreByte(unit, out);
    return true;
  }

  static void CopyBlock(const char *text, char *out) {
    out = Store(__builtin_convertvector(LoadUnits<Units, order>(text), HalfBytes), out);
    Store(__builtin_convertvector(LoadUnits<Units, order>(text + kBlock), HalfBytes), out);
  }

  // Three bytes, the first lowest, for each code point from U+0800 to U+FFFF.
  template <typename T>
  static T ThreeBytes(T codePoints) {
    return 0x8080E0 | codePoints >> 12 | (codePoints << 2 & 0x3F00) | (codePoints << 16 & 0x3F0000);
  }

  static bool ConvertRun(const char *text, char *&out) {
    const auto codePoints = __builtin_convertvector(LoadUnits<HalfUnits, order>(text), Quads);
    if (!AllThreeBytes(codePoints)) {
      return false;
    }
    const Quads bytes = ThreeBytes(codePoints);
    for (size_t i = 0; i < kRun; i++, out += 3) {
      StoreFour(bytes[i], out);
    }
    return true;
  }

  [[gnu::always_inline]] static size_t Convert(const char *text, const char *end, bool mayBeRun, char *&out) {
    const uint32_t unit = LoadUnit<order>(text);
    if (unit < 0x800) {
      out = StoreByte(0xC0 | unit >> 6, out);
      out = StoreByte(0x80 | (unit & 0x3F), out);
      return 1;
    }
    if (IsThreeBytes(unit)) {
      if (mayBeRun && ConvertRun(text, out)) {
        return kRun;
      }
      StoreFour(ThreeBytes(unit), out);
      out += 3;
      return 1;
    }
    const uint32_t low = end - text >= 4 ? LoadUnit<order>(text + kUnitSize) : 0;
    if (unit >= 0xDC00 || (low & 0xFC00) != 0xDC00) {
      return 0;
    }
    const uint32_t codePoint = 0x10000 + ((unit & 0x3FF) << 10 | (low & 0x3FF));
    StoreFour(0x808080F0 | codePoint >> 18 | (codePoint >> 4 & 0x3F00) | (codePoint << 10 & 0x3F0000) |
                  (codePoint << 24 & 0x3F000000),
              out);
    out += 4;
    return 2;
  }
};

// Converts a stripe at `text`, and all of its last character, to `out`. All that isn't ASCII is marked at
// once, because in mixed text each look for the next would wait for the one before. Returns how many units
// were converted, 0 when there is malformed text.
template <typename From>
size_t TranscodeStripe(const char *text, char *&out) {
  constexpr uint64_t kRunMarks = (uint64_t{1} << From::kRun) - 1;
  const char *const end = text + kStripeAndBeyond * From::kUnitSize;
  uint64_t marks = 0;
  for (size_t i = 0; i < kStripe; i += kBlock) {
    marks |= uint64_t{From::BeyondAscii(text + i * From::kUnitSize)} << i;
  }
  size_t at = 0;
  while (at < kStripe) {
    const uint64_t rest = marks >> at;
    const size_t ascii = rest == 0 ? kStripe - at : static_cast<size_t>(std::countr_zero(rest));
    for (size_t i = 0; i < ascii; i += kBlock) {
      From::CopyBlock(text + (at + i) * From::kUnitSize, out + i * From::kAsciiSize);
    }
    out += ascii * From::kAsciiSize;
    at += ascii;
    // A single ASCII character, like a space, is no reason to leave.
    while (at < kStripe && (marks >> at & 3) != 0) {
      const char *const character = text + at * From::kUnitSize;
      const bool mayBeRun = (marks >> at & kRunMarks) == kRunMarks;
      const size_t units = From::CopyAscii(character, out) ? 1 : From::Convert(character, end, mayBeRun, out);
      if (units == 0) {
        return 0;
      }
      at += units;
    }
  }
  return at;
}

// Converts `size` bytes at `text` to `out`, which has `room` for just what the text needs when it is
// well-formed, and for the terminator: no more of malformed text is converted than that. Returns whether the
// text is well-formed.
template <typename From>
bool Transcode(const char *text, size_t size, char *out, size_t room) {
  const char *const end = text + size;
  const char *const outEnd = out + room;
  constexpr size_t kBlockSize = kBlock * From::kUnitSize;
  constexpr size_t kBlockRoom = kBlock * From::kAsciiSize;
  while (static_cast<size_t>(end - text) >= kBlockSize && static_cast<size_t>(outEnd - out) >= kBlockRoom &&
         From::BeyondAscii(text) == 0) {
    From::CopyBlock(text, out);
    text += kBlockSize;
    out += kBlockRoom;
  }
  while (static_cast<size_t>(end - text) >= kStripeAndBeyond * From::kUnitSize &&
         static_cast<size_t>(outEnd - out) >= kStripeAndBeyond * From::kLargest) {
    const size_t units = TranscodeStripe<From>(text, out);
    if (units == 0) {
      return false;
    }
    text += units * From::kUnitSize;
  }
  while (text < end) {
    const bool mayBeRun = static_cast<size_t>(end - text) > From::kRun * From::kUnitSize;
    const size_t units = From::CopyAscii(text, out) ? 1 : From::Convert(text, end, mayBeRun, out);
    if (units == 0) {
      return false;
    }
    text += units * From::kUnitSize;
  }
  return true;
}

// Marks the bytes of a block that can't stand where they stand. The three bytes before the block are there,
// and tell with it which must continue a sequence.
Bytes WrongBytes(const char *at) {
  const auto bytes = Load<Bytes>(at);
  const auto before = Load<Bytes>(at - 1);
  const auto isContinuation = (bytes & 0xC0) == 0x80;
  const auto mustContinue = (before >= 0xC0) | (Load<Bytes>(at - 2) >= 0xE0) | (Load<Bytes>(at - 3) >= 0xF0);
  const auto isOverlong =
      ((bytes & 0xFE) == 0xC0) | ((before == 0xE0) & (bytes < 0xA0)) | ((before == 0xF0) & (bytes < 0x90));
  const auto isSurrogate = (before == 0xED) & (bytes > 0x9F);
  const auto isTooHigh = (bytes > 0xF4) | ((before == 0xF4) & (bytes > 0x8F));
  return std::bit_cast<Bytes>((isContinuation ^ mustContinue) | isOverlong | isSurrogate | isTooHigh);
}

// How many bytes of a sequence there are behind its first.
constexpr size_t kLongestTail = 3;
// Text of this size is worth a check by blocks.
constexpr size_t kWorthBlocks = 3 * kBlock;

// Where the well-formed whole blocks from `at` on end, before their last character, which may go on behind
// them. There are kLongestTail bytes before `at`, where a character begins.
const char *SkipWellFormedBlocks(const char *at, const char *end) {
  const char *const start = at;
  while (static_cast<size_t>(end - at) >= kBlock) {
    const bool isAscii = TopBits(Load<Bytes>(at) | Load<Bytes>(at - kLongestTail)) == 0;
    if (!isAscii && TopBits(WrongBytes(at)) != 0) {
      break;
    }
    at += kBlock;
  }
  if (at != start) {
    do {
      at--;
    } while ((LoadByte(at) & 0xC0) == 0x80);
  }
  return at;
}

// Where the characters from `at` on end, or the first that begins at `stop` or behind it begins.
const char *SkipCharacters(const char *at, const char *stop, const char *end) {
  while (at < stop) {
    const size_t length = LoadByte(at) < 0x80 ? 1 : Decode(LoadFour(at, end)).length;
    if (length == 0) {
      return at;
    }
    at += length;
  }
  return at;
}

template <typename From>
Result Append(const char *text, size_t size, DynBuf *buf) {
  if (text == nullptr) {
    size = 0;
  }
  if (size % From::kUnitSize != 0) {
    return Result::kMalformed;
  }
  const size_t needed = From::TargetSize(text, size);
  if (!CodeSetUtf_Reserve(buf, needed + kCodeSetTerminator)) {
    return Result::kNoMemory;
  }
  if (!Transcode<From>(text, size, buf->data + buf->size, needed)) {
    return Result::kMalformed;
  }
  buf->size += needed;
  return Result::kDone;
}

Result CopyUtf8(const char *text, size_t size, DynBuf *buf) {
  if (!CodeSetUtf_IsUtf8(text, size)) {
    return Result::kMalformed;
  }
  const bool copied = CodeSetUtf_Reserve(buf, size + kCodeSetTerminator) && DynBuf_Append(buf, text, size);
  return copied ? Result::kDone : Result::kNoMemory;
}

template <typename From>
bool ConvertToNew(const char *text, size_t size, char **bufOut, size_t *sizeOut) {
  if (text == nullptr) {
    size = 0;
  }
  const size_t whole = size - size % From::kUnitSize;
  const size_t needed = From::TargetSize(text, whole);
  OwnedString block(static_cast<char *>(malloc(needed + kCodeSetTerminator)));
  const bool ok = block != nullptr && whole == size && Transcode<From>(text, size, block.get(), needed);
  if (ok) {
    memset(block.get() + needed, 0, kCodeSetTerminator);
  }
  if (sizeOut != nullptr) {
    *sizeOut = ok ? needed : 0;
  }
  *bufOut = ok ? block.release() : nullptr;
  return ok;
}

}  // namespace

size_t CodeSetUtf_AsciiLength(const char *text, size_t size) {
  const char *at = text;
  const char *const end = text + size;
  while (end - at >= static_cast<ptrdiff_t>(kBlock)) {
    const size_t ascii = BeforeTopBit(Load<Bytes>(at));
    if (ascii != kBlock) {
      return static_cast<size_t>(at - text) + ascii;
    }
    at += kBlock;
  }
  while (at < end && LoadByte(at) < 0x80) {
    at++;
  }
  return static_cast<size_t>(at - text);
}

size_t CodeSetUtf_SequenceLength(const char *text, size_t size) {
  const char *const stop = text + std::min<size_t>(size, 1);
  return static_cast<size_t>(SkipCharacters(text, stop, text + size) - text);
}

bool CodeSetUtf_IsUtf8(const char *text, size_t size) {
  const char *const end = text + size;
  const char *at = text + CodeSetUtf_AsciiLength(text, size);
  if (static_cast<size_t>(end - at) >= kWorthBlocks) {
    at = SkipCharacters(at, text + kLongestTail, end);
    at = static_cast<size_t>(at - text) < kLongestTail ? at : SkipWellFormedBlocks(at, end);
  }
  return SkipCharacters(at, end, end) == end;
}

bool CodeSetUtf_Reserve(DynBuf *buf, size_t extra) {
  size_t needed = 0;
  if (__builtin_add_overflow(buf->size, extra, &needed)) {
    return false;
  }
  if (needed <= buf->allocated) {
    return true;
  }
  return buf->allocated == 0 ? DynBuf_Realloc(buf, needed) : DynBuf_Enlarge(buf, needed);
}

Result CodeSetUtf_Utf8ToUtf16leDb(const char *text, size_t size, DynBuf *buf) {
  return Append<FromUtf8>(text, size, buf);
}

Result CodeSetUtf_Utf16leToUtf8Db(const char *text, size_t size, DynBuf *buf) {
  return Append<FromUtf16<Order::kLittle>>(text, size, buf);
}

bool CodeSetUtf_Utf8ToUtf16le(const char *text, size_t size, char **bufOut, size_t *sizeOut) {
  return ConvertToNew<FromUtf8>(text, size, bufOut, sizeOut);
}

bool CodeSetUtf_Utf16leToUtf8(const char *text, size_t size, char **bufOut, size_t *sizeOut) {
  return ConvertToNew<FromUtf16<Order::kLittle>>(text, size, bufOut, sizeOut);
}

bool CodeSetUtf_Utf16beToUtf8(const char *text, size_t size, char **bufOut, size_t *sizeOut) {
  return ConvertToNew<FromUtf16<Order::kBig>>(text, size, bufOut, sizeOut);
}

Result CodeSetUtf_Convert(const char *codeIn, const char *text, size_t size, const char *codeOut,
                          DynBuf *buf) {
  if (codeIn == nullptr || text == nullptr || codeOut == nullptr) {
    return Result::kOther;
  }
  if (strcmp(codeIn, "UTF-16LE") == 0 && strcmp(codeOut, "UTF-8") == 0) {
    return CodeSetUtf_Utf16leToUtf8Db(text, size, buf);
  }
  if (strcmp(codeIn, "UTF-8") != 0) {
    return Result::kOther;
  }
  if (strcmp(codeOut, "UTF-16LE") == 0) {
    return CodeSetUtf_Utf8ToUtf16leDb(text, size, buf);
  }
  return strcmp(codeOut, "UTF-8") == 0 ? CopyUtf8(text, size, buf) : Result::kOther;
}
