// Clearing away the logs of earlier runs.
#ifndef OST_KERNPREP_TMPLOGS_H
#define OST_KERNPREP_TMPLOGS_H

#include <string>

// Deletes those files of the safe temporary directory whose name begins with `prefix` and ends in ".log", but
// the log now in use.
void CleanTmpLogs(const std::string &prefix);

#endif
