// What the engine's benchmarks share: data files, and a tool run as a process.
#ifndef OST_UNIXINSTALL_BENCHINT_H
#define OST_UNIXINSTALL_BENCHINT_H

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "owned.h"

namespace enginebench {

// A file below /tmp that goes with the object.
class DataFile {
 public:
  explicit DataFile(const std::string &content) { std::ofstream(path_) << content; }
  ~DataFile() { remove(Path()); }
  DataFile(const DataFile &) = delete;
  DataFile &operator=(const DataFile &) = delete;
  const char *Path() const { return path_.c_str(); }

 private:
  const std::string path_ = "/tmp/engine_bench-" + std::to_string(getpid());
};

// Runs a command line and reads its output to the end. Returns the size of the output.
inline size_t RunAndRead(const std::string &command) {
  // The shell is replaced by the tool, so that the tool alone is measured.
  const std::unique_ptr<FILE, Releaser<pclose>> output(popen(("exec " + command).c_str(), "r"));
  std::vector<char> buffer(1 << 16);
  size_t total = 0;
  while (const size_t size = fread(buffer.data(), 1, buffer.size(), output.get())) {
    total += size;
  }
  return total;
}

}  // namespace enginebench

#endif
