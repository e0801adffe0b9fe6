#include "osinfo.h"

#include <glib.h>

#include <cstdlib>
#include <memory>

#include "file.h"
#include "formatInt.h"
#include "log.h"
#include "owned.h"
#include "panicUser.h"

namespace {

constexpr char kSuseRelease[] = "/etc/SuSE-release";

using OwnedRegex = std::unique_ptr<GRegex, Releaser<g_regex_unref>>;
using OwnedMatch = std::unique_ptr<GMatchInfo, Releaser<g_match_info_free>>;

// Bytes are matched, not characters: a file in an old encoding is no less a release file.
OwnedRegex CompileCaseless(const char *pattern) {
  return OwnedRegex(g_regex_new(pattern, static_cast<GRegexCompileFlags>(G_REGEX_CASELESS | G_REGEX_RAW),
                                static_cast<GRegexMatchFlags>(0), nullptr));
}

// The first match, or null when there is none.
OwnedMatch Match(const GRegex *pattern, const char *text) {
  GMatchInfo *match = nullptr;
  const bool matches = g_regex_match(pattern, text, static_cast<GRegexMatchFlags>(0), &match);
  OwnedMatch owned(match);
  return matches ? std::move(owned) : nullptr;
}

int32_t GroupNumber(const GMatchInfo *match, int group) {
  const OwnedText digits(g_match_info_fetch(match, group));
  return static_cast<int32_t>(strtol(digits.get(), nullptr, 10));
}

void ReadSuseVersion(KernPrep_OsInfo *info, const GMatchInfo *match) {
  const int count = g_match_info_get_match_count(match);
  ASSERT(count == 2 || count == 3);
  info->versionMajor = GroupNumber(match, 1);
  if (count == 3) {
    info->versionMinor = GroupNumber(match, 2);
  }
  Log("System version is %d.%d\n", info->versionMajor, info->versionMinor);
}

}  // namespace

KernPrep_OsInfo *OsInfo_Probe() {
  auto *info = g_new0(KernPrep_OsInfo, 1);
  if (!File_Exists(kSuseRelease)) {
    return info;
  }
  const OwnedRegex enterprise = CompileCaseless("suse linux enterprise");
  const OwnedRegex version = CompileCaseless("version = ([0-9]+)\\.?([0-9])?");
  char *content = nullptr;
  if (!g_file_get_contents(kSuseRelease, &content, nullptr, nullptr)) {
    Log("Failed to open %s.\n", kSuseRelease);
    return info;
  }
  const OwnedText text(content);
  info->distribution = OSINFO_DISTRIBUTION_SUSE;
  Log("System distribution is SuSE\n");
  if (Match(enterprise.get(), text.get())) {
    info->variant = OSINFO_VARIANT_SUSE_ENTERPRISE;
    Log("System variant is SuSE enterprise\n");
  }
  if (const OwnedMatch match = Match(version.get(), text.get())) {
    ReadSuseVersion(info, match.get());
  }
  return info;
}
