#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>

#include "runTest.h"

using testhost::ReadFile;
using testhost::WriteFile;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace e2e {
namespace {

constexpr uintmax_t kHuge = 100 << 20;
constexpr char kSources[] = "/usr/lib/ostrel-tools/modules/source";
constexpr char kSets[] = "/usr/lib/ostrel-tools/modules/binary";
constexpr char kList[] = "/usr/lib/ostrel-tools/modules/modules.xml";
constexpr char kNoJournal[] = "Unable to initialize installer database\n";

// Bytes of every value, without an order that would mean anything.
std::string Binary() {
  std::string bytes;
  unsigned state = 1;
  for (int i = 0; i < 5000; i++) {
    state = state * 1103515245 + 12345;
    bytes += static_cast<char>(state >> 16);
  }
  return bytes;
}

// What can have become of a file.
struct Shape {
  const char *name;
  std::function<void(const std::string &path)> apply;
};

const Shape kAbsent = {"absent", [](const std::string &path) { std::filesystem::remove(path); }};
const Shape kEmpty = {"empty", [](const std::string &path) { std::filesystem::resize_file(path, 0); }};
const Shape kTruncated = {"truncated", [](const std::string &path) {
                            std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
                          }};
const Shape kBinary = {"binary", [](const std::string &path) { WriteFile(path, Binary()); }};
// Zeros, as a crash leaves them behind what was written.
const Shape kLong = {"100 MB long",
                     [](const std::string &path) { std::filesystem::resize_file(path, kHuge); }};
const Shape kDirectory = {"a directory", [](const std::string &path) {
                            std::filesystem::remove(path);
                            std::filesystem::create_directories(path + "/entry");
                          }};
const Shape kUnreadable = {"unreadable", [](const std::string &path) { chmod(path.c_str(), 0); }};

// Everything that belongs to the product and to the kernel, as far as a change would show.
std::string StateOf(const std::string &directory) {
  std::string state;
  // A directory's time changes with a lock that comes and goes.
  testhost::Run("find " + directory +
                    " \\( -type d -printf '%p %i %m\\n' \\) -o -printf '%p %y %s %i %T@ %m %l\\n' | sort",
                &state);
  return state;
}

class BadInputTest : public RunTest {
 protected:
  void EnterWithSet() {
    EnterWithModule();
    product_->Set("host", Product::PerfectProperties(kernel_), {"ostlink"});
  }
  // Inside a host: as EnterWithModule.
  void EnterProduct() {
    product_.emplace();
    desktop_.emplace();
    product_->Module("ostlink").Source("ostlink").Write();
    journal_ = ReadFile(kJournal);
  }
  // Lets the next run find the host as it was.
  void Uninstall(const std::string &module = "ostlink") {
    std::error_code notThere;
    std::filesystem::remove(kernel_.ModulePath(module), notThere);
    std::filesystem::remove(Link(module), notThere);
    std::filesystem::remove(kServiceRecord);
    WriteFile(kJournal, journal_);
  }
  std::string Modules() { return "/lib/modules/" + kernel_.release; }
  // Replaces a program of the host.
  void WriteProgram(const std::string &name, const std::string &body) {
    WriteFile("/testhost/bin/" + name, "#!/bin/sh\n" + body + "\n", 0755);
  }
  // Replaces modinfo by one that, while a shell condition holds, waits for /run/go before it answers.
  void WriteHangingModinfo(const std::string &condition) {
    chmod("/run", 0777);  // for the ordinary user's processes
    WriteProgram("modinfo",
                 condition +
                     " && { echo asked >>/run/busy; until test -e /run/go; do sleep 0.05; done; }\n"
                     "test -e " +
                     Modules() + "/misc/$1.o");
  }
  // A run in which a required module fails, for a reason that the log holds.
  void ExpectBuildFailure(const std::string &reason) {
    Tool tool;
    LeaveAfterBox(&tool);
    EXPECT_THAT(tool.Log(), HasSubstr(reason));
    ExpectNothingInstalled();
    EXPECT_THAT(ServiceCalls(), ElementsAre("stop"));
    Uninstall();
  }
  // What becomes of a product that is to be compiled, and what of one with a set, when the kernel's compiler
  // is unknown.
  void ExpectNoCompilation() {
    Tool compiling;
    EXPECT_EQ(compiling.Wait(), 255);
    EXPECT_THAT(compiling.Log(), ContainsRegex("\\| ASSERT apps/kernprep/kernprep\\.cc:[0-9]+\n"));
    EXPECT_THAT(ServiceCalls(), IsEmpty());
    product_->Set("host", Product::PerfectProperties(kernel_), {"ostlink"});
    ExpectInstalled("prebuilt ostlink\n");
  }
  void ExpectInstalled(const std::string &content) {
    Tool tool;
    EXPECT_EQ(tool.Wait(), 0) << tool.Output();
    EXPECT_TRUE(IsInstalled("ostlink", content));
    EXPECT_EQ(Added(), LinesFor("ostlink"));
    Uninstall();
  }
};

TEST_F(BadInputTest, CannotStartWithASpoiltJournal) {
  EnterWithModule();
  for (const Shape &shape : {kBinary, kDirectory}) {
    for (const uid_t user : {uid_t{0}, kUser}) {
      SCOPED_TRACE(shape.name);
      std::filesystem::remove_all(kJournal);
      WriteFile(kJournal, journal_);
      shape.apply(kJournal);
      const std::string before = StateOf("/etc/ostrel-tools /lib/modules " + std::string(kLibDir));
      Tool tool({}, user);
      ASSERT_TRUE(desktop_->Answer("Error", "Return"));
      EXPECT_EQ(tool.Wait(), 1);
      EXPECT_THAT(tool.Output(), EndsWith(kNoJournal));
      EXPECT_EQ(StateOf("/etc/ostrel-tools /lib/modules " + std::string(kLibDir)), before);
    }
  }
}

TEST_F(BadInputTest, CannotStartAsRootWhenTheJournalLiesOnAReadOnlyFileSystem) {
  EnterWithModule();
  ASSERT_EQ(mount("tmpfs", "/etc/ostrel-tools", "tmpfs", 0, ""), 0);
  WriteFile(kJournal, journal_);
  product_->Service("exit 0");
  ASSERT_EQ(mount("tmpfs", "/etc/ostrel-tools", "tmpfs", MS_REMOUNT | MS_RDONLY, ""), 0);
  Tool root;
  ASSERT_TRUE(desktop_->Answer("Error", "Return"));
  EXPECT_EQ(root.Wait(), 1);
  EXPECT_THAT(root.Output(), HasSubstr("Couldn't open /etc/ostrel-tools/locations! Failure!\n"));
  EXPECT_THAT(root.Output(), EndsWith(kNoJournal));
  // An ordinary user learns it when the tool runs as root.
  Tool user({}, kUser);
  ASSERT_TRUE(IsWindowUp());
  desktop_->display.Keys(kWindowTitle, "Return");
  ASSERT_TRUE(desktop_->Answer("Error", "Return"));
  EXPECT_EQ(user.Wait(), 1);
  EXPECT_THAT(ServiceCalls(), IsEmpty());
  ExpectNothingInstalled();
}

TEST_F(BadInputTest, LosesNoLineBehindAJournalThatBreaksOff) {
  Enter();
  product_->Module("ostlink").Source("ostlink").Module("ostchan").Source("ostchan").Write();
  journal_ = ReadFile(kJournal);
  const std::vector<std::string> ends = {"answer POOL ye", "file /lib/modules/x", "no line of ours",
                                         std::string(100, '\0')};
  for (const std::string &end : ends) {
    SCOPED_TRACE(testing::PrintToString(end));
    WriteFile(kJournal, journal_ + end);
    Tool tool;
    EXPECT_EQ(tool.Wait(), 0) << tool.Output();
    EXPECT_EQ(Added(), end + "\n" + LinesFor("ostlink") + LinesFor("ostchan"));
    Uninstall("ostchan");
    Uninstall();
  }
}

TEST_F(BadInputTest, ReadsAJournalOfAHundredMegabytes) {
  EnterWithModule();
  const std::string text = "file /usr/lib/ostrel-tools/a/file/whose/path/is/rather/long 1700000000\n";
  std::string noise;
  while (noise.size() < (1 << 20)) {
    noise += text;
  }
  {
    std::ofstream journal(kJournal, std::ios::app);
    for (int i = 0; i < 100; i++) {
      journal << noise;
    }
  }
  std::ofstream(kJournal, std::ios::app) << "answer BINDIR /elsewhere\n";
  const uintmax_t size = std::filesystem::file_size(kJournal);
  ASSERT_GT(size, kHuge);
  Tool tool;
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_TRUE(IsInstalled("ostlink"));
  EXPECT_EQ(std::filesystem::file_size(kJournal), size + LinesFor("ostlink").size());
}

TEST_F(BadInputTest, TellsTheLogOfASpoiltModuleList) {
  EnterWithModule();
  const std::string list = ReadFile(kList);
  const std::string other = std::string(kLibDir) + "/modules/other.xml";
  for (const Shape &shape : {kAbsent, kEmpty, kTruncated, kBinary, kDirectory, kUnreadable}) {
    SCOPED_TRACE(shape.name);
    std::filesystem::remove_all(kList);
    WriteFile(kList, list);
    shape.apply(kList);
    for (const uid_t user : {uid_t{0}, kUser}) {
      if (user == 0 && shape.name == kUnreadable.name) {
        continue;  // nothing is unreadable for root
      }
      Tool tool({}, user);
      EXPECT_EQ(tool.Wait(), 2) << tool.Output();
      EXPECT_THAT(tool.Log(),
                  HasSubstr(std::string("| Unable to load kernel module list from ") + kList + "\n"));
    }
  }
  EXPECT_THAT(Seen(), IsEmpty());
  EXPECT_THAT(ServiceCalls(), IsEmpty());
  ExpectNothingInstalled();
}

TEST_F(BadInputTest, ReadsAModuleListUpToItsEnd) {
  EnterWithModule();
  kLong.apply(kList);
  ExpectInstalled("object\n");
}

TEST_F(BadInputTest, ReadsAModuleListOfAHundredMegabytes) {
  EnterWithModule();
  const std::string list = ReadFile(kList);
  const size_t end = list.find("</modules>");
  {
    std::ofstream file(kList, std::ios::trunc);
    file << list.substr(0, end);
    const std::string comment = "<!--" + std::string(1 << 20, ' ') + "-->\n";
    for (int i = 0; i < 100; i++) {
      file << comment;
    }
    file << list.substr(end);
  }
  ExpectInstalled("object\n");
}

TEST_F(BadInputTest, CompilesWhenASetsLabelIsSpoilt) {
  EnterWithSet();
  const std::string path = std::string(kSets) + "/host/properties";
  for (const Shape &shape : {kAbsent, kEmpty, kTruncated, kBinary, kDirectory}) {
    SCOPED_TRACE(shape.name);
    std::filesystem::remove_all(path);
    WriteFile(path, Product::PerfectProperties(kernel_));
    shape.apply(path);
    ExpectInstalled("object\n");
  }
}

TEST_F(BadInputTest, UsesASetWhoseLabelIsVeryLong) {
  EnterWithSet();
  kLong.apply(std::string(kSets) + "/host/properties");
  ExpectInstalled("prebuilt ostlink\n");
}

TEST_F(BadInputTest, CompilesWhenTheSetsAreNoDirectory) {
  EnterWithModule();
  for (const char *content : {"", "text\n"}) {
    std::filesystem::remove_all(kSets);
    WriteFile(kSets, content);
    ExpectInstalled("object\n");
  }
  std::filesystem::remove_all(kSets);
  std::filesystem::create_symlink(kSets, kSets);
  ExpectInstalled("object\n");
  std::filesystem::remove_all(kSets);
  WriteFile(std::string(kSets) + "/file", "in the place of a set\n");
  ExpectInstalled("object\n");
}

TEST_F(BadInputTest, TakesASetsObjectAsItIs) {
  EnterWithSet();
  const std::string path = std::string(kSets) + "/host/objects/ostlink.o";
  for (const Shape &shape : {kEmpty, kTruncated, kBinary, kLong, kUnreadable}) {
    SCOPED_TRACE(shape.name);
    WriteFile(path, "prebuilt ostlink\n");
    shape.apply(path);
    const std::string content = ReadFile(path);
    Tool tool;
    EXPECT_EQ(tool.Wait(), 0) << tool.Output();
    EXPECT_TRUE(ReadFile(kernel_.ModulePath("ostlink")) == content);
    EXPECT_EQ(Added(), LinesFor("ostlink"));
    Uninstall();
  }
}

TEST_F(BadInputTest, CompilesWhenASetLacksTheObject) {
  EnterWithSet();
  kAbsent.apply(std::string(kSets) + "/host/objects/ostlink.o");
  ExpectInstalled("object\n");
}

TEST_F(BadInputTest, FailsWhenASetsObjectIsADirectory) {
  EnterWithSet();
  const std::string path = std::string(kSets) + "/host/objects/ostlink.o";
  kDirectory.apply(path);
  ExpectBuildFailure("| Error: " + path + " is not a valid module path.\n");
}

TEST_F(BadInputTest, NeedsTheKernelsVersionLineOnlyForACompilation) {
  // A file of the host's own stands in front of the kernel's, so that it can become anything.
  testhost::Host host;
  Enter(host);
  product_->Module("ostlink").Source("ostlink").Write();
  journal_ = ReadFile(kJournal);
  const std::string original = ReadFile("/proc/version");
  const std::string longLine(kHuge, 'x');
  const std::vector<std::pair<const char *, std::string>> lines = {
      {"empty", ""},
      {"truncated", original.substr(0, original.find("12.2"))},
      {"binary", Binary()},
      {"100 MB long", longLine},
  };
  for (const auto &[name, line] : lines) {
    SCOPED_TRACE(name);
    std::filesystem::remove_all(kSets);
    WriteFile("/run/version", line);
    ASSERT_EQ(mount("/run/version", "/proc/version", nullptr, MS_BIND, nullptr), 0) << strerror(errno);
    ExpectNoCompilation();
    ASSERT_EQ(umount("/proc/version"), 0);
  }
}

TEST_F(BadInputTest, NeedsTheKernelsVersionFileOnlyForACompilation) {
  testhost::Host host;
  kernel_.Describe(host);
  host.Remove("/proc/version");
  host.Enter();
  ASSERT_FALSE(Exists("/proc/version"));
  EnterProduct();
  ExpectNoCompilation();
}

TEST_F(BadInputTest, TakesADirectoryForNoVersionFile) {
  testhost::Host host;
  kernel_.Describe(host);
  host.Remove("/proc/version").Directory("/proc/version");
  host.Enter();
  ASSERT_TRUE(std::filesystem::is_directory("/proc/version"));
  EnterProduct();
  ExpectNoCompilation();
}

TEST_F(BadInputTest, FailsWhenASourceIsSpoilt) {
  EnterWithModule();
  const std::string tar = std::string(kSources) + "/ostlink.tar";
  const std::string notThere = "| Source file does not exist at " + tar + "\n";
  const std::string notExtracted = "| Could not extract source for module ostlink!\n";
  const std::string notCompiled = "| Failed to compile module ostlink!\n";
  const Shape cut = {"truncated", [](const std::string &path) { std::filesystem::resize_file(path, 1030); }};
  const Shape zeros = {"100 MB long", [](const std::string &path) {
                         std::filesystem::resize_file(path, 0);
                         std::filesystem::resize_file(path, kHuge);
                       }};
  const std::vector<std::pair<Shape, std::string>> cases = {
      {kAbsent, notThere},     {kEmpty, notExtracted}, {cut, notExtracted},
      {kBinary, notExtracted}, {zeros, notCompiled},   {kDirectory, notExtracted},
  };
  for (const auto &[shape, reason] : cases) {
    SCOPED_TRACE(shape.name);
    std::filesystem::remove_all(tar);
    product_->Source("ostlink");
    shape.apply(tar);
    ExpectBuildFailure(reason);
  }
}

TEST_F(BadInputTest, BuildsASourceWithZerosBehindIt) {
  EnterWithModule();
  kLong.apply(std::string(kSources) + "/ostlink.tar");
  ExpectInstalled("object\n");
}

TEST_F(BadInputTest, FailsWhenABuildLeavesNoObject) {
  EnterWithModule();
  product_->Source("ostlink", "rm -f ../ostlink.o; mkdir ../ostlink.o; exit 1");
  ExpectBuildFailure("| Failed to compile module ostlink!\n");
  const std::string tree = "/run/source/ostlink/ostlink-only";
  for (const char *recipe : {":", "mkdir ../ostlink.o", "ln -s /no/such/object ../ostlink.o"}) {
    SCOPED_TRACE(recipe);
    WriteFile(tree + "/Makefile", std::string("auto-build:\n\t") + recipe + "\n");
    ASSERT_EQ(testhost::Run(std::string("tar -C /run/source/ostlink -cf ") + kSources +
                            "/ostlink.tar ostlink-only"),
              0);
    ExpectBuildFailure("| Error: /tmp/ostrel-root/modules/ostlink.o is not a valid module path.\n");
  }
}

TEST_F(BadInputTest, NeedsTheKernelsModuleDirectory) {
  EnterWithSet();
  std::filesystem::remove_all(Modules());
  ExpectBuildFailure("| Can't figure out where to install the kernel module.\n");
  WriteFile(Modules(), "no directory\n");
  ExpectBuildFailure("| Can't figure out where to install the kernel module.\n");
}

TEST_F(BadInputTest, FailsWhenModulesCannotBeWritten) {
  EnterWithSet();
  const std::string object = std::string(kSets) + "/host/objects/ostlink.o";
  const std::string failed =
      "| Failed to install the module " + object + " to " + kernel_.ModulePath("ostlink") + ".\n";
  struct Case {
    const char *options;
    unsigned long flags;
  };
  WriteFile(object, std::string(100000, 'x'));
  for (const Case &each : {Case{"", MS_RDONLY}, Case{"size=16k", 0}, Case{"nr_inodes=2", 0}}) {
    SCOPED_TRACE(each.options);
    ASSERT_EQ(mount("tmpfs", Modules().c_str(), "tmpfs", each.flags, each.options), 0);
    ExpectBuildFailure(failed);
    ASSERT_EQ(umount(Modules().c_str()), 0);
  }
  // With room for the object and none for its link.
  ASSERT_EQ(mount("tmpfs", Modules().c_str(), "tmpfs", 0, "nr_inodes=3"), 0);
  Tool tool;
  LeaveAfterBox(&tool);
  EXPECT_THAT(tool.Log(), HasSubstr("| Failed to create symlink from " + kernel_.ModulePath("ostlink") +
                                    " to " + Link("ostlink") + ".\n"));
  EXPECT_THAT(Added(), StartsWith("file " + kernel_.ModulePath("ostlink") + " "));
}

TEST_F(BadInputTest, FailsWhenTheScratchDirectoryIsFull) {
  EnterWithModule();
  product_->Source("ostlink", "cat /dev/zero >big");
  ASSERT_TRUE(std::filesystem::create_directory("/tmp/ostrel-root"));
  ASSERT_EQ(mount("tmpfs", "/tmp/ostrel-root", "tmpfs", 0, "size=256k,mode=0700"), 0);
  Tool tool;
  LeaveAfterBox(&tool);
  ExpectNothingInstalled();
  product_->Source("ostlink");
  ExpectInstalled("object\n");
}

TEST_F(BadInputTest, SaysWhichToolsACompilationLacks) {
  testhost::Host host;
  host.NoProgram("make");
  Enter(host);
  product_->Module("ostlink").Source("ostlink").Write();
  journal_ = ReadFile(kJournal);
  Tool tool;
  LeaveAfterBox(&tool);
  EXPECT_THAT(tool.Log(), HasSubstr("| Can't get required utilities make, tar, echo, grep, rmmod, insmod\n"));
  EXPECT_THAT(tool.Output(), HasSubstr("Could not prepare build system.\n"));
  ExpectNothingInstalled();
  product_->Set("host", Product::PerfectProperties(kernel_), {"ostlink"});
  std::filesystem::remove(kServiceRecord);
  ExpectInstalled("prebuilt ostlink\n");
}

TEST_F(BadInputTest, FailsWhenAToolFails) {
  EnterWithModule();
  const std::vector<std::tuple<const char *, const char *, const char *>> cases = {
      {"tar", "exit 2", "| Could not extract source for module ostlink!\n"},
      {"tar", "kill -KILL $$", "| Could not extract source for module ostlink!\n"},
      {"make", "exit 2", "| Failed to compile module ostlink!\n"},
      {"make", "kill -KILL $$", "| Failed to compile module ostlink!\n"},
      {"make", "exit 0", "| Error: /tmp/ostrel-root/modules/ostlink.o is not a valid module path.\n"},
  };
  for (const auto &[name, body, reason] : cases) {
    SCOPED_TRACE(std::string(name) + ": " + body);
    WriteProgram(name, body);
    ExpectBuildFailure(reason);
    std::filesystem::remove(std::string("/testhost/bin/") + name);
  }
}

TEST_F(BadInputTest, InstallsWhateverDepmodDoes) {
  EnterWithModule();
  for (const char *body : {"exit 1", "kill -KILL $$", "exec /no/such/program"}) {
    SCOPED_TRACE(body);
    WriteProgram("depmod", body);
    ExpectInstalled("object\n");
  }
}

TEST_F(BadInputTest, TakesAModuleForMissingWhenModinfoCannotTell) {
  EnterWithModule();
  for (const char *body : {"exit 1", "kill -KILL $$", "exec /no/such/program"}) {
    SCOPED_TRACE(body);
    WriteProgram("modinfo", body);
    Uninstall();
    ExpectInstalled("object\n");
  }
}

TEST_F(BadInputTest, WaitsForAModinfoThatHangsBeforeAnyWindow) {
  EnterWithModule();
  WriteHangingModinfo("true");
  for (const uid_t user : {uid_t{0}, kUser}) {
    SCOPED_TRACE(user);
    std::filesystem::remove(kBusy);
    std::filesystem::remove("/run/go");
    const size_t seen = Seen().size();
    Tool tool({}, user);
    ASSERT_TRUE(IsBusy());
    EXPECT_EQ(tool.Wait(1), -1);
    EXPECT_EQ(ReadFile(kBusy), "asked\n") << "silence is no answer";
    EXPECT_EQ(Seen().size(), seen);
    EXPECT_THAT(ServiceCalls(), IsEmpty());
    ExpectNothingInstalled();
    WriteFile("/run/go", "");
    if (user == 0) {
      EXPECT_EQ(tool.Wait(), 0) << tool.Output();
      EXPECT_TRUE(IsInstalled("ostlink"));
      Uninstall();
    } else {
      ASSERT_TRUE(IsWindowUp());
      desktop_->display.Keys(kWindowTitle, "Escape");
      EXPECT_EQ(tool.Wait(), 2) << tool.Output();
    }
  }
}

TEST_F(BadInputTest, CanBeEndedWhileModinfoHangs) {
  EnterWithModule();
  WriteHangingModinfo("true");
  Tool tool;
  ASSERT_TRUE(IsBusy());
  kill(tool.Pid(), SIGTERM);
  EXPECT_EQ(tool.Wait(), 128 + SIGTERM);
  ExpectNothingInstalled();
  std::filesystem::remove("/testhost/bin/modinfo");
  ExpectInstalled("object\n");  // the journal is free again
}

TEST_F(BadInputTest, KeepsItsWindowWhileModinfoHangs) {
  EnterWithModule();
  WriteHangingModinfo("test -e /run/hang");
  Tool tool({}, kUser);
  ASSERT_TRUE(IsWindowUp());
  WriteFile("/run/hang", "");
  PressInstall();
  ASSERT_TRUE(IsBusy());
  EXPECT_EQ(tool.Wait(1), -1);
  EXPECT_EQ(ReadFile(kBusy), "asked\n") << "silence is no answer";
  EXPECT_TRUE(IsWindowUp());
  EXPECT_EQ(PrivilegeCalls(), "");
  WriteFile("/run/go", "");
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_TRUE(IsInstalled("ostlink"));
}

TEST_F(BadInputTest, AsksModinfoNothingOnceItsTasksRun) {
  EnterWithModule();
  product_->Service("touch /run/hang");
  WriteHangingModinfo("test -e /run/hang");
  Tool tool;
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_TRUE(IsInstalled("ostlink"));
  EXPECT_FALSE(Exists(kBusy));
}

TEST_F(BadInputTest, InstallsWithoutModinfoAndDepmod) {
  testhost::Host host;
  kernel_.Describe(host);
  host.NoProgram("modinfo").NoProgram("depmod");
  host.Enter();
  std::filesystem::remove("/testhost/bin/modinfo");
  std::filesystem::remove("/testhost/bin/depmod");
  EnterProduct();
  Tool tool;
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_TRUE(IsInstalled("ostlink"));
  EXPECT_THAT(tool.Log(), HasSubstr("| Unable to locate modinfo\n"));
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop", "start"));
}

TEST_F(BadInputTest, CanBeCancelledWhenAToolHangs) {
  EnterWithModule();
  for (const char *name : {"tar", "make", "depmod"}) {
    SCOPED_TRACE(name);
    std::filesystem::remove(kBusy);
    WriteProgram(name, "touch /run/busy; sleep 600");
    Tool tool;
    ASSERT_TRUE(IsBusy());
    ASSERT_TRUE(IsWindowUp());
    desktop_->display.Keys(kWindowTitle, "Escape");
    EXPECT_EQ(tool.Wait(), 5) << tool.Output();
    EXPECT_TRUE(Eventually([] { return ProcessesWith("sleep").empty(); }));
    EXPECT_EQ(Added(), name == std::string("depmod") ? LinesFor("ostlink") : "");
    EXPECT_THAT(ServiceCalls(), ElementsAre("stop"));
    std::filesystem::remove(std::string("/testhost/bin/") + name);
    Uninstall();
  }
}

TEST_F(BadInputTest, EndsAsAPrivilegeToolEndsThatIsKilled) {
  EnterWithModule();
  WriteFile(std::string(kBinDir) + "/ostrel-gksu", "#!/bin/sh\nkill -KILL $$\n", 0755);
  Tool tool({}, kUser);
  ASSERT_TRUE(IsWindowUp());
  desktop_->display.Keys(kWindowTitle, "Return");
  EXPECT_EQ(tool.Wait(), 128 + SIGKILL);
  ExpectNothingInstalled();
}

TEST_F(BadInputTest, EndsWhenThePrivilegeToolCannotBeRun) {
  EnterWithModule();
  const std::string path = std::string(kBinDir) + "/ostrel-gksu";
  for (const Shape &shape : {kUnreadable, kDirectory}) {
    SCOPED_TRACE(shape.name);
    shape.apply(path);
    Tool tool({}, kUser);
    ASSERT_TRUE(IsWindowUp());
    desktop_->display.Keys(kWindowTitle, "Return");
    ASSERT_TRUE(desktop_->Answer("Error", "Return"));
    EXPECT_EQ(tool.Wait(), 2) << tool.Output();
  }
  ExpectNothingInstalled();
}

const std::vector<std::string> kAwkward = {"it's", "\"quoted\"", "$HOME", "$(touch${IFS}owned)",
                                           "`id`", "a;b&c|d",    "*",     "\xc3\x96st\xe2\x9c\x93",
                                           "%s%n", "\\",         "-x",    "<b>&amp;"};

TEST_F(BadInputTest, FindsAProductInDirectoriesOfAnyName) {
  EnterWithSet();
  std::vector<std::string> names = kAwkward;
  names.emplace_back("\xff\xfe");
  for (const std::string &name : names) {
    SCOPED_TRACE(name);
    const std::string directory = "/opt/" + name;
    std::filesystem::create_directories("/opt");
    std::filesystem::create_directory_symlink("/usr/lib/ostrel-tools", directory);
    std::filesystem::create_directory_symlink(kInitDir, directory + "-init");
    journal_ = "answer BINDIR " + directory + "/bin\n";
    journal_ += "answer LIBDIR " + directory + "\n";
    journal_ += "answer INITSCRIPTSDIR " + directory + "-init\n";
    WriteFile(kJournal, journal_);
    Tool tool({}, 0, {"LC_ALL=C.UTF-8"});
    EXPECT_EQ(tool.Wait(), 0) << tool.Output();
    EXPECT_TRUE(IsInstalled("ostlink", "prebuilt ostlink\n"));
    EXPECT_THAT(ServiceCalls(), ElementsAre("stop", "start"));
    EXPECT_EQ(Added(), LinesFor("ostlink"));
    EXPECT_FALSE(Exists("owned"));
    std::filesystem::remove(directory);
    std::filesystem::remove(directory + "-init");
    Uninstall();
  }
}

TEST_F(BadInputTest, TakesAJournalsValueUpToItsFirstBlank) {
  EnterWithSet();
  journal_ = std::string("answer BINDIR ") + kBinDir + " more\nanswer LIBDIR  " + kLibDir +
             "  and more\nanswer INITSCRIPTSDIR " + kInitDir + " \n";
  WriteFile(kJournal, journal_);
  ExpectInstalled("prebuilt ostlink\n");
}

std::string ForXml(const std::string &text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '<':
        escaped += "&lt;";
        break;
      case '&':
        escaped += "&amp;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\n':
        escaped += "&#10;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

TEST_F(BadInputTest, ShowsADescriptionOfAnyText) {
  EnterWithModule();
  std::string list = "<modules>\n";
  std::string text = "<b>bold</b> &amp; <unclosed \" ' %s%n%d _under \\n two\nlines \xf0\x9f\x9a\x80";
  for (int i = 0; i < 3; i++) {
    list += "<module name=\"ostlink\" required=\"" + std::string(i == 0 ? "true" : "false") +
            "\" description=\"" + ForXml(text) + "\"/>\n";
    text += text;
  }
  WriteFile(kList, list + "</modules>\n");
  Tool tool({}, 0, {"LC_ALL=C.UTF-8"});
  // The name stands three times, which only a build notices.
  LeaveAfterBox(&tool);
  EXPECT_THAT(tool.Log(), HasSubstr("Module ostlink was found twice in module list!"));
  EXPECT_THAT(tool.Output(), Not(HasSubstr("WARNING")));
  EXPECT_THAT(tool.Output(), Not(HasSubstr("CRITICAL")));
  ExpectNothingInstalled();
}

TEST_F(BadInputTest, EndsInAnOrderlyWayWithModulesOfAnyName) {
  EnterWithModule();
  WriteProgram("modinfo", "exit 1");
  for (const std::string &name : kAwkward) {
    SCOPED_TRACE(name);
    product_->Set("host", Product::PerfectProperties(kernel_), {name});
    WriteFile(kList, "<modules><module name=\"" + ForXml(name) +
                         "\" required=\"true\" description=\"\"/></modules>\n");
    Tool tool({}, 0, {"LC_ALL=C.UTF-8"});
    EXPECT_EQ(tool.Wait(), 0) << tool.Output();
    EXPECT_TRUE(IsInstalled(name, "prebuilt " + name + "\n"));
    EXPECT_EQ(Added(), LinesFor(name));
    EXPECT_THAT(ServiceCalls(), ElementsAre("stop", "start"));
    Uninstall(name);
  }
}

}  // namespace
}  // namespace e2e
