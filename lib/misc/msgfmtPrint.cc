// Printing values that were taken before.

#include <cstring>

#include "bsd_output_shared.h"
#include "msgMark.h"
#include "msgfmt.h"
#include "msgfmtInt.h"
#include "panicUser.h"

namespace {

// Length modifiers as MsgFmt_ParseSpec tells them.
constexpr char kLengthLetters[] = {'\0', 'H', 'h', 'l', 'L', 'j', 't', 'z'};

MsgFmt_ArgType TypeOf(const BsdOutput_Spec &spec) {
  return MsgFmtTypeOf(kLengthLetters[static_cast<size_t>(spec.length)], spec.conversion);
}

bool Suits(MsgFmt_ArgType held, MsgFmt_ArgType asked) {
  ASSERT(held != MSGFMT_ARG_PTR32 && held != MSGFMT_ARG_STRING16);
  return held == asked || (held == MSGFMT_ARG_ERRNO && asked == MSGFMT_ARG_STRING8);
}

const char *TextOf(const MsgFmt_Arg &arg) {
  const char *text = arg.value.string8;
  if (arg.localString != nullptr || text == nullptr) {
    return arg.localString;
  }
  const char *marked = MsgMarkedText(text);
  return marked == nullptr ? text : marked;
}

BsdOutput_Value ValueOf(const MsgFmt_Arg &arg) {
  BsdOutput_Value value{};
  switch (arg.type) {
    case MSGFMT_ARG_INT32:
      value.integer = arg.value.int32;
      break;
    case MSGFMT_ARG_INT64:
      value.integer = arg.value.int64;
      break;
    case MSGFMT_ARG_FLOAT64:
      value.real = arg.value.float64;
      break;
    case MSGFMT_ARG_STRING8:
    case MSGFMT_ARG_ERRNO:
      value.pointer = TextOf(arg);
      break;
    default:
      value.pointer = arg.value.pointer;
  }
  return value;
}

// The values of an array, as a format asks for them.
class Values {
 public:
  Values(const MsgFmt_Arg *args, int numArgs) : args_(args), numArgs_(numArgs) {}

  // Gives a specification its width, its precision and its value, if it takes one. Returns false when the
  // array has no such value.
  bool Take(BsdOutput_Spec *spec, BsdOutput_Value *value) {
    if (!TakeNumbers(spec)) {
      return false;
    }
    const MsgFmt_ArgType type = TypeOf(*spec);
    if (type == MSGFMT_ARG_INVALID) {
      return spec->kind == BsdOutput_Kind::NONE;
    }
    return Get(positions_.OfValue(spec->position), type, value);
  }

 private:
  bool Get(int position, MsgFmt_ArgType type, BsdOutput_Value *value) const {
    if (position > numArgs_ || !Suits(args_[position - 1].type, type)) {
      return false;
    }
    *value = ValueOf(args_[position - 1]);
    return true;
  }

  bool GetInt(int from, int *number) {
    BsdOutput_Value value{};
    if (!Get(positions_.Of(from), MSGFMT_ARG_INT32, &value)) {
      return false;
    }
    *number = static_cast<int>(value.integer);
    return true;
  }

  bool TakeNumbers(BsdOutput_Spec *spec) {
    int number = 0;
    if (spec->widthFrom != BSDOUTPUT_STATED) {
      if (!GetInt(spec->widthFrom, &number)) {
        return false;
      }
      BsdOutput_SetWidth(spec, number);
    }
    if (spec->precisionFrom != BSDOUTPUT_STATED) {
      if (!GetInt(spec->precisionFrom, &number)) {
        return false;
      }
      BsdOutput_SetPrecision(spec, number);
    }
    return true;
  }

  const MsgFmt_Arg *args_;
  int numArgs_;
  BsdOutput_Positions positions_;
};

}  // namespace

int MsgFmt_Snprintf(char **buffer, size_t size, const char *format, const MsgFmt_Arg *args, int numArgs) {
  BsdOutput out;
  BsdOutput_Init(&out, *buffer, size, format);
  Values values(args, numArgs);
  BsdOutput_Spec spec;
  while ((format = BsdOutput_NextSpec(&out, format, &spec)) != nullptr) {
    BsdOutput_Value value{};
    if (!values.Take(&spec, &value)) {
      out.failed = true;
      break;
    }
    BsdOutput_Print(&out, spec, value);
  }
  return BsdOutput_Finish(&out, buffer);
}

char *MsgFmt_Asprintf(size_t *outLength, const char *format, const MsgFmt_Arg *args, int numArgs) {
  char *text = nullptr;
  const int length = MsgFmt_Snprintf(&text, 0, format, args, numArgs);
  if (length >= 0 && outLength != nullptr) {
    *outLength = static_cast<size_t>(length);
  }
  return text;
}
