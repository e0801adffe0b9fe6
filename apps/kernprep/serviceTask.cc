#include "serviceTask.h"

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
  // The time limit's signal goes to the whole group, and the script alone is to answer it: even right behind
  // the script's end, so the handler stays.
  std::signal(SIGTERM, [](int) { toldToEnd = 1; });
  int status = -1;
  try {
    Glib::spawn_command_line_sync(command, nullptr, nullptr, &status);
  } catch (const Glib::SpawnError &error) {
    Log("Unable to execute %s.  Error:\n%s", word, error.what().c_str());
  }
  return status == 0;
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
