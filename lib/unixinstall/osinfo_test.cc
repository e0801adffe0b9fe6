#include "osinfo.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <memory>

#include "engineTestInt.h"
#include "owned.h"

namespace {

using enginetest::Logged;

constexpr char kPath[] = "/etc/SuSE-release";

struct Probe {
  explicit Probe(testhost::Host &host) {
    enginetest::Enter(host);
    const std::unique_ptr<KernPrep_OsInfo, Releaser<g_free>> probed(OsInfo_Probe());
    info = *probed;
  }
  explicit Probe(const std::string &release) : Probe(testhost::Host().File(kPath, release)) {}

  KernPrep_OsInfo info;
};

void ExpectInfo(const Probe &probe, int distribution, int variant, int major, int minor) {
  EXPECT_EQ(distribution, probe.info.distribution);
  EXPECT_EQ(variant, probe.info.variant);
  EXPECT_EQ(major, probe.info.versionMajor);
  EXPECT_EQ(minor, probe.info.versionMinor);
}

}  // namespace

TEST(OsInfoProbe, KnowsNothingWithoutTheFile) {
  testhost::Host host;
  ExpectInfo(Probe(host), OSINFO_DISTRIBUTION_UNKNOWN, OSINFO_VARIANT_NONE, 0, 0);
  EXPECT_FALSE(Logged("System distribution is SuSE"));
  EXPECT_FALSE(Logged("Failed to open /etc/SuSE-release."));
}

TEST(OsInfoProbe, KnowsAnEnterpriseServer) {
  ExpectInfo(Probe("SUSE Linux Enterprise Server 10 (i586)\nVERSION = 10\nPATCHLEVEL = 2\n"),
             OSINFO_DISTRIBUTION_SUSE, OSINFO_VARIANT_SUSE_ENTERPRISE, 10, 0);
  EXPECT_TRUE(Logged("System distribution is SuSE"));
  EXPECT_TRUE(Logged("System variant is SuSE enterprise"));
  EXPECT_TRUE(Logged("System version is 10.0"));
}

TEST(OsInfoProbe, KnowsAnOpenRelease) {
  ExpectInfo(Probe("openSUSE 11.2 (x86_64)\nVERSION = 11.2\n"), OSINFO_DISTRIBUTION_SUSE, OSINFO_VARIANT_NONE,
             11, 2);
  EXPECT_FALSE(Logged("System variant is SuSE enterprise"));
  EXPECT_TRUE(Logged("System version is 11.2"));
}

TEST(OsInfoProbe, TakesOneDigitAsMinorVersion) {
  ExpectInfo(Probe("version = 10.12\n"), OSINFO_DISTRIBUTION_SUSE, OSINFO_VARIANT_NONE, 10, 1);
}

TEST(OsInfoProbe, IgnoresCase) {
  ExpectInfo(Probe("suse LINUX enterprise\nVeRsIoN = 9.3\n"), OSINFO_DISTRIBUTION_SUSE,
             OSINFO_VARIANT_SUSE_ENTERPRISE, 9, 3);
}

TEST(OsInfoProbe, LeavesAMissingVersionAtZero) {
  ExpectInfo(Probe("SuSE Linux\n"), OSINFO_DISTRIBUTION_SUSE, OSINFO_VARIANT_NONE, 0, 0);
  for (const std::string &line : enginetest::LogLines()) {
    EXPECT_EQ(std::string::npos, line.find("System version")) << line;
  }
}

TEST(OsInfoProbe, TakesAnEmptyFileForSuse) {
  ExpectInfo(Probe(""), OSINFO_DISTRIBUTION_SUSE, OSINFO_VARIANT_NONE, 0, 0);
}

TEST(OsInfoProbe, ReadsAFileInAnOldEncoding) {
  ExpectInfo(Probe("SuSE f\xfcr Linux\nVERSION = 8.2\n"), OSINFO_DISTRIBUTION_SUSE, OSINFO_VARIANT_NONE, 8,
             2);
}

TEST(OsInfoProbe, ReportsAFileThatCannotBeRead) {
  testhost::Host host;
  host.Directory(kPath);
  ExpectInfo(Probe(host), OSINFO_DISTRIBUTION_UNKNOWN, OSINFO_VARIANT_NONE, 0, 0);
  EXPECT_TRUE(Logged("Failed to open /etc/SuSE-release."));
}
