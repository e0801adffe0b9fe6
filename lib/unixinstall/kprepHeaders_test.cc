#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "kprepTestInt.h"

namespace {

using kpreptest::Engine;
using kpreptest::ErrorsOf;
using kpreptest::kRelease;
using kpreptest::Lines;
using kpreptest::Path;
using kpreptest::Product;
using kpreptest::RecordShell;
using kpreptest::ShellCommands;
using kpreptest::Whole;
using testhost::WriteFile;

constexpr char kTree[] = "/opt/kernel/include";

// The real preprocessor under the version number of the kernel's compiler.
Product &WithRealCompiler(Product &host) {
  host.Program("gcc", "[ \"$1\" = -dumpversion ] && { echo 4.1.2; exit; }\nexec gcc-12 \"$@\"");
  return host;
}

// A compiler whose preprocessed text is the file /tmp/preprocessed, whatever comes in.
Product &WithCannedCompiler(Product &host) {
  host.Program("gcc",
               "[ \"$1\" = -dumpversion ] && { echo 4.1.2; exit; }\ncat >/dev/null; cat /tmp/preprocessed");
  return host;
}

void Put(const std::string &name, const std::string &content, const std::string &tree = kTree) {
  WriteFile(tree + "/" + name, content);
}

void Drop(const std::string &name) {
  ASSERT_TRUE(std::filesystem::remove_all(std::string(kTree) + "/" + name));
}

std::string ReleaseLine(const std::string &release) {
  return "#define UTS_RELEASE \"" + release + "\"\n";
}

// A configured tree as kernels after 2.6.33 have it.
void PutGeneratedTree(const std::string &tree = kTree) {
  Put("linux/version.h", "#define LINUX_VERSION_CODE 132626\n", tree);
  Put("generated/utsrelease.h", ReleaseLine(kRelease), tree);
  Put("generated/autoconf.h", "#define CONFIG_SMP 1\n", tree);
  Put("../Makefile", "", tree);
  Put("../.config", "", tree);
}

// A configured tree as older kernels have it.
void PutOldTree(const std::string &release = kRelease) {
  Put("linux/version.h", "#define LINUX_VERSION_CODE 132626\n");
  Put("linux/utsrelease.h", ReleaseLine(release));
  Put("linux/autoconf.h", "#define CONFIG_SMP 1\n");
  Put("../Makefile", "");
  Put("../.config", "");
}

// A tree as kernels up to 2.5.0 have it.
void PutAncientTree(const std::string &release, const std::string &pageHeader) {
  Put("linux/version.h", ReleaseLine(release));
  Put("linux/autoconf.h", "#define CONFIG_SMP 1\n");
  Put("asm/page.h", pageHeader);
  Put("net/sock.h", "");
}

std::string Query(std::vector<const char *> headers, const char *macro, const char *directory = kTree) {
  headers.push_back(nullptr);
  return Whole(OwnedString(KernPrep_QueryMacro(headers.data(), directory, macro)));
}

std::string FoundDirectory() {
  return Whole(OwnedString(KernPrep_FindHeaderDir()));
}

// Asking for macros

TEST(QueryMacro, AsksTheRealPreprocessor) {
  Product host;
  Engine engine(WithRealCompiler(host));
  Put("a.h",
      "#define NUMBER 17\n#define TEXT \"some text\"\n#define NOTHING\n#define SUM 1 + NUMBER\n"
      "#define TWO \"2.6.\" \"18\"\n#define BLANK \"\"\n#ifdef __KERNEL__\n#define IN_KERNEL 1\n#endif\n");
  Put("linux/b.h", "#undef NUMBER\n#define NUMBER 18\n");
  EXPECT_EQ(Query({"a.h"}, "NUMBER"), "17");
  EXPECT_EQ(Query({"a.h", "linux/b.h"}, "NUMBER"), "18");
  EXPECT_EQ(Query({"linux/b.h", "a.h"}, "TEXT"), "some text");
  EXPECT_EQ(Query({"a.h"}, "SUM"), "1 + 17");
  EXPECT_EQ(Query({"a.h"}, "NOTHING"), "");
  EXPECT_EQ(Query({"a.h"}, "BLANK"), "");
  EXPECT_EQ(Query({"a.h"}, "IN_KERNEL"), "1");
}

TEST(QueryMacro, GivesAnUndefinedMacrosOwnName) {
  Product host;
  Engine engine(WithRealCompiler(host));
  Put("a.h", "");
  EXPECT_EQ(Query({"a.h"}, "CONFIG_SMP"), "CONFIG_SMP");
  EXPECT_EQ(Query({}, "CONFIG_SMP"), "CONFIG_SMP");
}

TEST(QueryMacro, EndsAdjacentTextsAtTheSecondQuote) {
  Product host;
  Engine engine(WithRealCompiler(host));
  Put("a.h", "#define UTS_RELEASE \"2.6.\" \"18\"\n");
  EXPECT_EQ(Query({"a.h"}, "UTS_RELEASE"), "2.6.");
}

TEST(QueryMacro, CutsALineAt127Characters) {
  Product host;
  Engine engine(WithRealCompiler(host));
  const std::string digits(300, '7');
  Put("a.h", "#define LONG " + digits + "\n#define QUOTED \"" + digits + "\"\n");
  EXPECT_EQ(Query({"a.h"}, "LONG"), digits.substr(0, 127 - std::string("OST_CHECK ").size()));
  // Its second quote lies behind the cut.
  EXPECT_EQ(Query({"a.h"}, "QUOTED"), "(none)");
}

TEST(QueryMacro, GivesNothingForAHeaderThatIsMissing) {
  Product host;
  Engine engine(WithRealCompiler(host));
  const std::string errors = ErrorsOf([] { EXPECT_EQ(Query({"no/such/header.h"}, "NUMBER"), "(none)"); });
  EXPECT_NE(errors.find("no/such/header.h"), std::string::npos) << errors;
}

TEST(QueryMacro, FormsItsCommandWithRealNewlines) {
  Product host;
  RecordShell(host);
  Engine engine(WithCannedCompiler(host));
  Query({"linux/version.h", "linux/utsrelease.h"}, "UTS_RELEASE");
  EXPECT_EQ(ShellCommands(),
            "echo '#define __KERNEL__\n#include <linux/version.h>\n#include <linux/utsrelease.h>\n\n"
            "OST_CHECK UTS_RELEASE' | " +
                Path("gcc") + " -E -I/opt/kernel/include -\n");
  const std::vector<testhost::Call> calls = testhost::Calls("gcc");
  ASSERT_EQ(calls.size(), 2U);
  EXPECT_EQ(calls[0], testhost::Call({"-dumpversion"}));
  EXPECT_EQ(calls[1], testhost::Call({"-E", "-I/opt/kernel/include", "-"}));
}

TEST(QueryMacro, ReadsTheMarkedLinesOfTheAnswer) {
  Product host;
  Engine engine(WithCannedCompiler(host));
  const struct {
    const char *preprocessed;
    const char *expected;
  } rows[] = {
      {"", "(none)"},
      {"# 1 \"<stdin>\"\nint x;\n OST_CHECK 1\n", "(none)"},
      {"junk\nOST_CHECK 1\nOST_CHECK 2\n", "1"},
      {"OST_CHECK 1", "1"},
      {"OST_CHECK\n", ""},
      {"OST_CHECK", ""},
      {"OST_CHECK:x y \n", "x y "},
      {"OST_CHECK \"a\"\nOST_CHECK \"b\" \"c\"\n", "b"},  // a later line replaces a quoted value
      {"OST_CHECK \"a\"\nOST_CHECK b\nOST_CHECK \"c\"\n", "b"},
      {"OST_CHECK \"a\nOST_CHECK \"b\"\n", "(none)"},  // a lone quote ends the reading
      {"OST_CHECK \"a\"\nOST_CHECK \"b\nOST_CHECK \"c\"\n", "a"},
      {"OST_CHECK x\"a\"y\n", "a"},
  };
  for (const auto &row : rows) {
    WriteFile("/tmp/preprocessed", row.preprocessed);
    EXPECT_EQ(Query({}, "M"), row.expected) << row.preprocessed;
  }
}

TEST(QueryMacro, PassesOverTheRestOfALongLine) {
  Product host;
  Engine engine(WithCannedCompiler(host));
  WriteFile("/tmp/preprocessed", std::string(127, 'x') + "OST_CHECK 1\nOST_CHECK 2\n");
  // The line's second piece begins with the marker, as a line of its own would.
  EXPECT_EQ(Query({}, "M"), "1");
  WriteFile("/tmp/preprocessed", std::string(126, 'x') + "OST_CHECK 1\nOST_CHECK 2\n");
  EXPECT_EQ(Query({}, "M"), "2");
}

TEST(QueryMacro, SurvivesBinaryOutput) {
  Product host;
  Engine engine(WithCannedCompiler(host));
  std::string binary;
  for (int i = 0; i < 100'000; ++i) {
    binary += static_cast<char>(i * 37);
  }
  WriteFile("/tmp/preprocessed", binary + "\nOST_CHECK 5\n");
  EXPECT_EQ(Query({}, "M"), "5");
}

TEST(QueryMacro, SearchesACompilerEachTime) {
  Product host;
  Engine engine(WithRealCompiler(host));
  Query({}, "A");
  Query({}, "B");
  EXPECT_EQ(engine.NewLog(), Lines({"Your GCC version: 4.1", "Your GCC version: 4.1"}));
  EXPECT_EQ(kernPrep.kernel.compilerMajor, 4);
  EXPECT_EQ(kernPrep.kernel.compilerMinor, 1);
}

TEST(QueryMacro, NeedsACompiler) {
  Product host;
  host.NoProgram("gcc").NoProgram("gcc-4.1");
  RecordShell(host);
  Engine engine(host);
  EXPECT_EQ(Query({}, "M"), "(none)");
  EXPECT_EQ(engine.NewLog(),
            Lines({"Searching for GCC 4.1.", "GCC isn't available, I can't preprocess anything."}));
  EXPECT_EQ(ShellCommands(), "");
}

TEST(QueryMacro, DoesNotQuoteTheDirectory) {
  Product host;
  RecordShell(host);
  Engine engine(WithRealCompiler(host));
  Put("a.h", "#define M 1\n", "/opt/with blank");
  ErrorsOf([] {
    EXPECT_EQ(Query({"a.h"}, "M", "/opt/with blank"), "(none)");
    EXPECT_EQ(Query({"a.h"}, "M", "/opt/with'quote"), "(none)");
  });
  const std::string start = "echo '#define __KERNEL__\n#include <a.h>\n\nOST_CHECK M' | " + Path("gcc");
  EXPECT_EQ(ShellCommands(), start + " -E -I/opt/with blank -\n" + start + " -E -I/opt/with'quote -\n");
}

TEST(HeaderExists, LooksBelowTheDirectory) {
  Product host;
  host.Enter();
  Put("linux/version.h", "");
  EXPECT_TRUE(KernPrep_HeaderExists(kTree, "linux/version.h"));
  EXPECT_TRUE(KernPrep_HeaderExists(kTree, "../include/linux"));
  EXPECT_FALSE(KernPrep_HeaderExists(kTree, "linux/autoconf.h"));
  EXPECT_FALSE(KernPrep_HeaderExists("/no/such/tree", "linux/version.h"));
}

// Testing trees

TEST(ValidateHeaderDir, TakesTheGeneratedLayout) {
  Product host;
  Engine engine(WithRealCompiler(host));
  PutGeneratedTree();
  EXPECT_TRUE(KernPrep_ValidateHeaderDir(kTree));
}

TEST(ValidateHeaderDir, TakesTheOldLayout) {
  Product host;
  Engine engine(WithRealCompiler(host));
  PutOldTree();
  EXPECT_TRUE(KernPrep_ValidateHeaderDir(kTree));
}

TEST(ValidateHeaderDir, TakesAReleaseInTheVersionHeader) {
  Product host;
  Engine engine(WithRealCompiler(host));
  PutOldTree();
  Drop("linux/utsrelease.h");
  Put("linux/version.h", ReleaseLine(kRelease));
  EXPECT_TRUE(KernPrep_ValidateHeaderDir(kTree));
}

TEST(ValidateHeaderDir, NeedsEachFileOfTheGeneratedLayout) {
  Product host;
  Engine engine(WithRealCompiler(host));
  for (const char *name :
       {"linux/version.h", "generated/utsrelease.h", "generated/autoconf.h", "../Makefile", "../.config"}) {
    PutGeneratedTree();
    ASSERT_TRUE(KernPrep_ValidateHeaderDir(kTree));
    Drop(name);
    EXPECT_FALSE(KernPrep_ValidateHeaderDir(kTree)) << name;
  }
}

TEST(ValidateHeaderDir, NeedsEachFileOfTheOldLayout) {
  Product host;
  Engine engine(WithRealCompiler(host));
  for (const char *name :
       {"linux/version.h", "linux/utsrelease.h", "linux/autoconf.h", "../Makefile", "../.config"}) {
    PutOldTree();
    ASSERT_TRUE(KernPrep_ValidateHeaderDir(kTree));
    Drop(name);
    EXPECT_FALSE(KernPrep_ValidateHeaderDir(kTree)) << name;
  }
}

TEST(ValidateHeaderDir, TakesTheConfigurationOfTheReleaseHeadersLayout) {
  Product host;
  Engine engine(WithRealCompiler(host));
  PutGeneratedTree();
  Drop("generated/autoconf.h");
  Put("linux/autoconf.h", "#define CONFIG_SMP 1\n");
  // The preprocessor isn't asked about a header that isn't there, and so says nothing.
  EXPECT_EQ(ErrorsOf([] { EXPECT_FALSE(KernPrep_ValidateHeaderDir(kTree)); }), "");
  PutGeneratedTree();
  Drop("generated/utsrelease.h");
  Drop("linux/autoconf.h");
  Put("linux/utsrelease.h", ReleaseLine(kRelease));
  EXPECT_EQ(ErrorsOf([] { EXPECT_FALSE(KernPrep_ValidateHeaderDir(kTree)); }), "");
}

TEST(ValidateHeaderDir, PrefersTheGeneratedReleaseHeader) {
  Product host;
  Engine engine(WithRealCompiler(host));
  PutGeneratedTree();
  Put("linux/utsrelease.h", ReleaseLine("2.6.9"));
  EXPECT_TRUE(KernPrep_ValidateHeaderDir(kTree));
  Put("generated/utsrelease.h", ReleaseLine("2.6.9"));
  Put("linux/utsrelease.h", ReleaseLine(kRelease));
  EXPECT_FALSE(KernPrep_ValidateHeaderDir(kTree));
}

TEST(ValidateHeaderDir, ComparesTheWholeRelease) {
  Product host;
  Engine engine(WithRealCompiler(host));
  for (const char *release : {"2.6.18-92.el5PAE", "2.6.18-92.EL5", "2.6.18", "", "2.6.18-92.el5 "}) {
    PutOldTree(release);
    EXPECT_FALSE(KernPrep_ValidateHeaderDir(kTree)) << release;
  }
}

TEST(ValidateHeaderDir, RefusesTheShortReleaseOnALongerKernel) {
  Product host;
  host.Release("2.6.18-92.el5PAE");
  Engine engine(WithRealCompiler(host));
  PutOldTree();
  EXPECT_FALSE(KernPrep_ValidateHeaderDir(kTree));
}

TEST(ValidateHeaderDir, NeedsThreeNumbersInTheRelease) {
  Product host;
  Engine engine(WithRealCompiler(host));
  // No engine starts on such a kernel, so its name changes behind the start.
  const OwnedString started(kernPrep.kernel.utsRelease);
  kernPrep.kernel.utsRelease = strdup("3.0");
  PutOldTree("3.0");
  EXPECT_FALSE(KernPrep_ValidateHeaderDir(kTree));
}

TEST(ValidateHeaderDir, RefusesAReleaseInTwoTexts) {
  Product host;
  Engine engine(WithRealCompiler(host));
  PutOldTree();
  Put("linux/utsrelease.h", "#define UTS_RELEASE \"2.6.18\" \"-92.el5\"\n");
  EXPECT_FALSE(KernPrep_ValidateHeaderDir(kTree));
}

TEST(ValidateHeaderDir, WantsMultiprocessorHeadersOnSuchAKernel) {
  Product host;
  Engine engine(WithRealCompiler(host));
  PutOldTree();
  for (const char *configuration : {"", "#undef CONFIG_SMP\n", "#define CONFIG_SMP 0\n",
                                    "#define CONFIG_SMP\n", "#define CONFIG_SMP 2\n"}) {
    Put("linux/autoconf.h", configuration);
    EXPECT_FALSE(KernPrep_ValidateHeaderDir(kTree)) << configuration;
  }
}

TEST(ValidateHeaderDir, WantsUniprocessorHeadersOnSuchAKernel) {
  Product host;
  host.Version("#1 Tue Jun 10 18:49:47 EDT 2008");
  Engine engine(WithRealCompiler(host));
  PutOldTree();
  EXPECT_FALSE(KernPrep_ValidateHeaderDir(kTree));
  Put("linux/autoconf.h", "");
  EXPECT_TRUE(KernPrep_ValidateHeaderDir(kTree));
}

TEST(ValidateHeaderDir, FailsWhenTheConfigurationCannotBeAsked) {
  Product host;
  host.Version("#1 Tue Jun 10 18:49:47 EDT 2008");
  Engine engine(WithRealCompiler(host));
  PutOldTree();
  Put("linux/autoconf.h", "#include <no/such/header.h>\n");
  ErrorsOf([] { EXPECT_FALSE(KernPrep_ValidateHeaderDir(kTree)); });
}

TEST(ValidateHeaderDir, FailsWithoutCompiler) {
  Product host;
  host.NoProgram("gcc").NoProgram("gcc-4.1");
  Engine engine(host);
  PutOldTree();
  EXPECT_FALSE(KernPrep_ValidateHeaderDir(kTree));
  EXPECT_EQ(engine.NewLog(),
            Lines({"Searching for GCC 4.1.", "GCC isn't available, I can't preprocess anything."}));
}

TEST(ValidateHeaderDir, IsSilentAboutATreeThatDoesNotFit) {
  Product host;
  Engine engine(WithRealCompiler(host));
  EXPECT_FALSE(KernPrep_ValidateHeaderDir("/no/such/tree"));
  EXPECT_EQ(engine.NewLog(), Lines());
}

TEST(ValidateHeaderDir, FailsForADirectoryWithABlank) {
  Product host;
  Engine engine(WithRealCompiler(host));
  PutGeneratedTree("/opt/with blank/include");
  ErrorsOf([] { EXPECT_FALSE(KernPrep_ValidateHeaderDir("/opt/with blank/include")); });
}

TEST(ValidateHeaderDir, SurvivesBinaryHeaders) {
  Product host;
  Engine engine(WithRealCompiler(host));
  PutOldTree();
  Put("linux/utsrelease.h", std::string("\0\x01\xff\"\n\0", 6));
  ErrorsOf([] { EXPECT_FALSE(KernPrep_ValidateHeaderDir(kTree)); });
}

// The command for one macro of a tree.
std::string QueryCommand(const std::string &includes, const std::string &macro) {
  return "echo '#define __KERNEL__\n" + includes + "\nOST_CHECK " + macro + "' | " + Path("gcc") + " -E -I" +
         kTree + " -\n";
}

TEST(ValidateHeaderDir, AsksForTheReleaseAndThenTheConfigurationAlone) {
  Product host;
  RecordShell(host);
  Engine engine(WithRealCompiler(host));
  PutGeneratedTree();
  EXPECT_TRUE(KernPrep_ValidateHeaderDir(kTree));
  EXPECT_EQ(ShellCommands(),
            QueryCommand("#include <linux/version.h>\n#include <generated/utsrelease.h>\n", "UTS_RELEASE") +
                QueryCommand("#include <generated/autoconf.h>\n", "CONFIG_SMP"));
}

// Kernels up to 2.5.0, whose trees carry no configuration beside them

TEST(ValidateHeaderDir, ComparesThePageOffsetOnAnOldKernel) {
  Product host;
  host.Release("2.4.21").File("/proc/kallsyms", "c0123456 T printk\n");
  Engine engine(WithRealCompiler(host));
  PutAncientTree("2.4.21", "#define __PAGE_OFFSET C0000000\n");
  EXPECT_TRUE(KernPrep_ValidateHeaderDir(kTree));
  for (const char *page : {"#define __PAGE_OFFSET b0000000\n", "#define __PAGE_OFFSET 0xc0000000\n",
                           "#define __PAGE_OFFSET\n", "", "#include <no/such/header.h>\n"}) {
    Put("asm/page.h", page);
    ErrorsOf([&] { EXPECT_FALSE(KernPrep_ValidateHeaderDir(kTree)) << page; });
  }
}

TEST(ValidateHeaderDir, TakesAnyPageOffsetWhereTheKernelsIsUnknown) {
  Product host;
  host.Release("2.4.21");
  Engine engine(WithRealCompiler(host));
  PutAncientTree("2.4.21", "#define __PAGE_OFFSET b0000000\n");
  EXPECT_TRUE(KernPrep_ValidateHeaderDir(kTree));
  Drop("asm/page.h");
  ErrorsOf([] { EXPECT_TRUE(KernPrep_ValidateHeaderDir(kTree)); });
}

TEST(ValidateHeaderDir, AsksForThePageOffsetLastOnAnOldKernel) {
  Product host;
  host.Release("2.4.21");  // whose page offset is unknown, and asked for all the same
  RecordShell(host);
  Engine engine(WithRealCompiler(host));
  PutAncientTree("2.4.21", "");
  EXPECT_TRUE(KernPrep_ValidateHeaderDir(kTree));
  EXPECT_EQ(ShellCommands(), QueryCommand("#include <linux/version.h>\n", "UTS_RELEASE") +
                                 QueryCommand("#include <linux/autoconf.h>\n", "CONFIG_SMP") +
                                 QueryCommand("#include <asm/page.h>\n", "__PAGE_OFFSET"));
}

TEST(ValidateHeaderDir, WantsDirectoriesOnAnOldKernel) {
  Product host;
  host.Release("2.4.21");
  Engine engine(WithRealCompiler(host));
  for (const char *name : {"asm", "net"}) {
    PutAncientTree("2.4.21", "");
    ASSERT_TRUE(KernPrep_ValidateHeaderDir(kTree));
    Drop(name);
    engine.NewLog();
    EXPECT_FALSE(KernPrep_ValidateHeaderDir(kTree)) << name;
    EXPECT_EQ(engine.NewLog().size(), 2U) << "a compiler for each of two macros, and no third one";
    Put(name, "a file");
    EXPECT_FALSE(KernPrep_ValidateHeaderDir(kTree)) << name;
    Drop(name);
  }
}

// Which of the two tests a release gets: the tree has what the other one wants.
bool PassesAsAncientTree(const char *release) {
  Product host;
  host.Release(release);
  Engine engine(WithRealCompiler(host));
  PutAncientTree(release, "");
  return KernPrep_ValidateHeaderDir(kTree);
}

TEST(ValidateHeaderDir, Counts2_0_0AsOld) {
  EXPECT_TRUE(PassesAsAncientTree("2.0.0"));
}
TEST(ValidateHeaderDir, Counts2_5_0AsOld) {
  EXPECT_TRUE(PassesAsAncientTree("2.5.0"));
}
TEST(ValidateHeaderDir, Counts2_5_1AsNew) {
  EXPECT_FALSE(PassesAsAncientTree("2.5.1"));
}
TEST(ValidateHeaderDir, CountsWhatComesBefore2_0_0AsNew) {
  EXPECT_FALSE(PassesAsAncientTree("1.3.99"));
}

TEST(ValidateHeaderDir, WantsTheConfigurationBefore2_0_0) {
  Product host;
  host.Release("1.3.99");
  Engine engine(WithRealCompiler(host));
  PutOldTree("1.3.99");
  EXPECT_TRUE(KernPrep_ValidateHeaderDir(kTree));
}

// The default directories

TEST(FindHeaderDir, PrefersThePreferredTree) {
  Product host;
  Engine engine(WithRealCompiler(host));
  PutGeneratedTree("/lib/modules/preferred/build/include");
  PutGeneratedTree("/lib/modules/2.6.18-92.el5/build/include");
  EXPECT_EQ(FoundDirectory(), "/lib/modules/preferred/build/include");
}

TEST(FindHeaderDir, FallsBackToTheRunningKernels) {
  Product host;
  Engine engine(WithRealCompiler(host));
  PutGeneratedTree("/lib/modules/preferred/build/include");
  std::filesystem::remove("/lib/modules/preferred/build/.config");
  PutGeneratedTree("/lib/modules/2.6.18-92.el5/build/include");
  EXPECT_EQ(FoundDirectory(), "/lib/modules/2.6.18-92.el5/build/include");
}

TEST(FindHeaderDir, FindsNothingWhereNothingFits) {
  Product host;
  Engine engine(WithRealCompiler(host));
  EXPECT_EQ(FoundDirectory(), "(none)");
  EXPECT_EQ(engine.NewLog(), Lines());
}

}  // namespace
