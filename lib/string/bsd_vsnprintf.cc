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

// What a specification takes from the arguments: up to a width, a precision and a value, in that order.
struct Claims {
  struct Claim {
    int position;
    Kind kind;
  };
  Claim claims[3];
  size_t count = 0;

  // next  the position of the next argument for what tells none; moved on
  Claims(const BsdOutput_Spec &spec, int *next) {
    AddNumber(spec.widthFrom, next);
    AddNumber(spec.precisionFrom, next);
    if (spec.kind == Kind::NONE) {
      return;
    }
    if (spec.position != BSDOUTPUT_NEXT) {
      *next = spec.position;
    }
    claims[count++] = {(*next)++, spec.kind};
  }

 private:
  void AddNumber(int from, int *next) {
    if (from != BSDOUTPUT_STATED) {
      claims[count++] = {from == BSDOUTPUT_NEXT ? (*next)++ : from, Kind::INT};
    }
  }
};

bool HasPosition(const BsdOutput_Spec &spec) {
  return spec.position > 0 || spec.widthFrom > 0 || spec.precisionFrom > 0;
}

bool IsInteger(Kind kind) {
  return kind == Kind::INT || kind == Kind::LONG || kind == Kind::LONG_LONG;
}

// Whether it takes the next argument and no other.
bool IsSimple(const BsdOutput_Spec &spec) {
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
    if (!inTable_ && IsSimple(*spec)) {
      nextPosition_ += spec->kind == Kind::NONE ? 0 : 1;
      *value = Load(next_, spec->kind);
      return true;
    }
    if (!inTable_ && HasPosition(*spec) && !FillTable()) {
      return false;
    }
    const Claims claims(*spec, &nextPosition_);
    const Claims::Claim *claim = claims.claims;
    if (spec->widthFrom != BSDOUTPUT_STATED) {
      BsdOutput_SetWidth(spec, static_cast<int>(Get(*claim++).integer));
    }
    if (spec->precisionFrom != BSDOUTPUT_STATED) {
      BsdOutput_SetPrecision(spec, static_cast<int>(Get(*claim++).integer));
    }
    if (claim < claims.claims + claims.count) {
      *value = Get(*claim);
    }
    return true;
  }

 private:
  struct Argument {
    Kind kind;
    BsdOutput_Value value;
  };
  static constexpr size_t kOnStack = 32;

  BsdOutput_Value Get(const Claims::Claim &claim) {
    return inTable_ ? table_[claim.position - 1].value : Load(next_, claim.kind);
  }

  static BsdOutput_Value Load(va_list &list, Kind kind);
  bool FillTable();
  bool FindKinds();
  bool SetKind(const Claims::Claim &claim);
  bool MakeRoom(size_t count);

  const char *format_;
  va_list first_;
  va_list next_;
  int nextPosition_ = 1;
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
  int next = 1;
  for (const char *text = strchrnul(format_, '%'); *text != '\0'; text = strchrnul(text, '%')) {
    BsdOutput_Spec spec;
    text = BsdOutput_ParseSpec(text + 1, &spec);
    if (text == nullptr) {
      return false;
    }
    if (spec.conversion == '\0') {
      break;
    }
    const Claims claims(spec, &next);
    for (size_t i = 0; i < claims.count; i++) {
      if (!SetKind(claims.claims[i])) {
        return false;
      }
    }
  }
  return true;
}

// Of several integers that are claimed for one position the widest holds; other kinds must be the same.
bool Arguments::SetKind(const Claims::Claim &claim) {
  const auto position = static_cast<size_t>(claim.position);
  if (!MakeRoom(position)) {
    return false;
  }
  for (; count_ < position; count_++) {
    table_[count_].kind = Kind::NONE;
  }
  Kind &kind = table_[position - 1].kind;
  if (kind != Kind::NONE && kind != claim.kind && !(IsInteger(kind) && IsInteger(claim.kind))) {
    return false;
  }
  kind = std::max(kind, claim.kind);
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

}  // namespace

int bsd_vsnprintf(char **outBuffer, size_t size, const char *format, va_list args) {
  BsdOutput out;
  BsdOutput_Init(&out, *outBuffer, size, format);
  Arguments arguments(format, args);
  BsdOutput_Spec spec;
  BsdOutput_Value value{};
  while (!out.failed && BsdOutput_NextSpec(&out, &format, &spec)) {
    if (!arguments.Take(&spec, &value)) {
      out.failed = true;
      break;
    }
    BsdOutput_Print(&out, spec, value);
  }
  return BsdOutput_Finish(&out, outBuffer);
}
