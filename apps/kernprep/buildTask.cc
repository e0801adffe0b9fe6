#include "buildTask.h"

#include <gdk/gdkx.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>

#include "icons.h"
#include "msg.h"
#include "panicUser.h"

namespace kernprep {
namespace {

// Pixels of the largest of the stock icons at their size: with less, rows would grow as their state changes.
constexpr int kIconSide = 20;

// Returns what was blocked before.
sigset_t BlockSignals() {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  return before;
}

// A connection that work held on to would keep the window of a program that has ended on the screen, dead.
void LeaveDisplay() {
  close(ConnectionNumber(gdk_x11_get_default_xdisplay()));
}

void UnblockSignals() {
  sigset_t none;
  sigemptyset(&none);
  pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace

volatile std::sig_atomic_t BuildTask::toldToEnd = 0;

BuildTask::BuildTask(const Glib::ustring &text)
    : label(Gtk::manage(new Gtk::Label(text, Gtk::ALIGN_LEFT, Gtk::ALIGN_CENTER))),
      image(Gtk::manage(new Gtk::Image)) {
  image->set_size_request(kIconSide, kIconSide);
  SetState(STATE_PENDING);
}

unsigned BuildTask::GetTimeout() const {
  return 0;
}

void BuildTask::SetText(const Glib::ustring &text) {
  label->set_text(text);
}

void BuildTask::SetState(State state) {
  const auto *icon = std::find_if(stateIcons.begin(), stateIcons.end(),
                                  [state](const StateIcon &row) { return row.state == state; });
  if (icon == stateIcons.end()) {
    NOT_IMPLEMENTED();
  }
  // A stock id is never looked for in the icon theme, so the theme's own icon needs the other call.
  if (Gtk::IconTheme::get_default()->has_icon(icon->name)) {
    image->set_from_icon_name(icon->name, Gtk::ICON_SIZE_SMALL_TOOLBAR);
  } else {
    image->set(Gtk::StockID(icon->name), Gtk::ICON_SIZE_SMALL_TOOLBAR);
  }
}

pid_t BuildTask::Start() {
  const pid_t program = getpid();
  // A signal right behind the fork waits until the child answers it.
  const sigset_t before = BlockSignals();
  const pid_t pid = fork();
  if (pid != 0) {
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    // The child does the same; whoever comes first, the group stands before anything signals it.
    setpgid(pid, pid);
    return pid;
  }
  setpgrp();
  // What the program's caller ignored or blocked would be so for all that the task starts.
  std::signal(SIGTERM, SIG_DFL);
  EndWithProgram(program);
  UnblockSignals();
  LeaveDisplay();
  const bool succeeded = Run();
  if (!succeeded) {
    Msg_Reset(true);
  }
  _exit(succeeded ? 0 : 1);
}

void BuildTask::EndWithProgram(pid_t program) {
  std::signal(SIGHUP, [](int) {
    if (toldToEnd == 0) {
      kill(0, SIGTERM);
    }
  });
  prctl(PR_SET_PDEATHSIG, SIGHUP);
  if (getppid() != program) {
    raise(SIGHUP);
  }
}

}  // namespace kernprep
