#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "bsd_output_shared.h"
#include "bsd_vsnprintfInt.h"
#include "owned.h"

namespace {

using Kind = BsdOutput_Kind;
using Positions = BsdOutput_Positions;

bool HasPosition(const BsdOutput_Spec &spec) {
  return spec.position > 0 || spec.widthFrom > 0 || spec.precisionFrom > 0;
}

bool IsInteger(Kind kind) {
  return kind == Kind::INT || kind == Kind::LONG || kind == Kind::LONG_LONG;
}

// Whether it takes the next argument and no other.
bool TakesNextAlone(const BsdOutput_Spec &spec) {
  return spec.position == BSDOUTPUT_NEXT && spec.widthFrom == BSDOUTPUT_STATED &&
         spec.precisionFrom == BSDOUTPUT_STATED;
}

// The arguments, taken one after the other until a specification tells a position: from then on they are in a
// table.
class Arguments {
 public:
  // cppcheck-suppress uninitMemberVar ; the table is filled before it is read
  Arguments(const char *format, va_list args) : format_(format) {
    va_copy(first_, args);
    va_copy(next_, args);
  }
  ~Arguments() {
    va_end(next_);
    va_end(first_);
  }
  Arguments(const Arguments &) = delete;
  Arguments &operator=(const Arguments &) = delete;

  // Gives a specification its width, its precision and its value. Returns false when there can be no table
  // for it.
  bool Take(BsdOutput_Spec *spec, BsdOutput_Value *value) {
    if (!TakesNextAlone(*spec) && !TakeNumbers(spec)) {
      return false;
    }
    if (spec->kind != Kind::NONE) {
      *value = Get(positions_.OfValue(spec->position), spec->kind);
    }
    return true;
  }

 private:
  struct Argument {
    Kind kind;
    BsdOutput_Value value;
  };
  static constexpr size_t kOnStack = 32;

  BsdOutput_Value Get(int position, Kind kind) {
    return inTable_ ? table_[position - 1].value : Load(next_, kind);
  }

  int GetInt(int from) { return static_cast<int>(Get(positions_.Of(from), Kind::INT).integer); }

  static BsdOutput_Value Load(va_list &list, Kind kind);
  bool TakeNumbers(BsdOutput_Spec *spec);
  bool FillTable();
  bool FindKinds();
  bool SetKinds(const BsdOutput_Spec &spec, Positions *positions);
  bool SetKind(int position, Kind kind);
  bool MakeRoom(size_t count);

  const char *format_;
  va_list first_;
  va_list next_;
  Positions positions_;
  bool inTable_ = false;
  size_t count_ = 0;
  size_t capacity_ = kOnStack;
  Argument onStack_[kOnStack];
  Argument *table_ = onStack_;
  std::unique_ptr<Argument, Releaser<free>> onHeap_;  // the table when the stack doesn't hold it
};

// The lists are started in the constructor. NOLINTBEGIN(clang-analyzer-valist.Uninitialized)
BsdOutput_Value Arguments::Load(va_list &list, Kind kind) {
  BsdOutput_Value value{};
  switch (kind) {
    case Kind::NONE:
      break;
    case Kind::INT:
      value.integer = va_arg(list, int);
      break;
    case Kind::LONG:
      value.integer = va_arg(list, long);
      break;
    case Kind::LONG_LONG:
      value.integer = va_arg(list, long long);
      break;
    case Kind::POINTER:
      value.pointer = va_arg(list, void *);
      break;
    case Kind::DOUBLE:
      value.real = va_arg(list, double);
      break;
    case Kind::LONG_DOUBLE:
      value.real = static_cast<double>(va_arg(list, long double));
      break;
  }
  return value;
}
// NOLINTEND(clang-analyzer-valist.Uninitialized)

bool Arguments::TakeNumbers(BsdOutput_Spec *spec) {
  if (!inTable_ && HasPosition(*spec) && !FillTable()) {
    return false;
  }
  if (spec->widthFrom != BSDOUTPUT_STATED) {
    BsdOutput_SetWidth(spec, GetInt(spec->widthFrom));
  }
  if (spec->precisionFrom != BSDOUTPUT_STATED) {
    BsdOutput_SetPrecision(spec, GetInt(spec->precisionFrom));
  }
  return true;
}

bool Arguments::FillTable() {
  if (!FindKinds()) {
    return false;
  }
  for (size_t i = 0; i < count_; i++) {
    // A position that nobody claims is passed over as an int.
    table_[i].value = Load(first_, std::max(table_[i].kind, Kind::INT));
  }
  inTable_ = true;
  return true;
}

bool Arguments::FindKinds() {
  Positions positions;
  for (const char *text = strchrnul(format_, '%'); *text != '\0'; text = strchrnul(text, '%')) {
    BsdOutput_Spec spec;
    text = BsdOutput_ParseSpec(text + 1, &spec);
    if (text == nullptr) {
      return false;
    }
    if (spec.conversion == '\0') {
      break;
    }
    if (!SetKinds(spec, &positions)) {
      return false;
    }
  }
  return true;
}

bool Arguments::SetKinds(const BsdOutput_Spec &spec, Positions *positions) {
  if (spec.widthFrom != BSDOUTPUT_STATED && !SetKind(positions->Of(spec.widthFrom), Kind::INT)) {
    return false;
  }
  if (spec.precisionFrom != BSDOUTPUT_STATED && !SetKind(positions->Of(spec.precisionFrom), Kind::INT)) {
    return false;
  }
  return spec.kind == Kind::NONE || SetKind(positions->OfValue(spec.position), spec.kind);
}

// Of several integers that are claimed for one position the widest holds; other kinds must be the same.
bool Arguments::SetKind(int position, Kind kind) {
  const auto count = static_cast<size_t>(position);
  if (!MakeRoom(count)) {
    return false;
  }
  for (; count_ < count; count_++) {
    table_[count_].kind = Kind::NONE;
  }
  Kind &known = table_[count - 1].kind;
  if (known != Kind::NONE && known != kind && !(IsInteger(known) && IsInteger(kind))) {
    return false;
  }
  known = std::max(known, kind);
  return true;
}

bool Arguments::MakeRoom(size_t count) {
  if (count <= capacity_) {
    return true;
  }
  const size_t capacity = std::max(count, 2 * capacity_);
  auto *larger = static_cast<Argument *>(malloc(capacity * sizeof(Argument)));
  if (larger == nullptr) {
    return false;
  }
  std::copy_n(table_, count_, larger);
  onHeap_.reset(larger);
  table_ = larger;
  capacity_ = capacity;
  return true;
}

// Prints from the first specification on, which is read already. For a text without any the arguments needn't
// be made ready.
//
// rest  the format behind that specification
void PrintValues(BsdOutput *out, const char *format, BsdOutput_Spec *spec, const char *rest, va_list args) {
  Arguments arguments(format, args);
  BsdOutput_Value value{};
  do {
    if (!arguments.Take(spec, &value)) {
      out->failed = true;
      return;
    }
    BsdOutput_Print(out, *spec, value);
    rest = BsdOutput_NextSpec(out, rest, spec);
  } while (rest != nullptr);
}

}  // namespace

int bsd_vsnprintf(char **outBuffer, size_t size, const char *format, va_list args) {
  BsdOutput out;
  BsdOutput_Init(&out, *outBuffer, size, format);
  BsdOutput_Spec spec;
  const char *rest = BsdOutput_NextSpec(&out, format, &spec);
  if (rest != nullptr) {
    PrintValues(&out, format, &spec, rest, args);
  }
  return BsdOutput_Finish(&out, outBuffer);
}
