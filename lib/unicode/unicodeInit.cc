#include <unistd.h>

#include <atomic>
#include <cstdarg>

#include "codeset.h"
#include "panicUser.h"
#include "unicodeInt.h"

namespace {

constexpr useconds_t kRetryMicroseconds = 250000;

// Lives as long as the process. The lock guards the start-up and `initialized`.
struct {
  std::atomic<uint32_t> lock;
  bool initialized;
} unicodeInit;

void Lock() {
  uint32_t free = 0;
  while (!unicodeInit.lock.compare_exchange_strong(free, 1, std::memory_order_acquire)) {
    free = 0;
    usleep(kRetryMicroseconds);
  }
}

void Unlock() {
  unicodeInit.lock.store(0, std::memory_order_release);
}

[[noreturn, gnu::format(printf, 1, 2)]] void UnlockAndPanic(const char *format, ...) {
  Unlock();
  va_list args;
  va_start(args, format);
  Panic_Panic(format, args);
  // cppcheck-suppress va_end_missing ; nothing comes behind a panic
}

void CheckCurrentEncoding() {
  const char *name = CodeSet_GetCurrentCodeSet();
  if (!Unicode_IsEncodingValid(Unicode_EncodingNameToEnum(name))) {
    UnlockAndPanic("Unsupported local character encoding \"%s\".\n", name);
  }
}

char **AllocWideList(utf16_t **list, ssize_t length) {
  return Unicode_AllocList(reinterpret_cast<char **>(list), length, STRING_ENCODING_UTF16_LE);
}

void ReplaceArguments(int argc, utf16_t **wargv, char ***argv) {
  const ssize_t length = static_cast<ssize_t>(argc) + 1;
  if (wargv != nullptr) {
    *argv = AllocWideList(wargv, length);
    if (*argv == nullptr) {
      UnlockAndPanic("Unicode_AllocList1 failed.\n");
    }
  } else if (argv != nullptr) {
    *argv = Unicode_AllocList(*argv, length, STRING_ENCODING_DEFAULT);
    if (*argv == nullptr) {
      UnlockAndPanic("Unicode_AllocList2 failed.\n");
    }
  }
}

void ReplaceEnvironment(utf16_t **wenvp, char ***envp) {
  if (wenvp != nullptr) {
    *envp = AllocWideList(wenvp, -1);
    if (*envp == nullptr) {
      UnlockAndPanic("Unicode_AllocList3 failed.\n");
    }
  } else if (envp != nullptr) {
    *envp = Unicode_AllocList(*envp, -1, STRING_ENCODING_DEFAULT);
    if (*envp == nullptr) {
      UnlockAndPanic("Unicode_AllocList4 failed.\n");
    }
  }
}

}  // namespace

void Unicode_InitInternal(int argc, const char *icuDataDir, utf16_t **wargv, utf16_t **wenvp, char ***argv,
                          char ***envp) {
  Lock();
  if (unicodeInit.initialized) {
    Unlock();
    return;
  }
  if (!CodeSet_Init(icuDataDir)) {
    UnlockAndPanic("Failed to initialize codeset.\n");
  }
  CheckCurrentEncoding();
  ReplaceArguments(argc, wargv, argv);
  ReplaceEnvironment(wenvp, envp);
  unicodeInit.initialized = true;
  Unlock();
}

void Unicode_Init(int argc, char ***argv, char ***envp) {
  Unicode_InitEx(argc, argv, envp, nullptr);
}

void Unicode_InitEx(int argc, char ***argv, char ***envp, const char *icuDataDir) {
  Unicode_InitInternal(argc, icuDataDir, nullptr, nullptr, argv, envp);
}

void Unicode_InitW(int argc, utf16_t **wargv, utf16_t **wenvp, char ***argv, char ***envp) {
  Unicode_InitInternal(argc, nullptr, wargv, wenvp, argv, envp);
}
