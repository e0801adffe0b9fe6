// Crowds that update files under locks while some of them are killed, and the proof that no update is lost.
//
//   lock_stress [--contenders N] [--files N] [--no-kills] [SECONDS]
//
// Each file has contenders of its own. A contender reads how long the file is and writes a record behind its
// end, so that two at once would write over each other. One in four only reads, under a shared lock, and sees
// whether the file stays as it is meanwhile. Prints what happened; the status is 0 when nothing was lost.
#include <fcntl.h>
#include <getopt.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "fileLock.h"
#include "log.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr size_t kReaderShare = 4;
constexpr std::chrono::milliseconds kKillInterval(40);

struct Options {
  size_t files = 8;
  size_t contenders = 4;
  bool kills = true;
  int seconds = 60;
};

// What one contender wrote, as the others and the proof see it.
struct Record {
  uint32_t contender;
  uint32_t number;
};

// One contender's progress. It lives on in its successor when it is killed.
struct Progress {
  std::atomic<uint32_t> begun;
  std::atomic<uint32_t> ended;
  std::atomic<uint32_t> reads;
  std::atomic<uint32_t> changesSeen;  // the file changed under a shared lock
  std::atomic<uint32_t> failures;
};

struct Contender {
  std::string path;
  uint32_t index;
  bool reader;
  Progress *progress;
  pid_t pid;
  std::vector<uint32_t> unsure;  // updates in whose middle it was killed: they may have been written or not
};

std::atomic<bool> *stopping;

template <typename T>
T *Shared(size_t count) {
  void *memory = mmap(nullptr, sizeof(T) * count, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    perror("mmap");
    exit(2);
  }
  auto *objects = static_cast<T *>(memory);
  std::uninitialized_value_construct_n(objects, count);
  return objects;
}

off_t SizeOf(int fd) {
  struct stat data;
  return fstat(fd, &data) == 0 ? data.st_size : -1;
}

void AppendRecord(int fd, const Contender &self) {
  const off_t end = SizeOf(fd);
  const Record record = {self.index, ++self.progress->begun};
  if (pwrite(fd, &record, sizeof record, end) == static_cast<ssize_t>(sizeof record)) {
    self.progress->ended = record.number;
  } else {
    self.progress->failures++;
  }
}

void WatchFile(int fd, const Contender &self) {
  const off_t before = SizeOf(fd);
  usleep(1000);
  if (SizeOf(fd) != before) {
    self.progress->changesSeen++;
  }
  self.progress->reads++;
}

[[noreturn]] void Contend(const Contender &self) {
  const int fd = open(self.path.c_str(), O_RDWR | O_CLOEXEC);
  while (!*stopping) {
    int error = 0;
    void *token = FileLock_Lock(self.path.c_str(), self.reader, FILELOCK_INFINITE_WAIT, &error);
    if (token == nullptr) {
      self.progress->failures++;
      continue;
    }
    if (self.reader) {
      WatchFile(fd, self);
    } else {
      AppendRecord(fd, self);
    }
    if (FileLock_Unlock(self.path.c_str(), token) != 0) {
      self.progress->failures++;
    }
  }
  _exit(0);
}

void Start(Contender *contender) {
  contender->pid = fork();
  if (contender->pid == 0) {
    Contend(*contender);
  }
}

// Kills contenders and starts others in their places until the time is over. Returns how many were killed.
size_t KillSome(std::vector<Contender> *contenders, Clock::time_point end, bool kills) {
  std::mt19937 random(std::random_device{}());
  size_t killed = 0;
  while (Clock::now() < end) {
    usleep(std::chrono::microseconds(kKillInterval).count());
    if (kills) {
      Contender &victim = (*contenders)[random() % contenders->size()];
      kill(victim.pid, SIGKILL);
      waitpid(victim.pid, nullptr, 0);
      killed++;
      if (victim.progress->begun != victim.progress->ended) {
        victim.unsure.push_back(victim.progress->begun);
      }
      Start(&victim);
    }
  }
  return killed;
}

std::vector<Record> ReadRecords(const std::string &path) {
  std::vector<Record> records(fs::file_size(path) / sizeof(Record));
  FILE *file = fopen(path.c_str(), "re");
  records.resize(fread(records.data(), sizeof(Record), records.size(), file));
  fclose(file);
  return records;
}

// How many of a contender's updates its file doesn't have.
size_t LostUpdates(const Contender &contender) {
  std::vector<bool> found(contender.progress->begun + 1);
  found[0] = true;
  for (const uint32_t number : contender.unsure) {
    found[number] = true;
  }
  for (const Record &record : ReadRecords(contender.path)) {
    if (record.contender == contender.index && record.number < found.size()) {
      found[record.number] = true;
    }
  }
  return static_cast<size_t>(std::count(found.begin(), found.end(), false));
}

// Whether the next one that locks a file leaves nothing behind, whatever the killed ones left.
bool IsCleanAfterwards(const std::string &path) {
  int error = 0;
  void *token = FileLock_Lock(path.c_str(), false, FILELOCK_INFINITE_WAIT, &error);
  return token != nullptr && FileLock_Unlock(path.c_str(), token) == 0 && !fs::exists(path + ".lck");
}

Options ParseOptions(int argc, char **argv) {
  Options options;
  static const option names[] = {{"contenders", required_argument, nullptr, 'c'},
                                 {"files", required_argument, nullptr, 'f'},
                                 {"no-kills", no_argument, nullptr, 'n'},
                                 {nullptr, 0, nullptr, 0}};
  for (;;) {
    switch (getopt_long(argc, argv, "", names, nullptr)) {
      case 'c':
        options.contenders = std::stoul(optarg);
        break;
      case 'f':
        options.files = std::stoul(optarg);
        break;
      case 'n':
        options.kills = false;
        break;
      case -1:
        if (optind < argc) {
          options.seconds = std::stoi(argv[optind]);
        }
        return options;
      default:
        exit(2);
    }
  }
}

std::vector<Contender> MakeContenders(const Options &options, const std::string &directory) {
  auto *progress = Shared<Progress>(options.files * options.contenders);
  std::vector<Contender> contenders;
  for (size_t file = 0; file < options.files; file++) {
    const std::string path = directory + "/f" + std::to_string(file);
    fclose(fopen(path.c_str(), "we"));
    for (size_t number = 0; number < options.contenders; number++) {
      const size_t index = contenders.size();
      contenders.push_back({path,
                            static_cast<uint32_t>(index),
                            number % kReaderShare == kReaderShare - 1,
                            &progress[index],
                            -1,
                            {}});
    }
  }
  return contenders;
}

// Prints what happened. Returns whether all is well.
bool Report(const std::vector<Contender> &contenders, size_t killed, const std::string &directory) {
  size_t updates = 0;
  size_t reads = 0;
  size_t lost = 0;
  size_t changes = 0;
  size_t failures = 0;
  size_t unclean = 0;
  for (const Contender &contender : contenders) {
    updates += contender.progress->ended;
    reads += contender.progress->reads;
    lost += LostUpdates(contender);
    changes += contender.progress->changesSeen;
    failures += contender.progress->failures;
  }
  for (const auto &entry : fs::directory_iterator(directory)) {
    unclean += entry.is_regular_file() && !IsCleanAfterwards(entry.path()) ? 1 : 0;
  }
  printf(
      "rounds %zu (%zu updates, %zu reads), kills survived %zu, updates lost %zu, changes under a shared "
      "lock %zu, failures %zu, locks left behind %zu\n",
      updates + reads, updates, reads, killed, lost, changes, failures, unclean);
  return updates > 0 && lost + changes + failures + unclean == 0;
}

}  // namespace

int main(int argc, char **argv) {
  const Options options = ParseOptions(argc, argv);
  Log_SetQuietWarnings(true);
  char directory[] = "/tmp/lock-stress-XXXXXX";
  if (mkdtemp(directory) == nullptr) {
    perror("mkdtemp");
    return 2;
  }
  stopping = Shared<std::atomic<bool>>(1);
  std::vector<Contender> contenders = MakeContenders(options, directory);
  for (Contender &contender : contenders) {
    Start(&contender);
  }
  const size_t killed =
      KillSome(&contenders, Clock::now() + std::chrono::seconds(options.seconds), options.kills);
  *stopping = true;
  for (const Contender &contender : contenders) {
    waitpid(contender.pid, nullptr, 0);
  }
  const bool well = Report(contenders, killed, directory);
  fs::remove_all(directory);
  return well ? 0 : 1;
}
