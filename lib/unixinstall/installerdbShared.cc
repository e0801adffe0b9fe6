#include <glib.h>

#include <cstdint>
#include <memory>

#include "file.h"
#include "formatInt.h"
#include "installerdb.h"
#include "installerdbInt.h"
#include "log.h"
#include "posixPosix.h"
#include "util_misc.h"

namespace {

constexpr int kMaxBackups = 100;
constexpr mode_t kFileMode = 0644;

// One byte, 1, from the end of a successful replay to InstallerDB_DeInit.
std::unique_ptr<uint8_t, Releaser<free>> marker;

// Frees the path for a new file or link, whether the journal knows it or not.
void MakeWay(const char *path) {
  InstallerDB_RemoveInstalledFile(path);
  Posix_Unlink(path);
}

}  // namespace

void InstallerDBSetMarker() {
  if (!marker) {
    marker.reset(static_cast<uint8_t *>(Util_SafeMalloc(1)));
    *marker = 1;
  }
}

void InstallerDBClearMarker() {
  marker.reset();
}

bool InstallerDB_IsInitialized() {
  return marker && *marker == 1;
}

bool InstallerDB_HasRequiredAnswers() {
  return InstallerDB_GetBinDir() && InstallerDB_GetLibDir() && InstallerDB_GetInitScriptsDir();
}

bool InstallerDB_RemoveInstalledFile(const char *path) {
  // The name alone goes: a link that is replaced must not take its target along.
  return InstallerDB_IsFileKnown(path) && File_Exists(path) && Posix_Unlink(path) == 0 &&
         InstallerDB_RemoveFile(path);
}

bool InstallerDB_Link(bool symbolic, const char *target, const char *linkPath) {
  MakeWay(linkPath);
  const int result = symbolic ? Posix_Symlink(target, linkPath) : Posix_Link(target, linkPath);
  return result == 0 && InstallerDB_AddFile(linkPath, 0);
}

bool InstallerDB_CopyFile(const char *source, const char *destination, unsigned flags) {
  MakeWay(destination);
  if (!File_CopyFromNameToName(source, destination, FILE_PROMPT_OVERWRITE)) {
    return false;
  }
  File_SetFilePermissions(destination, kFileMode);
  return InstallerDB_AddFile(destination, flags);
}

bool InstallerDB_BackupFile(const char *path) {
  for (int n = 0; n < kMaxBackups; ++n) {
    const OwnedString backup = EngineFormat("%s.old.%d", path, n);
    if (!File_Exists(backup.get())) {
      return File_CopyFromNameToName(path, backup.get(), FILE_PROMPT_RETRY);
    }
  }
  return false;
}

bool InstallerDB_RunInitScript(const char *script, int action) {
  if (Posix_Getenv("OSTREL_SKIP_SERVICES")) {
    Log("Skipping starting/stopping services");
    return true;
  }
  const char *directory = InstallerDB_GetInitScriptsDir();
  if (!directory) {
    Log("Unable to lookup initdir\n");
    return false;
  }
  const OwnedText path(g_build_filename(directory, script, nullptr));
  const OwnedText quoted(g_shell_quote(path.get()));
  const char *word = action == INSTALLERDB_SCRIPT_STOP ? "stop" : "start";
  return Posix_System(EngineFormat("%s %s", quoted.get(), word).get()) == 0;
}

bool InstallerDB_IsDspInstall() {
  return File_Exists("/usr/lib/ostrel-tools/dsp");
}
