#include "hostinfoOs.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "allocations.h"
#include "hostinfoOsInt.h"
#include "log.h"
#include "owned.h"
#include "systemCalls.h"
#include "testhost.h"

namespace {

using namespace std::string_literals;
using Lines = std::vector<std::string>;

constexpr char kReleaseFile[] = "/etc/gentoo-release";

// The release files in the order of their search.
const Lines kReleaseFiles = {
    "/etc/redhat-release",    "/etc/redhat_version",        "/etc/sun-release",
    "/etc/SuSE-release",      "/etc/novell-release",        "/etc/sles-release",
    "/etc/debian_version",    "/etc/debian_release",        "/etc/mandrake-release",
    "/etc/mandriva-release",  "/etc/mandrakelinux-release", "/etc/turbolinux-release",
    "/etc/fedora-release",    "/etc/gentoo-release",        "/etc/nld-release",
    "/etc/lsb-release",       "/etc/annvix-release",        "/etc/arch-release",
    "/etc/arklinux-release",  "/etc/aurox-release",         "/etc/blackcat-release",
    "/etc/cobalt-release",    "/etc/conectiva-release",     "/etc/immunix-release",
    "/etc/knoppix_version",   "/etc/lfs-release",           "/etc/linuxppc-release",
    "/etc/mklinux-release",   "/etc/pld-release",           "/etc/slackware-version",
    "/etc/slackware-release", "/etc/e-smith-release",       "/etc/release",
    "/etc/tinysofa-release",  "/etc/ultrapenguin-release",  "/etc/UnitedLinux-release",
    "/etc/va-release",        "/etc/yellowdog-release",
};

struct ShortNameRow {
  const char *text;
  const char *shortName;
};

// Texts for each rule, and for what stands above it. "" is the default.
constexpr ShortNameRow kShortNames[] = {
    {"Red Hat Enterprise Linux Server release 5.2 (Tikanga)", "rhel5"},
    {"Red Hat Enterprise Linux AS release4", "rhel4"},
    {"RED HAT ENTERPRISE RELEASE   12", "rhel12"},
    {"Red Hat Enterprise Linux", "rhel"},
    {"Red Hat Enterprise release 0", "rhel"},
    {"Red Hat Enterprise release -3", "rhel"},
    {"Red Hat Enterprise prerelease x release 5", "rhel"},
    {"Red Hat Linux release 9 (Shrike)", "redhat"},
    {"SUSE and Red Hat", "redhat"},
    {"SUSE Linux Enterprise Server 11 (x86_64)", "sles11"},
    {"SUSE Linux Enterprise Server 10 (i586)", "sles10"},
    {"SUSE Linux Enterprise Desktop 10 (i586)", "sles"},
    {"SUSE Server 11", "suse"},
    {"Sun Java Desktop System (SuSE)", "sjds"},
    {"Novell Linux Desktop 9 (SuSE)", "nld9"},
    {"Novell Linux Desktop", ""},
    {"openSUSE 10.3 (i586)", "suse"},
    {"Mandrake Linux release 10.1", "mandrake"},
    {"mandrake turbolinux", "mandrake"},
    {"TurboLinux Workstation 8", "turbolinux"},
    {"turbolinux sun", "turbolinux"},
    {"Sun Wah Linux", "sjds"},
    {"Fedora sunrise", "sjds"},
    {"Annvix 2.0", "Annvix"},
    {"annvix arch", "Annvix"},
    {"Arch Linux", "Arch"},
    {"Ubuntu Archive", "Arch"},
    {"Debian GNU/Linux 5.0 archive", "Arch"},
    {"Arklinux 2007.1", "Arklinux"},
    {"Asianux Server 3 (Quartet)", "asianux3"},
    {"Asianux Client 3", "asianux3"},
    {"Asianux Server 4", "asianux4"},
    {"Asianux Client 4", "asianux4"},
    {"Asianux Server 2", ""},
    {"Aurox Linux 11", "Aurox"},
    {"Black Cat Linux", "BlackCat"},
    {"Cobalt Linux release 6.0", "Cobalt"},
    {"CentOS release 5.2 (Final)", "centos"},
    {"The CentOS", ""},
    {"Conectiva Linux 10", "Conectiva"},
    {"Debian GNU/Linux 4.0r3", "debian4"},
    {"Debian GNU/Linux 5.0", "debian5"},
    {"debian 5.0 and 4.0", "debian4"},
    {"debian lenny", ""},
    {"debian ubuntu", ""},
    {"Enterprise Linux Enterprise Linux Server release 5", "oraclelinux"},
    {"An Enterprise Linux", ""},
    {"Fedora release 9 (Sulphur)", "Fedora"},
    {"Gentoo Base System release 1.12.11.1", "Gentoo"},
    {"Immunix Linux 7.3", "Immunix"},
    {"Linux-From-Scratch 6.3", "Linux-From-Scratch"},
    {"Linux-PPC 2000", "Linux-PPC"},
    {"Mandriva Linux release 2008.1", "mandriva"},
    {"MkLinux DR3", "MkLinux"},
    {"PLD Linux 2.0 (Ac)", "PLD"},
    {"Slackware 12.1.0", "Slackware"},
    {"SME Server 7.3", "SMEServer"},
    {"Tiny Sofa 2.0", "Tiny Sofa"},
    {"Ubuntu 8.04.1", "Ubuntu"},
    {"Ultra Penguin 1.2", "UltraPenguin"},
    {"United Linux 1.0", "UnitedLinux"},
    {"VA Linux 6.2", "VALinux"},
    {"Yellow Dog Linux release 6.0", "Yellow Dog"},
    {"Some Linux 1", ""},
    // Words of two rules that stand beside each other.
    {"suse enterprise server 10 server 11", "sles11"},
    {"suse enterprise sun", "sles"},
    {"suse novell sun", "sjds"},
    {"mandrake suse", "suse"},
    {"annvix sun", "sjds"},
    {"arklinux arch", "Arch"},
    {"asianux server 3 arklinux", "Arklinux"},
    {"asianux server 4 asianux client 3", "asianux3"},
    {"aurox asianux client 4", "asianux4"},
    {"black cat aurox", "Aurox"},
    {"cobalt black cat", "BlackCat"},
    {"centos cobalt", "Cobalt"},
    {"centos conectiva", "centos"},
    {"debian 4.0 conectiva", "Conectiva"},
    {"enterprise linux debian", ""},
    {"enterprise linux fedora", "oraclelinux"},
    {"gentoo fedora", "Fedora"},
    {"immunix gentoo", "Gentoo"},
    {"linux-from-scratch immunix", "Immunix"},
    {"linux-ppc linux-from-scratch", "Linux-From-Scratch"},
    {"mandriva linux-ppc", "Linux-PPC"},
    {"mklinux mandriva", "mandriva"},
    {"pld mklinux", "MkLinux"},
    {"slackware pld", "PLD"},
    {"sme server slackware", "Slackware"},
    {"tiny sofa sme server", "SMEServer"},
    {"ubuntu tiny sofa", "Tiny Sofa"},
    {"ultra penguin ubuntu", "Ubuntu"},
    {"united linux ultra penguin", "UltraPenguin"},
    {"va linux united linux", "UnitedLinux"},
    {"yellow dog va linux", "VALinux"},
    {"", ""},
};

void FailUname() {
  testhost::FailSystemCall(SYS_uname, EPERM);
}

// A host without lsb_release and without release files, but for what a test adds to it.
class HostOS : public ::testing::Test {
 protected:
  HostOS() {
    host_.Release("3.2.0").Machine("i686").NoProgram("lsb_release");
    for (const std::string &path : kReleaseFiles) {
      host_.Remove(path);
    }
  }

  void Enter() {
    host_.Enter();
    ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
    Log("begin\n");
  }

  // What was logged since the host was entered or this was asked last.
  Lines Logged() {
    Lines lines;
    std::istringstream text(testhost::ReadFile(Log_GetFileName()));
    for (std::string line; std::getline(text, line);) {
      const size_t at = line.find("| ");
      lines.push_back(at == std::string::npos ? line : line.substr(at + 2));
    }
    const auto mark = std::find(lines.begin(), lines.end(), mark_);
    EXPECT_NE(mark, lines.end());
    lines.erase(lines.begin(), mark == lines.end() ? mark : mark + 1);
    mark_ = "mark " + std::to_string(++marks_);
    Log("%s\n", mark_.c_str());
    return lines;
  }

  // The host's names as "full|short", or "none". Searched in a child, so that this process keeps none.
  static std::string FreshNames() {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
      const std::string names = Names();
      const bool written = write(ends[1], names.data(), names.size()) == static_cast<ssize_t>(names.size());
      _exit(written ? 0 : 1);
    }
    close(ends[1]);
    char text[1000];
    const ssize_t length = read(ends[0], text, sizeof text);
    close(ends[0]);
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    return {text, static_cast<size_t>(std::max<ssize_t>(length, 0))};
  }

  static std::string Names() {
    char fullName[192] = "untouched";
    char shortName[64] = "untouched";
    if (!Hostinfo_GetOSName(sizeof fullName, sizeof shortName, fullName, shortName)) {
      EXPECT_STREQ(fullName, "untouched");
      EXPECT_STREQ(shortName, "untouched");
      return "none";
    }
    return fullName + "|"s + shortName;
  }

  // What a release file with this content gives as the distribution's text, or "none".
  static std::string Distro(const std::string &content) {
    testhost::WriteFile(kReleaseFile, content);
    char distro[kHostinfoDistroSize] = "untouched";
    return HostinfoReadDistroFile(kReleaseFile, distro) ? distro : "none";
  }

  testhost::Host host_;

 private:
  std::string mark_ = "begin";
  int marks_ = 0;
};

Lines CannotOpen(size_t count) {
  Lines lines;
  for (size_t i = 0; i < count; i++) {
    lines.push_back("HostinfoReadDistroFile: could not open file" + kReleaseFiles[i] + ": 2");
  }
  return lines;
}

size_t RowOf(const char *path) {
  return static_cast<size_t>(std::find(kReleaseFiles.begin(), kReleaseFiles.end(), path) -
                             kReleaseFiles.begin());
}

// ---- The kernel's version

struct ReleaseRow {
  const char *release;
  int numbers[4];
};

void PrintTo(const ReleaseRow &row, std::ostream *stream) {
  *stream << row.release;
}

class HostOSVersion : public ::testing::TestWithParam<ReleaseRow> {};

TEST_P(HostOSVersion, HasTheNumbersOfTheRelease) {
  testhost::Host host;
  host.Release(GetParam().release).Enter();
  for (unsigned i = 0; i < 4; i++) {
    EXPECT_EQ(Hostinfo_OSVersion(i), GetParam().numbers[i]) << i;
  }
  EXPECT_EQ(Hostinfo_OSVersion(4), 0);
  EXPECT_EQ(Hostinfo_OSVersion(UINT_MAX), 0);
  EXPECT_STREQ(Hostinfo_OSVersionString(), GetParam().release);
}

INSTANTIATE_TEST_SUITE_P(
    Releases, HostOSVersion,
    ::testing::Values(ReleaseRow{"2.6.16.60-0.21", {2, 6, 16, 60}},
                      ReleaseRow{"2.6.18-92.el5", {2, 6, 18, 0}}, ReleaseRow{"2.6.32.7", {2, 6, 32, 7}},
                      ReleaseRow{"2.6.18", {2, 6, 18, 0}}, ReleaseRow{"2.6.18.", {2, 6, 18, 0}},
                      ReleaseRow{"2.6.18.x9", {2, 6, 18, 0}}, ReleaseRow{"2.6.18..9", {2, 6, 18, 0}},
                      ReleaseRow{"3.2-1.4.7", {3, 2, 0, 0}}, ReleaseRow{"4", {4, 0, 0, 0}},
                      ReleaseRow{"5.x.7", {5, 0, 0, 0}},
                      ReleaseRow{"2.6.1234567890.1234567890-12345678901234567890123456789012345678",
                                 {2, 6, 1234567890, 1234567890}}));

TEST(HostOSVersionOnce, IsReadOnce) {
  testhost::Host host;
  host.Release("2.6.18-92.el5").Enter();
  const char *text = Hostinfo_OSVersionString();
  FailUname();
  EXPECT_EQ(Hostinfo_OSVersion(2), 18);
  EXPECT_EQ(Hostinfo_OSVersionString(), text);
}

TEST(HostOSVersionFailure, ReleaseWithoutANumberStopsTheProgram) {
  testhost::Host host;
  host.Release("linux-2.6.18").Enter();
  EXPECT_EXIT(Hostinfo_OSVersion(0), ::testing::ExitedWithCode(255),
              "^HostinfoOSVersionInit unable to parse host OS version string: linux-2\\.6\\.18\n"
              "NOT_IMPLEMENTED lib/misc/hostinfoOs\\.cc:[0-9]+\n");
}

TEST(HostOSVersionFailure, EmptyReleaseStopsTheProgram) {
  testhost::Host host;
  host.Release("").Enter();
  EXPECT_EXIT(Hostinfo_OSVersionString(), ::testing::ExitedWithCode(255),
              "^HostinfoOSVersionInit unable to parse host OS version string: \nNOT_IMPLEMENTED ");
}

TEST(HostOSVersionFailure, KernelThatDoesNotAnswerStopsTheProgram) {
  testhost::Host host;
  host.Enter();
  FailUname();
  EXPECT_EXIT(Hostinfo_OSVersion(4), ::testing::ExitedWithCode(255),
              "^HostinfoOSVersionInit unable to get host OS version \\(uname\\): Operation not permitted\n"
              "NOT_IMPLEMENTED lib/misc/hostinfoOs\\.cc:[0-9]+\n");
}

TEST(HostOSVersionFailure, OutOfMemoryStopsTheProgram) {
  testhost::Host host;
  host.Enter();
  EXPECT_EXIT(
      {
        const testhost::AllocationFault fault(0);
        HostinfoOSVersionInit();
      },
      ::testing::ExitedWithCode(255),
      "Unrecoverable memory allocation failure at lib/misc/hostinfoOs\\.cc:[0-9]+\n");
}

// ---- The bitness

struct MachineRow {
  const char *machine;
  int bitness;
};

void PrintTo(const MachineRow &row, std::ostream *stream) {
  *stream << row.machine;
}

class HostBitness : public ::testing::TestWithParam<MachineRow> {};

TEST_P(HostBitness, IsTheMachines) {
  testhost::Host host;
  host.Machine(GetParam().machine).Enter();
  EXPECT_EQ(Hostinfo_GetSystemBitness(), GetParam().bitness);
}

INSTANTIATE_TEST_SUITE_P(Machines, HostBitness,
                         ::testing::Values(MachineRow{"x86_64", 64}, MachineRow{"an x86_64 machine", 64},
                                           MachineRow{"i686", 32}, MachineRow{"x86-64", 32},
                                           MachineRow{"aarch64", 32}));

TEST(HostBitnessFailure, IsUnknownWhenTheKernelDoesNotAnswer) {
  testhost::Host host;
  host.Enter();
  FailUname();
  EXPECT_EQ(Hostinfo_GetSystemBitness(), -1);
}

// ---- The distribution's text, from lsb_release

TEST_F(HostOS, LsbReleaseKeepsTheReleaseFilesClosed) {
  host_.Program("lsb_release", "echo 'Ubuntu 8.04.1'").File("/etc/redhat-release", "Red Hat\n");
  Enter();
  EXPECT_EQ(Names(), "Linux 3.2.0 Ubuntu 8.04.1|Ubuntu");
  EXPECT_EQ(testhost::Calls("lsb_release"), std::vector<testhost::Call>({{"-sd"}}));
  EXPECT_EQ(Logged(), Lines());
}

TEST_F(HostOS, LsbReleaseIsTakenByItsFirstLineWithoutQuotes) {
  host_.Program("lsb_release", "cat /answer; exit $(cat /status)").File("/status", "0").File("/answer", "");
  Enter();
  const auto names = [](const std::string &answer) {
    testhost::WriteFile("/answer", answer);
    return FreshNames();
  };
  EXPECT_EQ(names("\"Gentoo 1 2\"\n"), "Linux 3.2.0 Gentoo 1 2|Gentoo");
  EXPECT_EQ(names("\"Gentoo 1\" 2\"\nMore\n"), "Linux 3.2.0 Gentoo 1|Gentoo");
  EXPECT_EQ(names("\"Gentoo 1\nPLD\"\n"), "Linux 3.2.0 Gentoo 1|Gentoo");
  EXPECT_EQ(names("Gentoo \"1\"\n"), "Linux 3.2.0 Gentoo \"1\"|Gentoo");
  EXPECT_EQ(names("Gentoo"), "Linux 3.2.0 Gentoo|Gentoo");
  EXPECT_EQ(names("\"\"\n"), "Linux 3.2.0 |otherlinux");
  // An empty line is an answer.
  EXPECT_EQ(names("\nGentoo\n"), "Linux 3.2.0 |otherlinux");
  // So is what a program that fails has said.
  testhost::WriteFile("/status", "1");
  EXPECT_EQ(names("Gentoo\n"), "Linux 3.2.0 Gentoo|Gentoo");
  EXPECT_EQ(Logged(), Lines());
}

TEST_F(HostOS, LsbReleaseThatSaysNothingIsNoAnswer) {
  host_.Program("lsb_release", "echo Ubuntu >&2; exit 1").File(kReleaseFile, "Gentoo 1\n");
  Enter();
  ::testing::internal::CaptureStderr();
  const std::string names = Names();
  const std::string errors = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(names, "Linux 3.2.0 Gentoo 1|Gentoo");
  EXPECT_EQ(errors.find("Ubuntu"), std::string::npos);
  EXPECT_EQ(Logged(), CannotOpen(RowOf(kReleaseFile)));
}

TEST_F(HostOS, LsbReleaseThatCannotBeReadIsNoAnswer) {
  host_.Program("lsb_release", "echo Ubuntu").File("/etc/redhat-release", "Red Hat\n");
  Enter();
  // A number so high that no program of the command reads by it.
  ASSERT_EQ(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 100), 100);
  while (open("/dev/null", O_RDONLY | O_CLOEXEC) < 100) {
  }
  {
    const testhost::FailingDescriptor pipeEnd({SYS_read}, EIO);
    EXPECT_FALSE(HostinfoOSData());
  }
  EXPECT_EQ(testhost::Calls("lsb_release"), std::vector<testhost::Call>({{"-sd"}}));
  // The release files, which are read by the same number, were tried.
  Lines expected = CannotOpen(kReleaseFiles.size());
  expected[0] = "HostinfoReadDistroFile: could not read file /etc/redhat-release: 5";
  expected.emplace_back("HostinfoOSData: Error: no distro file found");
  EXPECT_EQ(Logged(), expected);
}

TEST_F(HostOS, LsbReleaseThatCannotStartIsNoAnswer) {
  host_.Program("lsb_release", "echo Ubuntu").File("/etc/redhat-release", "Red Hat\n");
  Enter();
  rlimit limit;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  // Enough descriptors for a file, and too few for a pipe.
  limit.rlim_cur = static_cast<rlim_t>(testhost::NextDescriptor()) + 1;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(Names(), "Linux 3.2.0 Red Hat|redhat");
  limit.rlim_cur = limit.rlim_max;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(Logged(), Lines({"Unable to get output of command \"lsb_release -sd 2>/dev/null\""}));
}

TEST_F(HostOS, LsbReleaseThatSaysTooMuchIsTooLong) {
  host_.Program("lsb_release", "head -c 300 /dev/zero | tr '\\0' u; echo");
  Enter();
  EXPECT_EQ(Names(), "none");
  EXPECT_EQ(Logged(), Lines({"HostinfoOSData: Error: buffer too small"}));
}

// ---- The distribution's text, from the release files

TEST_F(HostOS, EachReleaseFileIsFoundInItsTurn) {
  Enter();
  for (size_t i = 0; i < kReleaseFiles.size(); i++) {
    testhost::WriteFile(kReleaseFiles[i], "Gentoo " + std::to_string(i) + "\n");
    Logged();
    EXPECT_EQ(FreshNames(), "Linux 3.2.0 Gentoo " + std::to_string(i) + "|Gentoo");
    EXPECT_EQ(Logged(), CannotOpen(i));
    ASSERT_EQ(unlink(kReleaseFiles[i].c_str()), 0);
  }
}

TEST_F(HostOS, RedHatEnterpriseOnA64BitKernel) {
  host_.File("/etc/redhat-release", "Red Hat Enterprise Linux Server release 5.2 (Tikanga)\n");
  host_.Release("2.6.18-92.el5").Machine("x86_64");
  Enter();
  EXPECT_EQ(Names(), "Linux 2.6.18-92.el5 Red Hat Enterprise Linux Server release 5.2 (Tikanga)|rhel5-64");
}

TEST_F(HostOS, LsbFileGivesItsFourValues) {
  host_.File("/etc/lsb-release",
             "DISTRIB_ID=Ubuntu\nDISTRIB_RELEASE=8.04\nDISTRIB_CODENAME=hardy\n"
             "DISTRIB_DESCRIPTION=\"Ubuntu 8.04.1\"\n");
  Enter();
  EXPECT_EQ(Names(), "Linux 3.2.0 Ubuntu 8.04 hardy Ubuntu 8.04.1 |Ubuntu");
}

TEST_F(HostOS, ReleaseFileThatCannotBeUsedIsSkipped) {
  host_.File("/etc/redhat-release", std::string(255, 'r')).File("/etc/redhat_version", "");
  host_.File("/etc/sun-release", std::string(100000, 's')).File(kReleaseFile, "Gentoo 1\n");
  Enter();
  EXPECT_EQ(Names(), "Linux 3.2.0 Gentoo 1|Gentoo");
  Lines expected = CannotOpen(RowOf(kReleaseFile));
  expected[0] = "HostinfoReadDistroFile: input buffer too small";
  expected[1] = "HostinfoReadDistroFile: Cannot work with empty file.";
  expected[2] = "HostinfoReadDistroFile: input buffer too small";
  EXPECT_EQ(Logged(), expected);
}

TEST_F(HostOS, ReleaseFileOfOneByteLeavesABlankAtTheEnd) {
  host_.File(kReleaseFile, "x");
  Enter();
  EXPECT_EQ(Names(), "Linux 3.2.0 |otherlinux");
}

TEST_F(HostOS, NewlineAtTheEndOfTheFullNameGoes) {
  host_.File(kReleaseFile, "Gentoo\n\n");
  Enter();
  EXPECT_EQ(Names(), "Linux 3.2.0 Gentoo|Gentoo");
}

TEST_F(HostOS, ReleaseFileLosesItsLastByte) {
  Enter();
  EXPECT_EQ(Distro("Gentoo 1\n"), "Gentoo 1");
  EXPECT_EQ(Distro("Gentoo 1"), "Gentoo ");
  EXPECT_EQ(Distro("Gentoo 1\nmore\n\n"), "Gentoo 1\nmore\n");
  EXPECT_EQ(Distro("x"), "");
  EXPECT_EQ(Distro("Gen\0too\n"s), "Gen");
  EXPECT_EQ(Distro(std::string(253, 'g') + "\n"), std::string(253, 'g'));
  EXPECT_EQ(Distro(std::string(254, 'g') + "\n"), "none");
}

TEST_F(HostOS, LsbValuesStandInTheOrderOfTheKeys) {
  Enter();
  EXPECT_EQ(Distro("DISTRIB_DESCRIPTION=d\nDISTRIB_CODENAME=c\nDISTRIB_RELEASE=r\nDISTRIB_ID=i\n"),
            "i r c d ");
  EXPECT_EQ(Distro("DISTRIB_RELEASE=r\n"), "r ");
  EXPECT_EQ(Distro("A line\nMY_DISTRIB_ID=x\n"), "x ");
  EXPECT_EQ(Distro("DISTRIB_ID=first\nDISTRIB_ID=second\n"), "first ");
  EXPECT_EQ(Distro("distrib_id=x\n"), "distrib_id=x");
  EXPECT_EQ(Distro("DISTRIB_ID\n"), "DISTRIB_ID");
}

TEST_F(HostOS, LsbValuesEndAtABlankOrAQuote) {
  Enter();
  EXPECT_EQ(Distro("DISTRIB_ID=Tiny Sofa\n"), "Tiny ");
  EXPECT_EQ(Distro("DISTRIB_ID=\"Tiny  Sofa\" 2\nDISTRIB_RELEASE=2\n"), "Tiny  Sofa 2 ");
  EXPECT_EQ(Distro("DISTRIB_ID=Tiny\"Sofa\"\n"), "Tiny\"Sofa\" ");
  EXPECT_EQ(Distro("DISTRIB_ID=\"Tiny\nSofa\"\n"), "Tiny\nSofa ");
  EXPECT_EQ(Distro("DISTRIB_ID=\"\"\n"), " ");
  EXPECT_EQ(Distro("DISTRIB_ID=\"\"\nDISTRIB_RELEASE=2\n"), " 2 ");
  // The closing quote is the byte that every file loses.
  EXPECT_EQ(Distro("DISTRIB_ID=\"Tiny\""), "DISTRIB_ID=\"Tiny");
  EXPECT_EQ(Distro("DISTRIB_ID=\"Tiny\nDISTRIB_RELEASE=2\n"), "2 ");
}

TEST_F(HostOS, LsbValuesAreScannedBehindBlanks) {
  Enter();
  EXPECT_EQ(Distro("DISTRIB_ID=  Tiny\n"), "Tiny ");
  EXPECT_EQ(Distro("DISTRIB_ID=\t\"Tiny Sofa\"\n"), "Tiny Sofa ");
  EXPECT_EQ(Distro("DISTRIB_ID=\nDISTRIB_RELEASE=2\n"), "DISTRIB_RELEASE=2 2 ");
  EXPECT_EQ(Distro("DISTRIB_RELEASE=2\nDISTRIB_ID=\n"), "2 ");
  EXPECT_EQ(Distro("DISTRIB_ID=\n"), "DISTRIB_ID=");
}

TEST_F(HostOS, LsbValuesThatOverlapAreHeldToTheBuffer) {
  Enter();
  // "DISTRIB_RELEASE=" and the rest, a blank, the rest, a blank, and the terminator.
  const size_t rest = (255 - 16 - 3) / 2;
  EXPECT_EQ(Distro("DISTRIB_ID=DISTRIB_RELEASE=" + std::string(rest, 'x') + "\n"),
            "DISTRIB_RELEASE=" + std::string(rest, 'x') + " " + std::string(rest, 'x') + " ");
  EXPECT_EQ(Logged(), Lines());
  // One byte more in one of them.
  EXPECT_EQ(Distro("DISTRIB_ID=yDISTRIB_RELEASE=" + std::string(rest, 'x') + "\n"), "none");
  EXPECT_EQ(Logged(), Lines({"HostinfoReadDistroFile: input buffer too small"}));
}

TEST_F(HostOS, ReleaseFileThatCannotBeOpened) {
  host_.SymLink("/etc/loop", "/etc/loop").Directory("/etc/directory");
  Enter();
  char distro[kHostinfoDistroSize] = "untouched";
  EXPECT_FALSE(HostinfoReadDistroFile("/etc/loop", distro));
  EXPECT_FALSE(HostinfoReadDistroFile("", distro));
  EXPECT_FALSE(HostinfoReadDistroFile("/etc/loop/x", distro));
  EXPECT_STREQ(distro, "untouched");
  EXPECT_EQ(Logged(), Lines({"HostinfoReadDistroFile: could not open file/etc/loop: 40",
                             "HostinfoReadDistroFile: could not open file: 2",
                             "HostinfoReadDistroFile: could not open file/etc/loop/x: 40"}));
}

TEST_F(HostOS, ReleaseFileThatIsADirectory) {
  host_.Directory("/t");
  Enter();
  // Its size is that of a short file there.
  ASSERT_EQ(mount("none", "/t", "tmpfs", 0, nullptr), 0);
  ASSERT_EQ(mkdir("/t/release", 0755), 0);
  testhost::WriteFile("/t/release/file", "");
  char distro[kHostinfoDistroSize];
  EXPECT_FALSE(HostinfoReadDistroFile("/t/release", distro));
  EXPECT_EQ(Logged(), Lines({"HostinfoReadDistroFile: could not read file /t/release: 21"}));
}

TEST_F(HostOS, ReleaseFileWhoseSizeIsUnknown) {
  host_.File(kReleaseFile, "Gentoo\n");
  Enter();
  {
    const testhost::FailingDescriptor file({SYS_fstat, SYS_newfstatat}, EIO);
    char distro[kHostinfoDistroSize];
    EXPECT_FALSE(HostinfoReadDistroFile(kReleaseFile, distro));
  }
  EXPECT_EQ(Logged(), Lines({"HostinfoReadDistroFile: could not stat the file /etc/gentoo-release: 5"}));
}

TEST_F(HostOS, ReleaseFileThatIsReadShort) {
  host_.File(kReleaseFile, "Gentoo\n");
  Enter();
  {
    const testhost::FailingDescriptor file({SYS_read}, 0);
    errno = EPERM;
    char distro[kHostinfoDistroSize];
    EXPECT_FALSE(HostinfoReadDistroFile(kReleaseFile, distro));
  }
  EXPECT_EQ(Logged(), Lines({"HostinfoReadDistroFile: could not read file /etc/gentoo-release: 0"}));
}

TEST_F(HostOS, NoReleaseFileGivesNoNamesAndTheNextSearchTriesAgain) {
  Enter();
  EXPECT_EQ(Names(), "none");
  Lines expected = CannotOpen(kReleaseFiles.size());
  expected.emplace_back("HostinfoOSData: Error: no distro file found");
  EXPECT_EQ(Logged(), expected);
  testhost::WriteFile(kReleaseFile, "Gentoo 1\n");
  EXPECT_EQ(Names(), "Linux 3.2.0 Gentoo 1|Gentoo");
}

// ---- The short name

TEST_F(HostOS, ShortNameIsThatOfTheFirstRuleThatFits) {
  host_.Program("lsb_release", "cat /answer").File("/answer", "");
  Enter();
  for (const ShortNameRow &row : kShortNames) {
    testhost::WriteFile("/answer", row.text + "\n"s);
    const std::string shortName = row.shortName[0] == '\0' ? "otherlinux" : row.shortName;
    Logged();
    EXPECT_EQ(FreshNames(), "Linux 3.2.0 "s + row.text + "|" + shortName);
    const Lines warning = {"HostinfoGetOSShortName: could not read Red Hat Enterprise release version"};
    EXPECT_EQ(Logged(), shortName == "rhel" ? warning : Lines()) << row.text;
  }
}

struct DefaultRow {
  const char *release, *shortName;
};

void PrintTo(const DefaultRow &row, std::ostream *stream) {
  *stream << row.release;
}

class HostOSDefault : public HostOS, public ::testing::WithParamInterface<DefaultRow> {};

TEST_P(HostOSDefault, IsTheKernels) {
  host_.Release(GetParam().release).Program("lsb_release", "echo Some Linux");
  Enter();
  EXPECT_EQ(Names(), "Linux "s + GetParam().release + " Some Linux|" + GetParam().shortName);
}

INSTANTIATE_TEST_SUITE_P(
    Kernels, HostOSDefault,
    ::testing::Values(DefaultRow{"2.4.21-4.EL", "other24xlinux"}, DefaultRow{"2.6.18", "other26xlinux"},
                      DefaultRow{"3.2.0", "otherlinux"}, DefaultRow{"2.60.1", "otherlinux"},
                      DefaultRow{"12.6.1", "otherlinux"}, DefaultRow{"2.4", "otherlinux"}));

// ---- Other systems

struct SystemRow {
  const char *system, *release, *machine, *names;
};

void PrintTo(const SystemRow &row, std::ostream *stream) {
  *stream << row.system << ' ' << row.release << ' ' << row.machine;
}

class HostOtherOS : public HostOS, public ::testing::WithParamInterface<SystemRow> {};

TEST_P(HostOtherOS, HasItsNames) {
  host_.System(GetParam().system).Release(GetParam().release).Machine(GetParam().machine);
  host_.Program("lsb_release", "echo Ubuntu");
  Enter();
  EXPECT_EQ(Names(), GetParam().names);
  EXPECT_EQ(Logged(),
            "none"s == GetParam().names ? Lines({"HostinfoOSData: Error: buffer too small"}) : Lines());
}

#define DIGITS_56 "12345678901234567890123456789012345678901234567890123456"

INSTANTIATE_TEST_SUITE_P(
    Systems, HostOtherOS,
    ::testing::Values(SystemRow{"FreeBSD", "6.2-RELEASE", "i386", "FreeBSD 6.2-RELEASE|FreeBSD"},
                      SystemRow{"FreeBSD", "7.0", "x86_64", "FreeBSD 7.0|FreeBSD-64"},
                      SystemRow{"FreeBSD", DIGITS_56, "i386", "FreeBSD " DIGITS_56 "|FreeBSD"},
                      SystemRow{"FreeBSD", DIGITS_56 "7", "i386", "none"},
                      SystemRow{"FreeBSD", DIGITS_56 "-RELEAS", "i386",
                                "FreeBSD " DIGITS_56 "-RELEAS|FreeBSD"},
                      SystemRow{"FreeBSD", "7-Linux", "i386", "FreeBSD 7-Linux Ubuntu|Ubuntu"},
                      SystemRow{"SunOS", "5.10", "i386", "SunOS 5.10|solaris10"},
                      SystemRow{"SunOS", "5.9", "x86_64", "SunOS 5.9|solaris9-64"},
                      SystemRow{"SunOS", "5.1234", "i386", "SunOS 5.1234|solaris12"},
                      SystemRow{"SunOS", "5.x", "i386", "SunOS 5.x|solaris"},
                      SystemRow{"SunOS", "4.1.4", "i386", "SunOS 4.1.4|solaris"},
                      SystemRow{"Unknown", "1.0", "i386", "Unknown 1.0|"},
                      SystemRow{"Unknown", "1.0", "x86_64", "Unknown 1.0|-64"},
                      SystemRow{"", "", "i386", " |"}));

// ---- Limits, failures and the cache

TEST_F(HostOS, FullNameHoldsUpTo191Bytes) {
  host_.Program("lsb_release", "cat /answer");
  Enter();
  const std::string text(191 - strlen("Linux 3.2.0 "), 'u');
  testhost::WriteFile("/answer", text + "\n");
  EXPECT_EQ(FreshNames(), "Linux 3.2.0 " + text + "|otherlinux");
  EXPECT_EQ(Logged(), Lines());
  testhost::WriteFile("/answer", text + "u\n");
  EXPECT_EQ(FreshNames(), "none");
  EXPECT_EQ(Logged(), Lines({"HostinfoOSData: Error: buffer too small"}));
}

TEST_F(HostOS, KernelThatDoesNotAnswerHasNoNames) {
  host_.Program("lsb_release", "echo Ubuntu");
  Enter();
  FailUname();
  EXPECT_EQ(Names(), "none");
  EXPECT_EQ(Logged(), Lines({"HostinfoOSData: uname failed 1"}));
  EXPECT_EQ(testhost::Calls("lsb_release").size(), 0U);
}

TEST_F(HostOS, NamesAreSearchedOnce) {
  host_.Program("lsb_release", "cat /answer").File("/answer", "Ubuntu 1\n");
  Enter();
  EXPECT_EQ(Names(), "Linux 3.2.0 Ubuntu 1|Ubuntu");
  testhost::WriteFile("/answer", "PLD 2\n");
  EXPECT_EQ(Names(), "Linux 3.2.0 Ubuntu 1|Ubuntu");
  EXPECT_EQ(testhost::Calls("lsb_release").size(), 1U);
  // A search that comes late is dropped.
  EXPECT_TRUE(HostinfoOSData());
  EXPECT_EQ(testhost::Calls("lsb_release").size(), 2U);
  EXPECT_EQ(Names(), "Linux 3.2.0 Ubuntu 1|Ubuntu");
}

TEST_F(HostOS, BuffersOfTheExactSizeAreFilled) {
  host_.Program("lsb_release", "echo PLD 2");
  Enter();
  char fullName[sizeof "Linux 3.2.0 PLD 2"];
  char shortName[sizeof "PLD"];
  ASSERT_TRUE(Hostinfo_GetOSName(sizeof fullName, sizeof shortName, fullName, shortName));
  EXPECT_STREQ(fullName, "Linux 3.2.0 PLD 2");
  EXPECT_STREQ(shortName, "PLD");
}

TEST_F(HostOS, BufferThatIsTooSmallStopsTheProgram) {
  host_.Program("lsb_release", "echo PLD 2");
  Enter();
  char fullName[192];
  char shortName[64];
  EXPECT_EXIT(Hostinfo_GetOSName(sizeof "Linux 3.2.0 PLD 2" - 1, sizeof shortName, fullName, shortName),
              ::testing::ExitedWithCode(255), "Buffer too small 0x");
  EXPECT_EXIT(Hostinfo_GetOSName(sizeof fullName, sizeof "PLD" - 1, fullName, shortName),
              ::testing::ExitedWithCode(255), "Buffer too small 0x");
}

TEST_F(HostOS, ShortNameStaysTheDefaultWhenMemoryIsOut) {
  Enter();
  char shortName[kHostinfoDistroSize] = "otherlinux";
  {
    const testhost::AllocationFault fault(0);
    HostinfoGetOSShortName("Ubuntu", shortName);
    EXPECT_TRUE(fault.Happened());
  }
  EXPECT_STREQ(shortName, "otherlinux");
  EXPECT_EQ(Logged(), Lines({"HostinfoGetOSShortName: could not allocate memory"}));
}

TEST_F(HostOS, ReleaseFileIsSkippedWhenMemoryIsOut) {
  host_.File(kReleaseFile, "Gentoo\n");
  Enter();
  char distro[kHostinfoDistroSize];
  const auto readFile = [&] { return HostinfoReadDistroFile(kReleaseFile, distro); };
  const size_t count = testhost::CountAllocations(readFile);
  ASSERT_GT(count, 0U);
  for (size_t i = 0; i < count; i++) {
    const testhost::AllocationFault fault(i);
    EXPECT_FALSE(readFile()) << i;
    EXPECT_TRUE(fault.Happened()) << i;
  }
  // The file's content comes last.
  EXPECT_EQ(Logged().back(), "HostinfoReadDistroFile: could not allocate memory");
}

TEST_F(HostOS, SearchSurvivesEachFailedAllocation) {
  host_.Program("lsb_release", "echo PLD 2");
  Enter();
  const size_t count = testhost::CountAllocations([] { EXPECT_TRUE(HostinfoOSData()); });
  ASSERT_GT(count, 0U);
  size_t found = 0;
  for (size_t i = 0; i < count; i++) {
    const testhost::AllocationFault fault(i);
    found += HostinfoOSData() ? 1 : 0;
    EXPECT_TRUE(fault.Happened()) << i;
  }
  // Only the short name can do without memory: the search finds the text before, or no file afterwards.
  EXPECT_EQ(found, 1U);
}

}  // namespace
