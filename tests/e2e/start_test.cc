#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>

#include "product.h"
#include "windows.h"

using testhost::ReadFile;
using testhost::Run;
using testhost::WriteFile;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace e2e {
namespace {

constexpr char kUsersTemp[] = "/tmp/ostrel-person";

const std::vector<std::string> kProductOptions = {"--launcher=/bin/true", "--icon=product",
                                                  "--appname=Ostrel Bench"};

// A host whose product has one module, which is installed already.
class StartTest : public testing::Test {
 protected:
  void Enter() {
    testhost::Host host;
    Enter(host);
  }
  void Enter(testhost::Host &host) {
    kernel_.Describe(host);
    host.Enter();
    Product().Module("ostlink").Write();
    WriteFile(kernel_.ModulePath("ostlink"), "object\n");
  }

  // Runs the tool to its end past one error box.
  static int RunPastBox(Desktop &desktop, Tool &tool) {
    EXPECT_TRUE(desktop.Answer("Error", "Return")) << tool.Output();
    return tool.Wait();
  }

  Kernel kernel_;
};

// Everything that belongs to the product and to the kernel, as far as a change would show.
std::string SystemState(const Kernel &kernel) {
  std::string state;
  Run("find /etc/ostrel-tools /usr/lib/ostrel-tools /lib/modules/" + kernel.release +
          " -printf '%p %y %s %i %T@ %m\\n' | sort; cat " + kJournal,
      &state);
  return state;
}

void MountOn(const std::string &directory, const char *options, unsigned long flags = 0) {
  std::filesystem::create_directories(directory);
  ASSERT_EQ(mount("tmpfs", directory.c_str(), "tmpfs", flags, options), 0) << strerror(errno);
  if (flags == 0) {
    ASSERT_EQ(chown(directory.c_str(), kUser, kUser), 0);
  }
}

TEST_F(StartTest, EndsWithoutAWindowWhenNothingIsMissing) {
  Enter();
  Desktop desktop;
  for (const uid_t user : {uid_t{0}, kUser}) {
    Tool tool({"--gcc=/no/such/gcc", "--headers=/no/such/headers", "--gcc-ignore-minor"}, user);
    EXPECT_EQ(tool.Wait(), 0) << tool.Output();
    EXPECT_THAT(tool.Log(), HasSubstr("kprep library initialized\n"));
  }
  EXPECT_THAT(desktop.history.Seen(), IsEmpty());
  EXPECT_THAT(testhost::Calls("gcc"), IsEmpty());
  EXPECT_THAT(ServiceCalls(), IsEmpty());
}

TEST_F(StartTest, SaysWhereItLogsAndCleansItsScratchDirectory) {
  Enter();
  const testhost::Display display;
  Tool tool;
  const pid_t pid = tool.Pid();
  EXPECT_EQ(tool.Wait(), 0);
  const std::string path = "/tmp/ostrel-root/setup-" + std::to_string(pid) + ".log";
  EXPECT_EQ(tool.Output(), "Logging to " + path + "\n");
  EXPECT_THAT(ReadFile(path), HasSubstr("| Logging to " + path + "\n"));
  EXPECT_FALSE(std::filesystem::exists("/tmp/ostrel-root/modules"));
}

TEST_F(StartTest, ReadsTheSettingsBeforeItsLogBegins) {
  Enter();
  const testhost::Display display;
  WriteFile("/etc/ostrel/config", "disableUserPreferences = perhaps\n");
  Tool tool;
  EXPECT_EQ(tool.Wait(), 0);
  EXPECT_THAT(tool.Output(),
              HasSubstr("Value \"perhaps\" for variable \"disableUserPreferences\" is not a valid boolean "
                        "value. Using value \"FALSE\".\n"));
  EXPECT_THAT(tool.Output(), EndsWith("Logging to " + tool.LogPath() + "\n"));
  EXPECT_THAT(tool.Log(), Not(HasSubstr("PREF early")));
}

TEST_F(StartTest, GoesOnWithSettingsOfTheWrongType) {
  Enter();
  const testhost::Display display;
  std::string settings;
  for (const char *key : {"disableUserPreferences",
                          "logging",
                          "log.append",
                          "log.keepold",
                          "log.keep",
                          "log.rotateSize",
                          "log.fastRotation",
                          "log.timeStamp",
                          "log.millisec",
                          "log.threadName",
                          "log.throttleThreshold",
                          "log.throttleBytesPerSec",
                          "log.noLogAfterThreshold",
                          "log.guestThrottleThreshold",
                          "log.guestThrottleBytesPerSec",
                          "log.guestNoLogAfterThreshold",
                          "msg.autoAnswer",
                          "msg.noOK",
                          "msg.noOKnoWarning",
                          "filePosix.coalesce.enable",
                          "filePosix.coalesce.aligned",
                          "filePosix.coalesce.count",
                          "filePosix.coalesce.size",
                          "aiomgr.numThreads",
                          "coreDumpOnPanic",
                          "panic.loopOnPanic",
                          "panic.breakOnPanic",
                          "coreDumpFlags"}) {
    settings += std::string(key) + " = \"12 monkeys\"\n";
  }
  WriteFile("/etc/ostrel/config", settings);
  Tool tool;
  EXPECT_EQ(tool.Wait(), 0);
  for (const auto &[key, type, value] : std::vector<std::array<std::string, 3>>{
           {"disableUserPreferences", "boolean", "FALSE"},
           {"logging", "boolean", "TRUE"},
           {"log.append", "boolean", "FALSE"},
           {"log.keepold", "integer", "3"},
           {"log.keep", "integer", "-1"},
           {"log.rotateSize", "integer", "0"},
           {"log.timeStamp", "boolean", "TRUE"},
           {"log.millisec", "boolean", "TRUE"},
           {"log.threadName", "boolean", "TRUE"},
           {"log.throttleThreshold", "integer", "1000000"},
           {"log.throttleBytesPerSec", "integer", "-1"},
           {"log.noLogAfterThreshold", "boolean", "FALSE"},
           {"msg.autoAnswer", "boolean", "FALSE"},
           {"msg.noOK", "boolean", "FALSE"},
       }) {
    std::string warning = "Value \"12 monkeys\" for variable \"";
    warning += key;
    warning += "\" is not a valid ";
    warning += type;
    warning += " value. Using value \"";
    warning += value;
    warning += "\".\n";
    EXPECT_THAT(tool.Output(), HasSubstr(warning));
  }
  EXPECT_THAT(tool.Output(), EndsWith("Logging to " + tool.LogPath() + "\n"));
  EXPECT_THAT(tool.Log(), HasSubstr("kprep library initialized\n"));
}

TEST_F(StartTest, LogsWhereTheSettingsSay) {
  Enter();
  const testhost::Display display;
  WriteFile("/etc/ostrel/config", "setup.log.filename = \"/var/log/setup.log\"\n");
  std::filesystem::create_directories("/var/log");
  WriteFile("/var/log/setup.log", "last run\n");
  Tool tool;
  EXPECT_EQ(tool.Wait(), 0);
  EXPECT_EQ(tool.Output(), "Logging to /var/log/setup.log\n");
  EXPECT_THAT(ReadFile("/var/log/setup.log"), HasSubstr("| Logging to /var/log/setup.log\n"));
  EXPECT_THAT(ReadFile("/var/log/setup.log"), HasSubstr("| kprep library initialized\n"));
  EXPECT_EQ(ReadFile("/var/log/setup-0.log"), "last run\n");
  EXPECT_FALSE(std::filesystem::exists("/tmp/ostrel-root/setup-" + std::to_string(tool.Pid()) + ".log"));
}

TEST_F(StartTest, KeepsBadSettingsFilesFromTheUser) {
  Enter();
  const testhost::Display display;
  WriteFile("/etc/ostrel/config", "?\n");
  WriteFile("/root/.ostrel/preferences", "?\n");
  Tool tool({}, 0, {"HOME=/root"});
  EXPECT_EQ(tool.Wait(), 0);
  EXPECT_EQ(tool.Output(), "Logging to " + tool.LogPath() + "\n");
}

TEST_F(StartTest, RefusesACommandLineWithoutAWindow) {
  Enter();
  Desktop desktop;
  struct Case {
    std::vector<std::string> arguments;
    std::string complaint;
  };
  const std::vector<Case> cases = {
      {{}, "Path to launcher is required.\n"},
      {{"--gcc=/usr/bin/gcc", "--icon=product", "--appname=Bench"}, "Path to launcher is required.\n"},
      {{"--launcher=", "--icon=product", "--appname=Bench"}, "Path to launcher is required.\n"},
      {{"--launcher=/bin/true"}, "Icon name must be set.\n"},
      {{"--launcher=/bin/true", "--icon=", "--appname=Bench"}, "Icon name must be set.\n"},
      {{"--launcher=/bin/true", "--icon=product"}, "Application name must be set.\n"},
      {{"--launcher=/bin/true", "--icon=product", "--appname="}, "Application name must be set.\n"},
      {{"--frobnicate"}, "Failed to parse options.\nUnknown option --frobnicate\n"},
      {{"-z"}, "Failed to parse options.\nUnknown option -z\n"},
      {{"--launcher"}, "Failed to parse options.\nMissing argument for --launcher\n"},
  };
  for (const Case &each : cases) {
    SCOPED_TRACE(testing::PrintToString(each.arguments));
    Tool tool = Tool::Bare(each.arguments);
    EXPECT_EQ(tool.Wait(), 2);
    EXPECT_EQ(tool.Output(), "Logging to " + tool.LogPath() + "\n" + each.complaint);
    const std::string firstLine = each.complaint.substr(0, each.complaint.find('\n'));
    EXPECT_THAT(tool.Log(), HasSubstr("| " + firstLine + "\n"));
  }
  EXPECT_THAT(desktop.history.Seen(), IsEmpty());
}

TEST_F(StartTest, ListsItsOptions) {
  Enter();
  const testhost::Display display;
  Tool tool = Tool::Bare({"--help"});
  EXPECT_EQ(tool.Wait(), 0);
  EXPECT_THAT(tool.Output(), HasSubstr("Application Options:\n"
                                       "  --launcher=LAUNCHER      Path to launcher script\n"
                                       "  --icon=PATH              Icon name\n"
                                       "  --appname=NAME           Application name to use\n"
                                       "  --gcc=GCC                Path to GCC\n"
                                       "  --headers=HEADERS        Path to kernel headers\n"
                                       "  --gcc-ignore-minor       Accept minor incompatibilities with gcc\n"
                                       "  --display=DISPLAY        X display to use\n"));
}

TEST_F(StartTest, AsksForTheConfigurationBeforeItOpensTheJournal) {
  Enter();
  WriteFile("/etc/ostrel-tools/not_configured", "");
  std::filesystem::remove(kJournal);
  Desktop desktop;
  Tool tool;
  EXPECT_EQ(RunPastBox(desktop, tool), 1);
  EXPECT_EQ(tool.Output(), "Logging to " + tool.LogPath() + "\n");
  EXPECT_THAT(desktop.history.Seen(), ElementsAre(kBox));
}

TEST_F(StartTest, ChecksTheCommandLineBeforeTheConfiguration) {
  Enter();
  WriteFile("/etc/ostrel-tools/not_configured", "");
  Desktop desktop;
  Tool tool = Tool::Bare({"--launcher=/bin/true", "--icon=product"});
  EXPECT_EQ(tool.Wait(), 2);
  EXPECT_THAT(desktop.history.Seen(), IsEmpty());
}

constexpr char kNoJournal[] = "Unable to initialize installer database\n";

TEST_F(StartTest, CannotStartWithoutAUsableJournal) {
  Enter();
  Desktop desktop;
  const std::string binDir = "answer BINDIR /b\n";
  const std::string libDir = "answer LIBDIR /l\n";
  const std::string initDir = "answer INITSCRIPTSDIR /i\n";
  const std::vector<std::string> journals = {
      "",
      "nothing that it knows\n",
      libDir + initDir,
      binDir + initDir,
      binDir + libDir,
      binDir + libDir + "answer INITSCRIPTSDIR\n",
      binDir + libDir + initDir + "remove_answer LIBDIR\n",
      binDir + libDir + "answer INITSCRIPTSDIR /no/newline/at/the/end",
  };
  for (const std::string &journal : journals) {
    SCOPED_TRACE(journal);
    WriteFile(kJournal, journal);
    Tool tool;
    EXPECT_EQ(RunPastBox(desktop, tool), 1);
    EXPECT_THAT(tool.Output(), EndsWith(tool.LogPath() + "\n" + kNoJournal));
    EXPECT_EQ(ReadFile(kJournal), journal);
  }
  EXPECT_EQ(desktop.history.Seen(), std::vector<std::string>(journals.size(), kBox));
}

TEST_F(StartTest, CannotStartWhenTheJournalCannotBeOpened) {
  Enter();
  Desktop desktop;
  chmod(kJournal, 0600);
  Tool user({}, kUser);
  EXPECT_EQ(RunPastBox(desktop, user), 1);
  EXPECT_THAT(user.Output(),
              EndsWith("Couldn't open /etc/ostrel-tools/locations! Failure!\n" + std::string(kNoJournal)));
  std::filesystem::remove(kJournal);
  Tool root;
  EXPECT_EQ(RunPastBox(desktop, root), 1);
  EXPECT_THAT(root.Output(),
              EndsWith("Couldn't open /etc/ostrel-tools/locations! Failure!\n" + std::string(kNoJournal)));
  EXPECT_FALSE(std::filesystem::exists(kJournal));
  EXPECT_THAT(desktop.history.Seen(), ElementsAre(kBox, kBox));
}

constexpr char kNoEngine[] = "Unable to initialize module building library\n";

TEST_F(StartTest, CannotStartOnAKernelWhoseReleaseHasTwoNumbers) {
  kernel_.release = "3.0";
  Enter();
  Desktop desktop;
  Tool tool;
  EXPECT_EQ(RunPastBox(desktop, tool), 1);
  EXPECT_THAT(tool.Output(), EndsWith(tool.LogPath() + "\n" + kNoEngine));
  EXPECT_THAT(tool.Log(), HasSubstr("| Unable to initialize kprep query library\n"));
  EXPECT_THAT(desktop.history.Seen(), ElementsAre(kBox));
}

TEST_F(StartTest, CannotStartWithoutAScratchDirectory) {
  Enter();
  MountOn(kUsersTemp, "mode=0700,nr_inodes=2");  // its root and the log
  Desktop desktop;
  Tool tool({}, kUser);
  EXPECT_EQ(RunPastBox(desktop, tool), 1);
  EXPECT_THAT(tool.Output(), EndsWith(tool.LogPath() + "\n" + kNoEngine));
}

constexpr char kNoLog[] = "Unable to initialize logging library\n";

TEST_F(StartTest, CannotStartWhenTheLogHasNoPlace) {
  Enter();
  Desktop desktop;
  MountOn(kUsersTemp, "mode=0700,nr_inodes=1");
  Tool user({}, kUser);
  EXPECT_EQ(RunPastBox(desktop, user), 1);
  EXPECT_THAT(user.Output(), EndsWith(kNoLog));
  MountOn("/tmp/ostrel-root", "mode=0700", MS_RDONLY);
  Tool root;
  EXPECT_EQ(RunPastBox(desktop, root), 1);
  EXPECT_THAT(root.Output(), EndsWith(kNoLog));
  EXPECT_THAT(desktop.history.Seen(), ElementsAre(kBox, kBox));
}

TEST_F(StartTest, StopsWhenThereIsNoDirectoryForTheLog) {
  Enter();
  Desktop desktop;
  chmod("/tmp", 0755);
  Tool tool({}, kUser, {"HOME=/no/such/home", "TMPDIR=/no/such/directory"});
  EXPECT_EQ(tool.Wait(), 255);
  EXPECT_THAT(tool.Output(), HasSubstr("Cannot get temporary directory for log file.\n"));
  EXPECT_THAT(desktop.history.Seen(), IsEmpty());
}

TEST_F(StartTest, TellsOnlyTheLogThatTheModuleListCannotBeRead) {
  Enter();
  Desktop desktop;
  const std::string list = std::string(kLibDir) + "/modules/modules.xml";
  WriteFile(list, "<modules><module name=");
  Tool malformed;
  EXPECT_EQ(malformed.Wait(), 2);
  EXPECT_THAT(malformed.Log(), HasSubstr("| Unable to load kernel module list from " + list + "\n"));
  std::filesystem::remove(list);
  Tool missing({}, kUser);
  EXPECT_EQ(missing.Wait(), 2);
  EXPECT_THAT(missing.Output(), Not(HasSubstr("Unable to load")));
  EXPECT_THAT(missing.Log(), HasSubstr("| Unable to load kernel module list from " + list + "\n"));
  EXPECT_THAT(desktop.history.Seen(), IsEmpty());
}

TEST_F(StartTest, RemovesTheLogsOfEarlierRuns) {
  Enter();
  const testhost::Display display;
  const std::string directory = "/tmp/ostrel-root/";
  Tool first;
  ASSERT_EQ(first.Wait(), 0);
  const std::vector<std::string> removed = {"setup.log", "setup-1.log", "setup-99999-and-more.log"};
  const std::vector<std::string> kept = {"setup-1.txt", "setup-1.log.old", "my-setup-1.log", "Setup-1.log"};
  for (const auto &names : {removed, kept}) {
    for (const std::string &name : names) {
      WriteFile(directory + name, "old\n");
    }
  }
  Tool second;
  ASSERT_EQ(second.Wait(), 0);
  EXPECT_FALSE(std::filesystem::exists(first.LogPath()));
  for (const std::string &name : removed) {
    EXPECT_FALSE(std::filesystem::exists(directory + name)) << name;
  }
  for (const std::string &name : kept) {
    EXPECT_EQ(ReadFile(directory + name), "old\n") << name;
  }
  EXPECT_TRUE(std::filesystem::exists(second.LogPath()));
}

TEST_F(StartTest, TouchesNothingWithoutADisplay) {
  Enter();
  std::filesystem::remove(kernel_.ModulePath("ostlink"));
  const std::string before = SystemState(kernel_);
  for (const char *display : {"DISPLAY=", "DISPLAY=:987"}) {
    Tool tool({}, 0, {display});
    EXPECT_EQ(tool.Wait(), 1);
    EXPECT_THAT(tool.Output(), HasSubstr("cannot open display: "));
    EXPECT_THAT(tool.LogPaths(), IsEmpty());
  }
  EXPECT_EQ(SystemState(kernel_), before);
  EXPECT_THAT(ServiceCalls(), IsEmpty());
  EXPECT_THAT(testhost::Calls("modinfo"), IsEmpty());
}

TEST_F(StartTest, EndsWhenTheDisplayGoesAway) {
  Enter();
  std::filesystem::remove(kernel_.ModulePath("ostlink"));
  testhost::Display display;
  Tool tool({}, kUser);
  ASSERT_TRUE(display.WaitForWindow(kWindowTitle));
  display.Kill();
  EXPECT_EQ(tool.Wait(), 1);
}

TEST_F(StartTest, RefusesTextThatTheLocaleCannotHold) {
  Enter();
  Desktop desktop;
  for (const char *option : {"--launcher=", "--icon=", "--appname=", "--gcc=", "--headers="}) {
    SCOPED_TRACE(option);
    std::vector<std::string> arguments = kProductOptions;
    arguments.push_back(std::string(option) + "\xc3\xa9");
    Tool tool = Tool::Bare(arguments, 0, {"LC_ALL=C"});
    EXPECT_EQ(tool.Wait(), 2) << tool.Output();
    EXPECT_THAT(tool.Output(), HasSubstr("Failed to parse options.\n"));
  }
  EXPECT_THAT(desktop.history.Seen(), IsEmpty());
}

TEST_F(StartTest, ReadsItsArgumentsInTheEncodingOfFileNames) {
  Enter();
  Desktop desktop;
  const std::vector<std::string> latin1 = {"LC_ALL=C.UTF-8", "G_FILENAME_ENCODING=ISO-8859-1"};
  Tool refusing = Tool::Bare({"--caf\xe9"}, 0, latin1);
  EXPECT_EQ(refusing.Wait(), 2);
  EXPECT_THAT(refusing.Output(), HasSubstr("Unknown option --caf\xc3\xa9\n"));

  Tool tool({"--appname=caf\xe9", "--gcc=/opt/\xfc/gcc"}, 0, latin1);
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
}

TEST_F(StartTest, ReadsArgumentsUpToWhatIsNoText) {
  Enter();
  Desktop desktop;
  Tool tool =
      Tool::Bare({"--launcher=/bin/true", "--icon=product", "--appname=\xff more"}, 0, {"LC_ALL=C.UTF-8"});
  EXPECT_EQ(tool.Wait(), 2);
  EXPECT_THAT(tool.Output(), HasSubstr("Application name must be set.\n"));
}

TEST_F(StartTest, StopsAtArgumentsThatEndInHalfACharacter) {
  Enter();
  Desktop desktop;
  Tool tool({"--gcc=a\xc3"}, 0, {"LC_ALL=C.UTF-8"});
  EXPECT_EQ(tool.Wait(), 255);
  EXPECT_THAT(tool.Output(), HasSubstr("PANIC lib/unicode/unicodeStrings.cc:"));
  EXPECT_THAT(desktop.history.Seen(), IsEmpty());
}

TEST_F(StartTest, StopsWhereTheEncodingOfFileNamesIsUnknown) {
  Enter();
  Desktop desktop;
  Tool tool({}, 0, {"G_FILENAME_ENCODING=no-such-set"});
  EXPECT_EQ(tool.Wait(), 255);
  // The old logs are looked for before the start-up of the string layer, and they have names.
  EXPECT_THAT(tool.Output(), StartsWith("ASSERT lib/unicode/unicodeNames.cc:"));
}

TEST_F(StartTest, IgnoresWordsThatAreNoOptions) {
  Enter();
  Desktop desktop;
  std::vector<std::string> arguments = kProductOptions;
  arguments.insert(arguments.end(), {"word", "\xff\xfe", ""});
  Tool tool = Tool::Bare(arguments, 0, {"LC_ALL=C.UTF-8"});
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
}

TEST_F(StartTest, FindsAProductBelowADirectoryThatIsNoUtf8) {
  Enter();
  Desktop desktop;
  const std::string libDir = "/opt/\xff-lib";
  std::filesystem::create_directories("/opt");
  std::filesystem::create_directory_symlink(kLibDir, libDir);
  WriteFile(kJournal, "answer BINDIR /opt/\xfe\nanswer LIBDIR " + libDir + "\nanswer INITSCRIPTSDIR /i\n");
  Tool tool({}, 0, {"LC_ALL=C.UTF-8"});
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  std::filesystem::remove(libDir);
  Tool missing({}, 0, {"LC_ALL=C.UTF-8"});
  EXPECT_EQ(missing.Wait(), 2) << missing.Output();
  EXPECT_THAT(desktop.history.Seen(), IsEmpty());
}

TEST_F(StartTest, WaitsForTheJournalNoLongerThanItsLockAllows) {
  Enter();
  std::filesystem::remove(kernel_.ModulePath("ostlink"));
  Product().Source("ostlink").Service("while test ! -e /run/go; do sleep 0.05; done");
  Desktop desktop;
  Tool first;
  ASSERT_TRUE(Eventually([] { return !ServiceCalls().empty(); }));
  Tool second;
  EXPECT_EQ(RunPastBox(desktop, second), 1);
  EXPECT_THAT(second.Output(), HasSubstr("Couldn't open /etc/ostrel-tools/locations! Failure!\n"));
  EXPECT_THAT(second.Output(), EndsWith(kNoJournal));
  WriteFile("/run/go", "");
  EXPECT_EQ(first.Wait(), 0) << first.Output();
  EXPECT_EQ(ReadFile(kernel_.ModulePath("ostlink")), "object\n");
  Tool third;
  EXPECT_EQ(third.Wait(), 0) << third.Output();
}

}  // namespace
}  // namespace e2e
