// Stops or starts the product's services through its init script.
#ifndef OST_KERNPREP_SERVICETASK_H
#define OST_KERNPREP_SERVICETASK_H

#include "buildTask.h"

namespace kernprep {

class ServiceTask : public BuildTask {
 public:
  enum Action { kStart = 0, kStop = 1 };

  // action  an Action; with any other value Run and GetFailureText stop the program
  //
  // The installer database must be up. When it doesn't know the init directory, the log says so and Run
  // fails.
  ServiceTask(const Glib::ustring &text, int action);

  bool IsFatal() const override { return true; }
  // Waits for the script. Only the script's end counts: a SIGTERM that reaches this process from then on is
  // the script's to answer, or keeps it from starting.
  bool Run() override;
  Glib::ustring GetFailureText() const override;
  unsigned GetTimeout() const override;

 private:
  static void LeaveEndToScript();
  const char *Word() const;

  int action;
  Glib::ustring scriptPath;  // empty when the init directory is unknown
};

}  // namespace kernprep

#endif
