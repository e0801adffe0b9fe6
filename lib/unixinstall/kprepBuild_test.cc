#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "kprepTestInt.h"
#include "msg.h"

namespace {

using kpreptest::Engine;
using kpreptest::ErrorsOf;
using kpreptest::kLibDir;
using kpreptest::Lines;
using kpreptest::Path;
using kpreptest::Product;
using kpreptest::RecordShell;
using kpreptest::ShellCommands;
using testhost::Call;
using testhost::Calls;
using testhost::ReadFile;
using testhost::WriteFile;

using OwnedModules = std::unique_ptr<GList, Releaser<KernPrep_FreeModuleList>>;
using OwnedNames = std::unique_ptr<GList, Releaser<KernPrep_FreeNameList>>;
using OwnedTable = std::unique_ptr<GHashTable, Releaser<g_hash_table_destroy>>;

constexpr char kHeaders[] = "/opt/headers/include";

std::string ListEntry(const std::string &name, const std::vector<std::string> &dependencies = {}) {
  std::string text = "<module name=\"" + name + "\" required=\"true\" description=\"\"><dependencies>";
  for (const std::string &dependency : dependencies) {
    text += "<dependency name=\"" + dependency + "\"/>";
  }
  return text + "</dependencies></module>\n";
}

// Walking

struct Walk {
  std::vector<std::string> order;  // empty for a failed walk
  Lines log;
};

// Inside a host: reads the list through a file and walks from a module.
Walk WalkFrom(Engine *engine, const std::string &modules, const char *module) {
  WriteFile("/tmp/modules.xml", "<modules>" + modules + "</modules>");
  const OwnedModules list(KernPrep_ReadModuleList("/tmp/modules.xml"));
  const OwnedTable marks(g_hash_table_new(g_str_hash, g_str_equal));
  engine->NewLog();
  const OwnedNames names(KernPrep_WalkDependencies(list.get(), module, marks.get()));
  Walk walk;
  for (const GList *cell = names.get(); cell; cell = cell->next) {
    walk.order.emplace_back(static_cast<const char *>(cell->data));
  }
  walk.log = engine->NewLog();
  return walk;
}

using Order = std::vector<std::string>;

TEST(WalkDependencies, PutsTheDependencyFirst) {
  Product host;
  Engine engine(host);
  const Walk walk = WalkFrom(&engine, ListEntry("ostlink") + ListEntry("ostchan", {"ostlink"}), "ostchan");
  EXPECT_EQ(walk.order, Order({"ostlink", "ostchan"}));
  EXPECT_EQ(walk.log, Lines({"Found dependencies for module ostchan.", "Inspecting dependency ostlink.",
                             "Found dependencies for module ostlink."}));
}

TEST(WalkDependencies, TakesASharedDependencyOnce) {
  Product host;
  Engine engine(host);
  const Walk walk =
      WalkFrom(&engine, ListEntry("A", {"B", "C"}) + ListEntry("B", {"C"}) + ListEntry("C"), "A");
  EXPECT_EQ(walk.order, Order({"C", "B", "A"}));
  EXPECT_EQ(walk.log, Lines({"Found dependencies for module A.", "Inspecting dependency B.",
                             "Found dependencies for module B.", "Inspecting dependency C.",
                             "Found dependencies for module C.", "Inspecting dependency C.",
                             "Already descended into dependency C, skipping."}));
}

TEST(WalkDependencies, TakesEveryLevelInTheFilesOrder) {
  Product host;
  Engine engine(host);
  const Walk walk =
      WalkFrom(&engine, ListEntry("A", {"D", "B"}) + ListEntry("B", {"F", "E"}) + ListEntry("D", {"E"}), "A");
  EXPECT_EQ(walk.order, Order({"E", "D", "F", "B", "A"}));
}

TEST(WalkDependencies, TreatsAnUnknownNameAsAloneStanding) {
  Product host;
  Engine engine(host);
  EXPECT_EQ(WalkFrom(&engine, ListEntry("A", {"unknown"}), "A").order, Order({"unknown", "A"}));
  const Walk walk = WalkFrom(&engine, ListEntry("A"), "unknown");
  EXPECT_EQ(walk.order, Order({"unknown"}));
  EXPECT_EQ(walk.log, Lines());
}

TEST(WalkDependencies, GivesTheModuleAloneForTheNullList) {
  Product host;
  Engine engine(host);
  const OwnedTable marks(g_hash_table_new(g_str_hash, g_str_equal));
  const OwnedNames names(KernPrep_WalkDependencies(nullptr, "A", marks.get()));
  ASSERT_TRUE(names);
  EXPECT_STREQ(static_cast<const char *>(names->data), "A");
  EXPECT_EQ(names->next, nullptr);
  EXPECT_EQ(engine.NewLog(), Lines());
}

TEST(WalkDependencies, StopsAtACycleBelow) {
  Product host;
  Engine engine(host);
  const Walk walk =
      WalkFrom(&engine, ListEntry("A", {"B"}) + ListEntry("B", {"C"}) + ListEntry("C", {"B"}), "A");
  EXPECT_EQ(walk.order, Order());
  EXPECT_EQ(walk.log, Lines({"Found dependencies for module A.", "Inspecting dependency B.",
                             "Found dependencies for module B.", "Inspecting dependency C.",
                             "Found dependencies for module C.", "Inspecting dependency B.",
                             "Cyclic dependency detected in the dependencies for module C!",
                             "An error occurred. Cleaning up.", "An error occurred. Cleaning up."}));
}

TEST(WalkDependencies, FindsACycleThroughTheStartOnItsSecondPass) {
  Product host;
  Engine engine(host);
  const Walk walk = WalkFrom(&engine, ListEntry("A", {"B"}) + ListEntry("B", {"A"}), "A");
  EXPECT_EQ(walk.order, Order());
  EXPECT_EQ(walk.log, Lines({"Found dependencies for module A.", "Inspecting dependency B.",
                             "Found dependencies for module B.", "Inspecting dependency A.",
                             "Found dependencies for module A.", "Inspecting dependency B.",
                             "Cyclic dependency detected in the dependencies for module A!",
                             "An error occurred. Cleaning up.", "An error occurred. Cleaning up."}));
}

TEST(WalkDependencies, StopsAtAModuleThatNeedsItself) {
  Product host;
  Engine engine(host);
  const Walk walk = WalkFrom(&engine, ListEntry("A", {"A"}), "A");
  EXPECT_EQ(walk.order, Order());
  EXPECT_EQ(walk.log.back(), "An error occurred. Cleaning up.");
}

TEST(WalkDependencies, StopsAtANameThatStandsTwice) {
  Product host;
  Engine engine(host);
  const Walk walk = WalkFrom(&engine, ListEntry("B") + ListEntry("A", {"B"}) + ListEntry("B"), "A");
  EXPECT_EQ(walk.order, Order());
  // The line on the double name has no end of its own.
  EXPECT_EQ(walk.log, Lines({"Found dependencies for module A.", "Inspecting dependency B.",
                             "Found dependencies for module B.", "Found dependencies for module B.",
                             "Module B was found twice in module list!An error occurred. Cleaning up."}));
}

TEST(WalkDependencies, MarksWhatItHasFinished) {
  Product host;
  Engine engine(host);
  WriteFile("/tmp/modules.xml", "<modules>" + ListEntry("A", {"B"}) + "</modules>");
  const OwnedModules list(KernPrep_ReadModuleList("/tmp/modules.xml"));
  const OwnedTable marks(g_hash_table_new(g_str_hash, g_str_equal));
  const OwnedNames names(KernPrep_WalkDependencies(list.get(), "A", marks.get()));
  EXPECT_EQ(GPOINTER_TO_INT(g_hash_table_lookup(marks.get(), "B")), 2);
  EXPECT_EQ(g_hash_table_size(marks.get()), 1U);
}

TEST(FreeNameList, AcceptsNull) {
  KernPrep_FreeNameList(nullptr);
}

// Building

// A host with the two modules of the product, a place to install and a compiler with the kernel's version.
class BuildHost : public Product {
 public:
  BuildHost() {
    ModuleList(ListEntry("ostlink") + ListEntry("ostchan", {"ostlink"}) + ListEntry("ostpool"));
    Directory("/lib/modules/2.6.18-92.el5").Program("depmod");
    Program("gcc", "[ \"$1\" = -dumpversion ] && { echo 4.1.2; exit; }\nexec gcc-12 \"$@\"");
  }

  // A make that only leaves an object.
  BuildHost &StandInMake(const std::string &body = "") {
    Program("make", body + "\necho \"object of $2\" >\"${2%-only}.o\"");
    return *this;
  }
};

std::string Installed(const std::string &module) {
  return ReadFile("/lib/modules/2.6.18-92.el5/misc/" + module + ".o");
}

std::string Scratch(const std::string &path) {
  return std::string(kernPrep.tempDir) + "/" + path;
}

std::string SourcePath(const std::string &module) {
  return std::string(kLibDir) + "/modules/source/" + module + ".tar";
}

// Packs a module's source; the makefile's lines begin with a tab.
void PutSource(const std::string &module, const std::string &makefile = "auto-build:\n",
               const std::string &archive = "") {
  const std::string directory = "/tmp/sources/" + module + "-only";
  WriteFile(directory + "/Makefile", makefile);
  WriteFile(directory + "/module.c", "int " + module + "(void) { return 0; }\n");
  const std::string target = archive.empty() ? SourcePath(module) : archive;
  std::filesystem::create_directories(std::filesystem::path(target).parent_path());
  std::string output;
  ASSERT_EQ(testhost::Run("tar -C /tmp/sources -cf " + target + " " + module + "-only", &output), 0)
      << output;
}

bool Build(const char *module, const char *compiler = nullptr) {
  const std::string gcc = Path("gcc");
  return KernPrep_BuildModule(module, compiler ? compiler : gcc.c_str(), kHeaders, nullptr, nullptr);
}

std::string MakeCommand(const std::string &module, const std::string &smp = "SUPPORT_SMP=1") {
  const std::string make = Path("make"), grep = Path("grep"), gcc = Path("gcc");
  return make + " -C " + Scratch(module + "-only") + " auto-build " + smp + " HEADER_DIR=" + kHeaders +
         " CC=" + gcc + " GREP=" + grep + " IS_GCC_3=no OSTCCVER=4.1.2";
}

std::string TarCommand(const std::string &module) {
  return Path("tar") + " -C " + kernPrep.tempDir + " -xopf " + SourcePath(module);
}

// What the log holds of one module that is built.
Lines BuildLines(const std::string &module) {
  return {"Building module " + module + ".", "Extracting the sources of the " + module + " module.",
          "Building module with command: " + MakeCommand(module)};
}

Lines Joined(std::initializer_list<Lines> parts) {
  Lines all;
  for (const Lines &part : parts) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

Lines InstallLines(const std::string &module) {
  return {"Installing module " + module + " from " + Scratch(module + ".o") + "."};
}

constexpr char kNoSymbols[] = "Could NOT copy Modules.symvers or Module.symversfile from ostlink!";

TEST(BuildModule, BuildsAChainWithTheRealTools) {
  BuildHost host;
  Engine engine(host);
  PutSource("ostlink",
            "auto-build:\n\t$(CC) -c module.c -o ../ostlink.o\n\techo symbols of ostlink >Modules.symvers\n");
  PutSource(
      "ostchan",
      "auto-build:\n\t$(GREP) -q 'symbols of ostlink' Modules.symvers\n"
      "\t$(CC) -c module.c -o ../ostchan.o\n\techo $(SUPPORT_SMP) $(HEADER_DIR) $(OSTCCVER) >settings\n");
  std::string compilerOutput;
  testing::internal::CaptureStdout();
  EXPECT_TRUE(Build("ostchan"));
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(engine.NewLog(),
            Joined({{"Found dependencies for module ostchan.", "Inspecting dependency ostlink.",
                     "Found dependencies for module ostlink."},
                    BuildLines("ostlink"),
                    BuildLines("ostchan"),
                    InstallLines("ostchan")}));
  EXPECT_EQ(Installed("ostchan"), ReadFile(Scratch("ostchan.o")));
  EXPECT_EQ(testhost::Run("nm /lib/modules/2.6.18-92.el5/misc/ostchan.ko | grep -q ' T ostchan'"), 0);
  EXPECT_EQ(Installed("ostlink"), "");
  EXPECT_EQ(ReadFile(Scratch("ostchan-only/settings")), "1 /opt/headers/include 4.1.2\n");
  EXPECT_STREQ(static_cast<const char *>(g_hash_table_lookup(kernPrep.builtModules, "ostlink")),
               Scratch("ostlink.o").c_str());
}

TEST(BuildModule, LetsTheBuildWriteToItsOwnOutputs) {
  BuildHost host;
  Engine engine(host);
  PutSource("ostlink", "auto-build:\n\t@echo said; echo complained >&2; touch ../ostlink.o\n");
  testing::internal::CaptureStdout();
  const std::string errors = ErrorsOf([] { EXPECT_TRUE(Build("ostlink")); });
  const std::string output = testing::internal::GetCapturedStdout();
  EXPECT_NE(output.find("said\n"), std::string::npos) << output;
  EXPECT_EQ(errors, "complained\n");
}

TEST(BuildModule, FormsItsCommandsExactly) {
  BuildHost host;
  RecordShell(host.StandInMake());
  Engine engine(host);
  PutSource("ostlink");
  std::filesystem::remove("/tmp/shell-commands");
  EXPECT_TRUE(Build("ostlink"));
  EXPECT_EQ(ShellCommands(), TarCommand("ostlink") + "\n" + MakeCommand("ostlink") + "\ndepmod\n");
  EXPECT_EQ(Calls("make"), std::vector<Call>({{"-C", Scratch("ostlink-only"), "auto-build", "SUPPORT_SMP=1",
                                               "HEADER_DIR=/opt/headers/include", "CC=" + Path("gcc"),
                                               "GREP=" + Path("grep"), "IS_GCC_3=no", "OSTCCVER=4.1.2"}}));
  EXPECT_EQ(Installed("ostlink"), "object of " + Scratch("ostlink-only") + "\n");
}

TEST(BuildModule, LeavesTwoBlanksOnAUniprocessorKernel) {
  BuildHost host;
  host.StandInMake().Version("#1 Tue Jun 10 18:49:47 EDT 2008");
  Engine engine(host);
  PutSource("ostlink");
  EXPECT_TRUE(Build("ostlink"));
  const Lines log = engine.NewLog();
  ASSERT_GE(log.size(), 2U);
  EXPECT_EQ(log[log.size() - 2], "Building module with command: " + MakeCommand("ostlink", ""));
  EXPECT_NE(log[log.size() - 2].find(" auto-build  HEADER_DIR="), std::string::npos);
}

// IS_GCC_3 tells of the compiler that the engine last examined, OSTCCVER of the one that is used.
TEST(BuildModule, TakesIsGcc3FromTheEnginesOwnCompiler) {
  BuildHost host;
  host.StandInMake().Program("cc-3", "echo 3.4.6");
  Engine engine(host);
  PutSource("ostlink");
  PutSource("ostpool");
  kernPrep.kernel.compilerMajor = 3;
  EXPECT_TRUE(Build("ostlink"));
  kernPrep.kernel.compilerMajor = 4;
  EXPECT_TRUE(Build("ostpool", Path("cc-3").c_str()));
  const std::vector<Call> calls = Calls("make");
  ASSERT_EQ(calls.size(), 2U);
  EXPECT_EQ(Call(calls[0].end() - 2, calls[0].end()), Call({"IS_GCC_3=yes", "OSTCCVER=4.1.2"}));
  EXPECT_EQ(Call(calls[1].end() - 2, calls[1].end()), Call({"IS_GCC_3=no", "OSTCCVER=3.4.6"}));
}

TEST(BuildModule, PassesTheLastArgumentsOnToTheInstallation) {
  BuildHost host;
  host.StandInMake();
  Engine engine(host);
  PutSource("ostlink");
  EXPECT_TRUE(KernPrep_BuildModule("ostlink", Path("gcc").c_str(), kHeaders, "extra", "other"));
  EXPECT_EQ(ReadFile("/lib/modules/2.6.18-92.el5/extra/other.o"),
            "object of " + Scratch("ostlink-only") + "\n");
}

TEST(BuildModule, BuildsAModuleThatTheListDoesNotKnow) {
  BuildHost host;
  host.StandInMake();
  Engine engine(host);
  PutSource("other");
  EXPECT_TRUE(Build("other"));
  EXPECT_NE(Installed("other"), "");
}

TEST(BuildModule, OnlyInstallsWhatItHasBuiltBefore) {
  BuildHost host;
  host.StandInMake("echo symbols >\"$2/Modules.symvers\"");
  Engine engine(host);
  PutSource("ostlink");
  PutSource("ostchan");
  EXPECT_TRUE(Build("ostlink"));
  EXPECT_TRUE(Build("ostlink"));
  EXPECT_EQ(engine.NewLog(),
            Joined({{"Found dependencies for module ostlink."},
                    BuildLines("ostlink"),
                    InstallLines("ostlink"),
                    {"Found dependencies for module ostlink.", "Module ostlink is already built."},
                    InstallLines("ostlink")}));
  EXPECT_EQ(Calls("make").size(), 1U);
  EXPECT_EQ(Calls("depmod").size(), 2U);
  EXPECT_TRUE(Build("ostchan"));
  EXPECT_EQ(Calls("make").size(), 2U);
}

TEST(BuildModule, BuildsAgainWhatFailedOverWhatIsThere) {
  BuildHost host;
  host.StandInMake("[ -e /tmp/ready ] || exit 2");
  Engine engine(host);
  PutSource("ostlink");
  EXPECT_FALSE(Build("ostlink"));
  EXPECT_EQ(engine.NewLog(), Joined({{"Found dependencies for module ostlink."},
                                     BuildLines("ostlink"),
                                     {"Failed to compile module ostlink!"}}));
  EXPECT_EQ(g_hash_table_size(kernPrep.builtModules), 0U);
  EXPECT_EQ(Calls("depmod").size(), 0U);
  WriteFile(Scratch("ostlink-only/leftover"), "");
  WriteFile("/tmp/ready", "");
  EXPECT_TRUE(Build("ostlink"));
  EXPECT_EQ(Calls("make").size(), 2U);
  EXPECT_TRUE(std::filesystem::exists(Scratch("ostlink-only/leftover")));
}

TEST(BuildModule, FailsWhenTheMakefileHasNoSuchTarget) {
  BuildHost host;
  Engine engine(host);
  PutSource("ostlink", "all:\n");
  ErrorsOf([] { EXPECT_FALSE(Build("ostlink")); });
  EXPECT_EQ(engine.NewLog().back(), "Failed to compile module ostlink!");
}

TEST(BuildModule, FailsWhenTheMakefileLeavesNoObject) {
  BuildHost host;
  Engine engine(host);
  PutSource("ostlink", "auto-build:\n\t@true\n");
  testing::internal::CaptureStdout();
  EXPECT_FALSE(Build("ostlink"));
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(engine.NewLog().back(), "Error: " + Scratch("ostlink.o") + " is not a valid module path.");
}

TEST(BuildModule, TakesLegacySourcesUpTo2_6_8) {
  BuildHost host;
  host.StandInMake().Release("2.6.8").Directory("/lib/modules/2.6.8");
  Engine engine(host);
  EXPECT_FALSE(Build("ostlink"));
  EXPECT_EQ(engine.NewLog(),
            Lines({"Found dependencies for module ostlink.", "Building module ostlink.",
                   "Source file does not exist at /opt/ostrel/lib/modules/source/legacy/ostlink.tar",
                   "Could not extract source for module ostlink!"}));
  PutSource("ostlink", "auto-build:\n", SourcePath("legacy/ostlink"));
  EXPECT_TRUE(Build("ostlink"));
}

TEST(BuildModule, TakesPlainSourcesFrom2_6_9) {
  BuildHost host;
  host.Release("2.6.9");
  Engine engine(host);
  EXPECT_FALSE(Build("ostlink"));
  EXPECT_EQ(engine.NewLog()[2], "Source file does not exist at " + SourcePath("ostlink"));
}

TEST(BuildModule, GivesTheFilesToTheExtractingUser) {
  BuildHost host;
  host.StandInMake();
  Engine engine(host);
  WriteFile("/tmp/sources/ostlink-only/script", "", 0751);
  ASSERT_EQ(chown("/tmp/sources/ostlink-only/script", 1234, 1234), 0);
  PutSource("ostlink");
  umask(077);
  EXPECT_TRUE(Build("ostlink"));
  struct stat data = {};
  ASSERT_EQ(stat(Scratch("ostlink-only/script").c_str(), &data), 0);
  EXPECT_EQ(data.st_uid, geteuid());
  EXPECT_EQ(data.st_mode & 07777, 0751U);
}

// A source that can't be unpacked

void ExpectNotExtracted(Engine *engine) {
  ErrorsOf([] { EXPECT_FALSE(Build("ostlink")); });
  EXPECT_EQ(engine->NewLog(), Lines({"Found dependencies for module ostlink.", "Building module ostlink.",
                                     "Extracting the sources of the ostlink module.",
                                     "Could not extract source for module ostlink!"}));
  EXPECT_TRUE(Calls("make").empty());
  EXPECT_TRUE(Calls("depmod").empty());
}

TEST(BuildModule, FailsForABrokenArchive) {
  BuildHost host;
  host.StandInMake();
  Engine engine(host);
  PutSource("ostlink", std::string(100'000, '#'));
  const std::string whole = ReadFile(SourcePath("ostlink"));
  for (const std::string &content : {whole.substr(0, 20'000), std::string("no archive at all"),
                                     whole.substr(700), std::string(4096, '\xff')}) {
    WriteFile(SourcePath("ostlink"), content);
    ExpectNotExtracted(&engine);
  }
}

TEST(BuildModule, FailsForADirectoryInPlaceOfTheArchive) {
  BuildHost host;
  host.StandInMake();
  Engine engine(host);
  std::filesystem::create_directories(SourcePath("ostlink"));
  ExpectNotExtracted(&engine);
}

TEST(BuildModule, FailsWithoutItsScratchDirectory) {
  BuildHost host;
  host.StandInMake();
  Engine engine(host);
  PutSource("ostlink");
  std::filesystem::remove_all(kernPrep.tempDir);
  ExpectNotExtracted(&engine);
}

// Kept as it is: the call counts as good once an earlier module of the chain was compiled, though nothing is
// installed.
TEST(BuildModule, IsTrueWhenALaterSourceIsMissingBehindACompiledOne) {
  BuildHost host;
  host.StandInMake();
  Engine engine(host);
  PutSource("ostlink");
  EXPECT_TRUE(Build("ostchan"));
  EXPECT_EQ(engine.NewLog(),
            Joined({{"Found dependencies for module ostchan.", "Inspecting dependency ostlink.",
                     "Found dependencies for module ostlink."},
                    BuildLines("ostlink"),
                    {"Building module ostchan.", "Source file does not exist at " + SourcePath("ostchan"),
                     "Could not extract source for module ostchan!"}}));
  EXPECT_EQ(Installed("ostchan"), "");
  EXPECT_TRUE(Calls("depmod").empty());
}

TEST(BuildModule, IsFalseWhenALaterSourceIsMissingBehindOneBuiltByAnEarlierCall) {
  BuildHost host;
  host.StandInMake();
  Engine engine(host);
  PutSource("ostlink");
  EXPECT_TRUE(Build("ostlink"));
  EXPECT_FALSE(Build("ostchan"));
  EXPECT_EQ(engine.NewLog().back(), "Could not extract source for module ostchan!");
}

TEST(BuildModule, IsFalseWhenALaterModuleDoesNotCompile) {
  BuildHost host;
  host.StandInMake("case $2 in *ostchan-only) exit 1;; esac");
  Engine engine(host);
  PutSource("ostlink");
  PutSource("ostchan");
  ErrorsOf([] { EXPECT_FALSE(Build("ostchan")); });
  EXPECT_EQ(engine.NewLog().back(), "Failed to compile module ostchan!");
  EXPECT_EQ(g_hash_table_size(kernPrep.builtModules), 1U);
}

TEST(BuildModule, FailsForABrokenDependencyBeforeTheModule) {
  BuildHost host;
  host.StandInMake();
  Engine engine(host);
  PutSource("ostchan");
  EXPECT_FALSE(Build("ostchan"));
  EXPECT_EQ(engine.NewLog().back(), "Could not extract source for module ostlink!");
  EXPECT_FALSE(std::filesystem::exists(Scratch("ostchan-only")));
}

// The symbol table

TEST(BuildModule, PrefersTheNewNameOfTheSymbolTable) {
  BuildHost host;
  host.StandInMake(
      "[ ${2##*/} = ostlink-only ] && echo new >$2/Modules.symvers && echo old >$2/Module.symvers");
  Engine engine(host);
  PutSource("ostlink");
  PutSource("ostchan");
  EXPECT_TRUE(Build("ostchan"));
  EXPECT_EQ(ReadFile(Scratch("ostchan-only/Modules.symvers")), "new\n");
  EXPECT_FALSE(std::filesystem::exists(Scratch("ostchan-only/Module.symvers")));
}

TEST(BuildModule, TakesTheOldNameOfTheSymbolTableAndOverwrites) {
  BuildHost host;
  host.StandInMake("[ ${2##*/} = ostlink-only ] && echo old >$2/Module.symvers");
  Engine engine(host);
  PutSource("ostlink");
  WriteFile("/tmp/sources/ostchan-only/Module.symvers", "shipped\n");
  PutSource("ostchan");
  EXPECT_EQ(ErrorsOf([] { EXPECT_TRUE(Build("ostchan")); }), "");
  EXPECT_EQ(ReadFile(Scratch("ostchan-only/Module.symvers")), "old\n");
}

TEST(BuildModule, GoesOnWithoutSymbolTable) {
  BuildHost host;
  host.StandInMake();
  Engine engine(host);
  PutSource("ostlink");
  PutSource("ostchan");
  const std::string errors = ErrorsOf([] { EXPECT_TRUE(Build("ostchan")); });
  EXPECT_EQ(errors, std::string(kNoSymbols) + "\n\n");
  const Lines chan = BuildLines("ostchan");
  EXPECT_EQ(engine.NewLog(),
            Joined({{"Found dependencies for module ostchan.", "Inspecting dependency ostlink.",
                     "Found dependencies for module ostlink."},
                    BuildLines("ostlink"),
                    {chan[0], chan[1], kNoSymbols, "", chan[2]},
                    InstallLines("ostchan")}));
  // Both copies that failed have left a message for the user.
  Msg_Reset(true);
  Lines messages = engine.NewLog();
  std::erase_if(messages, [](const std::string &line) { return !line.starts_with("["); });
  const std::string id = "[msg.File.CopyFromNameToName.open.failure] Unable to open the '";
  const std::string end = "' file for read access: ";
  ASSERT_EQ(messages.size(), 2U);
  EXPECT_TRUE(messages[0].starts_with(id + Scratch("ostlink-only/Modules.symvers") + end)) << messages[0];
  EXPECT_TRUE(messages[1].starts_with(id + Scratch("ostlink-only/Module.symvers") + end)) << messages[1];
  EXPECT_NE(Installed("ostchan"), "");
}

TEST(BuildModule, CopiesTheSymbolTableForOneModuleOnly) {
  BuildHost host;
  host.ModuleList(ListEntry("ostlink") + ListEntry("ostpool", {"ostlink"}) +
                  ListEntry("ostchan2", {"ostlink"}));
  host.StandInMake("[ ${2##*/} = ostlink-only ] && echo new >$2/Modules.symvers");
  Engine engine(host);
  PutSource("ostlink");
  for (const std::string name : {"ostpool", "ostchan2"}) {
    PutSource(name);
    EXPECT_EQ(ErrorsOf([&] { EXPECT_TRUE(Build(name.c_str())); }), "");
    EXPECT_FALSE(std::filesystem::exists(Scratch(name + "-only/Modules.symvers")));
  }
}

// What comes before the first module

TEST(BuildModule, WarnsOfDependenciesThatCannotBeDetermined) {
  BuildHost host;
  host.ModuleList(ListEntry("ostlink", {"ostchan"}) + ListEntry("ostchan", {"ostlink"}));
  host.NoProgram("tar");
  Engine engine(host);
  const std::string warning =
      "Could not determine the module build dependences for ostchan. Pleaseensure the integrity of "
      "modules.xml.";
  EXPECT_EQ(ErrorsOf([] { EXPECT_FALSE(Build("ostchan")); }), warning + "\n");
  // The module itself has no mark, so that the cycle closes on the second pass through its dependency.
  EXPECT_EQ(engine.NewLog(),
            Lines({"Found dependencies for module ostchan.", "Inspecting dependency ostlink.",
                   "Found dependencies for module ostlink.", "Inspecting dependency ostchan.",
                   "Found dependencies for module ostchan.", "Inspecting dependency ostlink.",
                   "Cyclic dependency detected in the dependencies for module ostchan!",
                   "An error occurred. Cleaning up.", "An error occurred. Cleaning up.", warning}));
  EXPECT_TRUE(kernPrep.buildToolsUnchecked);
}

void ExpectToolIsNeeded(const char *tool) {
  BuildHost host;
  host.NoProgram(tool);
  Engine engine(host);
  EXPECT_EQ(ErrorsOf([] { EXPECT_FALSE(KernPrep_BuildModule("ostlink", "cc", kHeaders, nullptr, nullptr)); }),
            "Could not prepare build system.\n");
  EXPECT_EQ(engine.NewLog(), Lines({"Found dependencies for module ostlink.",
                                    "Can't get required utilities make, tar, echo, grep, rmmod, insmod",
                                    "Could not prepare build system."}));
  EXPECT_TRUE(kernPrep.buildToolsUnchecked);
}

TEST(BuildModule, NeedsMake) {
  ExpectToolIsNeeded("make");
}
TEST(BuildModule, NeedsEcho) {
  ExpectToolIsNeeded("echo");
}
TEST(BuildModule, NeedsTar) {
  ExpectToolIsNeeded("tar");
}
TEST(BuildModule, NeedsGrep) {
  ExpectToolIsNeeded("grep");
}
TEST(BuildModule, NeedsRmmod) {
  ExpectToolIsNeeded("rmmod");
}
TEST(BuildModule, NeedsInsmod) {
  ExpectToolIsNeeded("insmod");
}

TEST(BuildModule, ChecksItsToolsOnce) {
  BuildHost host;
  host.StandInMake();
  Engine engine(host);
  PutSource("ostlink");
  PutSource("ostpool");
  EXPECT_TRUE(Build("ostlink"));
  EXPECT_FALSE(kernPrep.buildToolsUnchecked);
  const std::string insmod = Path("insmod");
  ASSERT_TRUE(std::filesystem::remove(insmod));
  ASSERT_EQ(Path("insmod"), "(null)");
  EXPECT_TRUE(Build("ostpool"));
}

TEST(BuildModule, ChecksItsToolsAgainAfterTheEnginesEnd) {
  BuildHost host;
  host.StandInMake();
  Engine engine(host);
  PutSource("ostlink");
  EXPECT_TRUE(Build("ostlink"));
  ASSERT_TRUE(std::filesystem::remove(Path("insmod")));
  KernPrep_DeInit();
  ASSERT_TRUE(KernPrep_Init());
  EXPECT_EQ(ErrorsOf([] { EXPECT_FALSE(Build("ostlink")); }), "Could not prepare build system.\n");
}

TEST(BuildModule, FailsForAToolThatVanishesLater) {
  BuildHost host;
  host.NoProgram("make").File("/usr/local/bin/make", "#!/bin/sh\ntouch \"${2%-only}.o\"\n", 0755);
  RecordShell(host);
  Engine engine(host);
  kernPrep.buildToolsUnchecked = false;
  PutSource("ostlink");
  ASSERT_EQ(Path("make"), "(null)");
  ErrorsOf([] { EXPECT_FALSE(Build("ostlink")); });
  EXPECT_NE(ShellCommands().find("\n(null) -C " + Scratch("ostlink-only") + " auto-build"),
            std::string::npos);
  EXPECT_EQ(engine.NewLog().back(), "Failed to compile module ostlink!");
}

TEST(BuildModule, FailsWithACompilerThatDoesNotAnswer) {
  BuildHost host;
  host.StandInMake();
  Engine engine(host);
  PutSource("ostlink");
  ErrorsOf([] { EXPECT_FALSE(Build("ostlink", "/no/such/compiler")); });
  const Lines log = engine.NewLog();
  ASSERT_GE(log.size(), 2U);
  EXPECT_TRUE(log[log.size() - 2].ends_with("CC=/no/such/compiler GREP=" + Path("grep") +
                                            " IS_GCC_3=no OSTCCVER=(null)"));
  EXPECT_EQ(log.back(), "Failed to compile module ostlink!");
  EXPECT_TRUE(Calls("make").empty());
}

TEST(BuildModule, DoesNotQuoteItsPaths) {
  BuildHost host;
  host.StandInMake();
  Engine engine(host);
  PutSource("ostlink");
  EXPECT_TRUE(
      KernPrep_BuildModule("ostlink", Path("gcc").c_str(), "/opt/with blank/include", nullptr, nullptr));
  ASSERT_EQ(Calls("make").size(), 1U);
  const Call call = Calls("make")[0];
  EXPECT_EQ(Call(call.begin() + 4, call.begin() + 6), Call({"HEADER_DIR=/opt/with", "blank/include"}));
}

TEST(BuildModuleDeathTest, StopsForANullArgumentBehindTheExtraction) {
  BuildHost host;
  host.StandInMake();
  Engine engine(host);
  PutSource("ostlink");
  EXPECT_EXIT(KernPrep_BuildModule("ostlink", nullptr, kHeaders, nullptr, nullptr),
              testing::ExitedWithCode(255), "ASSERT lib/unixinstall/kprepBuild.cc:");
  EXPECT_EXIT(KernPrep_BuildModule("ostlink", "cc", nullptr, nullptr, nullptr), testing::ExitedWithCode(255),
              "ASSERT lib/unixinstall/kprepBuild.cc:");
  EXPECT_TRUE(std::filesystem::exists(Scratch("ostlink-only/Makefile")));
}

TEST(BuildModule, NeedsNoCompilerForWhatIsBuilt) {
  BuildHost host;
  host.StandInMake();
  Engine engine(host);
  PutSource("ostlink");
  EXPECT_TRUE(Build("ostlink"));
  EXPECT_TRUE(KernPrep_BuildModule("ostlink", nullptr, nullptr, nullptr, nullptr));
}

TEST(BuildModule, LosesItsWorkWithTheEngine) {
  BuildHost host;
  host.StandInMake();
  std::string scratch;
  {
    Engine engine(host);
    PutSource("ostlink");
    EXPECT_TRUE(Build("ostlink"));
    scratch = kernPrep.tempDir;
    EXPECT_TRUE(std::filesystem::exists(scratch + "/ostlink-only"));
  }
  EXPECT_FALSE(std::filesystem::exists(scratch));
}

}  // namespace
