#include "kprep.h"

#include <sys/utsname.h>

#include <cstring>

#include "file.h"
#include "formatInt.h"
#include "grep.h"
#include "installerdb.h"
#include "kprepInt.h"
#include "log.h"
#include "util.h"
#include "util_misc.h"

KernPrepState kernPrep;

namespace {

constexpr char kKallsyms[] = "/proc/kallsyms";
constexpr char kKsyms[] = "/proc/ksyms";

using OwnedLines = std::unique_ptr<char *, Releaser<Grep_FreeLines>>;

OwnedLines GrepLines(const char *path, const char *text) {
  return OwnedLines(Grep_File(path, text, "\n"));
}

bool LearnIdentity(KernPrep_KernelIdentity *kernel) {
  utsname host;
  if (uname(&host) != 0) {
    return false;
  }
  kernel->utsRelease = Util_SafeStrdup(host.release);
  kernel->utsMachine = Util_SafeStrdup(host.machine);
  kernel->utsVersion = Util_SafeStrdup(host.version);
  kernel->smp = strstr(host.version, " SMP ") != nullptr;
  if (!KernPrep_ParseVersion(host.release, kernel->versionParts)) {
    return false;
  }
  const uint32_t *parts = kernel->versionParts;
  kernel->versionCode = KernPrepVersionCode(parts[0], parts[1], parts[2]);
  return true;
}

// The start of the kernel's part of the address space, by the address of printk. Only an address of eight
// digits in front of the bare name fits, so that a 64-bit kernel has none.
char *FindPageOffset() {
  const OwnedLines lines = GrepLines(kKallsyms, " printk");
  if (!lines) {
    return nullptr;
  }
  for (char **line = lines.get(); *line; ++line) {
    const size_t length = strlen(*line);
    if (length == strlen("c0123456 printk") || length == strlen("c0123456 T printk")) {
      return EngineFormat("%c%c000000", (*line)[0], (*line)[1]).release();
    }
  }
  return nullptr;
}

void LearnSymbols(KernPrep_KernelIdentity *kernel) {
  kernel->pageOffset = nullptr;
  if (kernel->versionCode >= KernPrepVersionCode(2, 1, 0)) {
    kernel->pageOffset = FindPageOffset();
  }
  kernel->modVersion = File_Exists(kKsyms) && GrepLines(kKsyms, " Using Versions ");
  kernel->globalCliVersioned = GrepLines(kKsyms, "__global_cli_R__ver___global_cli") != nullptr;
}

void LearnProcessorVariety(KernPrep_KernelIdentity *kernel) {
  const bool athlon = File_Exists(kKsyms) && GrepLines(kKsyms, "mmx_clear_page");
  if (athlon) {
    Log("Detected Athlon kernel variety.\n");
  }
  kernel->athlonKernel = Util_SafeStrdup(athlon ? "required" : "forbidden");
}

bool QueryKernel(KernPrep_KernelIdentity *kernel) {
  if (!LearnIdentity(kernel)) {
    return false;
  }
  LearnSymbols(kernel);
  kernel->osInfo = OsInfo_Probe();
  LearnProcessorVariety(kernel);
  Log("kprep query interface initialized\n");
  return true;
}

bool MakeScratchDirectory() {
  const OwnedString parent(Util_GetSafeTmpDir(true));
  if (!parent) {
    return false;
  }
  OwnedString directory = EngineFormat("%s/modules", parent.get());
  File_DeleteDirectoryTree(directory.get());
  if (!File_CreateDirectory(directory.get())) {
    return false;
  }
  kernPrep.tempDir = directory.release();
  return true;
}

const char *YesNo(bool value) {
  return value ? "yes" : "no";
}

bool WriteProperties(FILE *stream, const KernPrep_KernelIdentity &kernel) {
  if (fprintf(stream,
              "UtsRelease %s\n"
              "UtsVersion %s\n"
              "UtsMachine %s\n"
              "AthlonKernel %s\n"
              "ModVersion %s\n"
              "SMP %s\n",
              kernel.utsRelease, kernel.utsVersion, kernel.utsMachine, kernel.athlonKernel,
              YesNo(kernel.modVersion), YesNo(kernel.smp)) <= 0) {
    return false;
  }
  if (kernel.pageOffset && fprintf(stream, "PageOffset %s\n", kernel.pageOffset) <= 0) {
    return false;
  }
  return fprintf(stream, "Comment NON-SHIPPABLE DEVELOPER BUILT KERNEL MODULE\n") > 0;
}

void FreeString(char **text) {
  free(*text);
  *text = nullptr;
}

}  // namespace

bool KernPrep_Init() {
  kernPrep.libDir = InstallerDB_GetLibDir();
  kernPrep.initDir = InstallerDB_GetInitScriptsDir();
  if (!kernPrep.libDir || !kernPrep.initDir) {
    Log("Unable to locate libdir or initdir\n");
    return false;
  }
  if (!QueryKernel(&kernPrep.kernel)) {
    Log("Unable to initialize kprep query library\n");
    return false;
  }
  if (!MakeScratchDirectory()) {
    return false;
  }
  const OwnedText listPath(g_build_filename(kernPrep.libDir, "modules/modules.xml", nullptr));
  kernPrep.moduleList = KernPrep_ReadModuleList(listPath.get());
  kernPrep.builtModules = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, g_free);
  Log("kprep library initialized\n");
  return true;
}

void KernPrep_DeInit() {
  KernPrep_KernelIdentity &kernel = kernPrep.kernel;
  for (char **text : {&kernel.utsRelease, &kernel.utsMachine, &kernel.utsVersion, &kernel.pageOffset,
                      &kernel.athlonKernel}) {
    FreeString(text);
  }
  if (kernPrep.tempDir) {
    File_DeleteDirectoryTree(kernPrep.tempDir);
    FreeString(&kernPrep.tempDir);
  }
  g_clear_pointer(&kernel.osInfo, g_free);
  g_clear_pointer(&kernPrep.moduleList, KernPrep_FreeModuleList);
  g_clear_pointer(&kernPrep.builtModules, g_hash_table_destroy);
  kernPrep.buildToolsUnchecked = true;
}

char *KernPrep_GetKernelRelease() {
  return Util_SafeStrdup(kernPrep.kernel.utsRelease);
}

bool KernPrep_GeneratePropertyFile(FILE *stream) {
  if (!WriteProperties(stream, kernPrep.kernel)) {
    g_return_if_fail_warning(G_LOG_DOMAIN, "KernPrep_GeneratePropertyFile", "res > 0");
    return false;
  }
  return true;
}

bool KernPrep_ParseVersion(const char *text, uint32_t parts[4]) {
  memset(parts, 0, 4 * sizeof parts[0]);
  return sscanf(text, "%u.%u.%u.%u", &parts[0], &parts[1], &parts[2], &parts[3]) >= 3;
}
