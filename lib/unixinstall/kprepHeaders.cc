#include <glib.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "file.h"
#include "kprep.h"
#include "kprepCommandInt.h"
#include "kprepInt.h"
#include "log.h"

namespace {

// The word that leads the one line of the preprocessor's output that is looked at.
constexpr std::string_view kMarker = "OST_CHECK";
constexpr int kLineSize = 128;

using OwnedPipe = std::unique_ptr<FILE, Releaser<pclose>>;

OwnedString CopyText(std::string_view text) {
  return OwnedString(Util_SafeStrndup(text.data(), text.size()));
}

// What stands behind the marker and one further character.
OwnedString BareValue(std::string_view line) {
  if (line.ends_with('\n')) {
    line.remove_suffix(1);
  }
  return CopyText(line.substr(std::min(line.size(), kMarker.size() + 1)));
}

OwnedString ReadMarkedValue(FILE *preprocessed) {
  OwnedString value;
  char buffer[kLineSize];
  while (fgets(buffer, sizeof buffer, preprocessed)) {
    const std::string_view line = buffer;
    if (!line.starts_with(kMarker)) {
      continue;
    }
    const size_t open = line.find('"');
    if (open == std::string_view::npos) {
      return BareValue(line);
    }
    const size_t close = line.find('"', open + 1);
    if (close == std::string_view::npos) {
      return value;
    }
    value = CopyText(line.substr(open + 1, close - open - 1));
  }
  return value;
}

// releaseHeader  may be null: then linux/version.h defines the release itself
bool ReleaseFits(const char *directory, const char *releaseHeader) {
  const char *const headers[] = {"linux/version.h", releaseHeader, nullptr};
  const OwnedString release(KernPrep_QueryMacro(headers, directory, "UTS_RELEASE"));
  uint32_t parts[4];
  return release && strcmp(release.get(), kernPrep.kernel.utsRelease) == 0 &&
         KernPrep_ParseVersion(release.get(), parts);
}

bool ConfigurationFits(const char *directory, const char *configHeader) {
  if (!KernPrep_HeaderExists(directory, configHeader)) {
    return false;
  }
  const char *const headers[] = {configHeader, nullptr};
  const OwnedString smp(KernPrep_QueryMacro(headers, directory, "CONFIG_SMP"));
  // A macro that isn't defined comes back as its own name, which reads as 0.
  return smp && strtol(smp.get(), nullptr, 10) == (kernPrep.kernel.smp ? 1 : 0);
}

bool IsDirectoryBelow(const char *directory, const char *name) {
  return File_IsDirectory(EngineFormat("%s/%s", directory, name).get());
}

bool PageOffsetFits(const char *directory) {
  const char *const headers[] = {"asm/page.h", nullptr};
  const OwnedString offset(KernPrep_QueryMacro(headers, directory, "__PAGE_OFFSET"));
  const char *expected = kernPrep.kernel.pageOffset;
  return !expected || (offset && g_ascii_strcasecmp(offset.get(), expected) == 0);
}

bool IsKernelWithConfiguredTree() {
  // Kernels newer than 2.5.0 and, because the difference wraps, those older than 2.0.0.
  return static_cast<uint32_t>(kernPrep.kernel.versionCode) - 0x20000U > 0x500U;
}

}  // namespace

char *KernPrep_FindHeaderDir() {
  OwnedString directory(EngineFormat("/lib/modules/preferred/build/include"));
  if (KernPrep_ValidateHeaderDir(directory.get())) {
    return directory.release();
  }
  directory = EngineFormat("/lib/modules/%s/build/include", kernPrep.kernel.utsRelease);
  return KernPrep_ValidateHeaderDir(directory.get()) ? directory.release() : nullptr;
}

bool KernPrep_ValidateHeaderDir(const char *directory) {
  if (!KernPrep_HeaderExists(directory, "linux/version.h")) {
    return false;
  }
  const bool generated = KernPrep_HeaderExists(directory, "generated/utsrelease.h");
  const char *releaseHeader = nullptr;
  if (generated) {
    releaseHeader = "generated/utsrelease.h";
  } else if (KernPrep_HeaderExists(directory, "linux/utsrelease.h")) {
    releaseHeader = "linux/utsrelease.h";
  }
  if (!ReleaseFits(directory, releaseHeader) ||
      !ConfigurationFits(directory, generated ? "generated/autoconf.h" : "linux/autoconf.h")) {
    return false;
  }
  if (IsKernelWithConfiguredTree()) {
    return KernPrep_HeaderExists(directory, "../Makefile") && KernPrep_HeaderExists(directory, "../.config");
  }
  return IsDirectoryBelow(directory, "asm") && IsDirectoryBelow(directory, "net") &&
         PageOffsetFits(directory);
}

char *KernPrep_QueryMacro(const char *const *headers, const char *directory, const char *macro) {
  const OwnedString compiler(KernPrep_FindCompiler());
  if (!compiler) {
    Log("GCC isn't available, I can't preprocess anything.\n");
    return nullptr;
  }
  std::string includes;
  for (const char *const *header = headers; *header; ++header) {
    includes.append("#include <").append(*header).append(">\n");
  }
  const OwnedString command(EngineFormat("echo '#define __KERNEL__\n%s\n%s %s' | %s -E -I%s -",
                                         includes.c_str(), kMarker.data(), macro, compiler.get(), directory));
  const OwnedPipe preprocessed(Posix_Popen(command.get(), "r"));
  return preprocessed ? ReadMarkedValue(preprocessed.get()).release() : nullptr;
}

bool KernPrep_HeaderExists(const char *directory, const char *relativePath) {
  return File_Exists(EngineFormat("%s/%s", directory, relativePath).get());
}
