// Starting a program as a daemon: an orphan in a session of its own, without a terminal.
//
//   const char *const arguments[] = {"spoold", "--quiet", nullptr};
//   if (!Hostinfo_Daemonize("/usr/sbin/spoold", arguments, 0, "/run/spoold.pid", nullptr, 0)) {
//     Warning("No spooler: %s\n", Err_ErrString());
//   }
#ifndef OST_PUBLIC_HOSTINFODAEMON_H
#define OST_PUBLIC_HOSTINFODAEMON_H

#include <cstddef>

enum HostinfoDaemonizeFlags : unsigned {
  HOSTINFO_DAEMONIZE_NO_CHDIR = 1,      // keep the working directory, which is "/" otherwise
  HOSTINFO_DAEMONIZE_KEEP_SESSION = 2,  // no new session, and standard input, output and error stay
  HOSTINFO_DAEMONIZE_EXIT_PARENT = 4,   // exit with status 0 when the daemon has been started
};

// Starts a program as a daemon, in the state that Hostinfo_ResetProcessState gives and with no signal
// blocked.
//
// path       the program's; it isn't looked for on the path
// arguments  the program's name first, ended by a null pointer
// flags      HostinfoDaemonizeFlags
// pidPath    if not null, the file that gets the daemon's process id and a line feed. The daemon makes it,
//            and has another working directory than the caller unless told to keep it.
// keepFds    descriptors that the daemon keeps beside the standard ones, or null when there are none
// keepCount  how many
//
// Returns whether the program was started. If not, there is a warning, `pidPath` has been removed, and errno
// is that of what failed, in the caller or in the daemon: EINVAL when a text can't be converted, or when the
// child between the two failed. Null for the path or the arguments stops the program.
bool Hostinfo_Daemonize(const char *path, const char *const *arguments, unsigned flags, const char *pidPath,
                        const int *keepFds, size_t keepCount);

#endif
