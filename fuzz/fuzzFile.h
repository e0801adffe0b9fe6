// Input of a fuzz target as a file, for parsers that read by name.
#ifndef OST_FUZZ_FUZZFILE_H
#define OST_FUZZ_FUZZFILE_H

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace fuzz {

// A directory that goes with the process.
inline const std::string &Directory() {
  static const struct Owner {
    Owner() { std::filesystem::create_directories(path); }
    ~Owner() { std::filesystem::remove_all(path); }
    const std::string path = std::filesystem::temp_directory_path() / ("fuzz-" + std::to_string(getpid()));
  } owner;
  return owner.path;
}

// Writes the input to a file below the directory and gives its path.
inline std::string WriteInput(const std::string &name, const uint8_t *data, size_t size) {
  const std::filesystem::path path = std::filesystem::path(Directory()) / name;
  std::filesystem::create_directories(path.parent_path());
  FILE *file = fopen(path.c_str(), "w");
  if (!file || fwrite(data, 1, size, file) != size || fclose(file) != 0) {
    abort();
  }
  return path;
}

}  // namespace fuzz

#endif
