// Formats and their arguments as data: what a message says is kept until it is shown, maybe in other words.
//
//   MsgFmt_Arg *values;
//   int numValues;
//   char *error;
//   if (MsgFmt_GetArgs("%s has %d", args, &values, &numValues, &error)) {
//     const OwnedString text(MsgFmt_Asprintf(nullptr, "%2$d: %1$s", values, numValues));
//     MsgFmt_FreeArgs(values, numValues);
//   }
//
// The format language is that of str.h, but for these: a width or a precision is no argument, n, D, O and U
// don't exist, and neither does a floating-point value that is longer than a double. Either each specifier
// tells its position ("%1$s") or none does.
#ifndef OST_PUBLIC_MSGFMT_H
#define OST_PUBLIC_MSGFMT_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>

// ---- Arguments

enum MsgFmt_ArgType : int32_t {
  MSGFMT_ARG_INVALID,  // no specifier has claimed this position
  MSGFMT_ARG_INT32,
  MSGFMT_ARG_INT64,
  MSGFMT_ARG_PTR32,  // never made here
  MSGFMT_ARG_PTR64,
  MSGFMT_ARG_FLOAT64,
  MSGFMT_ARG_STRING8,   // an owned copy, or null
  MSGFMT_ARG_STRING16,  // never made here
  MSGFMT_ARG_STRING32,  // an owned copy, or null
  MSGFMT_ARG_ERRNO,     // an owned copy of the text of an error
};

// Where the code of a MSGFMT_ARG_ERRNO is from.
enum MsgFmt_ErrorKind : int32_t {
  MSGFMT_ERROR_NONE,
  MSGFMT_ERROR_ERRNO,
  MSGFMT_ERROR_WINDOWS,  // never made here
};

// One argument. Of a fixed size, so that an array is a block that can be copied and moved as one.
struct MsgFmt_Arg {
  MsgFmt_ArgType type;
  union {
    int32_t int32;
    int64_t int64;  // while swizzled, the offset of a string
    void *pointer;
    double float64;
    char *string8;
    wchar_t *string32;
  } value;
  MsgFmt_ErrorKind errorKind;
  int32_t errorCode;
  union {
    char *localString;  // if not null, printed in the place of a string or an error; borrowed
    int64_t precision;  // of a string, while formats are parsed; -1 for none
  };
};
static_assert(sizeof(MsgFmt_Arg) == 32);

// Takes the values that a format asks for from variable arguments, in the order of positions. Of a string no
// more is read and copied than the precisions of its specifiers allow. A string that Err_Errno2String gave
// becomes a MSGFMT_ARG_ERRNO; a copy of such a text does too, and is logged.
//
// outArgs, outNumArgs  get the values (MsgFmt_FreeArgs); null and 0 on failure
// outError             gets null, or on failure what is wrong (free)
//
// Returns whether it succeeded; an error that can't be told for want of memory stops the program.
bool MsgFmt_GetArgs(const char *format, va_list args, MsgFmt_Arg **outArgs, int *outNumArgs, char **outError);
// The same without the heap: the values, their strings and an error are in `buffer`, and none of them is
// freed. A buffer without room for the error stops the program.
//
// buffer           null to do as MsgFmt_GetArgs does
// inOutBufferSize  the size of `buffer`, and gets how much of it is used; not looked at without one
bool MsgFmt_GetArgsWithBuf(const char *format, va_list args, MsgFmt_Arg **outArgs, int *outNumArgs,
                           char **outError, void *buffer, size_t *inOutBufferSize);

void MsgFmt_FreeArgs(MsgFmt_Arg *args, int numArgs);
// Returns a deep copy (MsgFmt_FreeArgs), or null when memory is out. A wide string stops the program.
MsgFmt_Arg *MsgFmt_CopyArgs(const MsgFmt_Arg *args, int numArgs);

// Turn the pointers to strings into offsets from `args` and back, so that a block that holds both can move. A
// null pointer is the offset 0. The texts of errors stay pointers.
void MsgFmt_SwizzleArgs(MsgFmt_Arg *args, int numArgs);
void MsgFmt_UnswizzleArgs(MsgFmt_Arg *args, int numArgs);

// ---- Printing

// Prints values in a format, which needn't be the one that they were taken for, into a buffer. A string that
// is marked as a message is printed without marker and id.
//
// buffer  where the text goes; when it points to null it gets a new string (free), null on failure
// size    of the buffer that is given; a text that doesn't fit is cut behind size - 1 bytes
//
// Returns how many bytes the whole text takes without the NUL. Returns -1 when memory is out, a wide string
// is no text, or a specifier asks for a value that isn't there or is of another type.
int MsgFmt_Snprintf(char **buffer, size_t size, const char *format, const MsgFmt_Arg *args, int numArgs);
// The same into a new string (free), null on failure. `outLength`, if not null, gets its length.
char *MsgFmt_Asprintf(size_t *outLength, const char *format, const MsgFmt_Arg *args, int numArgs);

// ---- Parsing

constexpr int MSGFMT_OUT_OF_MEMORY = -1;
constexpr int MSGFMT_BAD_FORMAT = -2;

// Take the parts of a format in order: text, which may be empty, and specifiers. `position` are digits,
// `type` is what stands behind the "%" and the position, and neither ends in a NUL. A negative result ends
// the walk.
using MsgFmt_LiteralCallback = int (*)(void *clientData, const char *text, size_t length);
using MsgFmt_SpecifierCallback = int (*)(void *clientData, const char *position, size_t positionLength,
                                         const char *type, size_t typeLength);

// Walk a format, whose specifiers are "%s" or "%1$s", and in the Win32 form "%1" or "%1!s!". There "%n" and
// "%0" stop the program, and any other "%" with the byte behind it is text. Either callback may be null.
//
// Return 0, a callback's negative result, or MSGFMT_BAD_FORMAT.
int MsgFmt_Parse(MsgFmt_LiteralCallback literalCallback, MsgFmt_SpecifierCallback specifierCallback,
                 void *clientData, const char *format);
int MsgFmt_ParseWin32(MsgFmt_LiteralCallback literalCallback, MsgFmt_SpecifierCallback specifierCallback,
                      void *clientData, const char *format);

enum MsgFmt_Flags : unsigned {
  MSGFMT_FLAG_SPACE = 1,
  MSGFMT_FLAG_ALTERNATE = 2,  // #
  MSGFMT_FLAG_GROUP = 4,      // '
  MSGFMT_FLAG_PLUS = 8,
  MSGFMT_FLAG_LEFT = 16,  // -
  MSGFMT_FLAG_ZERO = 32,
};

// Reads what a specifier callback gets.
//
// outFlags                 gets a set of MsgFmt_Flags
// outWidth, outPrecision   get -1 for none
// outLengthModifier        gets one letter: h, l, L (also for ll, q and I64), j, t, z (also for Z and I), H
//                          for hh, or NUL for none and I32
// outConversion            gets the last byte, whatever it is
//
// Returns 0 or MSGFMT_BAD_FORMAT.
int MsgFmt_ParseSpec(const char *position, size_t positionLength, const char *type, size_t typeLength,
                     int *outPosition, unsigned *outFlags, int *outWidth, int *outPrecision,
                     char *outLengthModifier, char *outConversion);

#endif
