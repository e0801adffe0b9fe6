// What a library must not do, for the test of tests/pathcalls. A line that moves here moves there too.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>

bool PathCallsSample(const char *path);

bool PathCallsSample(const char *path) {
  struct stat data;
  const bool isThere = stat(path, &data) == 0;
  DIR *directory = opendir(path);
  closedir(directory);
  FILE *stream = fopen(path, "r");
  fclose(stream);
  // This one takes no path.
  const bool isSame = fstat(STDIN_FILENO, &data) == 0;
  return isThere && isSame && std::ifstream(path).good();
}
