#include "build.h"

#include <unistd.h>

#include <csignal>

#include "appUtil.h"
#include "log.h"
#include "moduleTask.h"
#include "panicUser.h"
#include "serviceTask.h"

namespace kernprep {
namespace {

// What runs for the progress window. Set by StartNextTask; the child is 0 again when it has ended or been
// cancelled. A cancelled task stays, undeleted, until the process ends.
struct {
  pid_t child;
  BuildTask *task;
} running;

void EndGroup(pid_t pid) {
  killpg(getpgid(pid), SIGTERM);
}

// A wait status of a normal exit with code 0.
bool IsSuccess(int status) {
  return (status & 0x7f) == 0 && (status & 0xff00) == 0;
}

}  // namespace

Build::Build(Gtk::Window &parent, const Modules &modules, const Glib::ustring &gccPath,
             const Glib::ustring &headersPath)
    : Gtk::Dialog("Ostrel Kernel Module Updater", parent, true, false) {
  set_border_width(10);
  set_default_size(380, -1);
  get_vbox()->show();
  get_vbox()->set_spacing(10);
  auto *table = Gtk::manage(new Gtk::Table(1, 1, false));
  table->show();
  get_vbox()->pack_start(*table, Gtk::PACK_EXPAND_WIDGET, 0);
  table->set_spacings(10);
  add_button(Gtk::Stock::CANCEL, Gtk::RESPONSE_CANCEL);

  AddTask(*table, new ServiceTask("Stopping Ostrel Services", ServiceTask::kStop), 0, 0);
  auto *heading = Gtk::manage(new Gtk::Label(
      modules.IsAllPrebuilt() ? "Installing:" : "Compiling:", Gtk::ALIGN_LEFT, Gtk::ALIGN_CENTER));
  heading->show();
  table->attach(*heading, 0, 3, 1, 2);
  // Eight bits wide: the rows of a very long list start over at the top.
  uint8_t row = 2;
  for (const Module &module : modules.GetUnsatisfied()) {
    AddTask(*table, new ModuleTask(module, gccPath, headersPath), 1, row++);
  }
  AddTask(*table, new ServiceTask("Starting Ostrel Services", ServiceTask::kStart), 0, row);
}

Build::~Build() {
  while (!tasks.empty()) {
    delete tasks.front();
    tasks.pop_front();
  }
}

int Build::Run() {
  StartNextTask();
  return run();
}

void Build::OnTaskFinished(int /*pid*/, int status, BuildTask *task) {
  ASSERT(task != nullptr);
  // The turn of the main loop that saw the cancel may see the child's end too: the run is over by then.
  if (running.child == 0) {
    return;
  }
  running = {};
  responseConnection.disconnect();
  timeoutConnection.disconnect();
  Glib::ustring error;
  if (IsSuccess(status)) {
    task->SetState(BuildTask::STATE_SUCCESS);
  } else if (task->IsFatal()) {
    task->SetState(BuildTask::STATE_FAILURE_FATAL);
    error = task->GetFailureText();
  } else {
    task->SetState(BuildTask::STATE_FAILURE_WARNING);
  }
  delete task;
  if (error.empty()) {
    StartNextTask();
    return;
  }
  ShowError(Format("%s\n\nSee log file %s for details.", error.c_str(), Log_GetFileName()), *this);
  response(Gtk::RESPONSE_NO);
}

void Build::OnResponse(int response, int pid) {
  if (response == Gtk::RESPONSE_DELETE_EVENT || response == Gtk::RESPONSE_CANCEL) {
    cancelRequested = true;
    EndGroup(pid);
    running.child = 0;
  }
}

bool Build::OnTimeout(int pid) {
  EndGroup(pid);
  return false;
}

void Build::AddTask(Gtk::Table &table, BuildTask *task, guint column, guint row) {
  task->GetImage()->show();
  table.attach(*task->GetImage(), column, column + 1, row, row + 1);
  task->GetLabel()->show();
  table.attach(*task->GetLabel(), column + 1, 3, row, row + 1);
  tasks.push_back(task);
}

void Build::StartNextTask() {
  if (tasks.empty()) {
    response(Gtk::RESPONSE_YES);
    return;
  }
  BuildTask *task = tasks.front();
  tasks.pop_front();
  task->SetState(BuildTask::STATE_IN_PROGRESS);
  const pid_t pid = task->Start();
  running = {pid, task};
  responseConnection =
      signal_response().connect(sigc::bind(sigc::mem_fun(*this, &Build::OnResponse), pid), false);
  if (const unsigned timeout = task->GetTimeout(); timeout != 0) {
    timeoutConnection = Glib::signal_timeout().connect(
        sigc::bind(sigc::mem_fun(*this, &Build::OnTimeout), pid), timeout, Glib::PRIORITY_DEFAULT);
  }
  Glib::signal_child_watch().connect(sigc::bind(sigc::mem_fun(*this, &Build::OnTaskFinished), task), pid,
                                     Glib::PRIORITY_DEFAULT);
}

}  // namespace kernprep
