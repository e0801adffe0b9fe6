/* The host's answer to uname. It is preloaded into every process of a host and linked into every test. */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "unameInt.h"

const char testhost_uname_file[] = "/testhost/uname";

static ssize_t ReadAnswer(char *buffer, size_t size) {
  const int savedErrno = errno;
  const int fd = open(testhost_uname_file, O_RDONLY | O_CLOEXEC);
  ssize_t length = -1;
  if (fd >= 0) {
    length = read(fd, buffer, size);
    close(fd);
  }
  errno = savedErrno;
  return length;
}

static void SetField(struct utsname *names, char which, const char *text) {
  char *field = which == 's'   ? names->sysname
                : which == 'r' ? names->release
                : which == 'v' ? names->version
                               : names->machine;
  memset(field, 0, sizeof names->release);
  strncpy(field, text, sizeof names->release - 1);
}

int uname(struct utsname *names) {
  if (syscall(SYS_uname, names) != 0) {
    return -1;
  }
  char answer[4 * sizeof names->release + 1];
  const ssize_t length = ReadAnswer(answer, sizeof answer - 1);
  if (length <= 0) {
    return 0;
  }
  answer[length] = '\0';
  for (const char *field = answer; field < answer + length; field += strlen(field) + 1) {
    SetField(names, field[0], field + 1);
  }
  return 0;
}
