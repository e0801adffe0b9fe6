// Release files of distributions: a file's text is what a plain reading of its bytes gives, and its short
// name is one of the known ones. The first byte chooses between the file and the bare text of a distribution.

#include <algorithm>
#include <cctype>
#include <cstring>
#include <optional>
#include <set>
#include <string>

#include "../lib/misc/hostinfoOsInt.h"
#include "fuzzFile.h"
#include "log.h"

namespace {

void Expect(bool holds) {
  if (!holds) {
    abort();
  }
}

bool IsBlank(char byte) {
  return isspace(static_cast<unsigned char>(byte)) != 0;
}

// The value behind a key, if there is one.
std::optional<std::string> Value(const std::string &content, const std::string &key) {
  const size_t at = content.find(key);
  if (at == std::string::npos) {
    return std::nullopt;
  }
  const auto begin =
      std::find_if_not(content.begin() + static_cast<ptrdiff_t>(at + key.size()), content.end(), IsBlank);
  if (begin == content.end()) {
    return std::nullopt;
  }
  if (*begin != '"') {
    return std::string(begin, std::find_if(begin, content.end(), IsBlank));
  }
  const auto end = std::find(begin + 1, content.end(), '"');
  return end == content.end() ? std::nullopt : std::optional(std::string(begin + 1, end));
}

// The text of a distribution, if the file is accepted.
std::optional<std::string> Distro(const std::string &bytes) {
  if (bytes.empty() || bytes.size() >= kHostinfoDistroSize) {
    return std::nullopt;
  }
  const std::string content = bytes.substr(0, std::min(bytes.find('\0'), bytes.size() - 1));
  std::string text;
  for (const char *key : {"DISTRIB_ID=", "DISTRIB_RELEASE=", "DISTRIB_CODENAME=", "DISTRIB_DESCRIPTION="}) {
    if (const std::optional<std::string> value = Value(content, key)) {
      text += *value + " ";
    }
  }
  if (text.size() >= kHostinfoDistroSize) {
    return std::nullopt;
  }
  return text.empty() ? content : text;
}

bool IsShortName(const std::string &name) {
  static const std::set<std::string> known = {
      "default",      "rhel",        "redhat",     "sles11",
      "sles10",       "sles",        "sjds",       "nld9",
      "suse",         "mandrake",    "turbolinux", "Annvix",
      "Arch",         "Arklinux",    "asianux3",   "asianux4",
      "Aurox",        "BlackCat",    "Cobalt",     "centos",
      "Conectiva",    "debian4",     "debian5",    "oraclelinux",
      "Fedora",       "Gentoo",      "Immunix",    "Linux-From-Scratch",
      "Linux-PPC",    "mandriva",    "MkLinux",    "PLD",
      "Slackware",    "SMEServer",   "Tiny Sofa",  "Ubuntu",
      "UltraPenguin", "UnitedLinux", "VALinux",    "Yellow Dog"};
  const bool numbered = name.size() > 4 && name.compare(0, 4, "rhel") == 0 && name[4] != '0' &&
                        name.find_first_not_of("0123456789", 4) == std::string::npos;
  return numbered || known.count(name) == 1;
}

void ReadShortName(const char *distro) {
  char shortName[kHostinfoDistroSize] = "default";
  HostinfoGetOSShortName(distro, shortName);
  Expect(IsShortName(shortName));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Log_SetQuietWarnings(true);
  if (size == 0) {
    return 0;
  }
  const std::string bytes(reinterpret_cast<const char *>(data) + 1, size - 1);
  if (data[0] == 't') {
    ReadShortName(bytes.c_str());
    return 0;
  }
  const std::string path = fuzz::WriteInput("release", data + 1, size - 1);
  char distro[kHostinfoDistroSize] = "";
  const std::optional<std::string> expected = Distro(bytes);
  Expect(HostinfoReadDistroFile(path.c_str(), distro) == expected.has_value());
  if (expected) {
    Expect(distro == *expected);
    ReadShortName(distro);
  }
  return 0;
}
