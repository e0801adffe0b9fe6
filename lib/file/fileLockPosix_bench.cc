// A lock and its unlocking beside the bare system calls that they can't do without. The lock is a shared one,
// beside as many others as the benchmark says. In memory, where no disk hides the time of our own.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "fileLock.h"
#include "fileLockInt.h"

namespace {

// A file with other members at its lock, all of this process.
class LockedFile {
 public:
  explicit LockedFile(int64_t members) {
    char directory[] = "/dev/shm/fileLock_bench.XXXXXX";
    if (mkdtemp(directory) == nullptr) {
      abort();
    }
    directory_ = directory;
    path_ = directory_ + "/file";
    fclose(fopen(path_.c_str(), "we"));
    for (int64_t member = 0; member < members; member++) {
      int error = 0;
      tokens_.push_back(FileLock_Lock(path_.c_str(), true, 0, &error));
    }
  }
  ~LockedFile() {
    for (void *token : tokens_) {
      FileLock_Unlock(path_.c_str(), token);
    }
    std::filesystem::remove_all(directory_);
  }
  LockedFile(const LockedFile &) = delete;
  LockedFile &operator=(const LockedFile &) = delete;

  [[nodiscard]] const char *Get() const { return path_.c_str(); }

 private:
  std::string directory_;
  std::string path_;
  std::vector<void *> tokens_;
};

void Members(benchmark::internal::Benchmark *bench) {
  bench->Arg(0)->Arg(1)->Arg(10)->Arg(100);
}

void BM_Ours_Files_Lock(benchmark::State &state) {
  const LockedFile file(state.range(0));
  while (state.KeepRunning()) {
    int error = 0;
    void *token = FileLock_Lock(file.Get(), true, 0, &error);
    if (token == nullptr || FileLock_Unlock(file.Get(), token) != 0) {
      state.SkipWithError("no lock");
    }
  }
}
BENCHMARK(BM_Ours_Files_Lock)->Apply(Members);

// The calls, one after the other. What they give isn't looked at more than the next one needs.

void ResolveDirectory(const std::string &directory) {
  char resolved[PATH_MAX];
  benchmark::DoNotOptimize(realpath(directory.c_str(), resolved));
}

void ReadFile(const char *path, char *buffer, size_t size) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  benchmark::DoNotOptimize(read(fd, buffer, size));
  close(fd);
}

void MakeDirectory(const char *path) {
  const mode_t mask = umask(0);
  mkdir(path, 0777);
  umask(mask);
}

// Each member is read, and its process looked at.
void ReadMembers(const std::string &lockDir, const char *own, const char *statPath) {
  DIR *directory = opendir(lockDir.c_str());
  std::vector<std::string> members;
  while (const dirent *entry = readdir(directory)) {
    if (entry->d_name[0] == 'M' && std::string(own) != entry->d_name) {
      members.emplace_back(entry->d_name);
    }
  }
  closedir(directory);
  for (const std::string &member : members) {
    char buffer[1024];
    struct stat data;
    const std::string path = std::string(lockDir).append(1, '/').append(member);
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    fstat(fd, &data);
    benchmark::DoNotOptimize(read(fd, buffer, kMemberSize));
    close(fd);
    kill(getpid(), 0);
    ReadFile(statPath, buffer, sizeof buffer);
  }
}

void BareLock(const char *path, const char *statPath, unsigned number) {
  const std::string parent(path, strrchr(path, '/'));
  const std::string lockDir = std::string(path) + ".lck";
  char name[16];
  snprintf(name, sizeof name, "%05u.lck", number);
  const std::string directory = lockDir + "/D" + name;
  const std::string entry = lockDir + "/E" + name;
  const std::string member = lockDir + "/M" + name;
  struct stat data;
  char buffer[1024] = "";
  ResolveDirectory(parent);
  ReadFile(statPath, buffer, sizeof buffer);
  if (lstat(lockDir.c_str(), &data) == -1) {
    MakeDirectory(lockDir.c_str());
  }
  MakeDirectory(directory.c_str());
  lstat(member.c_str(), &data);
  const int fd = open(entry.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
  ReadMembers(lockDir, name, statPath);
  benchmark::DoNotOptimize(write(fd, buffer, kMemberSize));
  close(fd);
  rename(entry.c_str(), member.c_str());
  rmdir(directory.c_str());
  ReadMembers(lockDir, member.c_str() + lockDir.size() + 1, statPath);

  ResolveDirectory(parent);
  unlink(member.c_str());
  rmdir(lockDir.c_str());
}

void BM_Peer_SystemCalls_Files_Lock(benchmark::State &state) {
  const LockedFile file(state.range(0));
  const std::string statPath = "/proc/" + std::to_string(getpid()) + "/stat";
  unsigned number = 0;
  while (state.KeepRunning()) {
    BareLock(file.Get(), statPath.c_str(), number++ & 0xffff);
  }
}
BENCHMARK(BM_Peer_SystemCalls_Files_Lock)->Apply(Members);

}  // namespace
