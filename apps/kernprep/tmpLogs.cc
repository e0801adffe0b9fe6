#include "tmpLogs.h"

#include <string_view>

#include "file.h"
#include "log.h"
#include "owned.h"
#include "posixPosix.h"
#include "util.h"

namespace {

constexpr std::string_view kSuffix = ".log";

bool IsLogOf(std::string_view name, std::string_view prefix) {
  return name.size() >= prefix.size() + kSuffix.size() && name.starts_with(prefix) && name.ends_with(kSuffix);
}

}  // namespace

void CleanTmpLogs(const std::string &prefix) {
  const OwnedString directory(Util_GetSafeTmpDir(false));
  if (!directory) {
    return;
  }
  char **names = nullptr;
  const int count = File_ListDirectory(directory.get(), &names);
  if (count == -1) {
    return;
  }
  const char *current = Log_GetFileName();
  for (int i = 0; i < count; i++) {
    const std::string path = std::string(directory.get()) + "/" + names[i];
    if (IsLogOf(names[i], prefix) && (current == nullptr || path != current)) {
      Posix_Unlink(path.c_str());
    }
  }
  File_FreeNames(names, count);
}
