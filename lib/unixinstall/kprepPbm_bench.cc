// The choice of a pre-built set, beside a bare loop that reads the same property files.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "file.h"
#include "kprep.h"
#include "kprepInt.h"
#include "log.h"

namespace {

constexpr char kRelease[] = "2.6.18-92.el5";

std::string Properties(const std::string &release, bool modVersion) {
  return "UtsRelease " + release +
         "\nUtsVersion #1 SMP Tue Jun 10 18:49:47 EDT 2008\nUtsMachine i386\nAthlonKernel forbidden\n"
         "ModVersion " +
         (modVersion ? "yes" : "no") +
         "\nSMP yes\nPageOffset c0000000\n"
         "Comment NON-SHIPPABLE DEVELOPER BUILT KERNEL MODULE\n";
}

// A directory of sets for other kernels, every second one with symbol versions, whose last one in the
// directory's order is perfect, and a kernel record to choose by. Both go with the object.
class Sets {
 public:
  explicit Sets(int64_t count) {
    for (int64_t i = 0; i < count; ++i) {
      Put("set-" + std::to_string(i), "2.6.9-" + std::to_string(i + 100) + ".el4", i % 2 == 0);
    }
    char **names = nullptr;
    const int listed = File_ListDirectory(Root(), &names);
    Put(names[listed - 1], kRelease, false);
    File_FreeNames(names, listed);

    kernPrep.kernel.smp = true;
    kernPrep.kernel.athlonKernel = athlon_;
    kernPrep.kernel.pageOffset = pageOffset_;
    kernPrep.kernel.utsMachine = machine_;
    kernPrep.kernel.utsRelease = release_;
    kernPrep.kernel.utsVersion = version_;
    kernPrep.kernel.osInfo = &osInfo_;
    Log_Init((root_ + ".log").c_str(), nullptr, "bench");
  }

  ~Sets() {
    kernPrep = {};
    Log_Exit();
    std::filesystem::remove_all(root_);
    std::filesystem::remove(root_ + ".log");
  }

  Sets(const Sets &) = delete;
  Sets &operator=(const Sets &) = delete;

  const char *Root() const { return root_.c_str(); }

 private:
  void Put(const std::string &name, const std::string &release, bool modVersion) const {
    std::filesystem::create_directories(root_ + "/" + name);
    std::ofstream(root_ + "/" + name + "/properties") << Properties(release, modVersion);
  }

  const std::string root_ = "/tmp/kprepPbm_bench-" + std::to_string(getpid());
  char athlon_[10] = "forbidden";
  char pageOffset_[9] = "c0000000";
  char machine_[5] = "i686";
  char release_[sizeof kRelease] = "2.6.18-92.el5";
  char version_[36] = "#1 SMP Tue Jun 10 18:49:47 EDT 2008";
  KernPrep_OsInfo osInfo_ = {};
};

void BM_Ours_SelectPbmSet(benchmark::State &state) {
  const Sets sets(state.range(0));
  while (state.KeepRunning()) {
    KernPrep_PbmSet *list = KernPrep_ScanPbmSets(sets.Root());
    const KernPrep_PbmSet *best = KernPrep_SelectPbmSet(sets.Root(), list, nullptr);
    if (!best || best->category != KERNPREP_PBM_PERFECT) {
      state.SkipWithError("the perfect set was not selected");
    }
    KernPrep_FreePbmSets(list);
  }
}
BENCHMARK(BM_Ours_SelectPbmSet)->Arg(10)->Arg(100)->Arg(1000)->UseRealTime();

void BM_Peer_ReadProperties_SelectPbmSet(benchmark::State &state) {
  const Sets sets(state.range(0));
  while (state.KeepRunning()) {
    char **names = nullptr;
    const int count = File_ListDirectory(sets.Root(), &names);
    for (int i = 0; i < count; ++i) {
      const std::string path = std::string(sets.Root()) + "/" + names[i] + "/properties";
      char *text = nullptr;
      if (!g_file_get_contents(path.c_str(), &text, nullptr, nullptr)) {
        state.SkipWithError("a property file can't be read");
      }
      benchmark::DoNotOptimize(text);
      g_free(text);
    }
    File_FreeNames(names, count);
  }
}
BENCHMARK(BM_Peer_ReadProperties_SelectPbmSet)->Arg(10)->Arg(100)->Arg(1000)->UseRealTime();

}  // namespace
