#include "build.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <optional>

#include "icons.h"
#include "testProduct.h"

namespace kernprep {
namespace {

constexpr char kTitle[] = "Ostrel Kernel Module Updater";
constexpr char kReady[] = "/run/ready";

// Shell that tells the test that it runs, and stays.
constexpr char kStay[] = "echo ready >/run/ready; sleep 300";
// The same, until the test takes the file away.
constexpr char kStayWhileReady[] = "echo ready >/run/ready; while test -e /run/ready; do sleep 0.1; done";

struct Cell {
  guint left, right, top, bottom;
  std::string content;  // a label's text or an icon's name
  bool operator==(const Cell &) const = default;
};

void PrintTo(const Cell &cell, std::ostream *out) {
  *out << cell.left << "-" << cell.right << ", " << cell.top << "-" << cell.bottom << ": " << cell.content;
}

std::string ContentOf(Gtk::Widget *widget) {
  if (const auto *label = dynamic_cast<Gtk::Label *>(widget)) {
    return label->get_text();
  }
  Gtk::StockID id;
  Gtk::IconSize size;
  dynamic_cast<Gtk::Image &>(*widget).get_stock(id, size);
  const std::string name = id.get_string();
  const std::string prefix = "ostrel-kernprep-";
  return name.starts_with(prefix) ? name.substr(prefix.size()) : "no icon of ours: " + name;
}

Gtk::Table &TableOf(Build &build) {
  for (Gtk::Widget *child : build.get_vbox()->get_children()) {
    if (auto *table = dynamic_cast<Gtk::Table *>(child)) {
      return *table;
    }
  }
  throw std::runtime_error("no table");
}

// The table's widgets in the order in which they were attached.
std::vector<Gtk::Widget *> WidgetsOf(Build &build) {
  std::vector<Gtk::Widget *> widgets = TableOf(build).get_children();
  std::reverse(widgets.begin(), widgets.end());
  return widgets;
}

guint AttachOf(Gtk::Widget &widget, const char *property) {
  guint value = 0;
  gtk_container_child_get(GTK_CONTAINER(widget.get_parent()->gobj()), widget.gobj(), property, &value,
                          nullptr);
  return value;
}

std::vector<Cell> CellsOf(Build &build) {
  std::vector<Cell> cells;
  for (Gtk::Widget *widget : WidgetsOf(build)) {
    cells.push_back({AttachOf(*widget, "left-attach"), AttachOf(*widget, "right-attach"),
                     AttachOf(*widget, "top-attach"), AttachOf(*widget, "bottom-attach"), ContentOf(widget)});
  }
  return cells;
}

// The icon of each task in the order of the rows.
std::vector<std::string> IconsOf(Build &build) {
  std::vector<std::string> icons;
  for (Gtk::Widget *widget : WidgetsOf(build)) {
    if (dynamic_cast<Gtk::Image *>(widget) != nullptr) {
      icons.push_back(ContentOf(widget));
    }
  }
  return icons;
}

using Icons = std::vector<std::string>;

// How many handlers wait for the window's response.
size_t ResponseHandlersOf(Build &build) {
  const guint id = g_signal_lookup("response", GTK_TYPE_DIALOG);
  const auto mask = static_cast<GSignalMatchType>(G_SIGNAL_MATCH_ID | G_SIGNAL_MATCH_UNBLOCKED);
  // A handler that was counted is blocked, so that the search finds the next.
  std::vector<gulong> handlers;
  while (const gulong handler = g_signal_handler_find(build.gobj(), mask, id, 0, nullptr, nullptr, nullptr)) {
    g_signal_handler_block(build.gobj(), handler);
    handlers.push_back(handler);
  }
  for (const gulong handler : handlers) {
    g_signal_handler_unblock(build.gobj(), handler);
  }
  return handlers.size();
}

// Milliseconds that the running timers of more than a minute have left, one for each. What the toolkit waits
// for is shorter.
std::vector<gint64> LongTimers() {
  std::vector<gint64> timers;
  for (guint id = 1; id < 100000; id++) {
    GSource *source = g_main_context_find_source_by_id(nullptr, id);
    if (source == nullptr || source->source_funcs != &g_timeout_funcs) {
      continue;
    }
    const gint64 left = (g_source_get_ready_time(source) - g_get_monotonic_time()) / 1000;
    if (left > 60000) {
      EXPECT_EQ(g_source_get_priority(source), 0);
      timers.push_back(left);
    }
  }
  return timers;
}

Gtk::Button &CancelButton(Build &build) {
  const std::vector<Gtk::Widget *> buttons = build.get_action_area()->get_children();
  EXPECT_EQ(buttons.size(), 1U);
  return dynamic_cast<Gtk::Button &>(*buttons.front());
}

// Does something once when the running task's work says that it is under way.
void WhenReady(const std::function<void()> &action) {
  EachTurn([action] {
    if (testhost::ReadFile(kReady).empty()) {
      return true;
    }
    action();
    return false;
  });
}

// The group of the process that writes kReady.
pid_t RunningGroup() {
  const std::vector<pid_t> sleepers = e2e::ProcessesWith("sleep");
  EXPECT_FALSE(sleepers.empty());
  return sleepers.empty() ? -1 : getpgid(sleepers.front());
}

// Closes the window and lets the service script end, so that the main loop finds both in one turn.
void CloseAsTaskEnds(Build &window) {
  GdkEvent *close = gdk_event_new(GDK_DELETE);
  close->any.window = GDK_WINDOW(g_object_ref(window.get_window()->gobj()));
  gdk_event_put(close);
  gdk_event_free(close);
  const pid_t task = getpgid(e2e::ProcessesWith("ostrel-tools").front());
  unlink(kReady);
  siginfo_t end = {};
  EXPECT_EQ(waitid(P_PID, static_cast<id_t>(task), &end, WEXITED | WNOWAIT), 0);
}

bool GroupIsGone(pid_t group) {
  // The test's own child stays as a zombie that nobody reaps, as after a cancel in the program.
  return e2e::Eventually(
      [group] {
        while (waitpid(-group, nullptr, WNOHANG) > 0) {
        }
        return killpg(group, 0) == -1;
      },
      10);
}

class BuildTest : public testing::Test {
 protected:
  // Starts the engine and the toolkit on the product as described.
  void Start() {
    product.Start();
    desktop = std::make_unique<TestDesktop>();
    user = std::make_unique<BoxUser>();
    RegisterIcons();
    modules.Load(TestProduct::ListPath());
  }

  Build &MakeWindow() {
    parent = std::make_unique<Gtk::Window>();
    build = std::make_unique<Build>(*parent, modules, "/usr/bin/gcc",
                                    "/lib/modules/" + e2e::Kernel().release + "/build/include");
    return *build;
  }

  Build &Make() {
    Start();
    return MakeWindow();
  }

  void Optional(const std::string &name) {
    product.Module(e2e::ModuleSpec{.name = name, .required = false, .key = "WANTED"});
    product.Answer("WANTED", "yes");
  }

  // Does something once when the window is on the screen, and not only asked for.
  void WhenVisible(const std::function<void()> &action) {
    EachTurn([this, action] {
      if (!desktop->display.HasWindow(kTitle)) {
        return true;
      }
      action();
      return false;
    });
  }

  void ExpectBox(const std::string &text) {
    ASSERT_EQ(user->seen.size(), 1U);
    EXPECT_EQ(user->seen[0].text,
              text + "\n\nSee log file " + std::string(Log_GetFileName()) + " for details.");
    EXPECT_TRUE(user->seen[0].error);
    EXPECT_EQ(user->seen[0].parent, GTK_WINDOW(build->gobj()));
  }

  TestProduct product;
  std::unique_ptr<TestDesktop> desktop;
  std::unique_ptr<BoxUser> user;
  Modules modules;
  std::unique_ptr<Gtk::Window> parent;
  std::unique_ptr<Build> build;
};

TEST_F(BuildTest, LaysOutARowForEachTask) {
  product.Module("ostlink").Module("ostchan");
  Build &window = Make();
  EXPECT_EQ(CellsOf(window), (std::vector<Cell>{
                                 {0, 1, 0, 1, "pending"},
                                 {1, 3, 0, 1, "Stopping Ostrel Services"},
                                 {0, 3, 1, 2, "Compiling:"},
                                 {1, 2, 2, 3, "pending"},
                                 {2, 3, 2, 3, "The ostlink module"},
                                 {1, 2, 3, 4, "pending"},
                                 {2, 3, 3, 4, "The ostchan module"},
                                 {0, 1, 4, 5, "pending"},
                                 {1, 3, 4, 5, "Starting Ostrel Services"},
                             }));
  for (Gtk::Widget *widget : WidgetsOf(window)) {
    EXPECT_TRUE(widget->get_visible());
    EXPECT_EQ(AttachOf(*widget, "x-options"), 5U);
    EXPECT_EQ(AttachOf(*widget, "y-options"), 5U);
    EXPECT_EQ(AttachOf(*widget, "x-padding"), 0U);
    EXPECT_EQ(AttachOf(*widget, "y-padding"), 0U);
  }
  float x = -1;
  float y = -1;
  dynamic_cast<Gtk::Label &>(*WidgetsOf(window)[2]).get_alignment(x, y);
  EXPECT_EQ(x, 0.0F);
  EXPECT_EQ(y, 0.5F);
}

TEST_F(BuildTest, IsAModalDialogOverItsParentWithOneCancelButton) {
  Build &window = Make();
  EXPECT_EQ(window.get_title(), kTitle);
  EXPECT_TRUE(window.get_modal());
  EXPECT_FALSE(window.get_has_separator());
  EXPECT_EQ(window.get_transient_for(), parent.get());
  EXPECT_EQ(window.get_border_width(), 10U);
  EXPECT_EQ(window.get_vbox()->get_spacing(), 10);
  int width = 0;
  int height = 0;
  window.get_default_size(width, height);
  EXPECT_EQ(width, 380);
  EXPECT_EQ(height, -1);
  EXPECT_EQ(TableOf(window).get_default_row_spacing(), 10U);
  EXPECT_EQ(TableOf(window).get_default_col_spacing(), 10U);
  EXPECT_FALSE(TableOf(window).get_homogeneous());
  gboolean expand = FALSE;
  gboolean fill = FALSE;
  guint padding = 1;
  GtkPackType end = GTK_PACK_END;
  gtk_box_query_child_packing(window.get_vbox()->Gtk::Box::gobj(), TableOf(window).Gtk::Widget::gobj(),
                              &expand, &fill, &padding, &end);
  EXPECT_TRUE(expand);
  EXPECT_TRUE(fill);
  EXPECT_EQ(padding, 0U);
  EXPECT_EQ(end, GTK_PACK_START);
  EXPECT_EQ(CancelButton(window).get_label(), Gtk::StockID(Gtk::Stock::CANCEL).get_string());
  EXPECT_EQ(window.get_response_for_widget(CancelButton(window)), Gtk::RESPONSE_CANCEL);
}

TEST_F(BuildTest, IsTwoTasksLongWithNothingMissing) {
  Build &window = Make();
  EXPECT_EQ(CellsOf(window), (std::vector<Cell>{
                                 {0, 1, 0, 1, "pending"},
                                 {1, 3, 0, 1, "Stopping Ostrel Services"},
                                 {0, 3, 1, 2, "Installing:"},
                                 {0, 1, 2, 3, "pending"},
                                 {1, 3, 2, 3, "Starting Ostrel Services"},
                             }));
  EXPECT_EQ(window.Run(), Gtk::RESPONSE_YES);
  EXPECT_EQ(e2e::ServiceCalls(), (std::vector<std::string>{"stop", "start"}));
}

TEST_F(BuildTest, SaysInstallingWhenEveryModuleIsPrebuilt) {
  product.Module("ostlink").Set("host", e2e::Product::PerfectProperties(e2e::Kernel()), {"ostlink"});
  EXPECT_EQ(CellsOf(Make())[2].content, "Installing:");
}

TEST_F(BuildTest, SaysCompilingWhenOneModuleIsNotPrebuilt) {
  product.Module("ostlink").Module("ostchan");
  product.Set("host", e2e::Product::PerfectProperties(e2e::Kernel()), {"ostlink"});
  EXPECT_EQ(CellsOf(Make())[2].content, "Compiling:");
}

TEST_F(BuildTest, StartsTheRowsOfAVeryLongListOverAtTheTop) {
  for (int i = 0; i < 300; i++) {
    product.Module("module" + std::to_string(i));
  }
  const std::vector<Cell> cells = CellsOf(Make());
  ASSERT_EQ(cells.size(), 3U + 300 * 2 + 2);
  const auto labelOf = [&](unsigned module) { return cells[3 + module * 2 + 1]; };
  EXPECT_EQ(labelOf(253), (Cell{2, 3, 255, 256, "The module253 module"}));
  EXPECT_EQ(labelOf(254), (Cell{2, 3, 0, 1, "The module254 module"}));
  EXPECT_EQ(labelOf(299), (Cell{2, 3, 45, 46, "The module299 module"}));
  EXPECT_EQ(cells.back(), (Cell{1, 3, 46, 47, "Starting Ostrel Services"}));
}

TEST_F(BuildTest, RunsItsTasksInOrder) {
  product.Service("echo service $1 >>/run/order");
  product.Module("ostlink").Source("ostlink", "echo ostlink >>/run/order");
  product.Module("ostchan").Source("ostchan", "echo ostchan >>/run/order");
  Build &window = Make();
  EXPECT_EQ(window.Run(), Gtk::RESPONSE_YES);
  EXPECT_EQ(testhost::ReadFile("/run/order"), "service stop\nostlink\nostchan\nservice start\n");
  EXPECT_EQ(IconsOf(window), (Icons{"success", "success", "success", "success"}));
  EXPECT_TRUE(user->seen.empty());
  EXPECT_FALSE(modules.HasUnsatisfied());
}

TEST_F(BuildTest, ShowsTheTaskThatRuns) {
  product.Module("ostlink").Source("ostlink", kStayWhileReady);
  Build &window = Make();
  Icons icons;
  bool cancelCanBePressed = false;
  WhenReady([&] {
    icons = IconsOf(window);
    cancelCanBePressed = CancelButton(window).is_sensitive();
    unlink(kReady);
  });
  EXPECT_EQ(window.Run(), Gtk::RESPONSE_YES);
  EXPECT_EQ(icons, (Icons{"success", "in-progress", "pending"}));
  EXPECT_TRUE(cancelCanBePressed);
}

TEST_F(BuildTest, StartsTheFirstTaskBeforeItIsShown) {
  Build &window = Make();
  Icons icons;
  window.signal_show().connect([&] { icons = IconsOf(window); });
  EXPECT_EQ(window.Run(), Gtk::RESPONSE_YES);
  EXPECT_EQ(icons, (Icons{"in-progress", "pending"}));
}

TEST_F(BuildTest, WaitsForNoResponseOnceTheLastTaskHasFinished) {
  product.Service(std::string("test $1 = start && exit; ") + kStayWhileReady);
  Build &window = Make();
  size_t whileRunning = 0;
  WhenReady([&] {
    whileRunning = ResponseHandlersOf(window);
    unlink(kReady);
  });
  size_t atTheEnd = 0;
  window.signal_response().connect([&](int) { atTheEnd = ResponseHandlersOf(window); });
  EXPECT_EQ(window.Run(), Gtk::RESPONSE_YES);
  EXPECT_EQ(atTheEnd + 1, whileRunning);
}

TEST_F(BuildTest, WarnsOfAnOptionalModuleAndGoesOn) {
  Optional("ostpool");
  product.Module("ostlink").Source("ostlink");
  Build &window = Make();
  EXPECT_EQ(window.Run(), Gtk::RESPONSE_YES);
  EXPECT_EQ(IconsOf(window), (Icons{"success", "failure-warning", "success", "success"}));
  EXPECT_TRUE(user->seen.empty());
}

TEST_F(BuildTest, EndsAtARequiredModulesFailureAndLeavesTheServicesStopped) {
  product.Module("ostlink").Module("ostchan").Source("ostchan");
  Build &window = Make();
  EXPECT_EQ(window.Run(), Gtk::RESPONSE_NO);
  EXPECT_EQ(IconsOf(window), (Icons{"success", "failure-fatal", "pending", "pending"}));
  ExpectBox("Unable to build kernel module.");
  build.reset();
  EXPECT_EQ(e2e::ServiceCalls(), std::vector<std::string>{"stop"});
}

TEST_F(BuildTest, UsesTheOneTextForAPrebuiltModuleToo) {
  product.Module("ostlink").Set("host", e2e::Product::PerfectProperties(e2e::Kernel()), {"ostlink"});
  testhost::WriteFile("/lib/modules/" + e2e::Kernel().release + "/misc", "");
  EXPECT_EQ(Make().Run(), Gtk::RESPONSE_NO);
  ExpectBox("Unable to build kernel module.");
}

TEST_F(BuildTest, EndsWhenTheServicesCannotBeStopped) {
  product.Service("exit 1").Module("ostlink").Source("ostlink");
  Build &window = Make();
  EXPECT_EQ(window.Run(), Gtk::RESPONSE_NO);
  EXPECT_EQ(IconsOf(window), (Icons{"failure-fatal", "pending", "pending"}));
  ExpectBox("Unable to stop services.");
  EXPECT_TRUE(modules.HasUnsatisfied());
}

TEST_F(BuildTest, ShowsAFatalFailureInItsRowThenTheBoxAndThenEnds) {
  product.Service("exit 1");
  Build &window = Make();
  auto &image = dynamic_cast<Gtk::Image &>(*WidgetsOf(window).front());
  std::optional<size_t> boxes;
  image.property_stock().signal_changed().connect([&] {
    if (ContentOf(&image) == "failure-fatal") {
      boxes = user->seen.size();
    }
  });
  std::vector<size_t> boxesAtResponses;
  window.signal_response().connect([&](int) { boxesAtResponses.push_back(user->seen.size()); });
  EXPECT_EQ(window.Run(), Gtk::RESPONSE_NO);
  EXPECT_EQ(boxes, 0U);
  EXPECT_EQ(boxesAtResponses, std::vector<size_t>{1});
  ExpectBox("Unable to stop services.");
}

TEST_F(BuildTest, EndsWhenTheServicesCannotBeStarted) {
  product.Service("test $1 = stop").Module("ostlink").Source("ostlink");
  Build &window = Make();
  EXPECT_EQ(window.Run(), Gtk::RESPONSE_NO);
  EXPECT_EQ(IconsOf(window), (Icons{"success", "success", "failure-fatal"}));
  ExpectBox("Unable to start services.");
}

TEST_F(BuildTest, EndsAtOnceWhenTheInitDirectoryIsUnknown) {
  Start();
  ASSERT_TRUE(InstallerDB_RemoveAnswer("INITSCRIPTSDIR"));
  EXPECT_EQ(MakeWindow().Run(), Gtk::RESPONSE_NO);
  ExpectBox("Unable to stop services.");
  EXPECT_TRUE(e2e::ServiceCalls().empty());
}

TEST_F(BuildTest, TakesAKilledChildForAFailure) {
  product.Service(kStay);
  Build &window = Make();
  WhenReady([] { killpg(RunningGroup(), SIGKILL); });
  EXPECT_EQ(window.Run(), Gtk::RESPONSE_NO);
  ExpectBox("Unable to stop services.");
}

TEST_F(BuildTest, EndsTheWholeGroupOnCancel) {
  product.Service(kStay);
  Build &window = Make();
  pid_t group = -1;
  WhenReady([&] {
    group = RunningGroup();
    CancelButton(window).clicked();
  });
  EXPECT_EQ(window.Run(), Gtk::RESPONSE_CANCEL);
  EXPECT_EQ(IconsOf(window), (Icons{"in-progress", "pending"}));
  build.reset();
  EXPECT_TRUE(GroupIsGone(group));
  EXPECT_TRUE(e2e::ProcessesWith("sleep").empty());
  EXPECT_EQ(e2e::ServiceCalls(), std::vector<std::string>{"stop"});
  EXPECT_TRUE(user->seen.empty());
}

TEST_F(BuildTest, EndsACompilationOnCancel) {
  product.Module("ostlink").Source("ostlink", kStay);
  Build &window = Make();
  pid_t group = -1;
  WhenReady([&] {
    group = RunningGroup();
    EXPECT_EQ(getpgid(e2e::ProcessesWith("auto-build").front()), group);
    CancelButton(window).clicked();
  });
  EXPECT_EQ(window.Run(), Gtk::RESPONSE_CANCEL);
  build.reset();
  EXPECT_TRUE(GroupIsGone(group));
  EXPECT_TRUE(e2e::ProcessesWith("auto-build").empty());
  EXPECT_EQ(e2e::ServiceCalls(), std::vector<std::string>{"stop"});
}

TEST_F(BuildTest, ShowsNoFailureOfATaskThatEndsAtTheMomentOfTheCancel) {
  product.Service(std::string(kStayWhileReady) + "; exit 1");
  Build &window = Make();
  WhenReady([&] { CloseAsTaskEnds(window); });
  EXPECT_EQ(window.Run(), Gtk::RESPONSE_DELETE_EVENT);
  EXPECT_EQ(IconsOf(window), (Icons{"in-progress", "pending"}));
  EXPECT_TRUE(user->seen.empty());
}

TEST_F(BuildTest, StartsNoTaskBehindOneThatEndsAtTheMomentOfTheCancel) {
  product.Service(kStayWhileReady).Module("ostlink").Source("ostlink");
  Build &window = Make();
  WhenReady([&] { CloseAsTaskEnds(window); });
  EXPECT_EQ(window.Run(), Gtk::RESPONSE_DELETE_EVENT);
  EXPECT_EQ(IconsOf(window), (Icons{"in-progress", "pending", "pending"}));
}

TEST_F(BuildTest, IsCancelledWhenTheLastTaskEndsAtThatMoment) {
  product.Service(std::string("test $1 = stop && exit; ") + kStayWhileReady);
  Build &window = Make();
  WhenReady([&] { CloseAsTaskEnds(window); });
  EXPECT_EQ(window.Run(), Gtk::RESPONSE_DELETE_EVENT);
  EXPECT_EQ(IconsOf(window), (Icons{"success", "in-progress"}));
}

TEST_F(BuildTest, CancelsWhenTheUserClosesTheWindow) {
  product.Service(kStay);
  Build &window = Make();
  pid_t group = -1;
  WhenReady([&] {
    group = RunningGroup();
    WhenVisible([&] { desktop->display.CloseWindow(kTitle); });
  });
  EXPECT_EQ(window.Run(), Gtk::RESPONSE_DELETE_EVENT);
  build.reset();
  EXPECT_TRUE(GroupIsGone(group));
}

TEST_F(BuildTest, CancelsWhenTheUserPressesEscape) {
  product.Service(kStay);
  Build &window = Make();
  pid_t group = -1;
  WhenReady([&] {
    group = RunningGroup();
    WhenVisible([&] {
      // Beside the main loop, since a window takes the focus by answering.
      if (fork() == 0) {
        desktop->display.Keys(kTitle, "Escape");
        _exit(0);
      }
    });
  });
  EXPECT_EQ(window.Run(), Gtk::RESPONSE_DELETE_EVENT);
  build.reset();
  EXPECT_TRUE(GroupIsGone(group));
}

TEST_F(BuildTest, LeavesTheChildAloneForOtherResponses) {
  product.Service(std::string("test $1 = start && exit; ") + kStayWhileReady);
  Build &window = Make();
  WhenReady([&] {
    const pid_t group = getpgid(e2e::ProcessesWith("ostrel-tools").front());
    window.OnResponse(Gtk::RESPONSE_YES, group);
    window.OnResponse(Gtk::RESPONSE_NO, group);
    unlink(kReady);
  });
  EXPECT_EQ(window.Run(), Gtk::RESPONSE_YES);
}

TEST_F(BuildTest, TimesAServiceTaskUntilItsEnd) {
  product.Service(std::string("test $1 = start && exit; ") + kStayWhileReady);
  product.Module("ostlink").Source("ostlink", kStayWhileReady);
  Build &window = Make();
  std::vector<gint64> whileStopping;
  std::vector<gint64> whileCompiling{0};
  WhenReady([&] {
    whileStopping = LongTimers();
    unlink(kReady);
    WhenReady([&] {
      whileCompiling = LongTimers();
      unlink(kReady);
    });
  });
  EXPECT_EQ(window.Run(), Gtk::RESPONSE_YES);
  ASSERT_EQ(whileStopping.size(), 1U);
  EXPECT_GT(whileStopping.front(), 500000);
  EXPECT_LE(whileStopping.front(), 600000);
  EXPECT_TRUE(whileCompiling.empty());
  EXPECT_TRUE(LongTimers().empty());
}

TEST_F(BuildTest, EndsAServiceTaskWhoseTimeIsUp) {
  product.Service(kStay);
  Build &window = Make();
  WhenReady([&] { EXPECT_FALSE(window.OnTimeout(RunningGroup())); });
  EXPECT_EQ(window.Run(), Gtk::RESPONSE_NO);
  ExpectBox("Unable to stop services.");
  EXPECT_TRUE(e2e::ProcessesWith("sleep").empty());
}

TEST_F(BuildTest, CountsAScriptThatEndsWellWhenItsTimeIsUpAsASuccess) {
  product.Service(
      "test $1 = start && exit; trap 'exit 0' TERM; echo ready >/run/ready; while :; do sleep 0.1; done");
  Build &window = Make();
  WhenReady([&] { window.OnTimeout(getpgid(e2e::ProcessesWith("ostrel-tools").front())); });
  EXPECT_EQ(window.Run(), Gtk::RESPONSE_YES);
  EXPECT_EQ(IconsOf(window), (Icons{"success", "success"}));
}

TEST_F(BuildTest, DoesAllOverOnASecondAttempt) {
  product.Module("ostlink");
  EXPECT_EQ(Make().Run(), Gtk::RESPONSE_NO);
  build.reset();
  product.Source("ostlink");
  Build second(*parent, modules, "/usr/bin/gcc", "/lib/modules/" + e2e::Kernel().release + "/build/include");
  EXPECT_EQ(second.Run(), Gtk::RESPONSE_YES);
  EXPECT_EQ(e2e::ServiceCalls(), (std::vector<std::string>{"stop", "stop", "start"}));
}

TEST_F(BuildTest, StopsTheProgramWithoutATask) {
  Build &window = Make();
  EXPECT_EXIT(window.OnTaskFinished(0, 0, nullptr), testing::ExitedWithCode(255),
              "ASSERT apps/kernprep/build.cc:[0-9]+");
}

// Runs the window in a process of its own, which `action` ends in mid-run; returns that process's wait
// status.
class BuildProcessTest : public BuildTest {
 protected:
  int RunAndEnd(const std::function<void()> &action) {
    product.Service(kStay);
    const pid_t pid = fork();
    if (pid == 0) {
      Build &window = Make();
      WhenReady([&] {
        testhost::WriteFile("/run/group", std::to_string(RunningGroup()));
        action();
      });
      window.Run();
      _exit(99);
    }
    int status = -1;
    waitpid(pid, &status, 0);
    return status;
  }

  static pid_t Group() { return std::stoi(testhost::ReadFile("/run/group")); }
};

TEST_F(BuildProcessTest, LeavesNoWorkBehindWhenTheProcessExits) {
  EXPECT_EQ(WEXITSTATUS(RunAndEnd([] { std::exit(3); })), 3);
  EXPECT_TRUE(GroupIsGone(Group()));
  EXPECT_TRUE(e2e::ProcessesWith("sleep").empty());
}

TEST_F(BuildProcessTest, LeavesNoWorkBehindWhenTheDisplayGoesAway) {
  EXPECT_EQ(WEXITSTATUS(RunAndEnd([this] { desktop->display.Kill(); })), 1);
  EXPECT_TRUE(GroupIsGone(Group()));
  EXPECT_TRUE(e2e::ProcessesWith("sleep").empty());
}

}  // namespace
}  // namespace kernprep
