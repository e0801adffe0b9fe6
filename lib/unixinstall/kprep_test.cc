#include "kprep.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include "engineTestInt.h"
#include "installerdb.h"
#include "kprepInt.h"
#include "owned.h"
#include "util.h"

namespace {

using enginetest::Logged;
using testhost::Host;

constexpr char kNotQueried[] = "Unable to initialize kprep query library";
constexpr char kIncompleteList[] = "<modules><module name='ostlink'/></modules>";

// A product on a kernel of 32 bits, with an empty module list.
class Product : public Host {
 public:
  Product() {
    File(enginetest::kJournal, enginetest::kAnswers);
    File("/opt/ostrel/lib/modules/modules.xml", "<modules/>");
    File("/proc/kallsyms", "c0123456 T printk\n");
    Release("2.6.18-92.el5").Version("#1 SMP Tue Jun 10 18:49:47 EDT 2008").Machine("i686");
  }
  ~Product() {
    KernPrep_DeInit();
    InstallerDB_DeInit();
  }
  Product(const Product &) = delete;
  Product &operator=(const Product &) = delete;

  void Open() {
    enginetest::Enter(*this);
    ASSERT_TRUE(InstallerDB_Init(enginetest::kConfigDir, false));
  }

  // Enters the host and starts the engine.
  bool Start() {
    Open();
    return KernPrep_Init();
  }
};

const KernPrep_KernelIdentity &Kernel() {
  return kernPrep.kernel;
}

std::string Text(const char *text) {
  return text ? text : "(null)";
}

std::string PageOffsetOf(const std::string &kallsyms) {
  Product product;
  product.File("/proc/kallsyms", kallsyms);
  EXPECT_TRUE(product.Start());
  return Text(Kernel().pageOffset);
}

bool IsSmp(const std::string &version) {
  Product product;
  product.Version(version);
  EXPECT_TRUE(product.Start());
  return Kernel().smp;
}

void ExpectVersion(const std::string &release, int32_t code, uint32_t fourth) {
  Product product;
  product.Release(release);
  ASSERT_TRUE(product.Start());
  EXPECT_EQ(code, Kernel().versionCode);
  EXPECT_EQ(fourth, Kernel().versionParts[3]);
  EXPECT_EQ(release, Kernel().utsRelease);
}

void ExpectReleaseRefused(const std::string &release) {
  Product product;
  product.Release(release);
  EXPECT_FALSE(product.Start());
  EXPECT_TRUE(Logged(kNotQueried));
  EXPECT_FALSE(Logged("kprep query interface initialized"));
}

// A stream that writes each text at once and takes all of them but one, counted down to.
OwnedStream StreamThatRefuses(int *refused) {
  cookie_io_functions_t functions = {};
  functions.write = [](void *cookie, const char *, size_t size) -> ssize_t {
    int *left = static_cast<int *>(cookie);
    return (*left)-- == 0 ? 0 : static_cast<ssize_t>(size);
  };
  OwnedStream stream(fopencookie(refused, "w", functions));
  setvbuf(stream.get(), nullptr, _IONBF, 0);
  return stream;
}

// The number of the log's lines so far, its banner among them.
size_t CountLog() {
  Log("start\n");
  return enginetest::LogLines().size();
}

enginetest::Lines LogSince(size_t before) {
  enginetest::Lines lines = enginetest::LogLines();
  lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
  return lines;
}

std::string Properties() {
  char *text = nullptr;
  size_t size = 0;
  FILE *stream = open_memstream(&text, &size);
  EXPECT_TRUE(KernPrep_GeneratePropertyFile(stream));
  fclose(stream);
  const OwnedString owned(text);
  return text;
}

}  // namespace

TEST(KernPrepInit, FillsTheRecordAndMakesTheScratchDirectory) {
  Product product;
  product.File("/opt/ostrel/lib/modules/modules.xml",
               "<modules><module name='ostlink' required='true' description=''/></modules>");
  ASSERT_TRUE(product.Start());
  EXPECT_STREQ("/opt/ostrel/lib", kernPrep.libDir);
  EXPECT_STREQ("/etc/init.d", kernPrep.initDir);
  EXPECT_EQ("2.6.18-92.el5", Text(Kernel().utsRelease));
  EXPECT_EQ("i686", Text(Kernel().utsMachine));
  EXPECT_EQ("#1 SMP Tue Jun 10 18:49:47 EDT 2008", Text(Kernel().utsVersion));
  EXPECT_EQ(0x20612, Kernel().versionCode);
  EXPECT_TRUE(Kernel().smp);
  EXPECT_EQ("c0000000", Text(Kernel().pageOffset));
  EXPECT_EQ(0, Kernel().compilerMajor);
  EXPECT_EQ(0, Kernel().compilerMinor);
  EXPECT_EQ(OSINFO_DISTRIBUTION_UNKNOWN, Kernel().osInfo->distribution);
  EXPECT_EQ(1U, g_list_length(kernPrep.moduleList));
  EXPECT_EQ(0U, g_hash_table_size(kernPrep.builtModules));
  EXPECT_TRUE(kernPrep.buildToolsUnchecked);
  const OwnedString parent(Util_GetSafeTmpDir(true));
  EXPECT_EQ(std::string(parent.get()) + "/modules", kernPrep.tempDir);
  EXPECT_TRUE(std::filesystem::is_directory(kernPrep.tempDir));
  EXPECT_TRUE(Logged("kprep query interface initialized"));
  EXPECT_TRUE(Logged("kprep library initialized"));
}

TEST(KernPrepInit, TellsItsStepsInOrder) {
  Product product;
  product.File("/etc/SuSE-release", "SUSE Linux Enterprise Server 10 (i586)\nVERSION = 10\n")
      .File("/proc/ksyms", "c0222222 mmx_clear_page_R1\n")
      .File("/opt/ostrel/lib/modules/modules.xml", kIncompleteList);
  product.Open();
  const size_t before = CountLog();
  ASSERT_TRUE(KernPrep_Init());
  EXPECT_EQ(enginetest::Lines({"System distribution is SuSE", "System variant is SuSE enterprise",
                               "System version is 10.0", "Detected Athlon kernel variety.",
                               "kprep query interface initialized", "Module list file is not complete.",
                               "kprep library initialized"}),
            LogSince(before));
}

TEST(KernPrepInit, KnowsTheRealKernel) {
  Host host;
  host.File(enginetest::kJournal, enginetest::kAnswers);
  enginetest::Enter(host);
  ASSERT_TRUE(InstallerDB_Init(enginetest::kConfigDir, true));
  ASSERT_TRUE(KernPrep_Init());
  utsname real;
  ASSERT_EQ(0, uname(&real));
  EXPECT_EQ(real.release, Text(Kernel().utsRelease));
  EXPECT_EQ(sizeof(void *) == 8 ? "(null)" : "c0000000", Text(Kernel().pageOffset));
  KernPrep_DeInit();
  InstallerDB_DeInit();
}

TEST(KernPrepInit, FailsWithoutLibDir) {
  Product product;
  product.Open();
  ASSERT_TRUE(InstallerDB_RemoveAnswer("LIBDIR"));
  EXPECT_FALSE(KernPrep_Init());
  EXPECT_TRUE(Logged("Unable to locate libdir or initdir"));
}

TEST(KernPrepInit, FailsWithoutInitDir) {
  Product product;
  product.Open();
  ASSERT_TRUE(InstallerDB_RemoveAnswer("INITSCRIPTSDIR"));
  EXPECT_FALSE(KernPrep_Init());
  EXPECT_TRUE(Logged("Unable to locate libdir or initdir"));
}

TEST(KernPrepInit, RefusesAReleaseOfTwoNumbers) {
  ExpectReleaseRefused("3.0");
}

TEST(KernPrepInit, RefusesAReleaseWithoutNumbers) {
  ExpectReleaseRefused("mainline");
}

TEST(KernPrepInit, KeepsTheReleaseWhole) {
  ExpectVersion("2.6.18-92.el5", 0x20612, 0);
}

TEST(KernPrepInit, ReadsAFourthNumber) {
  ExpectVersion("2.6.18.1-x", 0x20612, 1);
}

TEST(KernPrepInit, ReadsAReleaseOfToday) {
  ExpectVersion("6.1.0-56-amd64", 0x60100, 0);
}

TEST(KernPrepInit, DeletesAnOldScratchDirectory) {
  Product product;
  product.Open();
  const OwnedString parent(Util_GetSafeTmpDir(true));
  const std::string old = std::string(parent.get()) + "/modules/deep/down";
  ASSERT_TRUE(std::filesystem::create_directories(old));
  ASSERT_TRUE(KernPrep_Init());
  EXPECT_TRUE(std::filesystem::is_empty(kernPrep.tempDir));
}

TEST(KernPrepInit, FailsWhenTheScratchDirectoryCannotBeMade) {
  Product product;
  product.File("/opt/ostrel/lib/modules/modules.xml", kIncompleteList);
  product.Open();
  const OwnedString parent(Util_GetSafeTmpDir(true));
  const std::string scratch = std::string(parent.get()) + "/modules";
  ASSERT_EQ(0, mkdir(scratch.c_str(), 0700));
  ASSERT_EQ(0, mount("tmpfs", scratch.c_str(), "tmpfs", 0, nullptr)) << "a directory in use can't be deleted";
  const size_t before = CountLog();
  EXPECT_FALSE(KernPrep_Init());
  EXPECT_EQ(nullptr, kernPrep.tempDir);
  EXPECT_EQ(enginetest::Lines({"kprep query interface initialized"}), LogSince(before))
      << "the module list is read later";
}

TEST(KernPrepInit, FailsWithoutATemporaryDirectory) {
  Product product;
  product.Directory("/tmp", 0555).User(1234);
  product.Enter();
  setenv("HOME", "/", 1);
  ASSERT_EQ(0, chdir("/"));
  ASSERT_TRUE(InstallerDB_Init(enginetest::kConfigDir, true));
  EXPECT_FALSE(KernPrep_Init());
  EXPECT_EQ(nullptr, kernPrep.tempDir);
  EXPECT_EQ("2.6.18-92.el5", Text(Kernel().utsRelease)) << "the kernel was asked by then";
  EXPECT_EQ(nullptr, kernPrep.builtModules);
}

TEST(KernPrepInit, GoesOnWithoutAModuleList) {
  Product product;
  product.Remove("/opt/ostrel/lib/modules/modules.xml")
      .File("/opt/ostrel/lib/modules/modules.xml", "<modules");
  EXPECT_TRUE(product.Start());
  EXPECT_EQ(nullptr, kernPrep.moduleList);
  EXPECT_TRUE(Logged("Unable to parse module list file /opt/ostrel/lib/modules/modules.xml"));
  EXPECT_TRUE(Logged("kprep library initialized"));
}

TEST(KernPrepPageOffset, ComesFromABareAddress) {
  EXPECT_EQ("c0000000", PageOffsetOf("c0123456 printk\n"));
}

TEST(KernPrepPageOffset, PassesOverLinesOfOtherLengths) {
  EXPECT_EQ("d1000000",
            PageOffsetOf("c0100000 T printk_ratelimit\nffffffff81123456 T printk\nb012345 printk\n"
                         "b012345 T printk\nb01234567 T printk\nd1123456 t printk\ne2123456 T printk\n"));
}

TEST(KernPrepPageOffset, IsUnknownOnAKernelOf64Bits) {
  EXPECT_EQ("(null)", PageOffsetOf("ffffffff81123456 T printk\n"));
}

TEST(KernPrepPageOffset, IsUnknownWithoutTheSymbol) {
  EXPECT_EQ("(null)", PageOffsetOf("c0123456 T vprintk\n"));
}

TEST(KernPrepPageOffset, IsUnknownInAnEmptyFile) {
  EXPECT_EQ("(null)", PageOffsetOf(""));
}

TEST(KernPrepPageOffset, IsNotLookedForOnAnOldKernel) {
  Product product;
  product.Release("2.0.40");
  ASSERT_TRUE(product.Start());
  EXPECT_EQ("(null)", Text(Kernel().pageOffset));
}

TEST(KernPrepPageOffset, IsLookedForFromThisKernelOn) {
  Product product;
  product.Release("2.1.0");
  ASSERT_TRUE(product.Start());
  EXPECT_EQ("c0000000", Text(Kernel().pageOffset));
}

TEST(KernPrepSmp, IsTheWordBetweenBlanks) {
  EXPECT_TRUE(IsSmp("#1 SMP PREEMPT"));
}

TEST(KernPrepSmp, IsNotAWordAtTheStart) {
  EXPECT_FALSE(IsSmp("SMP #1"));
}

TEST(KernPrepSmp, IsNotAWordAtTheEnd) {
  EXPECT_FALSE(IsSmp("#1 SMP"));
}

TEST(KernPrepKsyms, KeepTheDefaultsWhenAbsent) {
  Product product;
  ASSERT_TRUE(product.Start());
  EXPECT_FALSE(Kernel().modVersion);
  EXPECT_FALSE(Kernel().globalCliVersioned);
  EXPECT_EQ("forbidden", Text(Kernel().athlonKernel));
  EXPECT_FALSE(Logged("Detected Athlon kernel variety."));
}

TEST(KernPrepKsyms, TellOfEveryTrait) {
  Product product;
  product.File(
      "/proc/ksyms",
      "Address Using Versions x\nc0111111 __global_cli_R__ver___global_cli\nc0222222 mmx_clear_page_R1\n");
  ASSERT_TRUE(product.Start());
  EXPECT_TRUE(Kernel().modVersion);
  EXPECT_TRUE(Kernel().globalCliVersioned);
  EXPECT_EQ("required", Text(Kernel().athlonKernel));
  EXPECT_TRUE(Logged("Detected Athlon kernel variety."));
}

TEST(KernPrepKsyms, TellOfNoTraitWhenTheyHoldNone) {
  Product product;
  product.File("/proc/ksyms",
               "c0111111 Using Versions\nUsing Versions x\nc0222222 clear_page\nc0333333 __global_cli\n");
  ASSERT_TRUE(product.Start());
  EXPECT_FALSE(Kernel().modVersion);
  EXPECT_FALSE(Kernel().globalCliVersioned);
  EXPECT_EQ("forbidden", Text(Kernel().athlonKernel));
}

TEST(KernPrepGetKernelRelease, GivesACopy) {
  Product product;
  ASSERT_TRUE(product.Start());
  const OwnedString release(KernPrep_GetKernelRelease());
  EXPECT_STREQ("2.6.18-92.el5", release.get());
  EXPECT_NE(Kernel().utsRelease, release.get());
}

TEST(KernPrepGeneratePropertyFile, WritesEveryLine) {
  Product product;
  product.File("/proc/ksyms", "x Using Versions x\nmmx_clear_page\n");
  ASSERT_TRUE(product.Start());
  EXPECT_EQ(
      "UtsRelease 2.6.18-92.el5\nUtsVersion #1 SMP Tue Jun 10 18:49:47 EDT 2008\nUtsMachine i686\n"
      "AthlonKernel required\nModVersion yes\nSMP yes\nPageOffset c0000000\n"
      "Comment NON-SHIPPABLE DEVELOPER BUILT KERNEL MODULE\n",
      Properties());
}

TEST(KernPrepGeneratePropertyFile, LeavesAnUnknownPageOffsetOut) {
  Product product;
  product.File("/proc/kallsyms", "ffffffff81123456 T printk\n").Version("#1");
  ASSERT_TRUE(product.Start());
  EXPECT_EQ(
      "UtsRelease 2.6.18-92.el5\nUtsVersion #1\nUtsMachine i686\nAthlonKernel forbidden\nModVersion no\nSMP "
      "no\n"
      "Comment NON-SHIPPABLE DEVELOPER BUILT KERNEL MODULE\n",
      Properties());
}

TEST(KernPrepGeneratePropertyFile, ReportsEachWriteThatFails) {
  Product product;
  ASSERT_TRUE(product.Start());
  for (int refused = 0; refused < 3; ++refused) {
    int left = refused;
    const OwnedStream stream = StreamThatRefuses(&left);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(KernPrep_GeneratePropertyFile(stream.get())) << refused;
    EXPECT_NE(std::string::npos, testing::internal::GetCapturedStderr().find(
                                     "KernPrep_GeneratePropertyFile: assertion 'res > 0' failed"));
  }
  int left = 3;
  EXPECT_TRUE(KernPrep_GeneratePropertyFile(StreamThatRefuses(&left).get()));
  EXPECT_EQ(0, left) << "three writes";
}

TEST(KernPrepDeInit, DeletesTheScratchDirectoryAndFreesTheState) {
  Product product;
  ASSERT_TRUE(product.Start());
  const std::string scratch = kernPrep.tempDir;
  testhost::WriteFile(scratch + "/object.o", "x");
  kernPrep.buildToolsUnchecked = false;
  KernPrep_DeInit();
  EXPECT_FALSE(std::filesystem::exists(scratch));
  EXPECT_EQ(nullptr, kernPrep.tempDir);
  for (const char *text : {Kernel().utsRelease, Kernel().utsMachine, Kernel().utsVersion, Kernel().pageOffset,
                           Kernel().athlonKernel}) {
    EXPECT_EQ(nullptr, text);
  }
  EXPECT_EQ(nullptr, Kernel().osInfo);
  EXPECT_EQ(nullptr, kernPrep.moduleList);
  EXPECT_EQ(nullptr, kernPrep.builtModules);
  EXPECT_TRUE(kernPrep.buildToolsUnchecked);
}

TEST(KernPrepDeInit, IsHarmlessAfterAFailedInit) {
  Product product;
  product.Release("3.0");
  ASSERT_FALSE(product.Start());
  KernPrep_DeInit();
  EXPECT_EQ(nullptr, Kernel().utsRelease);
}

TEST(KernPrepDeInit, LetsTheEngineStartAgain) {
  Product product;
  ASSERT_TRUE(product.Start());
  KernPrep_DeInit();
  EXPECT_TRUE(KernPrep_Init());
  EXPECT_EQ("2.6.18-92.el5", Text(Kernel().utsRelease));
}

TEST(KernPrepParseVersion, NeedsThreeNumbers) {
  uint32_t parts[4] = {9, 9, 9, 9};
  EXPECT_FALSE(KernPrep_ParseVersion("2.6", parts));
  EXPECT_EQ(0U, parts[2]);
  EXPECT_TRUE(KernPrep_ParseVersion("2.6.18-92", parts));
  EXPECT_EQ(18U, parts[2]);
  EXPECT_EQ(0U, parts[3]);
  EXPECT_TRUE(KernPrep_ParseVersion("2.6.18.4", parts));
  EXPECT_EQ(4U, parts[3]);
  EXPECT_FALSE(KernPrep_ParseVersion("", parts));
  EXPECT_EQ(0U, parts[0]);
}
