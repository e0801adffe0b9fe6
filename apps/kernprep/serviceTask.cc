#include "serviceTask.h"

#include <pthread.h>
#include <unistd.h>

#include <csignal>

#include "appUtil.h"
#include "installerdb.h"
#include "log.h"
#include "panicUser.h"

namespace kernprep {
namespace {

constexpr unsigned kTimeLimit = 600000;  // milliseconds

}  // namespace

ServiceTask::ServiceTask(const Glib::ustring &text, int action_) : BuildTask(text), action(action_) {
  const char *directory = InstallerDB_GetInitScriptsDir();
  if (directory == nullptr) {
    Log("Unable to lookup initdir\n");
    return;
  }
  scriptPath = Glib::build_filename(directory, "ostrel-tools");
}

bool ServiceTask::Run() {
  if (scriptPath.empty()) {
    return false;
  }
  const char *word = Word();
  const std::string command = Format("%s %s", Glib::shell_quote(scriptPath).c_str(), word);
  LeaveEndToScript();
  int status = -1;
  try {
    Glib::spawn_command_line_sync(command, nullptr, nullptr, &status);
  } catch (const Glib::SpawnError &error) {
    Log("Unable to execute %s.  Error:\n%s", word, error.what().c_str());
  }
  return status == 0;
}

// The time limit's signal goes to the whole group, and the script alone is to answer it: even right behind
// the script's end, so the handler stays. The fork that is about to become the script has no answer of its
// own yet, and must not pass the signal over.
void ServiceTask::LeaveEndToScript() {
  std::signal(SIGTERM, [](int) {
    if (getpid() == getpgrp()) {
      toldToEnd = 1;
    } else {
      _exit(1);
    }
  });
  pthread_atfork(nullptr, nullptr, [] {
    if (toldToEnd != 0) {
      _exit(1);
    }
  });
}

Glib::ustring ServiceTask::GetFailureText() const {
  return Format("Unable to %s services.", Word());
}

unsigned ServiceTask::GetTimeout() const {
  return kTimeLimit;
}

const char *ServiceTask::Word() const {
  switch (action) {
    case kStart:
      return "start";
    case kStop:
      return "stop";
    default:
      NOT_IMPLEMENTED();
  }
}

}  // namespace kernprep
