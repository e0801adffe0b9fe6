#include <glib.h>

#include <cstring>

#include "file.h"
#include "kprep.h"
#include "kprepCommandInt.h"
#include "kprepInt.h"
#include "log.h"

namespace {

constexpr size_t kObjectPathSize = 4096;
constexpr char kSmokeModule[] = "ostpool";

using OwnedFields = std::unique_ptr<char *, Releaser<g_strfreev>>;
using OwnedSets = std::unique_ptr<KernPrep_PbmSet, Releaser<KernPrep_FreePbmSets>>;

// What a set says of itself. The strings lie in the file's text.
struct KernPrep_PbmProperties {
  bool modVersion;
  bool smp;
  const char *athlonKernel;
  const char *pageOffset;
  const char *utsMachine;
  const char *utsRelease;
  const char *utsVersion;
};

const char *TruthName(bool value) {
  return value ? "True" : "False";
}

bool IsText(const char *text, const char *expected) {
  return g_strcmp0(text, expected) == 0;
}

void SetProperty(KernPrep_PbmProperties *properties, const char *key, const char *value) {
  if (IsText(key, "ModVersion")) {
    properties->modVersion = IsText(value, "yes");
  } else if (IsText(key, "SMP")) {
    properties->smp = IsText(value, "yes");
  } else if (IsText(key, "AthlonKernel")) {
    properties->athlonKernel = value;
  } else if (IsText(key, "PageOffset")) {
    properties->pageOffset = value;
  } else if (IsText(key, "UtsMachine")) {
    properties->utsMachine = value;
  } else if (IsText(key, "UtsRelease")) {
    properties->utsRelease = value;
  } else if (IsText(key, "UtsVersion")) {
    properties->utsVersion = value;
  }
}

// Cuts the text into keys and values where it lies.
KernPrep_PbmProperties ParseProperties(char *text) {
  KernPrep_PbmProperties properties = {};
  while (text) {
    char *line = text;
    text = strchr(line, '\n');
    if (text) {
      *text++ = '\0';
    }
    if (char *blank = strchr(line, ' ')) {
      *blank = '\0';
      SetProperty(&properties, line, blank + 1);
    }
  }
  return properties;
}

bool PassesSmpTest(const char *name, const KernPrep_PbmProperties &set) {
  if (kernPrep.kernel.smp == set.smp) {
    return true;
  }
  Log("%s failed the SMP test.  System: %s, Module %s.\n", name, TruthName(kernPrep.kernel.smp),
      TruthName(set.smp));
  return false;
}

bool PassesPageOffsetTest(const char *name, const KernPrep_PbmProperties &set) {
  const char *expected = kernPrep.kernel.pageOffset;
  if (!expected || (set.pageOffset && g_ascii_strcasecmp(expected, set.pageOffset) == 0)) {
    return true;
  }
  Log("%s failed the Pageoffset Test.  System: %s, Module: %s.\n", name, expected, set.pageOffset);
  return false;
}

bool PassesArchitectureTest(const char *name, const KernPrep_PbmProperties &set) {
  const char *expected = IsText(kernPrep.kernel.utsMachine, "x86_64") ? "x86_64" : "i386";
  if (IsText(set.utsMachine, expected)) {
    return true;
  }
  Log("%s failed to match the system architecture.\n", name);
  return false;
}

bool PassesAthlonTest(const char *name, const KernPrep_PbmProperties &set) {
  if (IsText(kernPrep.kernel.athlonKernel, "required")) {
    if (IsText(set.athlonKernel, "required")) {
      return true;
    }
    Log("%s failed to match the Athlon kernel requirement.\n", name);
    return false;
  }
  if (!set.athlonKernel || IsText(set.athlonKernel, "forbidden")) {
    return true;
  }
  Log("%s is for Athlon kernels only.\n", name);
  return false;
}

KernPrep_PbmCategory Categorize(const char *name, const KernPrep_PbmProperties &set,
                                const char *mangledRelease) {
  if (!PassesSmpTest(name, set) || !PassesPageOffsetTest(name, set) || !PassesArchitectureTest(name, set) ||
      !PassesAthlonTest(name, set) || !set.utsRelease) {
    return KERNPREP_PBM_DONT_USE;
  }
  // Compatible is asked before perfect; that is wanted. A set with symbol versions is tried on the kernel
  // even when it was made for this very build.
  if (set.modVersion && IsText(OwnedString(KernPrep_MangleRelease(set.utsRelease)).get(), mangledRelease)) {
    Log("%s was categorized as a compatible module set.\n", name);
    return KERNPREP_PBM_COMPATIBLE;
  }
  if (!IsText(set.utsRelease, kernPrep.kernel.utsRelease) ||
      (set.utsVersion && !IsText(set.utsVersion, kernPrep.kernel.utsVersion))) {
    return KERNPREP_PBM_DONT_USE;
  }
  Log("%s was categorized as a perfect module set.\n", name);
  return KERNPREP_PBM_PERFECT;
}

void AppendSet(OwnedSets *list, const char *name, const KernPrep_PbmProperties &properties,
               KernPrep_PbmCategory category) {
  auto *set = static_cast<KernPrep_PbmSet *>(Util_SafeCalloc(1, sizeof(KernPrep_PbmSet)));
  set->name = Util_SafeStrdup(name);
  set->utsRelease = Util_SafeStrdup(properties.utsRelease);
  set->modVersion = properties.modVersion;
  set->category = category;
  if (*list) {
    (*list)->last->next = set;
  } else {
    list->reset(set);
  }
  (*list)->last = set;
}

// Reads one set and appends it to the list if it may be used.
void ConsiderSet(OwnedSets *list, const char *root, const char *name, const char *mangledRelease) {
  const OwnedString path(EngineFormat("%s/%s/properties", root, name));
  char *text = nullptr;
  if (!g_file_get_contents(path.get(), &text, nullptr, nullptr)) {
    Log("Unable to process %s\n", path.get());
    return;
  }
  const OwnedText owner(text);
  const KernPrep_PbmProperties properties = ParseProperties(text);
  const KernPrep_PbmCategory category = Categorize(name, properties, mangledRelease);
  if (category == KERNPREP_PBM_DONT_USE) {
    return;
  }
  AppendSet(list, name, properties, category);
  Log("Got candidate %s\n", name);
}

// A pattern's first and second group joined, or null when the release doesn't match. The pattern holds
// `groupCount` groups, the whole match among them.
OwnedString JoinGroups(const GRegex *pattern, const char *release, int groupCount) {
  GMatchInfo *match = nullptr;
  OwnedString joined;
  if (g_regex_match(pattern, release, GRegexMatchFlags(0), &match)) {
    ASSERT(g_match_info_get_match_count(match) == groupCount);
    const OwnedText first(g_match_info_fetch(match, 1));
    const OwnedText second(g_match_info_fetch(match, 2));
    joined = EngineFormat("%s%s", first.get(), second.get());
  }
  g_match_info_free(match);
  return joined;
}

// Compiled once and kept for the life of the process.
const GRegex *EnterpriseLinuxPattern() {
  static const GRegex *const pattern = g_regex_new("^(\\d+\\.\\d+\\.\\d+-).+\\.((el|EL).*)$",
                                                   GRegexCompileFlags(0), GRegexMatchFlags(0), nullptr);
  return pattern;
}

const GRegex *SusePattern() {
  static const GRegex *const pattern =
      g_regex_new("^(\\d\\.\\d\\.\\d+\\.\\d+)-.+(-.*)$", GRegexCompileFlags(0), GRegexMatchFlags(0), nullptr);
  return pattern;
}

// A field's decimal value cut to 32 bits; -1 for a missing field and for one that is no number.
int32_t FieldNumber(const char *field) {
  if (!field || !*field) {
    return -1;
  }
  uint32_t value = 0;
  for (; *field; ++field) {
    if (!g_ascii_isdigit(*field)) {
      return -1;
    }
    value = value * 10 + static_cast<uint32_t>(*field - '0');
  }
  return static_cast<int32_t>(value);
}

bool IsSmokeModuleLoaded() {
  const OwnedString lsmod(KernPrepProgramPath("lsmod"));
  const OwnedString grep(KernPrepProgramPath("grep"));
  return KernPrepRun(EngineFormat("%s | %s -q %s >/dev/null 2>&1", lsmod.get(), grep.get(), kSmokeModule));
}

// The better one of a compatible set and the best so far, which may be null.
KernPrep_PbmSet *ChooseCompatible(const char *root, KernPrep_PbmSet *set, KernPrep_PbmSet *best,
                                  const char *kernelRelease) {
  if (KernPrep_CompareReleases(kernelRelease, set->utsRelease) < 0) {
    Log("PBMs in %s are compiled against a newer kernel and will not be used.\n", set->name);
    return best;
  }
  if (!best) {
    if (KernPrep_SmokeTest(root, set, kernelRelease) == 0) {
      return nullptr;
    }
    Log("PBMs in %s are a compatible match with the running kernel.\n", set->name);
    return set;
  }
  // Only a set that would replace the best one is worth a trial on the kernel.
  if (KernPrep_CompareReleases(set->utsRelease, best->utsRelease) == 1 &&
      KernPrep_SmokeTest(root, set, kernelRelease) != 0) {
    Log("PBMs in %s are a better match than those in %s.\n", set->name, best->name);
    return set;
  }
  Log("PBMs in %s are a better match than those in %s.\n", best->name, set->name);
  return best;
}

OwnedString PbmRoot() {
  return EngineFormat("%s/modules/binary", kernPrep.libDir);
}

}  // namespace

bool KernPrep_HasPrebuiltModule(const char *module) {
  const OwnedString root(PbmRoot());
  const OwnedSets sets(KernPrep_ScanPbmSets(root.get()));
  const KernPrep_PbmSet *set = KernPrep_SelectPbmSet(root.get(), sets.get(), nullptr);
  return set && File_Exists(KernPrep_GetPbmObjectPath(root.get(), set, module));
}

bool KernPrep_InstallPrebuiltModule(const char *module, const char *subdirectory, const char *installName) {
  const OwnedString root(PbmRoot());
  const OwnedSets sets(KernPrep_ScanPbmSets(root.get()));
  const KernPrep_PbmSet *set = KernPrep_SelectPbmSet(root.get(), sets.get(), nullptr);
  if (!set) {
    return false;
  }
  Log("Using PBMs in %s...\n", set->name);
  return KernPrep_InstallModule(module, KernPrep_GetPbmObjectPath(root.get(), set, module), subdirectory,
                                installName);
}

KernPrep_PbmSet *KernPrep_ScanPbmSets(const char *root) {
  char **names = nullptr;
  const int count = File_ListDirectory(root, &names);
  const OwnedString mangledRelease(KernPrep_MangleRelease(kernPrep.kernel.utsRelease));
  if (count < 0) {
    return nullptr;
  }
  OwnedSets list;
  for (int i = 0; i < count; ++i) {
    ConsiderSet(&list, root, names[i], mangledRelease.get());
  }
  File_FreeNames(names, count);
  return list.release();
}

KernPrep_PbmSet *KernPrep_SelectPbmSet(const char *root, KernPrep_PbmSet *list, const char *kernelRelease) {
  if (!kernelRelease) {
    kernelRelease = kernPrep.kernel.utsRelease;
  }
  Log("Trying to find a suitable PBM set for kernel %s.\n", kernelRelease);
  KernPrep_PbmSet *best = nullptr;
  for (KernPrep_PbmSet *set = list; set; set = set->next) {
    Log("Analyzing PBM set %s.\n", set->name);
    if (set->category == KERNPREP_PBM_PERFECT) {
      Log("PBMs in %s are a perfect match for the running kernel.\n", set->name);
      return set;
    }
    if (set->category == KERNPREP_PBM_COMPATIBLE) {
      best = ChooseCompatible(root, set, best, kernelRelease);
    }
  }
  return best;
}

int KernPrep_SmokeTest(const char *root, const KernPrep_PbmSet *set, const char *kernelRelease) {
  const char *object = KernPrep_GetPbmObjectPath(root, set, kSmokeModule);
  if (!IsText(kernelRelease, kernPrep.kernel.utsRelease)) {
    Log("Smoke test skipped because running kernel version does not match the kernel version used in the PBM "
        "search.\n");
    return -1;
  }
  if (!File_Exists(object)) {
    Log("The %s module was not found at %s.  Skipping smoke test.\n", kSmokeModule, object);
    return -1;
  }
  if (IsSmokeModuleLoaded()) {
    Log("%s is loaded.  Attempting to unload...\n", kSmokeModule);
    if (!KernPrep_UnloadModule(kSmokeModule)) {
      Log("Failed to unload %s.  Skipping smoke test.\n", kSmokeModule);
      return -1;
    }
  }
  if (!KernPrepRun(EngineFormat("%s %s >/dev/null 2>&1", KernPrep_FindInPath("insmod"), object))) {
    Log("The %s PBM set failed the smoke test.\n", set->name);
    return 0;
  }
  KernPrep_UnloadModule(kSmokeModule);
  Log("The %s PBM set passed the smoke test.\n", set->name);
  return 1;
}

char *KernPrep_MangleRelease(const char *release) {
  OwnedString mangled(JoinGroups(EnterpriseLinuxPattern(), release, 4));
  if (!mangled && kernPrep.kernel.osInfo->versionMajor > 9) {
    mangled = JoinGroups(SusePattern(), release, 3);
  }
  return mangled ? mangled.release() : Util_SafeStrdup(release);
}

int KernPrep_CompareReleases(const char *first, const char *second) {
  const OwnedFields firstFields(g_strsplit_set(first, ".-", -1));
  const OwnedFields secondFields(g_strsplit_set(second, ".-", -1));
  char **left = firstFields.get();
  char **right = secondFields.get();
  while (*left || *right) {
    const int32_t leftNumber = FieldNumber(*left);
    const int32_t rightNumber = FieldNumber(*right);
    if (leftNumber != rightNumber) {
      return leftNumber > rightNumber ? 1 : -1;
    }
    left += *left ? 1 : 0;
    right += *right ? 1 : 0;
  }
  return 0;
}

const char *KernPrep_GetPbmObjectPath(const char *root, const KernPrep_PbmSet *set, const char *module) {
  // The latest path, for the life of the process.
  static char path[kObjectPathSize];
  Str_Snprintf(path, sizeof path, "%s/%s/objects/%s.o", root, set->name, module);
  return path;
}

void KernPrep_FreePbmSets(KernPrep_PbmSet *list) {
  while (list) {
    KernPrep_PbmSet *next = list->next;
    free(list->name);
    free(list->utsRelease);
    free(list);
    list = next;
  }
}
