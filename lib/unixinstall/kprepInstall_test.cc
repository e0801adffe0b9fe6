#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "kprepTestInt.h"

namespace {

using kpreptest::Engine;
using kpreptest::ErrorsOf;
using kpreptest::kJournal;
using kpreptest::Lines;
using kpreptest::Path;
using kpreptest::Product;
using kpreptest::RecordShell;
using kpreptest::ShellCommands;
using testhost::Call;
using testhost::Calls;
using testhost::ReadFile;
using testhost::WriteFile;

constexpr char kModules[] = "/lib/modules/2.6.18-92.el5";
constexpr char kObject[] = "/opt/build/ostlink.o";
constexpr char kInstalled[] = "/lib/modules/2.6.18-92.el5/misc/ostlink.o";
constexpr char kLink[] = "/lib/modules/2.6.18-92.el5/misc/ostlink.ko";
constexpr char kStart[] = "Installing module ostlink from /opt/build/ostlink.o.";

// A host with a place for modules, an object to install and a depmod that is recorded.
class InstallHost : public Product {
 public:
  InstallHost() { Directory(kModules).File(kObject, "the object", 0700).Program("depmod"); }
};

bool Install(const char *subdirectory = nullptr, const char *installName = nullptr) {
  return KernPrep_InstallModule("ostlink", kObject, subdirectory, installName);
}

bool Exists(const std::string &path) {
  return std::filesystem::exists(std::filesystem::symlink_status(path));
}

std::string FileLine(const std::string &path) {
  struct stat data = {};
  EXPECT_EQ(stat(path.c_str(), &data), 0);
  return "file " + path + " " + std::to_string(data.st_mtime) + "\n";
}

// The journal without what the installer wrote.
std::string JournalEnd() {
  const std::string whole = ReadFile(kJournal);
  const std::string last = "INITSCRIPTSDIR /etc/init.d\n";
  return whole.substr(whole.find(last) + last.size());
}

void ExpectDepmodRuns(size_t count) {
  EXPECT_EQ(Calls("depmod"), std::vector<Call>(count));
}

TEST(InstallModule, PutsObjectAndLinkBelowMisc) {
  InstallHost host;
  Engine engine(host);
  EXPECT_TRUE(Install());
  EXPECT_EQ(engine.NewLog(), Lines({kStart}));
  EXPECT_EQ(ReadFile(kInstalled), "the object");
  struct stat data = {};
  ASSERT_EQ(stat(kInstalled, &data), 0);
  EXPECT_EQ(data.st_mode & 07777, 0644U);
  EXPECT_EQ(std::filesystem::read_symlink(kLink), kInstalled);
  EXPECT_EQ(JournalEnd(), FileLine(kInstalled) + "file " + kLink + "\n");
  ExpectDepmodRuns(1);
}

TEST(InstallModule, MakesTheSubdirectoryWithItsParents) {
  InstallHost host;
  Engine engine(host);
  umask(0);
  EXPECT_TRUE(Install("kernel/drivers/ost", "other"));
  const std::string installed = std::string(kModules) + "/kernel/drivers/ost/other";
  EXPECT_EQ(ReadFile(installed + ".o"), "the object");
  EXPECT_EQ(std::filesystem::read_symlink(installed + ".ko"), installed + ".o");
  EXPECT_EQ(JournalEnd(), FileLine(installed + ".o") + "file " + installed + ".ko\n");
  EXPECT_FALSE(Exists(std::string(kModules) + "/misc"));
  struct stat data = {};
  ASSERT_EQ(stat((std::string(kModules) + "/kernel").c_str(), &data), 0);
  EXPECT_EQ(data.st_mode & 07777, 0755U);
}

TEST(InstallModule, LeavesOneOfEachWhenItRunsTwice) {
  InstallHost host;
  Engine engine(host);
  EXPECT_TRUE(Install());
  const std::string first = FileLine(kInstalled);
  WriteFile(kObject, "a newer object");
  EXPECT_TRUE(Install());
  EXPECT_EQ(ReadFile(kInstalled), "a newer object");
  const std::string object = kInstalled, link = kLink;
  EXPECT_EQ(JournalEnd(), first + "file " + link + "\nremove_file " + object + "\n" + FileLine(kInstalled) +
                              "remove_file " + link + "\nfile " + link + "\n");
  size_t files = 0;
  for (const auto &entry : std::filesystem::directory_iterator(std::string(kModules) + "/misc")) {
    EXPECT_TRUE(entry.path() == kInstalled || entry.path() == kLink) << entry.path();
    ++files;
  }
  EXPECT_EQ(files, 2U);
  ExpectDepmodRuns(2);
}

TEST(InstallModule, ReplacesFilesThatTheJournalDoesNotKnow) {
  InstallHost host;
  host.File(kInstalled, "old").File(kLink, "old too");
  Engine engine(host);
  EXPECT_TRUE(Install());
  EXPECT_EQ(ReadFile(kInstalled), "the object");
  EXPECT_EQ(std::filesystem::read_symlink(kLink), kInstalled);
  EXPECT_EQ(JournalEnd(), FileLine(kInstalled) + "file " + kLink + "\n");
}

TEST(InstallModule, RemovesAnOldFileOfTheModulesOwnNameFromMisc) {
  InstallHost host;
  host.File(std::string(kModules) + "/misc/ostlink", "old")
      .File(std::string(kModules) + "/misc/other", "kept");
  Engine engine(host);
  EXPECT_TRUE(Install("extra", "other"));
  EXPECT_FALSE(Exists(std::string(kModules) + "/misc/ostlink"));
  EXPECT_EQ(ReadFile(std::string(kModules) + "/misc/other"), "kept");
}

TEST(InstallModule, RemovesWhatAnOldLinkLeadsTo) {
  InstallHost host;
  host.File("/opt/old/ostlink", "old").SymLink(std::string(kModules) + "/misc/ostlink", "/opt/old/ostlink");
  Engine engine(host);
  EXPECT_TRUE(Install());
  EXPECT_FALSE(Exists(std::string(kModules) + "/misc/ostlink"));
  EXPECT_FALSE(Exists("/opt/old/ostlink"));
}

TEST(InstallModule, KeepsTheOldFileWhenItFails) {
  InstallHost host;
  host.File(std::string(kModules) + "/misc/ostlink", "old").Directory(std::string(kLink) + "/full");
  Engine engine(host);
  EXPECT_FALSE(Install());
  EXPECT_TRUE(Exists(std::string(kModules) + "/misc/ostlink"));
}

TEST(InstallModule, TakesPathsWithBlanksAndQuotes) {
  InstallHost host;
  const std::string object = "/opt/it's \"here\"/$HOME.o";
  host.File(object, "quoted");
  Engine engine(host);
  EXPECT_TRUE(KernPrep_InstallModule("ostlink", object.c_str(), "a b", "c d"));
  EXPECT_EQ(ReadFile(std::string(kModules) + "/a b/c d.o"), "quoted");
}

TEST(InstallModule, RefusesADirectory) {
  InstallHost host;
  Engine engine(host);
  EXPECT_FALSE(KernPrep_InstallModule("ostlink", "/opt/build", nullptr, nullptr));
  EXPECT_EQ(engine.NewLog(), Lines({"Installing module ostlink from /opt/build.",
                                    "Error: /opt/build is not a valid module path."}));
  EXPECT_FALSE(Exists(std::string(kModules) + "/misc"));
  EXPECT_EQ(JournalEnd(), "");
  ExpectDepmodRuns(1);
}

TEST(InstallModule, RefusesAMissingFile) {
  InstallHost host;
  host.SymLink("/opt/build/dangling.o", "/no/such/file");
  Engine engine(host);
  EXPECT_FALSE(KernPrep_InstallModule("ostlink", "/opt/build/none.o", nullptr, nullptr));
  EXPECT_FALSE(KernPrep_InstallModule("ostlink", "/opt/build/dangling.o", nullptr, nullptr));
  EXPECT_FALSE(KernPrep_InstallModule("ostlink", "", nullptr, nullptr));
  ExpectDepmodRuns(3);
}

TEST(InstallModule, NeedsTheRunningKernelsDirectory) {
  InstallHost host;
  host.Release("2.6.18-128.el5");
  Engine engine(host);
  EXPECT_FALSE(Install());
  EXPECT_EQ(engine.NewLog(), Lines({kStart, "Can't figure out where to install the kernel module."}));
  EXPECT_FALSE(Exists("/lib/modules/2.6.18-128.el5"));
  ExpectDepmodRuns(1);
}

TEST(InstallModule, FailsWhereTheKernelsDirectoryIsAFile) {
  InstallHost host;
  host.Release("2.6.18-128.el5").File("/lib/modules/2.6.18-128.el5", "");
  Engine engine(host);
  EXPECT_FALSE(Install());
  EXPECT_EQ(engine.NewLog().back(), "Can't figure out where to install the kernel module.");
  ExpectDepmodRuns(1);
}

std::string NotInstalled(const std::string &destination = kInstalled) {
  return std::string("Failed to install the module /opt/build/ostlink.o to ") + destination + ".";
}

TEST(InstallModule, FailsWhereTheSubdirectoryIsAFile) {
  InstallHost host;
  host.File(std::string(kModules) + "/misc", "a file");
  Engine engine(host);
  EXPECT_FALSE(Install());
  EXPECT_EQ(engine.NewLog().back(), NotInstalled());
  EXPECT_EQ(ReadFile(std::string(kModules) + "/misc"), "a file");
  EXPECT_EQ(JournalEnd(), "");
  ExpectDepmodRuns(1);
}

TEST(InstallModule, FailsOnAReadOnlyFileSystem) {
  InstallHost host;
  Engine engine(host);
  ASSERT_EQ(mount("none", kModules, "tmpfs", MS_RDONLY, nullptr), 0);
  EXPECT_FALSE(Install());
  EXPECT_EQ(engine.NewLog().back(), NotInstalled());
  EXPECT_EQ(JournalEnd(), "");
  ExpectDepmodRuns(1);
}

TEST(InstallModule, LeavesNoHalfCopyOnAFullFileSystem) {
  InstallHost host;
  Engine engine(host);
  WriteFile(kObject, std::string(1'000'000, 'x'));
  ASSERT_EQ(mount("none", kModules, "tmpfs", 0, "size=64k"), 0);
  EXPECT_FALSE(Install());
  EXPECT_EQ(engine.NewLog().back(), NotInstalled());
  EXPECT_FALSE(Exists(kInstalled));
  EXPECT_FALSE(Exists(kLink));
  EXPECT_EQ(JournalEnd(), "");
  ExpectDepmodRuns(1);
}

TEST(InstallModule, FailsBehindTheCopyWhenTheJournalIsReadOnly) {
  InstallHost host;
  Engine engine(host, /*readOnlyJournal=*/true);
  EXPECT_FALSE(Install());
  EXPECT_EQ(engine.NewLog(), Lines({kStart, NotInstalled()}));
  EXPECT_EQ(ReadFile(kInstalled), "the object");
  EXPECT_FALSE(Exists(kLink));
  EXPECT_EQ(JournalEnd(), "");
  ExpectDepmodRuns(1);
}

TEST(InstallModule, KeepsTheObjectWhenTheLinkFails) {
  InstallHost host;
  host.Directory(std::string(kLink) + "/full");
  Engine engine(host);
  EXPECT_FALSE(Install());
  EXPECT_EQ(engine.NewLog(), Lines({kStart, std::string("Failed to create symlink from ") + kInstalled +
                                                " to " + kLink + "."}));
  EXPECT_EQ(ReadFile(kInstalled), "the object");
  EXPECT_EQ(JournalEnd(), FileLine(kInstalled));
  ExpectDepmodRuns(1);
}

TEST(InstallModule, RunsDepmodByItsBareNameAndIgnoresIt) {
  InstallHost host;
  RecordShell(host);
  host.Program("depmod", "exit 1");
  Engine engine(host);
  EXPECT_TRUE(Install());
  EXPECT_EQ(ShellCommands(), "depmod\n");
}

TEST(InstallModule, SucceedsWithoutDepmod) {
  Product host;
  host.Directory(kModules).File(kObject, "the object").NoProgram("depmod");
  Engine engine(host);
  EXPECT_TRUE(Install());
  EXPECT_EQ(ReadFile(kInstalled), "the object");
}

TEST(InstallModule, IsSeenByTheRealModuleTools) {
  Product host;
  host.Directory(kModules)
      .File(std::string(kModules) + "/modules.order", "")
      .File(std::string(kModules) + "/modules.builtin", "");
  Engine engine(host);
  WriteFile("/tmp/ostlink.c",
            "static const char license[] __attribute__((section(\".modinfo\"), used)) = \"license=GPL\";\n");
  ASSERT_EQ(testhost::Run("cd /tmp && gcc-12 -c ostlink.c -o ostlink.o"), 0);
  EXPECT_FALSE(KernPrep_ModuleIsInstalled("ostlink"));
  EXPECT_TRUE(KernPrep_InstallModule("ostlink", "/tmp/ostlink.o", nullptr, nullptr));
  EXPECT_TRUE(KernPrep_ModuleIsInstalled("ostlink"));
}

TEST(InstallModuleDeathTest, StopsForANullArgument) {
  InstallHost host;
  Engine engine(host);
  EXPECT_EXIT(KernPrep_InstallModule(nullptr, kObject, nullptr, nullptr), testing::ExitedWithCode(255),
              "ASSERT lib/unixinstall/kprepInstall.cc:");
  EXPECT_EXIT(KernPrep_InstallModule("ostlink", nullptr, nullptr, nullptr), testing::ExitedWithCode(255),
              "ASSERT lib/unixinstall/kprepInstall.cc:");
  ExpectDepmodRuns(0);
}

// Loading and unloading

TEST(UnloadModule, RunsRmmod) {
  Product host;
  RecordShell(host);
  host.Program("rmmod", "echo out; echo error >&2");
  Engine engine(host);
  EXPECT_EQ(ErrorsOf([] { EXPECT_TRUE(KernPrep_UnloadModule("ostlink")); }), "");
  EXPECT_EQ(ShellCommands(), Path("rmmod") + " ostlink >/dev/null 2>&1\n");
  EXPECT_EQ(Calls("rmmod"), std::vector<Call>({{"ostlink"}}));
}

TEST(UnloadModule, FailsWithRmmod) {
  Product host;
  host.Program("rmmod", "exit 1");
  Engine engine(host);
  EXPECT_FALSE(KernPrep_UnloadModule("ostlink"));
}

TEST(UnloadModule, FailsWithoutRmmod) {
  Product host;
  RecordShell(host);
  host.NoProgram("rmmod");
  Engine engine(host);
  ErrorsOf([] { EXPECT_FALSE(KernPrep_UnloadModule("ostlink")); });
  EXPECT_EQ(ShellCommands(), "(null) ostlink >/dev/null 2>&1\n");
}

TEST(LoadModule, RunsInsmodOnTheInstalledObject) {
  Product host;
  RecordShell(host);
  host.Program("insmod");
  Engine engine(host);
  EXPECT_TRUE(KernPrep_LoadModule("ostlink"));
  EXPECT_EQ(ShellCommands(), Path("insmod") + "  " + kInstalled + " \n");
  EXPECT_EQ(Calls("insmod"), std::vector<Call>({{kInstalled}}));
}

TEST(LoadModule, FailsWithInsmod) {
  Product host;
  host.Program("insmod", "exit 1");
  Engine engine(host);
  EXPECT_FALSE(KernPrep_LoadModule("ostlink"));
}

TEST(LoadModule, DoesNotCheckForInsmod) {
  Product host;
  RecordShell(host);
  host.NoProgram("insmod");
  Engine engine(host);
  ErrorsOf([] { EXPECT_FALSE(KernPrep_LoadModule("ostlink")); });
  EXPECT_EQ(ShellCommands(), std::string("(null)  ") + kInstalled + " \n");
}

}  // namespace
