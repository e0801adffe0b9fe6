// Arguments of formats: taken, copied, moved and freed.

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>

#include "err.h"
#include "log.h"
#include "msgfmt.h"
#include "msgfmtInt.h"
#include "panicUser.h"
#include "str.h"

namespace {

constexpr int kLeastRecords = 4;

int AsInt(size_t length) {
  return static_cast<int>(std::min<size_t>(length, INT_MAX));
}

// ---- Memory

// Room in the buffer, or null when that is used up.
void *TakeFromBuffer(MsgFmtParseState *state, size_t size, size_t alignment) {
  void *room = state->bufPtr;
  auto left = static_cast<size_t>(state->bufEnd - state->bufPtr);
  if (std::align(alignment, size, room, left) == nullptr) {
    return nullptr;
  }
  state->bufPtr = static_cast<char *>(room) + size;
  return room;
}

void *Take(MsgFmtParseState *state, size_t size, size_t alignment) {
  return state->buf == nullptr ? malloc(size) : TakeFromBuffer(state, size, alignment);
}

bool IsOwned(MsgFmt_ArgType type) {
  return type >= MSGFMT_ARG_STRING8 && type <= MSGFMT_ARG_ERRNO;
}

void FreeStrings(const MsgFmt_Arg *args, int numArgs) {
  for (int i = 0; i < numArgs; i++) {
    if (IsOwned(args[i].type)) {
      free(args[i].value.pointer);
    }
  }
}

// Its records aren't looked at, which are many in the gap before a large position.
void GiveUpTable(MsgFmtParseState *state) {
  if (state->buf == nullptr) {
    free(state->args);
  }
  state->args = nullptr;
  state->numArgs = 0;
}

// Gives up the table, which holds no strings, and keeps what is wrong.
[[gnu::format(printf, 2, 3)]] void SetError(MsgFmtParseState *state, const char *format, ...) {
  ASSERT(state->error == nullptr);
  GiveUpTable(state);
  va_list args;
  va_start(args, format);
  if (state->buf == nullptr) {
    state->error = Str_Vasprintf(nullptr, format, args);
    ASSERT_MEM_ALLOC(state->error != nullptr);
  } else {
    const int length =
        Str_Vsnprintf(state->buf, static_cast<size_t>(state->bufEnd - state->buf), format, args);
    ASSERT_MEM_ALLOC(length >= 0);
    state->error = state->buf;
    state->bufPtr = state->buf + length + 1;
  }
  va_end(args);
}

// ---- Claiming positions

// Nothing but the table is in the buffer yet, so that it grows where it is.
bool GrowInBuffer(MsgFmtParseState *state, int capacity) {
  const auto added = static_cast<size_t>(capacity - state->maxArgs);
  auto *room =
      static_cast<MsgFmt_Arg *>(TakeFromBuffer(state, added * sizeof(MsgFmt_Arg), alignof(MsgFmt_Arg)));
  if (room == nullptr) {
    return false;
  }
  std::fill_n(room, added, MsgFmt_Arg{});
  if (state->args == nullptr) {
    state->args = room;
  }
  return true;
}

// A table of records that nobody has claimed, or null. The heap is slower to give zeros than bytes; only of
// what it maps anew it has zeros, whose pages are never touched in the gap before a large position.
MsgFmt_Arg *NewTable(int capacity) {
  constexpr int kFew = 1024;
  const auto count = static_cast<size_t>(capacity);
  if (capacity > kFew) {
    return static_cast<MsgFmt_Arg *>(calloc(count, sizeof(MsgFmt_Arg)));
  }
  auto *table = static_cast<MsgFmt_Arg *>(malloc(count * sizeof(MsgFmt_Arg)));
  if (table != nullptr) {
    std::fill_n(table, count, MsgFmt_Arg{});
  }
  return table;
}

bool GrowOnHeap(MsgFmtParseState *state, int capacity) {
  MsgFmt_Arg *table = NewTable(capacity);
  if (table == nullptr) {
    return false;
  }
  std::copy_n(state->args, state->numArgs, table);
  free(state->args);
  state->args = table;
  return true;
}

bool MakeRecord(MsgFmtParseState *state, int position) {
  if (position > state->maxArgs) {
    const int64_t wanted = std::max<int64_t>(kLeastRecords, int64_t{position} + state->maxArgs);
    const int capacity = static_cast<int>(std::min<int64_t>(wanted, INT_MAX));
    if (!(state->buf == nullptr ? GrowOnHeap : GrowInBuffer)(state, capacity)) {
      return false;
    }
    state->maxArgs = capacity;
  }
  state->numArgs = std::max(state->numArgs, position);
  return true;
}

// What a specifier claims.
struct Specifier {
  int position;
  int64_t precision;
  char lengthModifier;
  char conversion;
  MsgFmt_ArgType type;
};

int ReadSpecifier(const char *position, size_t positionLength, const char *type, size_t typeLength,
                  Specifier *spec) {
  unsigned flags = 0;
  int width = 0;
  int precision = 0;
  const int status = MsgFmt_ParseSpec(position, positionLength, type, typeLength, &spec->position, &flags,
                                      &width, &precision, &spec->lengthModifier, &spec->conversion);
  if (status < 0) {
    return status;
  }
  spec->precision = precision;
  spec->type = MsgFmtTypeOf(spec->lengthModifier, spec->conversion);
  return 0;
}

bool IsFloat(char conversion) {
  return MsgFmtTypeOf('\0', conversion) == MSGFMT_ARG_FLOAT64;
}

// Of two specifiers of one string the one that shows more holds.
void Claim(MsgFmt_Arg *arg, const Specifier &spec) {
  const bool again = arg->type != MSGFMT_ARG_INVALID;
  const bool whole = spec.precision < 0 || (again && arg->precision < 0);
  arg->precision = whole ? -1 : again ? std::max(arg->precision, spec.precision) : spec.precision;
  arg->type = spec.type;
}

// ---- Taking values

size_t LengthOf(const char *text, int64_t precision) {
  return precision < 0 ? strlen(text) : strnlen(text, static_cast<size_t>(precision));
}

size_t LengthOf(const wchar_t *text, int64_t precision) {
  return precision < 0 ? wcslen(text) : wcsnlen(text, static_cast<size_t>(precision));
}

// Copies a string, or null, up to its precision. Returns false when there is no room for it.
template <typename Character>
bool CopyString(MsgFmtParseState *state, const Character *text, int64_t precision, Character **copy) {
  if (text == nullptr) {
    return true;
  }
  const size_t length = LengthOf(text, precision);
  auto *room = static_cast<Character *>(Take(state, (length + 1) * sizeof(Character), alignof(Character)));
  if (room == nullptr) {
    return false;
  }
  memcpy(room, text, length * sizeof(Character));
  room[length] = Character();
  *copy = room;
  return true;
}

Err_Number ErrorOf(const char *text, const char *copy) {
  Err_Number number = Err_String2Errno(text);
  if (number == -1 && copy != nullptr) {
    number = Err_String2ErrnoDebug(copy);
    if (number != -1) {
      Log("%s: failed to look up copied error string at %p.\n", "MsgFmt_GetArgsWithBuf",
          static_cast<const void *>(text));
    }
  }
  return number;
}

void TakeErrorCode(MsgFmt_Arg *arg, const char *text) {
  const Err_Number number = ErrorOf(text, arg->value.string8);
  if (number != -1) {
    arg->type = MSGFMT_ARG_ERRNO;
    arg->errorKind = MSGFMT_ERROR_ERRNO;
    arg->errorCode = number;
  }
}

bool TakeString8(MsgFmtParseState *state, MsgFmt_Arg *arg, const char *text) {
  if (!CopyString(state, text, arg->precision, &arg->value.string8)) {
    return false;
  }
  TakeErrorCode(arg, text);
  return true;
}

void GiveUpStrings(const MsgFmtParseState &state, int numTaken) {
  if (state.buf == nullptr) {
    FreeStrings(state.args, numTaken);
  }
}

// Takes the values of all records. Returns 0 or a negative status; a gap is told.
int TakeValues(MsgFmtParseState *state, va_list args) {
  for (int i = 0; i < state->numArgs; i++) {
    MsgFmt_Arg *arg = &state->args[i];
    bool taken = true;
    switch (arg->type) {
      case MSGFMT_ARG_INVALID:
        GiveUpStrings(*state, i);
        SetError(state, "MsgFmt_GetArgs: gap in arguments at position %d", i + 1);
        return MSGFMT_BAD_FORMAT;
      case MSGFMT_ARG_INT32:
        arg->value.int32 = va_arg(args, int32_t);
        break;
      case MSGFMT_ARG_INT64:
        arg->value.int64 = va_arg(args, int64_t);
        break;
      case MSGFMT_ARG_PTR64:
        arg->value.pointer = va_arg(args, void *);
        break;
      case MSGFMT_ARG_FLOAT64:
        arg->value.float64 = va_arg(args, double);
        break;
      case MSGFMT_ARG_STRING8:
        taken = TakeString8(state, arg, va_arg(args, const char *));
        break;
      case MSGFMT_ARG_STRING32:
        taken = CopyString(state, va_arg(args, const wchar_t *), arg->precision, &arg->value.string32);
        break;
      default:
        NOT_REACHED();
    }
    if (!taken) {
      GiveUpStrings(*state, i);
      return MSGFMT_OUT_OF_MEMORY;
    }
    arg->localString = nullptr;
  }
  return 0;
}

// Tells a failure that nobody has told.
void SetStatusError(MsgFmtParseState *state, int status) {
  if (state->error != nullptr) {
    return;
  }
  switch (status) {
    case MSGFMT_BAD_FORMAT:
      SetError(state, "MsgFmt_GetArgs: error in format string");
      break;
    case MSGFMT_OUT_OF_MEMORY:
      SetError(state, "MsgFmt_GetArgs: out of memory");
      break;
    default:
      SetError(state, "MsgFmt_GetArgs: error %d", status);
  }
}

// ---- Strings of a table

bool IsSwizzled(MsgFmt_ArgType type) {
  return type >= MSGFMT_ARG_STRING8 && type <= MSGFMT_ARG_STRING32;
}

// Makes a copied record own its string. Returns false when memory is out.
bool OwnString(MsgFmt_Arg *arg) {
  switch (arg->type) {
    case MSGFMT_ARG_STRING8:
    case MSGFMT_ARG_ERRNO:
      if (arg->value.string8 != nullptr) {
        arg->value.string8 = strdup(arg->value.string8);
        return arg->value.string8 != nullptr;
      }
      return true;
    case MSGFMT_ARG_STRING16:
    case MSGFMT_ARG_STRING32:
      NOT_IMPLEMENTED();
    default:
      ASSERT(arg->type != MSGFMT_ARG_PTR32);
      return true;
  }
}

}  // namespace

int MsgFmtGetArg1(void *clientData, const char *position, size_t positionLength, const char *type,
                  size_t typeLength) {
  auto *state = static_cast<MsgFmtParseState *>(clientData);
  const int posLength = AsInt(positionLength);
  const int specLength = AsInt(typeLength);
  Specifier spec;
  const int status = ReadSpecifier(position, positionLength, type, typeLength, &spec);
  if (status < 0) {
    SetError(state, "MsgFmtGetArg1: bad specifier, status %d, pos \"%.*s\", type \"%.*s\"", status, posLength,
             position, specLength, type);
    return MSGFMT_BAD_FORMAT;
  }
  if (!MakeRecord(state, spec.position)) {
    if (state->buf != nullptr) {
      SetError(state, "MsgFmtGetArg1: out of memory at arg %d", spec.position);
    }
    return MSGFMT_OUT_OF_MEMORY;
  }
  if (spec.conversion == 'n') {
    SetError(state, "MsgFmtGetArg1: %%n not supported, pos \"%.*s\", type \"%.*s\"", posLength, position,
             specLength, type);
    return MSGFMT_BAD_FORMAT;
  }
  if (spec.type == MSGFMT_ARG_INVALID && IsFloat(spec.conversion)) {
    SetError(state, "MsgFmtGetArg1: %%%c%c not supported, pos \"%.*s\", type \"%.*s\"", spec.lengthModifier,
             spec.conversion, posLength, position, specLength, type);
    return MSGFMT_BAD_FORMAT;
  }
  if (spec.type == MSGFMT_ARG_INVALID) {
    Panic("MsgFmtGetArg1: %%%c not understood, pos \"%.*s\", type \"%.*s\"", spec.conversion, posLength,
          position, specLength, type);
  }
  MsgFmt_Arg *arg = &state->args[spec.position - 1];
  if (arg->type != MSGFMT_ARG_INVALID && arg->type != spec.type) {
    SetError(
        state,
        "MsgFmtGetArg1: incompatible specifiers for argument %d, old type %d, new type %d, pos \"%.*s\", "
        "type \"%.*s\"",
        spec.position, arg->type, spec.type, posLength, position, specLength, type);
    return MSGFMT_BAD_FORMAT;
  }
  Claim(arg, spec);
  return 0;
}

bool MsgFmt_GetArgs(const char *format, va_list args, MsgFmt_Arg **outArgs, int *outNumArgs,
                    char **outError) {
  return MsgFmt_GetArgsWithBuf(format, args, outArgs, outNumArgs, outError, nullptr, nullptr);
}

bool MsgFmt_GetArgsWithBuf(const char *format, va_list args, MsgFmt_Arg **outArgs, int *outNumArgs,
                           char **outError, void *buffer, size_t *inOutBufferSize) {
  MsgFmtParseState state;
  if (buffer != nullptr) {
    state.buf = static_cast<char *>(buffer);
    state.bufPtr = state.buf;
    state.bufEnd = state.buf + *inOutBufferSize;
  }
  int status = MsgFmt_Parse(nullptr, MsgFmtGetArg1, &state, format);
  if (status == 0) {
    status = TakeValues(&state, args);
  }
  if (status < 0) {
    SetStatusError(&state, status);
  }
  *outArgs = state.args;
  *outNumArgs = state.numArgs;
  *outError = state.error;
  if (buffer != nullptr) {
    *inOutBufferSize = static_cast<size_t>(state.bufPtr - state.buf);
  }
  return status == 0;
}

void MsgFmt_FreeArgs(MsgFmt_Arg *args, int numArgs) {
  FreeStrings(args, numArgs);
  free(args);
}

MsgFmt_Arg *MsgFmt_CopyArgs(const MsgFmt_Arg *args, int numArgs) {
  const auto count = static_cast<size_t>(numArgs);
  // A copy of no arguments isn't null, which would be a failure.
  auto *copy = static_cast<MsgFmt_Arg *>(malloc(std::max<size_t>(count, 1) * sizeof(MsgFmt_Arg)));
  if (copy == nullptr) {
    return nullptr;
  }
  std::copy_n(args, count, copy);
  for (int i = 0; i < numArgs; i++) {
    if (!OwnString(&copy[i])) {
      MsgFmt_FreeArgs(copy, i);
      return nullptr;
    }
    copy[i].localString = nullptr;
  }
  return copy;
}

void MsgFmt_SwizzleArgs(MsgFmt_Arg *args, int numArgs) {
  for (int i = 0; i < numArgs; i++) {
    MsgFmt_Arg *arg = &args[i];
    if (IsSwizzled(arg->type) && arg->value.pointer != nullptr) {
      arg->value.int64 = reinterpret_cast<intptr_t>(arg->value.pointer) - reinterpret_cast<intptr_t>(args);
    }
  }
}

void MsgFmt_UnswizzleArgs(MsgFmt_Arg *args, int numArgs) {
  for (int i = 0; i < numArgs; i++) {
    MsgFmt_Arg *arg = &args[i];
    if (IsSwizzled(arg->type) && arg->value.int64 != 0) {
      arg->value.int64 += reinterpret_cast<intptr_t>(args);
    }
  }
}
