#include "hostinfoOs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>

#include "err.h"
#include "hostinfoOsInt.h"
#include "log.h"
#include "ostdio.h"
#include "owned.h"
#include "panicUser.h"
#include "posixPosix.h"
#include "str.h"
#include "strutil.h"
#include "util_misc.h"

namespace {

using OwnedPipe = std::unique_ptr<FILE, Releaser<pclose>>;

constexpr size_t kFullNameSize = 192;
constexpr size_t kShortNameSize = 64;
constexpr size_t kReleaseSize = 65;
constexpr char kLsbCommand[] = "lsb_release -sd 2>/dev/null";

struct OSNames {
  char fullName[kFullNameSize];
  char shortName[kShortNameSize];
};

// The host's names: filled by the first search that succeeds, and kept until the process ends. They are
// written once, under the lock, before the flag is set.
struct OSNameCache {
  std::atomic<bool> lock;
  std::atomic<bool> cached;
  OSNames names;
};
OSNameCache osNameCache;

struct OSVersion {
  int numbers[4];
  char release[kReleaseSize];
};

// Null until a thread has read the version; the first one's stays until the process ends.
std::atomic<const OSVersion *> osVersion;

struct Distribution {
  char text[kHostinfoDistroSize];
  char shortName[kHostinfoDistroSize];
};

struct ReleaseFile {
  const char *distribution;  // for the reader
  const char *path;
};

constexpr ReleaseFile kReleaseFiles[] = {
    {"RedHat", "/etc/redhat-release"},
    {"RedHat", "/etc/redhat_version"},
    {"Sun", "/etc/sun-release"},
    {"SuSE", "/etc/SuSE-release"},
    {"SuSE", "/etc/novell-release"},
    {"SuSE", "/etc/sles-release"},
    {"Debian", "/etc/debian_version"},
    {"Debian", "/etc/debian_release"},
    {"Mandrake", "/etc/mandrake-release"},
    {"Mandriva", "/etc/mandriva-release"},
    {"Mandrake", "/etc/mandrakelinux-release"},
    {"TurboLinux", "/etc/turbolinux-release"},
    {"Fedora Core", "/etc/fedora-release"},
    {"Gentoo", "/etc/gentoo-release"},
    {"Novell", "/etc/nld-release"},
    {"Ubuntu", "/etc/lsb-release"},
    {"Annvix", "/etc/annvix-release"},
    {"Arch", "/etc/arch-release"},
    {"Arklinux", "/etc/arklinux-release"},
    {"Aurox", "/etc/aurox-release"},
    {"BlackCat", "/etc/blackcat-release"},
    {"Cobalt", "/etc/cobalt-release"},
    {"Conectiva", "/etc/conectiva-release"},
    {"Immunix", "/etc/immunix-release"},
    {"Knoppix", "/etc/knoppix_version"},
    {"Linux-From-Scratch", "/etc/lfs-release"},
    {"Linux-PPC", "/etc/linuxppc-release"},
    {"MkLinux", "/etc/mklinux-release"},
    {"PLD", "/etc/pld-release"},
    {"Slackware", "/etc/slackware-version"},
    {"Slackware", "/etc/slackware-release"},
    {"SMEServer", "/etc/e-smith-release"},
    {"Solaris", "/etc/release"},
    {"Tiny Sofa", "/etc/tinysofa-release"},
    {"UltraPenguin", "/etc/ultrapenguin-release"},
    {"UnitedLinux", "/etc/UnitedLinux-release"},
    {"VALinux", "/etc/va-release"},
    {"Yellow Dog", "/etc/yellowdog-release"},
};

struct LsbField {
  const char *key;
  const char *pattern;
};

constexpr LsbField kLsbFields[] = {
    {"DISTRIB_ID=", "DISTRIB_ID=%s"},
    {"DISTRIB_RELEASE=", "DISTRIB_RELEASE=%s"},
    {"DISTRIB_CODENAME=", "DISTRIB_CODENAME=%s"},
    {"DISTRIB_DESCRIPTION=", "DISTRIB_DESCRIPTION=%s"},
};

struct ShortNameRule {
  enum { kHolds, kBegins } test;
  const char *words[3];   // a text passes with all of them
  const char *shortName;  // null for the default
};

// The first rule that fits counts, so "arch" takes whatever has these four letters from all rules below it.
constexpr ShortNameRule kShortNameRules[] = {
    {ShortNameRule::kHolds, {"red hat"}, "redhat"},
    {ShortNameRule::kHolds, {"suse", "enterprise", "server 11"}, "sles11"},
    {ShortNameRule::kHolds, {"suse", "enterprise", "server 10"}, "sles10"},
    {ShortNameRule::kHolds, {"suse", "enterprise"}, "sles"},
    {ShortNameRule::kHolds, {"suse", "sun"}, "sjds"},
    {ShortNameRule::kHolds, {"suse", "novell"}, "nld9"},
    {ShortNameRule::kHolds, {"suse"}, "suse"},
    {ShortNameRule::kHolds, {"mandrake"}, "mandrake"},
    {ShortNameRule::kHolds, {"turbolinux"}, "turbolinux"},
    {ShortNameRule::kHolds, {"sun"}, "sjds"},
    {ShortNameRule::kHolds, {"annvix"}, "Annvix"},
    {ShortNameRule::kHolds, {"arch"}, "Arch"},
    {ShortNameRule::kHolds, {"arklinux"}, "Arklinux"},
    {ShortNameRule::kHolds, {"asianux server 3"}, "asianux3"},
    {ShortNameRule::kHolds, {"asianux client 3"}, "asianux3"},
    {ShortNameRule::kHolds, {"asianux server 4"}, "asianux4"},
    {ShortNameRule::kHolds, {"asianux client 4"}, "asianux4"},
    {ShortNameRule::kHolds, {"aurox"}, "Aurox"},
    {ShortNameRule::kHolds, {"black cat"}, "BlackCat"},
    {ShortNameRule::kHolds, {"cobalt"}, "Cobalt"},
    {ShortNameRule::kBegins, {"centos"}, "centos"},
    {ShortNameRule::kHolds, {"conectiva"}, "Conectiva"},
    {ShortNameRule::kHolds, {"debian", "4.0"}, "debian4"},
    {ShortNameRule::kHolds, {"debian", "5.0"}, "debian5"},
    {ShortNameRule::kHolds, {"debian"}, nullptr},
    {ShortNameRule::kBegins, {"enterprise linux"}, "oraclelinux"},
    {ShortNameRule::kHolds, {"fedora"}, "Fedora"},
    {ShortNameRule::kHolds, {"gentoo"}, "Gentoo"},
    {ShortNameRule::kHolds, {"immunix"}, "Immunix"},
    {ShortNameRule::kHolds, {"linux-from-scratch"}, "Linux-From-Scratch"},
    {ShortNameRule::kHolds, {"linux-ppc"}, "Linux-PPC"},
    {ShortNameRule::kHolds, {"mandriva"}, "mandriva"},
    {ShortNameRule::kHolds, {"mklinux"}, "MkLinux"},
    {ShortNameRule::kHolds, {"pld"}, "PLD"},
    {ShortNameRule::kHolds, {"slackware"}, "Slackware"},
    {ShortNameRule::kHolds, {"sme server"}, "SMEServer"},
    {ShortNameRule::kHolds, {"tiny sofa"}, "Tiny Sofa"},
    {ShortNameRule::kHolds, {"ubuntu"}, "Ubuntu"},
    {ShortNameRule::kHolds, {"ultra penguin"}, "UltraPenguin"},
    {ShortNameRule::kHolds, {"united linux"}, "UnitedLinux"},
    {ShortNameRule::kHolds, {"va linux"}, "VALinux"},
    {ShortNameRule::kHolds, {"yellow dog"}, "Yellow Dog"},
};

// ---- The kernel's version

// Reads the first three numbers of a release and, behind a point, the fourth. Returns whether there was one.
bool ParseRelease(OSVersion *version) {
  int *numbers = version->numbers;
  char rest[kReleaseSize] = "";
  // cppcheck-suppress invalidscanf ; the rest has as much room as the whole release
  if (sscanf(version->release, "%d.%d.%d%s", &numbers[0], &numbers[1], &numbers[2], rest) < 1) {
    return false;
  }
  if (sscanf(rest, ".%d%*s", &numbers[3]) < 1) {
    numbers[3] = 0;
  }
  return true;
}

const OSVersion *Version() {
  HostinfoOSVersionInit();
  return osVersion.load(std::memory_order_acquire);
}

// ---- The distribution

bool Holds(const char *text, const char *word) {
  return strstr(text, word) != nullptr;
}

bool Fits(const ShortNameRule &rule, const char *text) {
  return std::all_of(std::begin(rule.words), std::end(rule.words), [&](const char *word) {
    return word == nullptr ||
           (rule.test == ShortNameRule::kBegins ? StrUtil_StartsWith(text, word) : Holds(text, word));
  });
}

void NameRedHatEnterprise(const char *text, char (&shortName)[kHostinfoDistroSize]) {
  const char *release = strstr(text, "release");
  int number = 0;
  if (release != nullptr && sscanf(release, "release %d", &number) == 1 && number > 0) {
    Str_Sprintf(shortName, sizeof shortName, "rhel%d", number);
    return;
  }
  Warning("%s: could not read Red Hat Enterprise release version\n", "HostinfoGetOSShortName");
  Str_Strcpy(shortName, "rhel", sizeof shortName);
}

// Reads the whole of an open release file but its last byte. Returns a new string (free) that has room for a
// distribution's text, or null with a warning.
char *ReadReleaseFile(int fd, const char *path) {
  constexpr char kCaller[] = "HostinfoReadDistroFile";
  struct stat info {};
  if (fstat(fd, &info) == -1) {
    Warning("%s: could not stat the file %s: %d\n", kCaller, path, errno);
    return nullptr;
  }
  if (info.st_size == 0) {
    Warning("%s: Cannot work with empty file.\n", kCaller);
    return nullptr;
  }
  const auto size = static_cast<size_t>(info.st_size);
  if (size >= kHostinfoDistroSize) {
    Warning("%s: input buffer too small\n", kCaller);
    return nullptr;
  }
  OwnedString content(static_cast<char *>(calloc(1, kHostinfoDistroSize)));
  if (content == nullptr) {
    Warning("%s: could not allocate memory\n", kCaller);
    return nullptr;
  }
  errno = 0;  // a short read sets none
  if (read(fd, content.get(), size) != info.st_size) {
    Warning("%s: could not read file %s: %d\n", kCaller, path, errno);
    return nullptr;
  }
  // Takes the file's newline away, and the last character of a file that ends without one.
  content.get()[size - 1] = '\0';
  return content.release();
}

// Appends the field's value and a blank to the text, if the content has the field. Returns false with a
// warning when it doesn't fit: values may overlap and so be longer than the file.
bool AppendLsbValue(const char *content, const LsbField &field, char (&distro)[kHostinfoDistroSize]) {
  const char *found = strstr(content, field.key);
  char scanned[kHostinfoDistroSize];
  if (found == nullptr || sscanf(found, field.pattern, scanned) != 1) {
    return true;
  }
  const char *value = scanned;
  size_t length = strlen(scanned);
  if (scanned[0] == '"') {
    value = strchr(found, '"') + 1;
    const char *end = strchr(value, '"');
    if (end == nullptr) {
      return true;
    }
    length = static_cast<size_t>(end - value);
  }
  if (strlen(distro) + length + sizeof " " > sizeof distro) {
    Warning("%s: input buffer too small\n", "HostinfoReadDistroFile");
    return false;
  }
  Str_Strncat(distro, sizeof distro, value, length);
  Str_Strcat(distro, " ", sizeof distro);
  return true;
}

Distribution DefaultDistribution(const char *release) {
  if (StrUtil_StartsWith(release, "2.4.")) {
    return {"Other Linux 2.4.x kernel", "other24xlinux"};
  }
  if (StrUtil_StartsWith(release, "2.6.")) {
    return {"Other Linux 2.6.x kernel", "other26xlinux"};
  }
  return {"Other Linux", "otherlinux"};
}

// Takes the distribution's text from the first line of the LSB command, without its quotes. Returns false
// when there is no answer.
bool AskLsb(char (&distro)[kHostinfoDistroSize]) {
  const OwnedPipe output(Posix_Popen(kLsbCommand, "r"));
  if (output == nullptr) {
    Warning("Unable to get output of command \"%s\"\n", kLsbCommand);
    return false;
  }
  char *line = nullptr;
  if (StdIO_ReadNextLine(output.get(), &line, 0, nullptr) != StdIO_Success) {
    return false;
  }
  const OwnedString owner(line);
  if (line[0] == '"') {
    line++;
    line[strcspn(line, "\"")] = '\0';
  }
  // A line that is cut is still too long for the full name.
  distro[0] = '\0';
  Str_Strncat(distro, sizeof distro, line, sizeof distro - 1);
  return true;
}

bool SearchReleaseFiles(char (&distro)[kHostinfoDistroSize]) {
  return std::any_of(std::begin(kReleaseFiles), std::end(kReleaseFiles),
                     [&](const ReleaseFile &file) { return HostinfoReadDistroFile(file.path, distro); });
}

// ---- The names

// Whether so many bytes fit into so many; warns when they don't.
bool FitsInto(size_t needed, size_t size) {
  if (needed > size) {
    Warning("%s: Error: buffer too small\n", "HostinfoOSData");
    return false;
  }
  return true;
}

// The functions that follow add what they know of the host to its names. They return false with a warning
// when that can't be found or doesn't fit.

bool NameSystem(const utsname &host, OSNames *names) {
  if (!FitsInto(strlen(host.sysname) + strlen(host.release) + 3, kFullNameSize)) {
    return false;
  }
  Str_Sprintf(names->fullName, kFullNameSize, "%s %s", host.sysname, host.release);
  return true;
}

bool NameDistribution(const utsname &host, OSNames *names) {
  Distribution distribution = DefaultDistribution(host.release);
  if (!AskLsb(distribution.text) && !SearchReleaseFiles(distribution.text)) {
    Warning("%s: Error: no distro file found\n", "HostinfoOSData");
    return false;
  }
  HostinfoGetOSShortName(distribution.text, distribution.shortName);
  if (!FitsInto(strlen(names->fullName) + strlen(distribution.text) + 2, kFullNameSize) ||
      !FitsInto(strlen(distribution.shortName) + 1, kShortNameSize)) {
    return false;
  }
  Str_Strcat(names->fullName, " ", kFullNameSize);
  Str_Strcat(names->fullName, distribution.text, kFullNameSize);
  Str_Strcpy(names->shortName, distribution.shortName, kShortNameSize);
  return true;
}

bool NameFreeBSD(const utsname &host, OSNames *names) {
  if (!FitsInto(strcspn(host.release, "-") + sizeof "FreeBSD", kShortNameSize)) {
    return false;
  }
  Str_Strcpy(names->shortName, "FreeBSD", kShortNameSize);
  return true;
}

bool NameSolaris(const utsname &host, OSNames *names) {
  char number[3];
  if (sscanf(host.release, "5.%2[0-9]", number) != 1) {
    number[0] = '\0';
  }
  if (!FitsInto(strlen(number) + sizeof "solaris", kShortNameSize)) {
    return false;
  }
  Str_Sprintf(names->shortName, kShortNameSize, "solaris%s", number);
  return true;
}

bool NameVariety(const utsname &host, OSNames *names) {
  if (Holds(names->fullName, "Linux")) {
    return NameDistribution(host, names);
  }
  if (Holds(names->fullName, "FreeBSD")) {
    return NameFreeBSD(host, names);
  }
  if (Holds(names->fullName, "SunOS")) {
    return NameSolaris(host, names);
  }
  return true;
}

bool NameBitness(OSNames *names) {
  if (Hostinfo_GetSystemBitness() != 64) {
    return true;
  }
  if (!FitsInto(strlen(names->shortName) + sizeof "-64", kShortNameSize)) {
    return false;
  }
  Str_Strcat(names->shortName, "-64", kShortNameSize);
  return true;
}

void RemoveNewline(char *text) {
  const size_t length = strlen(text);
  if (length > 0 && text[length - 1] == '\n') {
    text[length - 1] = '\0';
  }
}

void CacheNames(const OSNames &names) {
  while (osNameCache.lock.exchange(true, std::memory_order_acquire)) {
  }
  if (!osNameCache.cached.load(std::memory_order_relaxed)) {
    osNameCache.names = names;
    osNameCache.cached.store(true, std::memory_order_release);
  }
  osNameCache.lock.store(false, std::memory_order_release);
}

}  // namespace

void HostinfoOSVersionInit() {
  if (osVersion.load(std::memory_order_acquire) != nullptr) {
    return;
  }
  utsname host;
  if (uname(&host) < 0) {
    Warning("%s unable to get host OS version (uname): %s\n", __func__, Err_ErrString());
    NOT_IMPLEMENTED();
  }
  OSVersion version = {};
  Str_Strcpy(version.release, host.release, sizeof version.release);
  if (!ParseRelease(&version)) {
    Warning("%s unable to parse host OS version string: %s\n", __func__, version.release);
    NOT_IMPLEMENTED();
  }
  auto *kept = static_cast<OSVersion *>(Util_SafeMalloc(sizeof(OSVersion)));
  *kept = version;
  const OSVersion *none = nullptr;
  if (!osVersion.compare_exchange_strong(none, kept, std::memory_order_acq_rel)) {
    free(kept);
  }
}

int Hostinfo_OSVersion(unsigned index) {
  const OSVersion *version = Version();
  return index < std::size(version->numbers) ? version->numbers[index] : 0;
}

const char *Hostinfo_OSVersionString() {
  return Version()->release;
}

int Hostinfo_GetSystemBitness() {
  utsname host;
  if (uname(&host) < 0) {
    return -1;
  }
  return Holds(host.machine, "x86_64") ? 64 : 32;
}

void HostinfoGetOSShortName(const char *distro, char (&shortName)[kHostinfoDistroSize]) {
  const OwnedString text(strdup(distro));
  if (text == nullptr) {
    Warning("%s: could not allocate memory\n", __func__);
    return;
  }
  Str_ToLower(text.get());
  if (Holds(text.get(), "red hat") && Holds(text.get(), "enterprise")) {
    NameRedHatEnterprise(text.get(), shortName);
    return;
  }
  const auto *rule = std::find_if(std::begin(kShortNameRules), std::end(kShortNameRules),
                                  [&](const ShortNameRule &one) { return Fits(one, text.get()); });
  if (rule != std::end(kShortNameRules) && rule->shortName != nullptr) {
    Str_Strcpy(shortName, rule->shortName, sizeof shortName);
  }
}

bool HostinfoReadDistroFile(const char *path, char (&distro)[kHostinfoDistroSize]) {
  const int fd = Posix_Open(path, O_RDONLY | O_CLOEXEC);
  if (fd == -1) {
    // The missing blank is wanted.
    Warning("%s: could not open file%s: %d\n", __func__, path, errno);
    return false;
  }
  const OwnedString content(ReadReleaseFile(fd, path));
  close(fd);
  if (content == nullptr) {
    return false;
  }
  distro[0] = '\0';
  if (!std::all_of(std::begin(kLsbFields), std::end(kLsbFields),
                   [&](const LsbField &field) { return AppendLsbValue(content.get(), field, distro); })) {
    return false;
  }
  if (distro[0] == '\0') {
    Str_Strcpy(distro, content.get(), sizeof distro);
  }
  return true;
}

bool HostinfoOSData() {
  utsname host;
  if (uname(&host) < 0) {
    Warning("%s: uname failed %d\n", __func__, errno);
    return false;
  }
  OSNames names = {};
  if (!NameSystem(host, &names) || !NameVariety(host, &names) || !NameBitness(&names)) {
    return false;
  }
  RemoveNewline(names.fullName);
  CacheNames(names);
  return true;
}

bool Hostinfo_GetOSName(unsigned fullNameSize, unsigned shortNameSize, char *fullName, char *shortName) {
  if (!osNameCache.cached.load(std::memory_order_acquire) && !HostinfoOSData()) {
    return false;
  }
  Str_Strcpy(fullName, osNameCache.names.fullName, fullNameSize);
  Str_Strcpy(shortName, osNameCache.names.shortName, shortNameSize);
  return true;
}
