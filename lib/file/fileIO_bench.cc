#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "fileIO.h"

namespace {

void Check(bool good) {
  if (!good) {
    abort();
  }
}

// A file of `size` bytes in a directory of memory; gone with its owner.
class File {
 public:
  explicit File(size_t size) {
    char path[] = "/dev/shm/fileIO_bench.XXXXXX";
    const int fd = mkstemp(path);
    Check(fd != -1);
    const std::string content(size, 'x');
    Check(write(fd, content.data(), size) == static_cast<ssize_t>(size));
    close(fd);
    path_ = path;
  }
  ~File() { unlink(path_.c_str()); }
  File(const File &) = delete;
  File &operator=(const File &) = delete;

  [[nodiscard]] const char *Path() const { return path_.c_str(); }

 private:
  std::string path_;
};

// ---- Open, read and close

void Sizes(benchmark::internal::Benchmark *bench) {
  bench->Arg(4 << 10)->Arg(512 << 10)->Arg(64 << 20);
}

template <typename ReadFile>
void ReadEach(benchmark::State &state, ReadFile readFile) {
  const auto size = static_cast<size_t>(state.range(0));
  const File file(size);
  std::vector<char> buffer(size);
  while (state.KeepRunning()) {
    readFile(file.Path(), buffer.data(), size);
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_Ours_Files_OpenReadClose(benchmark::State &state) {
  ReadEach(state, [](const char *path, char *buffer, size_t size) {
    FileIODescriptor file;
    FileIO_Invalidate(&file);
    Check(FileIO_Open(&file, path, FILEIO_ACCESS_READ, FILEIO_OPEN) == FILEIO_SUCCESS);
    Check(FileIO_Read(&file, buffer, size, nullptr) == FILEIO_SUCCESS);
    Check(!FileIO_Close(&file));
  });
}
BENCHMARK(BM_Ours_Files_OpenReadClose)->Apply(Sizes);
void BM_Peer_System_Files_OpenReadClose(benchmark::State &state) {
  ReadEach(state, [](const char *path, char *buffer, size_t size) {
    const int fd = open(path, O_RDONLY);
    Check(fd != -1);
    Check(read(fd, buffer, size) == static_cast<ssize_t>(size));
    Check(close(fd) == 0);
  });
}
BENCHMARK(BM_Peer_System_Files_OpenReadClose)->Apply(Sizes);

// ---- Vectors

// Entries of equal size, each in memory of its own, as many pieces of a program are.
class Entries {
 public:
  Entries(size_t count, size_t size) : texts_(count, std::string(size, 'x')) {
    for (std::string &text : texts_) {
      list_.push_back({text.data(), size});
    }
  }
  [[nodiscard]] const struct iovec *List() const { return list_.data(); }
  [[nodiscard]] int Count() const { return static_cast<int>(list_.size()); }
  [[nodiscard]] size_t Size() const { return texts_.size() * texts_[0].size(); }

 private:
  std::vector<std::string> texts_;
  std::vector<struct iovec> list_;
};

void Shapes(benchmark::internal::Benchmark *bench) {
  for (const int size : {16, 256, 4096}) {
    bench->Args({8, size})->Args({64, size})->Args({1000, size});
  }
}

// Runs `move` on a file that is long enough for the entries.
template <typename Move>
void MoveEach(benchmark::State &state, Move move) {
  const Entries entries(static_cast<size_t>(state.range(0)), static_cast<size_t>(state.range(1)));
  const File path(entries.Size());
  FileIODescriptor file;
  FileIO_Invalidate(&file);
  Check(FileIO_Open(&file, path.Path(), FILEIO_ACCESS_READ | FILEIO_ACCESS_WRITE, FILEIO_OPEN) ==
        FILEIO_SUCCESS);
  while (state.KeepRunning()) {
    Check(move(&file, entries));
  }
  FileIO_Close(&file);
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(entries.Size()));
}

bool Moved(ssize_t moved, const Entries &entries) {
  return moved == static_cast<ssize_t>(entries.Size());
}

void BM_Ours_Files_Writev(benchmark::State &state) {
  MoveEach(state, [](FileIODescriptor *file, const Entries &entries) {
    lseek(file->posix, 0, SEEK_SET);
    return FileIO_Writev(file, entries.List(), entries.Count(), entries.Size(), nullptr) == FILEIO_SUCCESS;
  });
}
BENCHMARK(BM_Ours_Files_Writev)->Apply(Shapes);
void BM_Peer_System_Files_Writev(benchmark::State &state) {
  MoveEach(state, [](FileIODescriptor *file, const Entries &entries) {
    lseek(file->posix, 0, SEEK_SET);
    return Moved(writev(file->posix, entries.List(), entries.Count()), entries);
  });
}
BENCHMARK(BM_Peer_System_Files_Writev)->Apply(Shapes);

void BM_Ours_Files_Pwritev(benchmark::State &state) {
  MoveEach(state, [](FileIODescriptor *file, const Entries &entries) {
    return FileIO_Pwritev(file, entries.List(), entries.Count(), 0, entries.Size()) == FILEIO_SUCCESS;
  });
}
BENCHMARK(BM_Ours_Files_Pwritev)->Apply(Shapes);
void BM_Peer_System_Files_Pwritev(benchmark::State &state) {
  MoveEach(state, [](FileIODescriptor *file, const Entries &entries) {
    return Moved(pwritev(file->posix, entries.List(), entries.Count(), 0), entries);
  });
}
BENCHMARK(BM_Peer_System_Files_Pwritev)->Apply(Shapes);

void BM_Ours_Files_Preadv(benchmark::State &state) {
  MoveEach(state, [](FileIODescriptor *file, const Entries &entries) {
    return FileIO_Preadv(file, entries.List(), entries.Count(), 0, entries.Size()) == FILEIO_SUCCESS;
  });
}
BENCHMARK(BM_Ours_Files_Preadv)->Apply(Shapes);
void BM_Peer_System_Files_Preadv(benchmark::State &state) {
  MoveEach(state, [](FileIODescriptor *file, const Entries &entries) {
    return Moved(preadv(file->posix, entries.List(), entries.Count(), 0), entries);
  });
}
BENCHMARK(BM_Peer_System_Files_Preadv)->Apply(Shapes);

}  // namespace
