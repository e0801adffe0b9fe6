// A piece of long work, with its row of the progress window.
//
// The work runs in a child process that leads a process group of its own. Its exit status is all that comes
// back; why it failed is in the log.
#ifndef OST_KERNPREP_BUILDTASK_H
#define OST_KERNPREP_BUILDTASK_H

#include <gtkmm.h>
#include <sys/types.h>

#include <csignal>

namespace kernprep {

class BuildTask : public sigc::trackable {
 public:
  enum State {
    STATE_PENDING = 0,
    STATE_IN_PROGRESS = 1,
    STATE_SUCCESS = 2,
    STATE_FAILURE_FATAL = 3,
    STATE_FAILURE_WARNING = 4,
  };

  // Makes the row's widgets, in STATE_PENDING.
  explicit BuildTask(const Glib::ustring &text);
  virtual ~BuildTask() = default;
  BuildTask(const BuildTask &) = delete;
  BuildTask &operator=(const BuildTask &) = delete;

  // Whether a failure of this task ends the whole run.
  virtual bool IsFatal() const = 0;
  // Does the work; returns whether it succeeded. Runs in the child, which has no display, and so touches no
  // widget.
  virtual bool Run() = 0;
  // What the user is told when the task fails and IsFatal() holds.
  virtual Glib::ustring GetFailureText() const = 0;
  // Milliseconds that the task may run, 0 for no limit.
  virtual unsigned GetTimeout() const;

  // The row's widgets, for the window to place and show. The toolkit owns them: in a window, they outlive the
  // task. A task whose widgets were never placed leaves them behind.
  Gtk::Label *GetLabel() const { return label; }
  Gtk::Image *GetImage() const { return image; }
  void SetText(const Glib::ustring &text);
  // Shows the state's icon: that of the icon theme, or the stock icon that RegisterIcons put in its place. A
  // value outside State stops the program.
  void SetState(State state);
  // Starts the work. Returns the child's process id, which is also its group's, or -1 when there is no child.
  // In the child, messages that the failed work left pending go to the log; the child ends with status 0 when
  // Run succeeded and 1 otherwise. The child and all that it has started get SIGTERM when the program ends.
  pid_t Start();

 protected:
  // In the child: set by a task that outlives its group's SIGTERM, so that the program's end sends no second.
  static volatile std::sig_atomic_t toldToEnd;

 private:
  // Work that went on would write to the journal without its lock, beside the next run.
  static void EndWithProgram(pid_t program);

  Gtk::Label *label;
  Gtk::Image *image;
};

}  // namespace kernprep

#endif
