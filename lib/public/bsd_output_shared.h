// What the printers of formats share: reading a conversion specification, printing a value as it asks, and
// the way of the text into the buffer. A printer adds where its values come from:
//
//   BsdOutput out;
//   BsdOutput_Init(&out, *outBuffer, size, format);
//   BsdOutput_Spec spec;
//   while ((format = BsdOutput_NextSpec(&out, format, &spec)) != nullptr) {
//     const BsdOutput_Value value = ...;  // the one at spec.position
//     BsdOutput_Print(&out, spec, value);
//   }
//   return BsdOutput_Finish(&out, outBuffer);
//
// The text goes through a vector of pieces, so that what is appended must stay until the vector is flushed,
// which is at BsdOutput_Finish at the latest. A failure is kept in `failed` and ends in -1.
#ifndef OST_PUBLIC_BSD_OUTPUT_SHARED_H
#define OST_PUBLIC_BSD_OUTPUT_SHARED_H

#include <cstddef>
#include <cstdint>

enum class BsdOutput_Length : uint8_t {
  NONE,
  CHAR,       // hh
  SHORT,      // h
  LONG,       // l
  LONG_LONG,  // ll, q, L, I64
  MAX,        // j
  PTRDIFF,    // t
  SIZE,       // z, Z, I
};

// How a value is passed; NONE when a specification takes none.
enum class BsdOutput_Kind : uint8_t { NONE, INT, LONG, LONG_LONG, POINTER, DOUBLE, LONG_DOUBLE };

// Where a width or a precision comes from: stated in the format, the next argument, or the argument at a
// position, counted from 1.
constexpr int BSDOUTPUT_STATED = -1;
constexpr int BSDOUTPUT_NEXT = 0;

// A conversion specification, as it stands in a format.
struct BsdOutput_Spec {
  int position = BSDOUTPUT_NEXT;  // of the value
  int widthFrom = BSDOUTPUT_STATED;
  int precisionFrom = BSDOUTPUT_STATED;
  int precision = -1;  // -1 when there is none
  size_t width = 0;
  bool left = false;       // -
  bool plus = false;       // +
  bool space = false;      // a blank
  bool alternate = false;  // #
  bool zero = false;       // 0
  bool group = false;      // '
  BsdOutput_Length length = BsdOutput_Length::NONE;
  BsdOutput_Kind kind = BsdOutput_Kind::NONE;
  char conversion = '\0';  // D, O, U, S and C have become d, o, u, s and c with the length "l"
};

// Where the next argument is for what tells no position, counted from 1.
class BsdOutput_Positions {
 public:
  // Of a width or a precision.
  int Of(int from) { return from == BSDOUTPUT_NEXT ? next_++ : from; }
  // Behind a value that tells its position the count goes on from there.
  int OfValue(int from) {
    const int position = from == BSDOUTPUT_NEXT ? next_ : from;
    next_ = position + 1;
    return position;
  }

 private:
  int next_ = 1;
};

// A long double is reduced to a double, an integer is widened with its sign.
union BsdOutput_Value {
  int64_t integer;
  double real;
  const void *pointer;
};

// The way into one buffer. All but `failed` is for the functions below alone.
struct BsdOutput {
  struct Piece {
    const char *text;
    size_t length;
  };
  static constexpr size_t kPieces = 8;
  // Holds the longest double, which has 309 digits before the point and 1074 behind it.
  static constexpr size_t kScratch = 2048;

  char *buffer;
  size_t capacity;  // of the buffer, without the NUL
  size_t used;      // of the buffer
  uint64_t total;   // bytes of the whole text that have left the vector, whether they fit or not
  bool growing;
  bool terminated;  // whether the buffer has room for the NUL
  bool failed;
  size_t numPieces;
  size_t scratchUsed;
  Piece pieces[kPieces];
  char scratch[kScratch];  // converted values that wait in the vector
};

// Starts a text.
//
// buffer  where it goes; null for a new buffer, whose first size follows the format's length
// size    of the buffer; with 0 nothing is written
void BsdOutput_Init(BsdOutput *out, char *buffer, size_t size, const char *format);
// Ends the text with a NUL.
//
// outBuffer  gets the new buffer (free), null on failure; a buffer that was given is left there
//
// Returns how many bytes the whole text takes without the NUL, or -1 when the print failed: then a buffer
// that was given holds what came before.
int BsdOutput_Finish(BsdOutput *out, char **outBuffer);

// Reads a specification from the byte behind its "%". Returns where it ends, or null when a number in it is
// none that an int or a position (1 to NL_ARGMAX) can be. The conversion is NUL when the format ends within.
const char *BsdOutput_ParseSpec(const char *text, BsdOutput_Spec *spec);
// Appends the text up to the next specification and reads that. Returns where it ends, null at the end of the
// format and when the print has failed.
const char *BsdOutput_NextSpec(BsdOutput *out, const char *format, BsdOutput_Spec *spec);
// Puts the values of arguments where the conversion asks for them; a negative width sets to the left, a
// negative precision is none.
void BsdOutput_SetWidth(BsdOutput_Spec *spec, int width);
void BsdOutput_SetPrecision(BsdOutput_Spec *spec, int precision);
// Whether a string or a character is wide.
inline bool BsdOutput_IsWide(const BsdOutput_Spec &spec) {
  return spec.length == BsdOutput_Length::LONG || spec.length == BsdOutput_Length::LONG_LONG ||
         spec.length == BsdOutput_Length::MAX;
}

// Appends a value, converted, with its padding. A wide character that is none fails the print.
void BsdOutput_Print(BsdOutput *out, const BsdOutput_Spec &spec, const BsdOutput_Value &value);

#endif
