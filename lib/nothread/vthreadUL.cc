#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string_view>

#include "panicUser.h"
#include "str.h"
#include "vthread.h"

namespace {

constexpr VThreadID kAppId = 3;  // the last of the program's own, and the id of who names none
constexpr VThreadID kFirstFurtherId = 36;
constexpr VThreadID kLastId = 95;
constexpr size_t kNameSize = 32;
constexpr size_t kForeignNameSize = 48;
// What an assertion of a thread's name says its line is.
constexpr int kNameAssertionLine = 124;

// The threads of the process: complete from the start, and changed by the thread that they are about.
struct Threads {
  std::atomic<VThreadID> current = kAppId;
  std::atomic<bool> isInSignal;
  std::atomic<bool> hasSelf;
  std::atomic<pthread_t> self;  // whose the names are, if anybody's
  char names[kLastId + 1][kNameSize] = {"", "", "", "app"};
};
Threads threads;

void RememberSelf() {
  if (!threads.hasSelf) {
    threads.self = pthread_self();
    threads.hasSelf = true;
  }
}

void SetCurrentName(const char *name) {
  char(&slot)[kNameSize] = threads.names[threads.current];
  if (name == nullptr || slot[kNameSize - 1] != '\0') {
    Panic("ASSERT %s:%d\n", __FILE__, kNameAssertionLine);
  }
  const std::string_view text(name, strnlen(name, kNameSize - 1));
  *std::copy(text.begin(), text.end(), slot) = '\0';
}

}  // namespace

void VThread_Init(VThreadID id, const char *name) {
  const VThreadID known = id == -1 ? kAppId : id;
  ASSERT(known >= 0 && known <= kAppId);
  threads.current = known;
  RememberSelf();
  SetCurrentName(name);
}

VThreadID VThread_InitThread(VThreadID id, const char *name) {
  const bool isUnnamed = id == -1 || id == -2;
  ASSERT(isUnnamed || (id >= kFirstFurtherId && id <= kLastId));
  const VThreadID known = isUnnamed ? kAppId : id;
  threads.current = known;
  RememberSelf();
  char ownName[kNameSize];
  Str_Snprintf(ownName, sizeof ownName, "vthread-%d", known);
  SetCurrentName(name == nullptr ? ownName : name);
  return known;
}

VThreadID VThread_CurID() {
  const VThreadID id = threads.current;
  ASSERT(id <= kLastId);
  return id;
}

const char *VThread_CurName() {
  const char *name = threads.names[VThread_CurID()];
  const pthread_t self = pthread_self();
  if (!threads.hasSelf || pthread_equal(threads.self, self) != 0) {
    return name;
  }
  static thread_local char foreignName[kForeignNameSize];
  Str_Snprintf(foreignName, sizeof foreignName, "%s-%lu", name, self);
  return foreignName;
}

bool VThread_IsInSignal() {
  return threads.isInSignal;
}

void VThread_SetIsInSignal(VThreadID /*id*/, bool isInSignal) {
  threads.isInSignal = isInSignal;
}
