#include "options.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "testDesktop.h"

namespace {

struct Outcome {
  bool usable;
  Glib::ustring launcher, gcc, headers, icon, appName;
  bool ignoreMinor;
  std::vector<std::string> rest;  // of the argument vector
  std::string errors;             // on standard error
};

Outcome Parse(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "ostrel-kernprep");
  std::vector<char *> pointers;
  pointers.reserve(arguments.size() + 1);
  for (std::string &argument : arguments) {
    pointers.push_back(argument.data());
  }
  pointers.push_back(nullptr);
  int argc = static_cast<int>(arguments.size());
  char **argv = pointers.data();
  Outcome outcome{};
  testing::internal::CaptureStderr();
  outcome.usable = ParseOptions(argc, argv, outcome.launcher, outcome.gcc, outcome.headers, outcome.icon,
                                outcome.appName, outcome.ignoreMinor);
  outcome.errors = testing::internal::GetCapturedStderr();
  outcome.rest.assign(argv + 1, argv + argc);
  return outcome;
}

class ParseOptionsTest : public testing::Test {
 protected:
  ParseOptionsTest() {
    testhost::Host().Enter();
    desktop = std::make_unique<kernprep::TestDesktop>();
  }

  std::unique_ptr<kernprep::TestDesktop> desktop;
};

TEST_F(ParseOptionsTest, TakesAllSix) {
  const Outcome outcome =
      Parse({"--gcc=/usr/bin/gcc", "--icon", "product", "--gcc-ignore-minor", "--appname=Ostrel's \"Bench\"",
             "--launcher=/opt/my launcher", "--headers", "/usr/src/linux"});
  EXPECT_TRUE(outcome.usable);
  EXPECT_EQ(outcome.launcher, "/opt/my launcher");
  EXPECT_EQ(outcome.icon, "product");
  EXPECT_EQ(outcome.appName, "Ostrel's \"Bench\"");
  EXPECT_EQ(outcome.gcc, "/usr/bin/gcc");
  EXPECT_EQ(outcome.headers, "/usr/src/linux");
  EXPECT_TRUE(outcome.ignoreMinor);
  EXPECT_TRUE(outcome.rest.empty());
  EXPECT_EQ(outcome.errors, "");
}

TEST_F(ParseOptionsTest, NeedsOnlyTheMandatoryThree) {
  const Outcome outcome = Parse({"--launcher=l", "--icon=i", "--appname=a"});
  EXPECT_TRUE(outcome.usable);
  EXPECT_EQ(outcome.gcc, "");
  EXPECT_EQ(outcome.headers, "");
  EXPECT_FALSE(outcome.ignoreMinor);
}

TEST_F(ParseOptionsTest, LeavesOtherArgumentsInTheVector) {
  const Outcome outcome = Parse({"more", "--launcher=l", "--icon=i", "--appname=a", "words"});
  EXPECT_TRUE(outcome.usable);
  EXPECT_EQ(outcome.rest, (std::vector<std::string>{"more", "words"}));
}

TEST_F(ParseOptionsTest, AcceptsTheToolkitsOptions) {
  const Outcome outcome = Parse({"--launcher=l", "--icon=i", "--appname=a", "--class=Updater"});
  EXPECT_TRUE(outcome.usable);
  EXPECT_STREQ(gdk_get_program_class(), "Updater");
}

TEST_F(ParseOptionsTest, RefusesAMissingLauncherBeforeAnythingElseThatIsMissing) {
  const Outcome outcome = Parse({});
  EXPECT_FALSE(outcome.usable);
  EXPECT_EQ(outcome.errors, "Path to launcher is required.\n");
}

TEST_F(ParseOptionsTest, RefusesAnEmptyLauncher) {
  const Outcome outcome = Parse({"--launcher=", "--icon=i", "--appname=a"});
  EXPECT_FALSE(outcome.usable);
  EXPECT_EQ(outcome.errors, "Path to launcher is required.\n");
}

TEST_F(ParseOptionsTest, RefusesAMissingIconBeforeAMissingName) {
  const Outcome outcome = Parse({"--launcher=l"});
  EXPECT_FALSE(outcome.usable);
  EXPECT_EQ(outcome.errors, "Icon name must be set.\n");
}

TEST_F(ParseOptionsTest, RefusesAMissingName) {
  const Outcome outcome = Parse({"--launcher=l", "--icon=i"});
  EXPECT_FALSE(outcome.usable);
  EXPECT_EQ(outcome.errors, "Application name must be set.\n");
}

TEST_F(ParseOptionsTest, RefusesAnUnknownOptionAndLogsIt) {
  const Outcome outcome = Parse({"--launcher=l", "--icon=i", "--appname=a", "--verbose"});
  EXPECT_FALSE(outcome.usable);
  EXPECT_EQ(outcome.errors, "Failed to parse options.\nUnknown option --verbose\n");
  EXPECT_NE(kernprep::TestLog().find("Unknown option --verbose"), std::string::npos);
}

TEST_F(ParseOptionsTest, RefusesAnOptionWithoutItsValue) {
  const Outcome outcome = Parse({"--icon=i", "--appname=a", "--launcher"});
  EXPECT_FALSE(outcome.usable);
  EXPECT_EQ(outcome.errors, "Failed to parse options.\nMissing argument for --launcher\n");
}

TEST_F(ParseOptionsTest, HasNoShortNames) {
  const Outcome outcome = Parse({"--icon=i", "--appname=a", "-l", "x"});
  EXPECT_FALSE(outcome.usable);
  EXPECT_EQ(outcome.errors, "Failed to parse options.\nUnknown option -l\n");
}

TEST_F(ParseOptionsTest, RefusesAValueThatTheLocaleCannotHold) {
  const Outcome outcome = Parse({"--launcher=l", "--icon=i", "--appname=\xff"});
  EXPECT_FALSE(outcome.usable);
  EXPECT_EQ(outcome.errors.find("Failed to parse options.\n"), 0U) << outcome.errors;
}

TEST_F(ParseOptionsTest, ListsTheSixInOrderInItsHelp) {
  const pid_t pid = fork();
  if (pid == 0) {
    ASSERT_NE(freopen("/tmp/help", "w", stdout), nullptr);
    Parse({"--help"});
    _exit(99);
  }
  int status = -1;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_EQ(status, 0);
  const std::string help = testhost::ReadFile("/tmp/help");
  size_t from = 0;
  for (const char *line :
       {"--launcher=LAUNCHER", "Path to launcher script", "--icon=PATH", "Icon name", "--appname=NAME",
        "Application name to use", "--gcc=GCC", "Path to GCC", "--headers=HEADERS", "Path to kernel headers",
        "--gcc-ignore-minor", "Accept minor incompatibilities with gcc", "--display=DISPLAY"}) {
    const size_t at = help.find(line, from);
    ASSERT_NE(at, std::string::npos) << line << " in\n" << help;
    from = at;
  }
}

}  // namespace
