#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "fileIO.h"
#include "kprep.h"
#include "kprepCommandInt.h"
#include "kprepInt.h"
#include "log.h"

namespace {

constexpr size_t kTextSize = 256;

struct CompilerVersion {
  uint8_t major;
  uint8_t minor;

  bool operator==(const CompilerVersion &) const = default;
};

// A pipe's ends stay open unless they are closed by name.
struct Pipe {
  int readEnd = -1;
  int writeEnd = -1;

  bool Make() {
    int ends[2];
    if (pipe(ends) != 0) {
      return false;
    }
    readEnd = ends[0];
    writeEnd = ends[1];
    return true;
  }

  void Close() const {
    close(readEnd);
    close(writeEnd);
  }
};

// Starts `path -dumpversion` between the pipes. Returns 0 or an errno value.
int StartCompiler(const char *path, const Pipe &input, const Pipe &output) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input.readEnd, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output.writeEnd, STDOUT_FILENO);
  // A compiler without standard input can't wait for it.
  posix_spawn_file_actions_addclose(&actions, STDIN_FILENO);
  pid_t child = -1;
  const char *const arguments[] = {path, "-dumpversion", nullptr};
  const int error = Posix_Spawn(&child, path, &actions, arguments);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

// Waits for whichever child ends. Returns whether it ended by itself with status 0.
bool WaitForSuccess() {
  int status = 0;
  pid_t ended = 0;
  do {
    ended = wait(&status);
  } while (ended == -1 && errno == EINTR);
  return ended != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// What the child wrote, without its last byte, which is the newline. Empty when there is nothing.
void ReadAnswer(const Pipe &output, char (&text)[kTextSize]) {
  const ssize_t length = read(output.readEnd, text, sizeof text - 1);
  text[length > 0 ? length - 1 : 0] = '\0';
}

bool ReadProcVersion(char (&text)[kTextSize]) {
  FileIODescriptor file;
  FileIO_Invalidate(&file);
  if (FileIO_Open(&file, "/proc/version", FILEIO_ACCESS_READ, FILEIO_OPEN) != FILEIO_SUCCESS) {
    return false;
  }
  const FileIOResult result = FileIO_Read(&file, text, sizeof text - 1, nullptr);
  FileIO_Close(&file);
  return result == FILEIO_SUCCESS || result == FILEIO_READ_PAST_EOF;
}

bool ParseVersionText(const OwnedString &text, CompilerVersion *version) {
  return text && KernPrep_ParseCompilerVersion(text.get(), &version->major, &version->minor);
}

CompilerVersion ChosenVersion() {
  return {kernPrep.kernel.compilerMajor, kernPrep.kernel.compilerMinor};
}

void RememberVersion(CompilerVersion version) {
  kernPrep.kernel.compilerMajor = version.major;
  kernPrep.kernel.compilerMinor = version.minor;
  Log("Your GCC version: %d.%d\n", version.major, version.minor);
}

// Gives the program search's own buffer, which the next successful search overwrites.
const char *FindFirstCandidate() {
  const char *found = KernPrep_FindInPath(Posix_Getenv("CC"));
  // The doubled name is wanted.
  for (const char *name : {"gcc", "egcs", "egcs", "kgcc"}) {
    if (found) {
      return found;
    }
    found = KernPrep_FindInPath(name);
  }
  return found;
}

bool ExamineFirstCandidate(const char *path) {
  const OwnedString text(KernPrep_GetCompilerVersion(path));
  if (!text) {
    Log("Unable to read version info from gcc %s\n", path);
    return false;
  }
  CompilerVersion version = {};
  if (!ParseVersionText(text, &version)) {
    Log("Unable to determine numerical version info for %s\n", path);
    return false;
  }
  RememberVersion(version);
  return true;
}

// The compiler named after the kernel's, if it is found and tells its version.
const char *FindNamedCompiler(CompilerVersion kernel) {
  Log("Searching for GCC %d.%d.\n", kernel.major, kernel.minor);
  const char *path = KernPrep_FindInPath(EngineFormat("gcc-%d.%d", kernel.major, kernel.minor).get());
  if (!path) {
    return nullptr;
  }
  const OwnedString text(KernPrep_GetCompilerVersion(path));
  if (!text) {
    return nullptr;
  }
  Log("Kernel compiled with: GCC %d.%d\n", kernel.major, kernel.minor);
  CompilerVersion version = {};
  if (!ParseVersionText(text, &version)) {
    return nullptr;
  }
  RememberVersion(version);
  return path;
}

bool IsAccepted(CompilerVersion chosen, CompilerVersion kernel) {
  if (chosen == kernel) {
    return true;
  }
  if (kernPrep.kernel.versionCode > KernPrepVersionCode(2, 6, 18)) {
    Log("Kernel is new enough; using PROBABLY compatible GCC %d.%d instead of desired %d.%d\n", chosen.major,
        chosen.minor, kernel.major, kernel.minor);
    return true;
  }
  if (chosen.major != kernel.major) {
    Log("Unable to find compatible compiler for GCC %d.%d\n", kernel.major, kernel.minor);
    return false;
  }
  Log("Your kernel is too old for you to use your GCC %d.%d instead of the required GCC %d.%d.\n",
      chosen.major, chosen.minor, kernel.major, kernel.minor);
  return false;
}

}  // namespace

char *KernPrep_GetKernelCompilerVersion() {
  char text[kTextSize] = {};
  if (!ReadProcVersion(text)) {
    return nullptr;
  }
  constexpr char kIntroduction[] = "gcc version ";
  constexpr char kPrefix[] = "egcs-";
  const char *version = strstr(text, kIntroduction);
  if (!version) {
    return nullptr;
  }
  version += strlen(kIntroduction);
  if (strncmp(version, kPrefix, strlen(kPrefix)) == 0) {
    version += strlen(kPrefix);
  }
  const char *end = strchr(version, ' ');
  return end ? Util_SafeStrndup(version, static_cast<size_t>(end - version)) : nullptr;
}

char *KernPrep_GetCompilerVersion(const char *path) {
  Pipe input;
  Pipe output;
  if (!input.Make()) {
    return nullptr;
  }
  if (!output.Make()) {
    input.Close();
    return nullptr;
  }
  const int error = StartCompiler(path, input, output);
  if (error == EAGAIN || error == ENOMEM) {  // no room for a child
    input.Close();
    output.Close();
    return nullptr;
  }
  close(input.readEnd);
  close(output.writeEnd);
  char text[kTextSize] = {};
  if (error == 0 && WaitForSuccess()) {
    ReadAnswer(output, text);
  }
  // The other two ends stay open; that is wanted.
  return *text ? Util_SafeStrdup(text) : nullptr;
}

bool KernPrep_ParseCompilerVersion(const char *text, uint8_t *major, uint8_t *minor) {
  unsigned first = 0;
  unsigned second = 0;
  if (sscanf(text, "%u.%u", &first, &second) != 2) {
    Log("Unable to parse gcc version\n");
    return false;
  }
  *major = static_cast<uint8_t>(first);
  *minor = static_cast<uint8_t>(second);
  return true;
}

unsigned KernPrep_CompareCompiler(const char *path) {
  const OwnedString ownText(KernPrep_GetCompilerVersion(path));
  const OwnedString kernelText(KernPrep_GetKernelCompilerVersion());
  CompilerVersion own = {};
  CompilerVersion kernel = {};
  if (!ownText || !kernelText || !ParseVersionText(ownText, &own) || !ParseVersionText(kernelText, &kernel)) {
    return KERNPREP_COMPILER_UNKNOWN;
  }
  if (own.major != kernel.major) {
    return KERNPREP_COMPILER_OTHER_MAJOR;
  }
  return own.minor == kernel.minor ? KERNPREP_COMPILER_MATCH : KERNPREP_COMPILER_OTHER_MINOR;
}

char *KernPrep_FindCompiler() {
  CompilerVersion kernel = {255, 255};
  if (!ParseVersionText(OwnedString(KernPrep_GetKernelCompilerVersion()), &kernel)) {
    Log("Unable to determine numerical version info for kernel GCC\n");
    return nullptr;
  }
  const char *candidate = FindFirstCandidate();
  if (candidate) {
    if (!ExamineFirstCandidate(candidate)) {
      return nullptr;
    }
    if (ChosenVersion() == kernel) {
      return Util_SafeStrdup(candidate);
    }
  }
  // The candidate lies in the program search's buffer. A compiler that is found here without a usable version
  // still takes its place there, and is judged by the earlier one's numbers; that is wanted.
  if (const char *named = FindNamedCompiler(kernel)) {
    candidate = named;
  }
  if (!candidate) {
    return nullptr;
  }
  return IsAccepted(ChosenVersion(), kernel) ? Util_SafeStrdup(candidate) : nullptr;
}
