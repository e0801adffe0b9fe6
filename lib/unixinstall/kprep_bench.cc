#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "installerdb.h"
#include "kprep.h"

namespace {

// A journal of the answers that the engine needs, for the life of the object.
class Installation {
 public:
  Installation() {
    std::filesystem::create_directories(path_ + "/modules");
    std::ofstream(path_ + "/locations") << "answer BINDIR " << path_ << "\nanswer LIBDIR " << path_
                                        << "\nanswer INITSCRIPTSDIR " << path_ << "\n";
    std::ofstream(path_ + "/modules/modules.xml") << "<modules/>\n";
    InstallerDB_Init(path_.c_str(), true);
  }
  ~Installation() {
    InstallerDB_DeInit();
    std::filesystem::remove_all(path_);
  }
  Installation(const Installation &) = delete;
  Installation &operator=(const Installation &) = delete;

 private:
  const std::string path_ = "/tmp/kprep_bench-" + std::to_string(getpid());
};

void BM_Ours_EngineStart(benchmark::State &state) {
  const Installation installation;
  while (state.KeepRunning()) {
    if (!KernPrep_Init()) {
      state.SkipWithError("the engine does not start");
    }
    KernPrep_DeInit();
  }
}
BENCHMARK(BM_Ours_EngineStart)->UseRealTime();

void BM_Peer_ReadKallsyms_EngineStart(benchmark::State &state) {
  std::vector<char> buffer(1 << 16);
  while (state.KeepRunning()) {
    const int fd = open("/proc/kallsyms", O_RDONLY | O_CLOEXEC);
    size_t total = 0;
    for (ssize_t size = 0; (size = read(fd, buffer.data(), buffer.size())) > 0;) {
      total += static_cast<size_t>(size);
    }
    close(fd);
    benchmark::DoNotOptimize(total);
  }
}
BENCHMARK(BM_Peer_ReadKallsyms_EngineStart)->UseRealTime();

// A shell's `cat /proc/kallsyms >/dev/null`, its process included.
void BM_Peer_Cat_EngineStart(benchmark::State &state) {
  char name[] = "cat";
  char table[] = "/proc/kallsyms";
  char *const arguments[] = {name, table, nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  while (state.KeepRunning()) {
    pid_t child = 0;
    int status = -1;
    if (posix_spawnp(&child, name, &actions, nullptr, arguments, environ) != 0 ||
        waitpid(child, &status, 0) != child || status != 0) {
      state.SkipWithError("cat does not read the table");
    }
  }
  posix_spawn_file_actions_destroy(&actions);
}
BENCHMARK(BM_Peer_Cat_EngineStart)->UseRealTime();

}  // namespace
