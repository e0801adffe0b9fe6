#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "file.h"
#include "kprepTestInt.h"
#include "util_misc.h"

namespace {

using kpreptest::Engine;
using kpreptest::kPbmRoot;
using kpreptest::kRelease;
using kpreptest::kVersion;
using kpreptest::Lines;
using kpreptest::Path;
using kpreptest::Product;
using kpreptest::RecordShell;
using kpreptest::ShellCommands;
using testhost::Call;
using testhost::Calls;
using testhost::WriteFile;

using OwnedSets = std::unique_ptr<KernPrep_PbmSet, Releaser<KernPrep_FreePbmSets>>;

constexpr char kCommon[] = "UtsMachine i386\nSMP yes\n";

std::string SetPath(const std::string &set, const std::string &file) {
  return std::string(kPbmRoot) + "/" + set + "/" + file;
}

std::string ObjectOf(const std::string &set, const std::string &module) {
  return SetPath(set, "objects/" + module + ".o");
}

void PutSet(const std::string &set, const std::string &properties) {
  WriteFile(SetPath(set, "properties"), properties);
}

std::string CompatibleProperties(const std::string &release) {
  return kCommon + ("UtsRelease " + release + "\nModVersion yes\n");
}

std::string PerfectProperties() {
  return kCommon + (std::string("UtsRelease ") + kRelease + "\nModVersion no\n");
}

OwnedSets Scan() {
  return OwnedSets(KernPrep_ScanPbmSets(kPbmRoot));
}

// A set list in a chosen order, which a directory would not promise.
class SetList {
 public:
  SetList &Add(const char *name, const char *release, KernPrep_PbmCategory category) {
    auto *set = static_cast<KernPrep_PbmSet *>(Util_SafeCalloc(1, sizeof(KernPrep_PbmSet)));
    set->name = Util_SafeStrdup(name);
    set->utsRelease = Util_SafeStrdup(release);
    set->category = category;
    *(last_ ? &last_->next : &first_) = set;
    last_ = set;
    return *this;
  }

  ~SetList() { KernPrep_FreePbmSets(first_); }

  std::string Select(const char *kernelRelease = nullptr) const {
    const KernPrep_PbmSet *set = KernPrep_SelectPbmSet(kPbmRoot, first_, kernelRelease);
    return set ? set->name : "(none)";
  }

  const KernPrep_PbmSet *First() const { return first_; }

 private:
  KernPrep_PbmSet *first_ = nullptr;
  KernPrep_PbmSet *last_ = nullptr;
};

// Module tools that keep a state of their own instead of the kernel's.
Product &WithModuleTools(Product &host, const std::string &insmod = "echo ostpool >>/tmp/loaded",
                         const std::string &rmmod = "rm /tmp/loaded") {
  host.Program("lsmod", "cat /tmp/loaded 2>/dev/null").Program("insmod", insmod).Program("rmmod", rmmod);
  return host;
}

// Mangling

void ExpectMangled(const char *release, const char *expected) {
  const OwnedString mangled(KernPrep_MangleRelease(release));
  EXPECT_STREQ(mangled.get(), expected) << release;
}

TEST(MangleRelease, TakesTheVendorsRebuildAway) {
  Product host;
  const Engine engine(host);
  ExpectMangled("2.6.18-92.1.13.el5PAE", "2.6.18-el5PAE");
  ExpectMangled("2.6.18-92.el5", "2.6.18-el5");
  ExpectMangled("2.6.18-92.el5.x86_64", "2.6.18-el5.x86_64");
  ExpectMangled("2.6.9-42.0.3.ELsmp", "2.6.9-ELsmp");
  ExpectMangled("2.6.32-1.el6.x86_64.el7", "2.6.32-el7");
  ExpectMangled("12.345.6789-1.el", "12.345.6789-el");
}

TEST(MangleRelease, LeavesOtherReleasesAlone) {
  Product host;
  const Engine engine(host);
  for (const char *release : {"2.6.18-el5", "2.6.18-92.El5", "2.6.18.1-92.el5", "2.6-92.el5",
                              "x2.6.18-92.el5", "2.6.18-4-686", "2.6.16.60-0.21-smp", "", "el"}) {
    ExpectMangled(release, release);
  }
}

TEST(MangleRelease, LeavesTextThatIsNoUtf8Alone) {
  Product host;
  const Engine engine(host);
  ExpectMangled("2.6.18-92\xff.el5", "2.6.18-92\xff.el5");
}

TEST(MangleRelease, LeavesSuse9Alone) {
  Product host;
  host.File("/etc/SuSE-release", "SuSE Linux 9 (i586)\nVERSION = 9\n");
  const Engine engine(host);
  ExpectMangled("2.6.16.60-0.21-smp", "2.6.16.60-0.21-smp");
}

TEST(MangleRelease, TakesTheRebuildAwayOnSuse10) {
  Product host;
  host.File("/etc/SuSE-release", "SUSE Linux Enterprise Server 10 (i586)\nVERSION = 10\n");
  const Engine engine(host);
  ExpectMangled("2.6.16.60-0.21-smp", "2.6.16.60-smp");
  ExpectMangled("2.6.16.60-0.21-a-b", "2.6.16.60-b");
  ExpectMangled("2.6.16-0.21-smp", "2.6.16-0.21-smp");
  ExpectMangled("2.6.18-92.el5", "2.6.18-el5");
}

// Comparing

TEST(CompareReleases, GoesByNumbers) {
  const struct {
    const char *first;
    const char *second;
    int expected;
  } rows[] = {
      {"2.6.18", "2.6.18", 0},
      {"2.6.18", "2.6.19", -1},
      {"2.6.18", "2.6.9", 1},
      {"2.6.18-92.el5", "2.6.18-128.el5", -1},
      {"2.6.18-92.el5", "2.6.18-92.EL", 0},  // two fields that are no numbers
      {"2.6.18", "2.6.18-1", -1},            // a missing field counts as -1
      {"2.6.18", "2.6.18-el", 0},            // and so does a word
      {"2.6.18-0", "2.6.18-el", 1},
      {"2.6.18-", "2.6.18", 0},
      {"2..18", "2.6", -1},  // empty fields are fields
      {"2.6.018", "2.6.18", 0},
      {"2.6.+18", "2.6.18", -1},  // a sign is no digit
      {"2.6.18 ", "2.6.18", -1},
      {"", "", 0},
      {"", "0", -1},
      {"2.6.2147483647", "2.6.1", 1},
      {"2.6.2147483648", "2.6.1", -1},  // cut to a negative number
      {"2.6.4294967295", "2.6.el", 0},  // cut to -1
      {"2.6.4294967297", "2.6.1", 0},
      {"2.6.18446744073709551617", "2.6.1", 0},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(KernPrep_CompareReleases(row.first, row.second), row.expected)
        << row.first << " and " << row.second;
    EXPECT_EQ(KernPrep_CompareReleases(row.second, row.first), -row.expected)
        << row.second << " and " << row.first;
  }
}

// Paths

TEST(PbmObjectPath, IsOverwrittenByTheNextCall) {
  SetList sets;
  sets.Add("one", "", KERNPREP_PBM_PERFECT);
  const char *first = KernPrep_GetPbmObjectPath("/root", sets.First(), "ostlink");
  EXPECT_STREQ(first, "/root/one/objects/ostlink.o");
  const char *second = KernPrep_GetPbmObjectPath("/root", sets.First(), "ostchan");
  EXPECT_EQ(first, second);
  EXPECT_STREQ(first, "/root/one/objects/ostchan.o");
}

TEST(PbmObjectPath, IsCutAtItsBuffer) {
  SetList sets;
  sets.Add("one", "", KERNPREP_PBM_PERFECT);
  const std::string root(5000, 'r');
  EXPECT_EQ(std::string(KernPrep_GetPbmObjectPath(root.c_str(), sets.First(), "m")), root.substr(0, 4095));
}

TEST(FreePbmSets, AcceptsNull) {
  KernPrep_FreePbmSets(nullptr);
}

// Scanning. The host's kernel is a multiprocessor one of 32 bits without a page offset.

struct ScanRow {
  std::string properties;
  KernPrep_PbmCategory category;
  Lines log;
};

void ExpectScans(Engine *engine, const std::vector<ScanRow> &rows) {
  for (const ScanRow &row : rows) {
    PutSet("one", row.properties);
    const OwnedSets sets(Scan());
    EXPECT_EQ(sets ? sets->category : KERNPREP_PBM_DONT_USE, row.category) << row.properties;
    EXPECT_EQ(engine->NewLog(), row.log) << row.properties;
  }
}

const Lines kPerfectLines = {"one was categorized as a perfect module set.", "Got candidate one"};
const Lines kCompatibleLines = {"one was categorized as a compatible module set.", "Got candidate one"};

TEST(ScanPbmSets, CategorizesByReleaseAndSymbolVersions) {
  Product host;
  Engine engine(host);
  const std::string common = kCommon;
  const std::string release = std::string("UtsRelease ") + kRelease + "\n";
  ExpectScans(
      &engine,
      {
          // Symbol versions and the same mangled release: older, newer, and the very same build.
          {common + "UtsRelease 2.6.18-53.el5\nModVersion yes\n", KERNPREP_PBM_COMPATIBLE, kCompatibleLines},
          {common + "UtsRelease 2.6.18-128.el5\nModVersion yes\n", KERNPREP_PBM_COMPATIBLE, kCompatibleLines},
          {common + release + "ModVersion yes\nUtsVersion " + kVersion + "\n", KERNPREP_PBM_COMPATIBLE,
           kCompatibleLines},
          {common + "UtsRelease 2.6.18-53.el5\n", KERNPREP_PBM_DONT_USE, {}},
          {common + "UtsRelease 2.6.18-53.el5\nModVersion YES\n", KERNPREP_PBM_DONT_USE, {}},
          {common + "UtsRelease 2.6.18-53.el5PAE\nModVersion yes\n", KERNPREP_PBM_DONT_USE, {}},
          {common + release, KERNPREP_PBM_PERFECT, kPerfectLines},
          {common + release + "ModVersion no\nUtsVersion " + kVersion + "\n", KERNPREP_PBM_PERFECT,
           kPerfectLines},
          {common + release + "UtsVersion #2 SMP Tue Jun 10 18:49:47 EDT 2008\n", KERNPREP_PBM_DONT_USE, {}},
          {common + "UtsRelease " + kRelease + " \n", KERNPREP_PBM_DONT_USE, {}},
      });
}

TEST(ScanPbmSets, RecordsTheReleaseAndTheSymbolVersionsOfASet) {
  Product host;
  const Engine engine(host);
  PutSet("one", CompatibleProperties("2.6.18-53.el5"));
  const OwnedSets compatible(Scan());
  ASSERT_TRUE(compatible);
  EXPECT_STREQ(compatible->name, "one");
  EXPECT_STREQ(compatible->utsRelease, "2.6.18-53.el5");
  EXPECT_TRUE(compatible->modVersion);
  PutSet("one", PerfectProperties());
  const OwnedSets perfect(Scan());
  ASSERT_TRUE(perfect);
  EXPECT_STREQ(perfect->utsRelease, kRelease);
  EXPECT_FALSE(perfect->modVersion);
}

TEST(ScanPbmSets, LooksAtTheSetsSymbolVersionsAndNotAtTheKernels) {
  Product host;
  host.File("/proc/ksyms", "c0100000 Using Versions of symbols\n");
  Engine engine(host);
  ASSERT_TRUE(kernPrep.kernel.modVersion);
  ExpectScans(&engine, {{PerfectProperties(), KERNPREP_PBM_PERFECT, kPerfectLines},
                        {CompatibleProperties("2.6.18-53.el5"), KERNPREP_PBM_COMPATIBLE, kCompatibleLines},
                        {kCommon + std::string("UtsRelease 2.6.18-53.el5\n"), KERNPREP_PBM_DONT_USE, {}}});
}

TEST(ScanPbmSets, ComparesTheNumberOfProcessors) {
  Product host;
  Engine engine(host);
  const std::string rest = "UtsMachine i386\nUtsRelease 2.6.18-92.el5\n";
  const Lines failed = {"one failed the SMP test.  System: True, Module False."};
  ExpectScans(&engine, {{rest + "SMP yes\n", KERNPREP_PBM_PERFECT, kPerfectLines},
                        {rest + "SMP no\n", KERNPREP_PBM_DONT_USE, failed},
                        {rest + "SMP yes \n", KERNPREP_PBM_DONT_USE, failed},
                        {rest, KERNPREP_PBM_DONT_USE, failed}});
}

TEST(ScanPbmSets, RefusesMultiprocessorSetsOnAUniprocessorKernel) {
  Product host;
  host.Version("#1 Tue Jun 10 18:49:47 EDT 2008");
  Engine engine(host);
  ExpectScans(&engine, {{PerfectProperties(),
                         KERNPREP_PBM_DONT_USE,
                         {"one failed the SMP test.  System: False, Module True."}}});
}

TEST(ScanPbmSets, ComparesThePageOffsetWhenTheKernelHasOne) {
  Product host;
  host.File("/proc/kallsyms", "c0123456 T printk\n");
  Engine engine(host);
  ExpectScans(&engine, {{PerfectProperties() + "PageOffset c0000000\n", KERNPREP_PBM_PERFECT, kPerfectLines},
                        {PerfectProperties() + "PageOffset C0000000\n", KERNPREP_PBM_PERFECT, kPerfectLines},
                        {PerfectProperties() + "PageOffset b0000000\n",
                         KERNPREP_PBM_DONT_USE,
                         {"one failed the Pageoffset Test.  System: c0000000, Module: b0000000."}},
                        {PerfectProperties() + "PageOffset c00000000\n",
                         KERNPREP_PBM_DONT_USE,
                         {"one failed the Pageoffset Test.  System: c0000000, Module: c00000000."}}});
}

TEST(ScanPbmSets, RefusesASetWithoutPageOffsetWhenTheKernelHasOne) {
  Product host;
  host.File("/proc/kallsyms", "c0123456 T printk\n");
  Engine engine(host);
  ExpectScans(&engine, {{PerfectProperties(),
                         KERNPREP_PBM_DONT_USE,
                         {"one failed the Pageoffset Test.  System: c0000000, Module: (null)."}}});
}

TEST(ScanPbmSets, PassesOverThePageOffsetWhenTheKernelHasNone) {
  Product host;
  Engine engine(host);
  ExpectScans(&engine,
              {{PerfectProperties() + "PageOffset b0000000\n", KERNPREP_PBM_PERFECT, kPerfectLines}});
}

TEST(ScanPbmSets, TakesSetsOf32BitsOnI686) {
  Product host;
  Engine engine(host);
  const std::string rest = "SMP yes\nUtsRelease 2.6.18-92.el5\n";
  const Lines failed = {"one failed to match the system architecture."};
  ExpectScans(&engine, {{rest + "UtsMachine i386\n", KERNPREP_PBM_PERFECT, kPerfectLines},
                        {rest + "UtsMachine i686\n", KERNPREP_PBM_DONT_USE, failed},
                        {rest + "UtsMachine x86_64\n", KERNPREP_PBM_DONT_USE, failed},
                        {rest, KERNPREP_PBM_DONT_USE, failed}});
}

TEST(ScanPbmSets, TakesSetsOf64BitsOnlyOnX86_64) {
  Product host;
  host.Machine("x86_64");
  Engine engine(host);
  const std::string rest = "SMP yes\nUtsRelease 2.6.18-92.el5\n";
  const Lines failed = {"one failed to match the system architecture."};
  ExpectScans(&engine, {{rest + "UtsMachine x86_64\n", KERNPREP_PBM_PERFECT, kPerfectLines},
                        {rest + "UtsMachine i386\n", KERNPREP_PBM_DONT_USE, failed}});
}

TEST(ScanPbmSets, KeepsAthlonSetsFromOtherKernels) {
  Product host;
  Engine engine(host);
  const Lines failed = {"one is for Athlon kernels only."};
  ExpectScans(&engine,
              {{PerfectProperties(), KERNPREP_PBM_PERFECT, kPerfectLines},
               {PerfectProperties() + "AthlonKernel forbidden\n", KERNPREP_PBM_PERFECT, kPerfectLines},
               {PerfectProperties() + "AthlonKernel required\n", KERNPREP_PBM_DONT_USE, failed},
               {PerfectProperties() + "AthlonKernel \n", KERNPREP_PBM_DONT_USE, failed}});
}

TEST(ScanPbmSets, WantsAthlonSetsOnAthlonKernels) {
  Product host;
  host.File("/proc/ksyms", "c0100000 mmx_clear_page\n");
  Engine engine(host);
  const Lines failed = {"one failed to match the Athlon kernel requirement."};
  ExpectScans(&engine,
              {{PerfectProperties() + "AthlonKernel required\n", KERNPREP_PBM_PERFECT, kPerfectLines},
               {PerfectProperties() + "AthlonKernel forbidden\n", KERNPREP_PBM_DONT_USE, failed},
               {PerfectProperties(), KERNPREP_PBM_DONT_USE, failed}});
}

TEST(ScanPbmSets, TestsInAFixedOrder) {
  Product host;
  host.File("/proc/kallsyms", "c0123456 T printk\n");
  Engine engine(host);
  ExpectScans(&engine, {{"AthlonKernel required\n",
                         KERNPREP_PBM_DONT_USE,
                         {"one failed the SMP test.  System: True, Module False."}},
                        {"SMP yes\nAthlonKernel required\nPageOffset 0\n",
                         KERNPREP_PBM_DONT_USE,
                         {"one failed the Pageoffset Test.  System: c0000000, Module: 0."}},
                        {"SMP yes\nAthlonKernel required\nPageOffset c0000000\n",
                         KERNPREP_PBM_DONT_USE,
                         {"one failed to match the system architecture."}}});
}

TEST(ScanPbmSets, RefusesASetWithoutRelease) {
  Product host;
  Engine engine(host);
  const std::string errors = kpreptest::ErrorsOf([&] {
    ExpectScans(&engine, {{kCommon, KERNPREP_PBM_DONT_USE, {}},
                          {std::string(kCommon) + "ModVersion yes\n", KERNPREP_PBM_DONT_USE, {}},
                          {std::string(kCommon) + "UtsRelease\n", KERNPREP_PBM_DONT_USE, {}}});
  });
  EXPECT_EQ(errors, "");
}

TEST(ScanPbmSets, SkipsLinesWithoutAValueAndUnknownKeys) {
  Product host;
  Engine engine(host);
  ExpectScans(&engine, {{"\n\nComment SMP no\nUtsVersion\nsmp no\n SMP no\nSMP\tno\n" + PerfectProperties() +
                             "UtsVersion",
                         KERNPREP_PBM_PERFECT, kPerfectLines}});
}

TEST(ScanPbmSets, TakesALastLineWithoutNewline) {
  Product host;
  Engine engine(host);
  ExpectScans(&engine,
              {{"SMP yes\nUtsMachine i386\nUtsRelease 2.6.18-92.el5", KERNPREP_PBM_PERFECT, kPerfectLines}});
}

TEST(ScanPbmSets, RefusesFilesThatHoldNoProperties) {
  Product host;
  Engine engine(host);
  std::string binary;
  for (int i = 0; i < 4096; ++i) {
    binary += static_cast<char>(i * 37);
  }
  const Lines failed = {"one failed the SMP test.  System: True, Module False."};
  ExpectScans(&engine, {{"", KERNPREP_PBM_DONT_USE, failed},
                        {binary, KERNPREP_PBM_DONT_USE, failed},
                        {std::string(kCommon) + "ModVersion yes\nUtsRelease 2.6.18-\xff\xfe.el5\n",
                         KERNPREP_PBM_DONT_USE,
                         {}}});
}

TEST(ScanPbmSets, ReadsAVeryLargeFile) {
  Product host;
  Engine engine(host);
  std::string text;
  while (text.size() < 100'000'000) {
    text += "Comment " + std::string(1000, 'x') + "\n";
  }
  ExpectScans(&engine, {{text + PerfectProperties(), KERNPREP_PBM_PERFECT, kPerfectLines}});
}

TEST(ScanPbmSets, GoesOnBehindASetThatCannotBeRead) {
  Product host;
  Engine engine(host);
  WriteFile(SetPath("hollow", "objects/ostlink.o"), "");
  std::filesystem::create_directories(SetPath("strange", "properties"));
  WriteFile(std::string(kPbmRoot) + "/README", "no directory");
  PutSet("one", PerfectProperties());
  const OwnedSets sets(Scan());
  ASSERT_TRUE(sets);
  EXPECT_STREQ(sets->name, "one");
  EXPECT_EQ(sets->next, nullptr);
  Lines log = engine.NewLog();
  EXPECT_EQ(
      std::multiset<std::string>(log.begin(), log.end()),
      (std::multiset<std::string>{"Unable to process /opt/ostrel/lib/modules/binary/hollow/properties",
                                  "Unable to process /opt/ostrel/lib/modules/binary/strange/properties",
                                  "Unable to process /opt/ostrel/lib/modules/binary/README/properties",
                                  "one was categorized as a perfect module set.", "Got candidate one"}));
}

TEST(ScanPbmSets, KeepsTheDirectorysOrder) {
  Product host;
  Engine engine(host);
  for (const char *name : {"c", "a", "b", "d"}) {
    PutSet(name, PerfectProperties());
  }
  PutSet("refused", "SMP no\n");
  const OwnedSets sets(Scan());
  char **names = nullptr;
  const int count = File_ListDirectory(kPbmRoot, &names);
  ASSERT_EQ(count, 5);
  const KernPrep_PbmSet *set = sets.get();
  const KernPrep_PbmSet *last = nullptr;
  for (int i = 0; i < count; ++i) {
    if (strcmp(names[i], "refused") == 0) {
      continue;
    }
    ASSERT_TRUE(set);
    EXPECT_STREQ(set->name, names[i]);
    EXPECT_STREQ(set->utsRelease, kRelease);
    EXPECT_FALSE(set->modVersion);
    last = set;
    set = set->next;
  }
  EXPECT_EQ(set, nullptr);
  EXPECT_EQ(sets->last, last);
  EXPECT_EQ(sets->next->last, nullptr);
  File_FreeNames(names, count);
}

TEST(ScanPbmSets, GivesNothingForABrokenRoot) {
  Product host;
  Engine engine(host);
  EXPECT_EQ(KernPrep_ScanPbmSets(kPbmRoot), nullptr);
  EXPECT_EQ(KernPrep_ScanPbmSets("/no/such/root"), nullptr);
  EXPECT_EQ(KernPrep_ScanPbmSets(kpreptest::kJournal), nullptr);
  EXPECT_EQ(engine.NewLog(), Lines());
}

// Selecting

TEST(SelectPbmSet, GivesNothingForNoSets) {
  Product host;
  Engine engine(host);
  EXPECT_EQ(KernPrep_SelectPbmSet(kPbmRoot, nullptr, nullptr), nullptr);
  EXPECT_EQ(engine.NewLog(), Lines({"Trying to find a suitable PBM set for kernel 2.6.18-92.el5."}));
}

TEST(SelectPbmSet, TakesAPerfectSetAtOnce) {
  Product host;
  WithModuleTools(host);
  Engine engine(host);
  SetList sets;
  sets.Add("p", kRelease, KERNPREP_PBM_PERFECT).Add("q", kRelease, KERNPREP_PBM_PERFECT);
  EXPECT_EQ(sets.Select(), "p");
  EXPECT_EQ(engine.NewLog(),
            Lines({"Trying to find a suitable PBM set for kernel 2.6.18-92.el5.", "Analyzing PBM set p.",
                   "PBMs in p are a perfect match for the running kernel."}));
  EXPECT_TRUE(Calls("insmod").empty());
}

TEST(SelectPbmSet, PrefersALaterPerfectSetThoughTheFirstOneWasTried) {
  Product host;
  WithModuleTools(host);
  Engine engine(host);
  WriteFile(ObjectOf("c", "ostpool"), "");
  SetList sets;
  sets.Add("c", "2.6.18-53.el5", KERNPREP_PBM_COMPATIBLE).Add("p", kRelease, KERNPREP_PBM_PERFECT);
  EXPECT_EQ(sets.Select(), "p");
  EXPECT_EQ(engine.NewLog(),
            Lines({"Trying to find a suitable PBM set for kernel 2.6.18-92.el5.", "Analyzing PBM set c.",
                   "The c PBM set passed the smoke test.",
                   "PBMs in c are a compatible match with the running kernel.", "Analyzing PBM set p.",
                   "PBMs in p are a perfect match for the running kernel."}));
  EXPECT_EQ(Calls("insmod"), std::vector<Call>({{ObjectOf("c", "ostpool")}}));
}

TEST(SelectPbmSet, RefusesSetsOfNewerKernels) {
  Product host;
  WithModuleTools(host);
  Engine engine(host);
  WriteFile(ObjectOf("n", "ostpool"), "");
  SetList sets;
  sets.Add("n", "2.6.18-128.el5", KERNPREP_PBM_COMPATIBLE);
  EXPECT_EQ(sets.Select(), "(none)");
  EXPECT_EQ(engine.NewLog(),
            Lines({"Trying to find a suitable PBM set for kernel 2.6.18-92.el5.", "Analyzing PBM set n.",
                   "PBMs in n are compiled against a newer kernel and will not be used."}));
  EXPECT_TRUE(Calls("insmod").empty());
}

TEST(SelectPbmSet, TriesOnlySetsThatWouldReplaceTheBest) {
  Product host;
  WithModuleTools(host);
  Engine engine(host);
  SetList sets;
  for (const auto &[name, release] : {std::pair{"b", "2.6.18-53.el5"},
                                      {"older", "2.6.18-8.el5"},
                                      {"same", "2.6.18-53.EL"},
                                      {"newer", "2.6.18-90.el5"}}) {
    WriteFile(ObjectOf(name, "ostpool"), "");
    sets.Add(name, release, KERNPREP_PBM_COMPATIBLE);
  }
  EXPECT_EQ(sets.Select(), "newer");
  EXPECT_EQ(engine.NewLog(),
            Lines({"Trying to find a suitable PBM set for kernel 2.6.18-92.el5.", "Analyzing PBM set b.",
                   "The b PBM set passed the smoke test.",
                   "PBMs in b are a compatible match with the running kernel.", "Analyzing PBM set older.",
                   "PBMs in b are a better match than those in older.", "Analyzing PBM set same.",
                   "PBMs in b are a better match than those in same.", "Analyzing PBM set newer.",
                   "The newer PBM set passed the smoke test.",
                   "PBMs in newer are a better match than those in b."}));
  EXPECT_EQ(Calls("insmod"), std::vector<Call>({{ObjectOf("b", "ostpool")}, {ObjectOf("newer", "ostpool")}}));
}

TEST(SelectPbmSet, KeepsTheBestWhenANewerOneFailsItsTrial) {
  Product host;
  WithModuleTools(host, "case $1 in */b/*) exit 0;; *) exit 1;; esac");
  Engine engine(host);
  WriteFile(ObjectOf("b", "ostpool"), "");
  WriteFile(ObjectOf("newer", "ostpool"), "");
  SetList sets;
  sets.Add("b", "2.6.18-53.el5", KERNPREP_PBM_COMPATIBLE).Add("newer", kRelease, KERNPREP_PBM_COMPATIBLE);
  EXPECT_EQ(sets.Select(), "b");
  EXPECT_EQ(engine.NewLog(), Lines({"Trying to find a suitable PBM set for kernel 2.6.18-92.el5.",
                                    "Analyzing PBM set b.", "The b PBM set passed the smoke test.",
                                    "PBMs in b are a compatible match with the running kernel.",
                                    "Analyzing PBM set newer.", "The newer PBM set failed the smoke test.",
                                    "PBMs in b are a better match than those in newer."}));
}

TEST(SelectPbmSet, TakesANewerSetWhoseTrialIsSkipped) {
  Product host;
  Engine engine(host);
  SetList sets;
  sets.Add("b", "2.6.18-53.el5", KERNPREP_PBM_COMPATIBLE).Add("newer", kRelease, KERNPREP_PBM_COMPATIBLE);
  EXPECT_EQ(sets.Select(), "newer");
  EXPECT_EQ(engine.NewLog().back(), "PBMs in newer are a better match than those in b.");
}

TEST(SelectPbmSet, SaysNothingMoreOfAFirstSetThatFailsItsTrial) {
  Product host;
  WithModuleTools(host, "case $1 in */bad/*) exit 1;; esac");
  Engine engine(host);
  WriteFile(ObjectOf("bad", "ostpool"), "");
  SetList sets;
  sets.Add("bad", kRelease, KERNPREP_PBM_COMPATIBLE).Add("old", "2.6.18-8.el5", KERNPREP_PBM_COMPATIBLE);
  EXPECT_EQ(sets.Select(), "old");
  EXPECT_EQ(
      engine.NewLog(),
      Lines({"Trying to find a suitable PBM set for kernel 2.6.18-92.el5.", "Analyzing PBM set bad.",
             "The bad PBM set failed the smoke test.", "Analyzing PBM set old.",
             "The ostpool module was not found at " + ObjectOf("old", "ostpool") + ".  Skipping smoke test.",
             "PBMs in old are a compatible match with the running kernel."}));
}

TEST(SelectPbmSet, JudgesByAGivenRelease) {
  Product host;
  WithModuleTools(host);
  Engine engine(host);
  SetList sets;
  sets.Add("c", "2.6.18-128.el5", KERNPREP_PBM_COMPATIBLE);
  EXPECT_EQ(sets.Select("2.6.18-200.el5"), "c");
  EXPECT_EQ(engine.NewLog(),
            Lines({"Trying to find a suitable PBM set for kernel 2.6.18-200.el5.", "Analyzing PBM set c.",
                   "Smoke test skipped because running kernel version does not match the kernel version used "
                   "in the PBM search.",
                   "PBMs in c are a compatible match with the running kernel."}));
}

// The smoke test

class SmokeTest : public testing::Test {
 protected:
  SmokeTest() {
    RecordShell(host_);
    sets_.Add("c", kRelease, KERNPREP_PBM_COMPATIBLE);
  }

  int Run(const char *release = kRelease) { return KernPrep_SmokeTest(kPbmRoot, sets_.First(), release); }

  std::string ListCommand() { return Path("lsmod") + " | " + Path("grep") + " -q ostpool >/dev/null 2>&1\n"; }
  std::string LoadCommand() { return Path("insmod") + " " + ObjectOf("c", "ostpool") + " >/dev/null 2>&1\n"; }
  std::string UnloadCommand() { return Path("rmmod") + " ostpool >/dev/null 2>&1\n"; }

  Product host_;
  SetList sets_;
};

TEST_F(SmokeTest, PassesAModuleThatLoads) {
  Engine engine(WithModuleTools(host_));
  WriteFile(ObjectOf("c", "ostpool"), "");
  EXPECT_EQ(Run(), 1);
  EXPECT_EQ(engine.NewLog(), Lines({"The c PBM set passed the smoke test."}));
  EXPECT_EQ(ShellCommands(), ListCommand() + LoadCommand() + UnloadCommand());
  EXPECT_EQ(Calls("rmmod"), std::vector<Call>({{"ostpool"}}));
  EXPECT_FALSE(std::filesystem::exists("/tmp/loaded"));
}

TEST_F(SmokeTest, LeavesAModuleUnloadedThatWasLoadedBefore) {
  Engine engine(WithModuleTools(host_));
  WriteFile("/tmp/loaded", "ostpool 1234 0\n");
  WriteFile(ObjectOf("c", "ostpool"), "");
  EXPECT_EQ(Run(), 1);
  EXPECT_EQ(engine.NewLog(),
            Lines({"ostpool is loaded.  Attempting to unload...", "The c PBM set passed the smoke test."}));
  EXPECT_EQ(ShellCommands(), ListCommand() + UnloadCommand() + LoadCommand() + UnloadCommand());
  EXPECT_FALSE(std::filesystem::exists("/tmp/loaded"));
}

TEST_F(SmokeTest, IsSkippedWhenTheModuleStaysLoaded) {
  Engine engine(WithModuleTools(host_, "", "exit 1"));
  WriteFile("/tmp/loaded", "ostpool 1234 1\n");
  WriteFile(ObjectOf("c", "ostpool"), "");
  EXPECT_EQ(Run(), -1);
  EXPECT_EQ(engine.NewLog(), Lines({"ostpool is loaded.  Attempting to unload...",
                                    "Failed to unload ostpool.  Skipping smoke test."}));
  EXPECT_TRUE(Calls("insmod").empty());
}

TEST_F(SmokeTest, FailsAModuleThatDoesNotLoad) {
  Engine engine(WithModuleTools(host_, "exit 1"));
  WriteFile(ObjectOf("c", "ostpool"), "");
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(engine.NewLog(), Lines({"The c PBM set failed the smoke test."}));
  EXPECT_EQ(ShellCommands(), ListCommand() + LoadCommand());
}

TEST_F(SmokeTest, IsSkippedForAnotherKernel) {
  Engine engine(WithModuleTools(host_));
  WriteFile(ObjectOf("c", "ostpool"), "");
  EXPECT_EQ(Run("2.6.18-53.el5"), -1);
  EXPECT_EQ(engine.NewLog(),
            Lines({"Smoke test skipped because running kernel version does not match the kernel version used "
                   "in the PBM search."}));
  EXPECT_EQ(ShellCommands(), "");
}

TEST_F(SmokeTest, IsSkippedWithoutItsModule) {
  Engine engine(WithModuleTools(host_));
  EXPECT_EQ(Run(), -1);
  EXPECT_EQ(engine.NewLog(), Lines({"The ostpool module was not found at " + ObjectOf("c", "ostpool") +
                                    ".  Skipping smoke test."}));
  EXPECT_EQ(ShellCommands(), "");
}

TEST_F(SmokeTest, FailsWithoutTheModuleTools) {
  host_.NoProgram("lsmod").NoProgram("insmod").NoProgram("rmmod");
  Engine engine(host_);
  WriteFile(ObjectOf("c", "ostpool"), "");
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(engine.NewLog(), Lines({"The c PBM set failed the smoke test."}));
  EXPECT_EQ(ShellCommands(), "(null) | " + Path("grep") + " -q ostpool >/dev/null 2>&1\n(null) " +
                                 ObjectOf("c", "ostpool") + " >/dev/null 2>&1\n");
}

// Questions and installation

TEST(PrebuiltModule, IsThereWhenTheSelectedSetHoldsIt) {
  Product host;
  Engine engine(host);
  PutSet("one", PerfectProperties());
  WriteFile(ObjectOf("one", "ostlink"), "");
  EXPECT_TRUE(KernPrep_HasPrebuiltModule("ostlink"));
  EXPECT_FALSE(KernPrep_HasPrebuiltModule("ostchan"));
}

TEST(PrebuiltModule, IsNotLookedForInOtherSets) {
  Product host;
  Engine engine(host);
  PutSet("perfect", PerfectProperties());
  WriteFile(ObjectOf("perfect", "ostlink"), "");
  PutSet("compatible", CompatibleProperties("2.6.18-53.el5"));
  WriteFile(ObjectOf("compatible", "ostchan"), "");
  EXPECT_TRUE(KernPrep_HasPrebuiltModule("ostlink"));
  EXPECT_FALSE(KernPrep_HasPrebuiltModule("ostchan"));
}

TEST(PrebuiltModule, IsAskedForAnewEachTime) {
  Product host;
  WithModuleTools(host);
  Engine engine(host);
  PutSet("c", CompatibleProperties("2.6.18-53.el5"));
  WriteFile(ObjectOf("c", "ostpool"), "");
  EXPECT_TRUE(KernPrep_HasPrebuiltModule("ostpool"));
  EXPECT_FALSE(KernPrep_HasPrebuiltModule("ostlink"));
  EXPECT_EQ(Calls("insmod").size(), 2U);
}

TEST(PrebuiltModule, IsMissingWithoutRoot) {
  Product host;
  Engine engine(host);
  std::filesystem::remove_all(kPbmRoot);
  EXPECT_FALSE(KernPrep_HasPrebuiltModule("ostlink"));
  EXPECT_FALSE(KernPrep_InstallPrebuiltModule("ostlink", nullptr, nullptr));
  const std::string tried = "Trying to find a suitable PBM set for kernel 2.6.18-92.el5.";
  EXPECT_EQ(engine.NewLog(), Lines({tried, tried}));
}

TEST(InstallPrebuiltModule, InstallsFromTheSelectedSet) {
  Product host;
  host.Directory("/lib/modules/2.6.18-92.el5").Program("depmod");
  Engine engine(host);
  PutSet("one", PerfectProperties());
  WriteFile(ObjectOf("one", "ostlink"), "the object");
  EXPECT_TRUE(KernPrep_InstallPrebuiltModule("ostlink", "extra", "other"));
  EXPECT_EQ(engine.NewLog(),
            Lines({"one was categorized as a perfect module set.", "Got candidate one",
                   "Trying to find a suitable PBM set for kernel 2.6.18-92.el5.", "Analyzing PBM set one.",
                   "PBMs in one are a perfect match for the running kernel.", "Using PBMs in one...",
                   "Installing module ostlink from " + ObjectOf("one", "ostlink") + "."}));
  EXPECT_EQ(testhost::ReadFile("/lib/modules/2.6.18-92.el5/extra/other.o"), "the object");
  EXPECT_EQ(Calls("depmod").size(), 1U);
}

TEST(InstallPrebuiltModule, FailsForAModuleThatTheSetLacks) {
  Product host;
  host.Directory("/lib/modules/2.6.18-92.el5").Program("depmod");
  Engine engine(host);
  PutSet("one", PerfectProperties());
  EXPECT_FALSE(KernPrep_InstallPrebuiltModule("ostlink", nullptr, nullptr));
  EXPECT_EQ(engine.NewLog().back(), "Error: " + ObjectOf("one", "ostlink") + " is not a valid module path.");
}

}  // namespace
