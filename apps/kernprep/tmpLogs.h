// Clearing away the logs of earlier runs.
#ifndef OST_KERNPREP_TMPLOGS_H
#define OST_KERNPREP_TMPLOGS_H

#include <string>

// Deletes those files of the safe temporary directory whose name begins with `prefix` and ends in ".log", but
// the log now in use and those that another process has locked for 2.5 seconds. A lock that can't be taken
// for another reason is worth a warning.
void CleanTmpLogs(const std::string &prefix);

#endif
