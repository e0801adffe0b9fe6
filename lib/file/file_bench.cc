#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>

#include "file.h"
#include "owned.h"

namespace fs = std::filesystem;

namespace {

constexpr size_t kBlock = 8192;
constexpr int kFilesOfDirectory = 1000;

void Need(bool isDone) {
  if (!isDone) {
    abort();
  }
}

// A directory of its own; gone with its owner.
class Directory {
 public:
  explicit Directory(const char *parent = "/var/tmp") : path_(parent + std::string("/file_bench.XXXXXX")) {
    Need(mkdtemp(path_.data()) != nullptr);
  }
  ~Directory() { fs::remove_all(path_); }
  Directory(const Directory &) = delete;
  Directory &operator=(const Directory &) = delete;

  [[nodiscard]] std::string Path(const char *name) const { return path_ + '/' + name; }

 private:
  std::string path_;
};

// Makes `count` empty files in a directory.
void MakeFiles(const std::string &directory, int count) {
  fs::create_directories(directory);
  for (int number = 0; number < count; number++) {
    const int fd = open((directory + "/file" + std::to_string(number)).c_str(), O_CREAT | O_WRONLY, 0600);
    Need(fd != -1 && close(fd) == 0);
  }
}

// Measures `step` alone, and not what comes before it in each turn.
template <typename Prepare, typename Step>
void MeasureEach(benchmark::State &state, Prepare prepare, Step step) {
  while (state.KeepRunning()) {
    prepare();
    const auto start = std::chrono::steady_clock::now();
    step();
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
}

// ---- Copying

// Copies as a program would that has just the system's calls.
void CopyBare(const char *source, const char *destination) {
  const int from = open(source, O_RDONLY);
  const int to = open(destination, O_WRONLY | O_CREAT | O_TRUNC, 0600);
  Need(from != -1 && to != -1);
  char block[kBlock];
  ssize_t count = 0;
  while ((count = read(from, block, sizeof block)) > 0) {
    Need(write(to, block, static_cast<size_t>(count)) == count);
  }
  Need(count == 0 && close(from) == 0 && close(to) == 0);
}

template <typename Copy>
void CopyEach(benchmark::State &state, Copy copy) {
  const Directory directory;
  const std::string source = directory.Path("source");
  const std::string destination = directory.Path("destination");
  const std::string megabyte(1 << 20, 'x');
  const int fd = open(source.c_str(), O_CREAT | O_WRONLY, 0600);
  for (int64_t done = 0; done < state.range(0); done += 1 << 20) {
    Need(write(fd, megabyte.data(), megabyte.size()) == static_cast<ssize_t>(megabyte.size()));
  }
  Need(close(fd) == 0);
  MeasureEach(
      state, [&destination] { unlink(destination.c_str()); },
      [&copy, &source, &destination] { copy(source.c_str(), destination.c_str()); });
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void CopySizes(benchmark::internal::Benchmark *bench) {
  bench->Arg(1 << 20)->Arg(32 << 20)->Arg(1 << 30)->UseManualTime()->Unit(benchmark::kMillisecond);
}

void BM_Ours_Files_Copy(benchmark::State &state) {
  CopyEach(state,
           [](const char *source, const char *destination) { Need(File_Copy(source, destination, true)); });
}
BENCHMARK(BM_Ours_Files_Copy)->Apply(CopySizes);
void BM_Peer_System_Files_Copy(benchmark::State &state) {
  CopyEach(state, CopyBare);
}
BENCHMARK(BM_Peer_System_Files_Copy)->Apply(CopySizes);

// ---- Deleting a tree

void RunRm(const char *path) {
  const char *const arguments[] = {"rm", "-r", path, nullptr};
  pid_t child = 0;
  int status = -1;
  Need(posix_spawnp(&child, "rm", nullptr, nullptr, const_cast<char *const *>(arguments), environ) == 0);
  Need(waitpid(child, &status, 0) == child && status == 0);
}

template <typename Delete>
void DeleteEach(benchmark::State &state, Delete deleteTree) {
  // A disk's file system may take minutes to make as many files as were just deleted.
  const Directory directory("/dev/shm");
  const std::string tree = directory.Path("tree");
  MeasureEach(
      state,
      [&state, &tree] {
        for (int64_t done = 0; done < state.range(0); done += kFilesOfDirectory) {
          MakeFiles(tree + "/directory" + std::to_string(done), kFilesOfDirectory);
        }
      },
      [&tree, &deleteTree] { deleteTree(tree.c_str()); });
}

void TreeSizes(benchmark::internal::Benchmark *bench) {
  // Making a tree takes longer than deleting it.
  bench->Arg(1000)->Arg(10000)->Arg(100000)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
}

void BM_Ours_Files_DeleteTree(benchmark::State &state) {
  DeleteEach(state, [](const char *tree) { Need(File_DeleteDirectoryTree(tree)); });
}
BENCHMARK(BM_Ours_Files_DeleteTree)->Apply(TreeSizes);
void BM_Peer_Rm_Files_DeleteTree(benchmark::State &state) {
  DeleteEach(state, RunRm);
}
BENCHMARK(BM_Peer_Rm_Files_DeleteTree)->Apply(TreeSizes);

// ---- Listing

// A directory of so many files. One serves all runs: making and removing it takes far longer than any of
// them.
std::string DirectoryOf(int count) {
  static std::map<int, Directory> directories;
  const auto [found, isNew] = directories.try_emplace(count);
  std::string path = found->second.Path("list");
  if (isNew) {
    MakeFiles(path, count);
  }
  return path;
}

template <typename List>
void ListEach(benchmark::State &state, List list) {
  const std::string path = DirectoryOf(static_cast<int>(state.range(0)));
  while (state.KeepRunning()) {
    Need(list(path.c_str()) == state.range(0));
  }
}

void ListSizes(benchmark::internal::Benchmark *bench) {
  bench->Arg(100)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);
}

void BM_Ours_Files_ListDirectory(benchmark::State &state) {
  ListEach(state, [](const char *path) {
    char **names = nullptr;
    const int count = File_ListDirectory(path, &names);
    File_FreeNames(names, count);
    return count;
  });
}
BENCHMARK(BM_Ours_Files_ListDirectory)->Apply(ListSizes);
void BM_Peer_Readdir_Files_ListDirectory(benchmark::State &state) {
  ListEach(state, [](const char *path) {
    const OwnedDirectory directory(opendir(path));
    int count = 0;
    while (const dirent *entry = readdir(directory.get())) {
      benchmark::DoNotOptimize(entry->d_name[0]);
      count++;
    }
    return count - 2;
  });
}
BENCHMARK(BM_Peer_Readdir_Files_ListDirectory)->Apply(ListSizes);

}  // namespace
