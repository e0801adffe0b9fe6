// The progress window: stops the services, gets each missing module onto the machine, starts the services.
//
//   kernprep::Build build(*this, modules, gccPath, headersPath);
//   switch (build.Run()) { ...
//
// Tasks run strictly one after the other, each in a child process. Cancelling sends SIGTERM to the group of
// the running child and ends the run without waiting; nothing starts the services again. When the process
// ends in mid-run, as the toolkit makes it do when the display goes away, the group gets SIGTERM too
// (BuildTask::Start), so that no work goes on that nobody watches.
#ifndef OST_KERNPREP_BUILD_H
#define OST_KERNPREP_BUILD_H

#include <gtkmm.h>

#include <deque>

#include "buildTask.h"
#include "modules.h"

namespace kernprep {

class Build : public Gtk::Dialog {
 public:
  // Builds the window and all tasks; nothing runs yet.
  //
  // modules                 needed by the constructor alone
  // gccPath, headersPath    what the user accepted
  Build(Gtk::Window &parent, const Modules &modules, const Glib::ustring &gccPath,
        const Glib::ustring &headersPath);
  // Drops the tasks that haven't begun.
  ~Build() override;
  Build(const Build &) = delete;
  Build &operator=(const Build &) = delete;

  // Runs the tasks. Returns Gtk::RESPONSE_YES when all have run, Gtk::RESPONSE_NO after a fatal failure (the
  // user has seen why), Gtk::RESPONSE_CANCEL or Gtk::RESPONSE_DELETE_EVENT when the user cancelled.
  int Run();

  // The end of the running task's child; `status` is its wait status. Takes the task over. Does nothing once
  // the user has cancelled.
  void OnTaskFinished(int pid, int status, BuildTask *task);
  // A response while the child runs: a cancel ends its process group.
  void OnResponse(int response, int pid);
  // The running task's time is up: ends its process group. Returns false.
  bool OnTimeout(int pid);

 private:
  void AddTask(Gtk::Table &table, BuildTask *task, guint column, guint row);
  void StartNextTask();

  bool cancelRequested = false;
  std::deque<BuildTask *> tasks;  // not yet started, owned
  sigc::connection responseConnection;
  sigc::connection timeoutConnection;  // not connected while a task has no time limit
};

}  // namespace kernprep

#endif
