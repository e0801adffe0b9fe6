#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include "engineTestInt.h"
#include "installerdb.h"
#include "kprep.h"
#include "kprepTestInt.h"
#include "owned.h"

namespace {

using enginetest::Lines;
using enginetest::Logged;
using testhost::Host;

constexpr char kList[] = "/opt/ostrel/lib/modules/modules.xml";
constexpr char kNotComplete[] = "Module list file is not complete.";
constexpr char kNotParsed[] = "Unable to parse module list file /opt/ostrel/lib/modules/modules.xml";

using OwnedList = std::unique_ptr<GList, Releaser<KernPrep_FreeModuleList>>;
using OwnedCells = std::unique_ptr<GList, Releaser<g_list_free>>;

const KernPrep_ModuleEntry *Entry(const GList *cell) {
  return static_cast<const KernPrep_ModuleEntry *>(cell->data);
}

Lines Names(const GList *list) {
  Lines names;
  for (; list; list = list->next) {
    names.emplace_back(Entry(list)->name);
  }
  return names;
}

Lines Dependencies(const GList *cell) {
  Lines names;
  for (const GList *name = Entry(cell)->dependencies; name; name = name->next) {
    names.emplace_back(static_cast<const char *>(name->data));
  }
  return names;
}

void EnterWith(Host &host, const std::string &list) {
  enginetest::Enter(host.File(kList, list));
}

// Reads the list in a host of its own.
OwnedList Read(const std::string &content) {
  Host host;
  EnterWith(host, content);
  return OwnedList(KernPrep_ReadModuleList(kList));
}

std::string Module(const std::string &name, const std::string &attributes = "required='true'",
                   const std::string &children = "") {
  return "<module name='" + name + "' description='' " + attributes + ">" + children + "</module>\n";
}

std::string List(const std::string &modules) {
  return "<?xml version='1.0'?>\n<modules>\n" + modules + "</modules>\n";
}

// Reads a file that is no list, and expects the null list, one reason in the log and a quiet standard error.
void ExpectNotParsed(const std::string &content) {
  Host host;
  EnterWith(host, content);
  testing::internal::CaptureStderr();
  EXPECT_EQ(nullptr, KernPrep_ReadModuleList(kList));
  EXPECT_EQ("", testing::internal::GetCapturedStderr());
  EXPECT_TRUE(Logged(kNotParsed));
}

// Reads a list that names no module, and expects the null list and an unchanged log.
void ExpectNothing(const std::string &content) {
  Host host;
  EnterWith(host, content);
  const Lines before = enginetest::LogLines();
  EXPECT_EQ(nullptr, KernPrep_ReadModuleList(kList));
  EXPECT_EQ(before, enginetest::LogLines());
}

// A product with answers, a list, and a modinfo that finds what `installed` names.
class Product : public Host {
 public:
  Product(const std::string &answers, const std::string &modules, const std::string &installed) {
    File(enginetest::kJournal, enginetest::kAnswers + answers);
    Program("modinfo", "case \"$1\" in " + installed + ") exit 0 ;; esac\nexit 1");
    EnterWith(*this, List(modules));
    EXPECT_TRUE(InstallerDB_Init(enginetest::kConfigDir, true));
    list_.reset(KernPrep_ReadModuleList(kList));
  }
  ~Product() { InstallerDB_DeInit(); }
  Product(const Product &) = delete;
  Product &operator=(const Product &) = delete;

  GList *TheList() const { return list_.get(); }
  Lines Unsatisfied() const {
    const OwnedCells cells(KernPrep_GetUnsatisfiedModules(list_.get()));
    EXPECT_EQ(cells != nullptr, KernPrep_HasUnsatisfiedModules(list_.get()));
    return Names(cells.get());
  }

 private:
  OwnedList list_;
};

}  // namespace

TEST(ReadModuleList, ReadsEveryFieldInTheFilesOrder) {
  const OwnedList list = Read(
      "<modules>\n"
      "  <module name='ostpool' required='false' key='POOL' description='Shared &amp; pooled \xc3\xa9'/>\n"
      "  <module name='ostlink' required='true' description='Links'>\n"
      "    <dependencies><dependency name='ostpool'/></dependencies>\n"
      "  </module>\n"
      "</modules>\n");
  ASSERT_EQ(Lines({"ostpool", "ostlink"}), Names(list.get()));
  const KernPrep_ModuleEntry *pool = Entry(list.get());
  EXPECT_STREQ("Shared & pooled \xc3\xa9", pool->description);
  EXPECT_STREQ("POOL", pool->key);
  EXPECT_FALSE(pool->required);
  EXPECT_EQ(nullptr, pool->dependencies);
  const KernPrep_ModuleEntry *link = Entry(list->next);
  EXPECT_STREQ("Links", link->description);
  EXPECT_STREQ("", link->key);
  EXPECT_TRUE(link->required);
  EXPECT_EQ(Lines({"ostpool"}), Dependencies(list->next));
}

TEST(ReadModuleList, TakesOnlyTheWordTrueForRequired) {
  const OwnedList list = Read(List(Module("a", "required='true'") + Module("b", "required='True'") +
                                   Module("c", "required='yes'") + Module("d", "required=''")));
  ASSERT_EQ(4U, g_list_length(list.get()));
  EXPECT_TRUE(Entry(list.get())->required);
  for (const GList *cell = list->next; cell; cell = cell->next) {
    EXPECT_FALSE(Entry(cell)->required) << Entry(cell)->name;
  }
}

TEST(ReadModuleList, GathersTheDependenciesOfEveryGroup) {
  const OwnedList list =
      Read(List(Module("a", "required='true'",
                       "<dependencies><dependency name='b'/><dependency name='unknown'/></dependencies>"
                       "<dependency name='outside'/>"
                       "<dependencies><dependency name='c'/><other name='d'/></dependencies>")));
  EXPECT_EQ(Lines({"b", "unknown", "c"}), Dependencies(list.get()));
}

TEST(ReadModuleList, DropsAnUnnamedDependencyAndReadsOn) {
  const OwnedList list = Read(
      List(Module("a", "required='true'",
                  "<dependencies><dependency name='b'/><dependency/><dependency name='c'/></dependencies>") +
           Module("z")));
  EXPECT_EQ(Lines({"b", "c"}), Dependencies(list.get()));
  EXPECT_EQ(Lines({"a", "z"}), Names(list.get()));
  EXPECT_TRUE(Logged("Unnamed dependency in module list file."));
}

TEST(ReadModuleList, IgnoresWhatItDoesNotKnow) {
  const OwnedList list = Read(
      "<!-- c --><modules extra='1'>text<?module x?><!-- <module/> --><Module/><group>" + Module("inner") +
      "</group>" + Module("a", "required='true' more='1'", "text<!-- c --><x/>") + "</modules>");
  EXPECT_EQ(Lines({"a"}), Names(list.get()));
  EXPECT_FALSE(Logged(kNotComplete));
}

TEST(ReadModuleList, KeepsASecondEntryOfTheSameName) {
  EXPECT_EQ(Lines({"a", "a"}), Names(Read(List(Module("a") + Module("a"))).get()));
}

TEST(ReadModuleList, StopsAtAModuleWithoutDescription) {
  const OwnedList list = Read(List(Module("a") + "<module name='b' required='true'/>" + Module("c")));
  EXPECT_EQ(Lines({"a"}), Names(list.get()));
  EXPECT_TRUE(Logged(kNotComplete));
}

TEST(ReadModuleList, StopsAtAModuleWithoutName) {
  EXPECT_EQ(nullptr, Read(List("<module required='true' description='' key='k'/>" + Module("c"))));
  EXPECT_TRUE(Logged(kNotComplete));
}

TEST(ReadModuleList, StopsAtAModuleWithoutRequired) {
  EXPECT_EQ(nullptr, Read(List("<module name='b' description=''/>" + Module("c"))));
  EXPECT_TRUE(Logged(kNotComplete));
}

TEST(ReadModuleList, GivesNothingForAnotherRoot) {
  ExpectNothing("<Modules>" + Module("a") + "</Modules>");
}

TEST(ReadModuleList, GivesNothingForARootWithoutChildren) {
  ExpectNothing("<modules/>");
}

TEST(ReadModuleList, GivesNothingForARootWithCommentsOnly) {
  ExpectNothing("<modules> <!-- nothing -->\n</modules>");
}

TEST(ReadModuleList, ReportsAMissingFile) {
  Host host;
  enginetest::Enter(host);
  testing::internal::CaptureStderr();
  EXPECT_EQ(nullptr, KernPrep_ReadModuleList(kList));
  EXPECT_EQ("", testing::internal::GetCapturedStderr());
  EXPECT_EQ(kNotParsed, enginetest::LogLines().back()) << "there is no line that could be at fault";
}

TEST(ReadModuleList, ReportsADirectory) {
  Host host;
  host.Directory(kList);
  enginetest::Enter(host);
  EXPECT_EQ(nullptr, KernPrep_ReadModuleList(kList));
  EXPECT_TRUE(Logged(kNotParsed));
}

TEST(ReadModuleList, ReportsAnUnreadableFile) {
  Host host;
  host.File(kList, List(Module("a")), 0).User(1234);
  enginetest::Enter(host);
  EXPECT_EQ(nullptr, KernPrep_ReadModuleList(kList));
  EXPECT_TRUE(Logged(kNotParsed));
}

TEST(ReadModuleList, ReportsAnEmptyFile) {
  ExpectNotParsed("");
}

TEST(ReadModuleList, ReportsABrokenFileWithLineAndReason) {
  ExpectNotParsed("<modules>\n<module name='a'\n</modules>\n");
  const Lines log = enginetest::LogLines();
  const auto line = std::find(log.begin(), log.end(), kNotParsed);
  ASSERT_NE(log.end(), line + 1);
  EXPECT_EQ(0U, (line + 1)->find("Line 3: ")) << *(line + 1);
}

TEST(ReadModuleList, ReportsATruncatedFile) {
  const std::string list = List(Module("a") + Module("b"));
  ExpectNotParsed(list.substr(0, list.size() - 20));
}

TEST(ReadModuleList, ReportsABinaryFile) {
  ExpectNotParsed(std::string("\0\1\2\xff", 4) + std::string(5000, '\0'));
}

TEST(ReadModuleList, ReportsANulInside) {
  ExpectNotParsed(List(Module("a") + std::string(1, '\0') + Module("b")));
}

TEST(ReadModuleList, ReportsInvalidUtf8) {
  ExpectNotParsed(List(Module("a\xff")));
}

TEST(ReadModuleList, ReportsADocumentWithoutRoot) {
  ExpectNotParsed("<?xml version='1.0'?>\n<!-- only -->\n");
}

TEST(ReadModuleList, RefusesEntitiesThatGrowWithoutEnd) {
  std::string list = "<!DOCTYPE modules [<!ENTITY e0 'xxxxxxxxxx'>";
  for (int i = 1; i < 12; ++i) {
    list += "<!ENTITY e" + std::to_string(i) + " '";
    for (int k = 0; k < 10; ++k) {
      list += "&e" + std::to_string(i - 1) + ";";
    }
    list += "'>";
  }
  ExpectNotParsed(list + "]><modules>" + Module("&e11;") + "</modules>");
}

TEST(ReadModuleList, DoesNotFetchExternalEntities) {
  Host host;
  host.File("/opt/other.xml", Module("fetched"));
  EnterWith(host, "<!DOCTYPE modules [<!ENTITY x SYSTEM 'file:///opt/other.xml'>]><modules>&x;" +
                      Module("a") + "</modules>");
  const OwnedList list(KernPrep_ReadModuleList(kList));
  EXPECT_EQ(Lines({"a"}), Names(list.get()));
}

TEST(ReadModuleList, ReportsAHundredMegabytesOfText) {
  ExpectNotParsed("<modules>" + std::string(100UL << 20, 'x') + "</modules>");
}

TEST(ReadModuleList, ReadsTenThousandModules) {
  std::string modules;
  for (int i = 0; i < 10000; ++i) {
    modules += Module("m" + std::to_string(i));
  }
  const OwnedList list = Read(List(modules));
  EXPECT_EQ(10000U, g_list_length(list.get()));
  EXPECT_STREQ("m9999", Entry(g_list_last(list.get()))->name);
}

TEST(ReadModuleList, ReadsDosLineEndsAndQuotes) {
  const OwnedList list =
      Read("<modules>\r\n<module name=\"it's\" required=\"true\" description='\"x\"'/>\r\n</modules>\r\n");
  ASSERT_EQ(Lines({"it's"}), Names(list.get()));
  EXPECT_STREQ("\"x\"", Entry(list.get())->description);
}

TEST(FreeModuleList, AcceptsNull) {
  KernPrep_FreeModuleList(nullptr);
}

TEST(GetUnsatisfiedModules, GivesRequiredModulesThatAreNotInstalled) {
  const Product product("", Module("a") + Module("b") + Module("c", "required='false'") + Module("d"), "b");
  EXPECT_EQ(Lines({"a", "d"}), product.Unsatisfied());
  const OwnedCells cells(KernPrep_GetUnsatisfiedModules(product.TheList()));
  EXPECT_EQ(product.TheList()->data, cells->data) << "the entries are the list's own";
}

TEST(GetUnsatisfiedModules, FollowsTheAnswerAloneForAModuleWithAKey) {
  const Product product(
      "answer YES yes\nanswer NO no\nanswer LOUD YES\nanswer NONE\n",
      Module("yes", "required='false' key='YES'") + Module("no", "required='true' key='NO'") +
          Module("loud", "required='true' key='LOUD'") + Module("none", "required='true' key='NONE'") +
          Module("unknown", "required='true' key='UNKNOWN'"),
      "nothing");
  EXPECT_EQ(Lines({"yes"}), product.Unsatisfied());
}

TEST(GetUnsatisfiedModules, AsksOnlyForWantedModules) {
  const Product product("", Module("a") + Module("b", "required='True'"), "a");
  EXPECT_EQ(Lines(), product.Unsatisfied());
  // Asked for by each of the two functions that the question goes through.
  EXPECT_EQ(std::vector<testhost::Call>({{"a"}, {"a"}}), testhost::Calls("modinfo"));
}

TEST(GetUnsatisfiedModules, GivesNothingForTheNullList) {
  EXPECT_EQ(nullptr, KernPrep_GetUnsatisfiedModules(nullptr));
  EXPECT_FALSE(KernPrep_HasUnsatisfiedModules(nullptr));
}

TEST(FindInPath, GivesOneBufferThatTheNextSuccessOverwrites) {
  Host host;
  host.Program("first").Program("second");
  host.Enter();
  const char *first = KernPrep_FindInPath("first");
  ASSERT_NE(nullptr, first);
  const std::string firstPath = first;
  EXPECT_EQ("/first", firstPath.substr(firstPath.rfind('/')));
  EXPECT_EQ(nullptr, KernPrep_FindInPath(""));
  EXPECT_EQ(nullptr, KernPrep_FindInPath(nullptr));
  EXPECT_EQ(nullptr, KernPrep_FindInPath("no-such-program"));
  EXPECT_EQ(firstPath, first);
  EXPECT_EQ(first, KernPrep_FindInPath("second"));
  EXPECT_EQ("/second", std::string(first).substr(std::string(first).rfind('/')));
}

TEST(FindInPath, GivesThePathWholeHoweverLongItIs) {
  Host host;
  std::string directory = "/opt/far";
  while (directory.size() < 3800) {
    directory += "/" + std::string(200, 'd');
  }
  host.File(directory + "/tool", "#!/bin/sh\n", 0755);
  host.Enter();
  setenv("PATH", directory.c_str(), 1);
  EXPECT_EQ(directory + "/tool", KernPrep_FindInPath("tool"));
}

TEST(FindInPath, FindsAnAbsolutePath) {
  EXPECT_STREQ("/bin/sh", KernPrep_FindInPath("/bin/sh"));
}

TEST(ModuleIsInstalled, IsFalseWithoutModinfo) {
  Host host;
  host.NoProgram("modinfo");
  enginetest::Enter(host);
  EXPECT_FALSE(KernPrep_ModuleIsInstalled("a"));
  EXPECT_TRUE(Logged("Unable to locate modinfo"));
}

TEST(ModuleIsInstalled, RunsModinfoByItsPath) {
  Host host;
  kpreptest::RecordShell(host);
  host.Program("modinfo");
  enginetest::Enter(host);
  EXPECT_TRUE(KernPrep_ModuleIsInstalled("ostlink"));
  EXPECT_EQ(kpreptest::Path("modinfo") + " ostlink\n", kpreptest::ShellCommands());
}

TEST(ModuleIsInstalled, LeavesTheToolsOutputAlone) {
  Host host;
  host.Program("modinfo", "echo filename: x; echo complaint >&2");
  enginetest::Enter(host);
  fflush(stdout);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  EXPECT_TRUE(KernPrep_ModuleIsInstalled("a"));
  EXPECT_EQ("complaint\n", testing::internal::GetCapturedStderr());
  EXPECT_EQ("filename: x\n", testing::internal::GetCapturedStdout());
}

TEST(ModuleIsInstalled, AsksTheRealTool) {
  Host host;
  host.Release("2.6.18-92.el5").Directory("/lib/modules/2.6.18-92.el5/kernel");
  host.File("/tmp/m.c", "const char m[] __attribute__((section(\".modinfo\"), used)) = \"license=GPL\";\n");
  enginetest::Enter(host);
  ASSERT_EQ(0, testhost::Run("gcc -c /tmp/m.c -o /lib/modules/2.6.18-92.el5/kernel/ostlink.ko && depmod"));
  EXPECT_TRUE(KernPrep_ModuleIsInstalled("ostlink"));
  EXPECT_FALSE(KernPrep_ModuleIsInstalled("ostchan"));
}
