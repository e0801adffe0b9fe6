#include "browser.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <sstream>
#include <string>
#include <thread>

#include "installerdb.h"
#include "preference.h"
#include "productState.h"
#include "testDesktop.h"
#include "testhost.h"

namespace kernprep {
namespace {

constexpr char kPage[] = "help/index.html";
constexpr char kUrl[] = "file:/opt/ostrel/lib/help/index.html";
constexpr char kRemoteRequest[] = "openURL(file:/opt/ostrel/lib/help/index.html, new-window)";
constexpr char kStarted[] = "/tmp/started";

// What every browser notes of itself. The note comes by a rename, so that it is there as a whole.
constexpr char kNote[] =
    "output=$(readlink /proc/$$/fd/1)\nerror=$(readlink /proc/$$/fd/2)\n"
    "{ id -u; id -g; echo \"$output\"; echo \"$error\"; pwd; printenv; } > /tmp/starting\n"
    "mv /tmp/starting /tmp/started\n";
// One that runs already takes a -remote request; nothing is noted then.
constexpr char kTakesRemote[] = "[ \"$1\" = -remote ] && exit 0\n";
constexpr char kRefusesRemote[] = "[ \"$1\" = -remote ] && exit 2\n";

bool Eventually(const char *path) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (access(path, F_OK) != 0) {
    if (std::chrono::steady_clock::now() > end) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

class BrowserTest : public testing::Test {
 public:
  void SetUp() override {
    for (const char *name : {"GNOME_DESKTOP_SESSION_ID", "KDE_FULL_SESSION", "SUDO_UID", "SUDO_GID"}) {
      unsetenv(name);
    }
    host.File(
        "/etc/ostrel-tools/locations",
        "answer BINDIR /opt/ostrel/bin\nanswer LIBDIR /opt/ostrel/lib\nanswer INITSCRIPTSDIR /etc/init.d\n");
    for (const char *name : {"mozilla-firefox", "firefox", "mozilla", "netscape", "galeon", "konqueror"}) {
      host.NoProgram(name);
    }
  }
  void TearDown() override {
    Preference_Exit();
    InstallerDB_DeInit();
    Log_Exit();
  }

  // A browser on the path; `before` is what it does before it notes its start.
  BrowserTest &Has(const std::string &name, const std::string &before = "") {
    host.Program(name, before + kNote);
    return *this;
  }
  BrowserTest &Prefers(const std::string &command) {
    host.File("/etc/ostrel/config", "pref.webBrowser = \"" + command + "\"\n");
    return *this;
  }
  void Enter() {
    host.Enter();
    Log_Init(nullptr, "setup.log.filename", "setup");
    Preference_DisablePolling();
    Preference_Init();
    InstallerDB_Init("/etc/ostrel-tools", geteuid() != 0);
  }
  // Opens the page, and waits for the browser that is started for it.
  static void Open(bool throughXdg = false) {
    Browser::OpenLibDirURL(kPage, throughXdg);
    ASSERT_TRUE(Eventually(kStarted));
  }
  // The page was asked of a browser that runs; none was started.
  static void ExpectRemote(const std::string &name) {
    EXPECT_EQ(testhost::Calls(name), (std::vector<testhost::Call>{{"-remote", kRemoteRequest}}));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_NE(access(kStarted, F_OK), 0);
  }
  // The lines that the browser noted: its user and group, output, error, directory, then its environment.
  static std::vector<std::string> Noted() {
    std::istringstream note(testhost::ReadFile(kStarted));
    std::vector<std::string> lines;
    for (std::string line; std::getline(note, line);) {
      lines.push_back(line);
    }
    return lines;
  }
  // A variable of the browser, or "(unset)".
  static std::string Variable(const std::string &name) {
    for (const std::string &line : Noted()) {
      if (line.starts_with(name + "=")) {
        return line.substr(name.size() + 1);
      }
    }
    return "(unset)";
  }

  testhost::Host host;
};

// ---- The choice

TEST_F(BrowserTest, AsksTheStockBrowsersInOrder) {
  Has("galeon").Has("netscape").Has("mozilla").Has("firefox").Has("mozilla-firefox", kTakesRemote).Enter();
  Browser::OpenLibDirURL(kPage, false);
  ExpectRemote("mozilla-firefox");
}

TEST_F(BrowserTest, TakesFirefoxBeforeMozilla) {
  Has("galeon").Has("netscape").Has("mozilla").Has("firefox", kTakesRemote).Enter();
  Browser::OpenLibDirURL(kPage, false);
  ExpectRemote("firefox");
}

TEST_F(BrowserTest, TakesMozillaBeforeNetscape) {
  Has("galeon").Has("netscape").Has("mozilla", kTakesRemote).Enter();
  Browser::OpenLibDirURL(kPage, false);
  ExpectRemote("mozilla");
}

TEST_F(BrowserTest, TakesNetscapeBeforeGaleon) {
  Has("galeon").Has("netscape", kTakesRemote).Enter();
  Open();
  EXPECT_EQ(testhost::Calls("netscape").back(), (testhost::Call{kUrl}));
  EXPECT_TRUE(testhost::Calls("galeon").empty());
}

TEST_F(BrowserTest, StartsGaleonWithoutAskingIt) {
  Has("galeon").Enter();
  Open();
  EXPECT_EQ(testhost::Calls("galeon"), (std::vector<testhost::Call>{{kUrl}}));
}

TEST_F(BrowserTest, StartsABrowserThatDoesNotAnswer) {
  Has("firefox", kRefusesRemote).Enter();
  Open();
  EXPECT_EQ(testhost::Calls("firefox"), (std::vector<testhost::Call>{{"-remote", kRemoteRequest}, {kUrl}}));
}

TEST_F(BrowserTest, TakesKonquerorInKde) {
  Has("konqueror").Has("firefox", kTakesRemote).Prefers("/bin/false").Enter();
  setenv("KDE_FULL_SESSION", "true", 1);
  Open();
  EXPECT_EQ(testhost::Calls("konqueror"), (std::vector<testhost::Call>{{kUrl}}));
}

TEST_F(BrowserTest, TakesKonquerorForHelpPagesToo) {
  Has("konqueror").Has("galeon").Enter();
  setenv("KDE_FULL_SESSION", "true", 1);
  Open(true);
  EXPECT_EQ(testhost::Calls("konqueror"), (std::vector<testhost::Call>{{kUrl}}));
}

TEST_F(BrowserTest, TakesKonquerorWhereTheGnomeVariableIsEmpty) {
  Has("konqueror").Has("galeon").Enter();
  setenv("KDE_FULL_SESSION", "true", 1);
  setenv("GNOME_DESKTOP_SESSION_ID", "", 1);
  Open();
  EXPECT_EQ(testhost::Calls("konqueror").size(), 1U);
}

TEST_F(BrowserTest, TakesNoKonquerorInGnome) {
  Has("konqueror").Has("galeon").Enter();
  setenv("KDE_FULL_SESSION", "true", 1);
  setenv("GNOME_DESKTOP_SESSION_ID", "this-is-deprecated", 1);
  Open();
  EXPECT_TRUE(testhost::Calls("konqueror").empty());
  EXPECT_EQ(testhost::Calls("galeon").size(), 1U);
}

TEST_F(BrowserTest, TakesNoKonquerorOutsideOfKde) {
  Has("konqueror").Has("galeon").Enter();
  setenv("KDE_FULL_SESSION", "", 1);
  Open();
  EXPECT_TRUE(testhost::Calls("konqueror").empty());
  EXPECT_EQ(testhost::Calls("galeon").size(), 1U);
}

TEST_F(BrowserTest, GoesOnInKdeWithoutKonqueror) {
  Has("galeon").Enter();
  setenv("KDE_FULL_SESSION", "true", 1);
  Open();
  EXPECT_EQ(testhost::Calls("galeon").size(), 1U);
}

TEST_F(BrowserTest, PutsTheUrlIntoAPreference) {
  Has("foo").Has("firefox").Prefers("foo --new %s --old %s").Enter();
  Open();
  EXPECT_EQ(testhost::Calls("foo"), (std::vector<testhost::Call>{{"--new", kUrl, "--old", "%s"}}));
  EXPECT_TRUE(testhost::Calls("firefox").empty());
}

TEST_F(BrowserTest, GivesAPreferenceTheUrlAsItsLastArgument) {
  host.File("/opt/my browser", std::string("#!/bin/sh\necho \"$#\" \"$1\" > /tmp/arguments\n") + kNote, 0755);
  Prefers("/opt/my browser").Enter();
  Open();
  EXPECT_EQ(testhost::ReadFile("/tmp/arguments"), std::string("1 ") + kUrl + "\n");
}

TEST_F(BrowserTest, NeverAsksAPreferredBrowser) {
  Has("firefox").Prefers("firefox").Enter();
  Open();
  EXPECT_EQ(testhost::Calls("firefox"), (std::vector<testhost::Call>{{kUrl}}));
}

TEST_F(BrowserTest, ChoosesOnce) {
  Has("galeon").Enter();
  Open();
  unlink(kStarted);
  testhost::WriteFile("/etc/ostrel/config", "pref.webBrowser = \"false\"\n");
  setenv("KDE_FULL_SESSION", "true", 1);
  testhost::WriteFile("/usr/bin/konqueror", "#!/bin/sh\n", 0755);
  Open();
  EXPECT_EQ(testhost::Calls("galeon").size(), 2U);
}

// ---- Netscape's probe, whose sense is turned round

constexpr char kProbe[] = "openURL(file:///dev/null/foo, new-window)";

TEST_F(BrowserTest, AsksNetscapeWhenItsProbeFails) {
  Has("netscape", "case \"$2\" in *null*) exit 1;; esac\n" + std::string(kTakesRemote)).Enter();
  Browser::OpenLibDirURL(kPage, false);
  EXPECT_EQ(testhost::Calls("netscape"),
            (std::vector<testhost::Call>{{"-remote", kProbe}, {"-remote", kRemoteRequest}}));
}

TEST_F(BrowserTest, StartsNetscapeWhenItsProbeSucceeds) {
  Has("netscape", kTakesRemote).Enter();
  Open();
  EXPECT_EQ(testhost::Calls("netscape"), (std::vector<testhost::Call>{{"-remote", kProbe}, {kUrl}}));
}

TEST_F(BrowserTest, ProbesAPreferredNetscape) {
  Has("netscape", kRefusesRemote).Prefers("netscape").Enter();
  Open();
  EXPECT_EQ(testhost::Calls("netscape"),
            (std::vector<testhost::Call>{{"-remote", kProbe}, {"-remote", kRemoteRequest}, {kUrl}}));
}

// It runs as the program does: no variable is put back, and root is kept.
TEST_F(BrowserTest, ProbesNetscapeQuietlyAsItself) {
  Has("netscape", "case \"$2\" in *null*) " + std::string(kNote) + "exit 1;; esac\n" + kTakesRemote).Enter();
  ASSERT_EQ(chdir("/usr/lib"), 0);
  setenv("GTK_PATH", "/opt/ostrel/gtk", 1);
  setenv("OSTREL_GTK_PATH", "0", 1);
  setenv("SUDO_UID", "4711", 1);
  Browser::OpenLibDirURL(kPage, true);
  const std::vector<std::string> noted = Noted();
  ASSERT_GE(noted.size(), 5U);
  EXPECT_EQ(noted[0], "0");
  EXPECT_EQ(noted[2], "/dev/null");
  EXPECT_EQ(noted[3], "/dev/null");
  EXPECT_EQ(noted[4], "/usr/lib");
  EXPECT_EQ(Variable("GTK_PATH"), "/opt/ostrel/gtk");
  EXPECT_EQ(Variable("THROUGHXDG"), "(unset)");
}

// ---- Without a browser

TEST_F(BrowserTest, TellsAPersonWithoutABrowserWhatToDo) {
  host.Enter();
  const TestDesktop desktop;
  InstallerDB_Init("/etc/ostrel-tools", false);
  BoxUser user;
  Browser::OpenLibDirURL(kPage, false);
  ASSERT_EQ(user.seen.size(), 1U);
  EXPECT_EQ(
      user.seen[0].text,
      std::string(ProductState_GetName()) +
          " could not find a suitable default browser and is therefore unable to provide the "
          "information you requested. Please install FireFox, Mozilla or Netscape. If you wish to use a "
          "different web browser, please place the following in your ~/.ostrel/preferences "
          "file:\n\npref.webBrowser = \"/path/to/browser\"");
  EXPECT_EQ(user.seen[0].parent, nullptr);
  // It looks anew at each click.
  testhost::WriteFile("/usr/bin/galeon", std::string("#!/bin/sh\n") + kNote, 0755);
  Open();
  EXPECT_EQ(user.seen.size(), 1U);
}

TEST_F(BrowserTest, LetsAMissingShellThrough) {
  Has("galeon").Enter();
  rename("/bin/sh", "/bin/no-sh");
  EXPECT_THROW(Browser::OpenLibDirURL(kPage, false), Glib::SpawnError);
}

// ---- What the browser gets

constexpr char kShellPath[] = "a b'c\"d;touch /tmp/ran`touch /tmp/ran`$(touch /tmp/ran)&|<>*\\%s\n\xff.html";

TEST_F(BrowserTest, PassesAnyPathAsOneArgument) {
  Has("galeon").Enter();
  Browser::OpenLibDirURL(kShellPath, false);
  ASSERT_TRUE(Eventually(kStarted));
  EXPECT_EQ(testhost::Calls("galeon"),
            (std::vector<testhost::Call>{{std::string("file:/opt/ostrel/lib/") + kShellPath}}));
  EXPECT_NE(access("/tmp/ran", F_OK), 0);
}

TEST_F(BrowserTest, PutsAnyPathAsOneArgumentIntoAPreference) {
  Has("foo").Prefers("foo -a %s -b").Enter();
  Browser::OpenLibDirURL(kShellPath, false);
  ASSERT_TRUE(Eventually(kStarted));
  EXPECT_EQ(testhost::Calls("foo"),
            (std::vector<testhost::Call>{{"-a", std::string("file:/opt/ostrel/lib/") + kShellPath, "-b"}}));
  EXPECT_NE(access("/tmp/ran", F_OK), 0);
}

TEST_F(BrowserTest, AsksForAnyPathInOneArgument) {
  Has("firefox", kTakesRemote).Enter();
  Browser::OpenLibDirURL(kShellPath, false);
  EXPECT_EQ(testhost::Calls("firefox"),
            (std::vector<testhost::Call>{
                {"-remote", std::string("openURL(file:/opt/ostrel/lib/") + kShellPath + ", new-window)"}}));
  EXPECT_NE(access("/tmp/ran", F_OK), 0);
}

TEST_F(BrowserTest, KeepsTheBrowserQuietWhereItIs) {
  Has("galeon").Enter();
  ASSERT_EQ(chdir("/usr/lib"), 0);
  Open();
  const std::vector<std::string> noted = Noted();
  ASSERT_GE(noted.size(), 5U);
  EXPECT_EQ(noted[0], "0");
  EXPECT_EQ(noted[1], "0");
  EXPECT_EQ(noted[2], "/dev/null");
  EXPECT_EQ(noted[3], "/dev/null");
  EXPECT_EQ(noted[4], "/usr/lib");
  EXPECT_EQ(Variable("THROUGHXDG"), "(unset)");
}

// The browser waits for what is written only after its start, and gives up where that never comes.
TEST_F(BrowserTest, DoesNotWaitForTheBrowser) {
  Has("galeon",
      "for i in $(seq 200); do [ -e /tmp/go ] && break; sleep 0.05; done\n[ -e /tmp/go ] || exit 1\n")
      .Enter();
  Browser::OpenLibDirURL(kPage, false);
  testhost::WriteFile("/tmp/go", "");
  EXPECT_TRUE(Eventually(kStarted));
}

TEST_F(BrowserTest, GivesTheBrowserTheUsersEnvironmentBack) {
  Has("galeon").Enter();
  setenv("PANGO_RC_FILE", "/opt/ostrel/pangorc", 1);
  setenv("OSTREL_PANGO_RC_FILE", "1/home/person/pangorc", 1);
  setenv("GTK_PATH", "/opt/ostrel/gtk", 1);
  setenv("OSTREL_GTK_PATH", "0", 1);
  setenv("GTK2_RC_FILES", "/opt/ostrel/gtkrc", 1);
  setenv("OSTREL_GTK2_RC_FILES", "1", 1);
  setenv("FONTCONFIG_PATH", "/opt/ostrel/fonts", 1);
  setenv("OSTREL_FONTCONFIG_PATH", "2/foo", 1);
  setenv("GTK_IM_MODULE_FILE", "/opt/ostrel/im", 1);
  setenv("OSTREL_GTK_IM_MODULE_FILE", "", 1);
  setenv("GDK_PIXBUF_MODULE_FILE", "/opt/ostrel/pixbuf", 1);
  Open(true);
  EXPECT_EQ(Variable("PANGO_RC_FILE"), "/home/person/pangorc");
  EXPECT_EQ(Variable("GTK_PATH"), "(unset)");
  EXPECT_EQ(Variable("GTK2_RC_FILES"), "");
  EXPECT_EQ(Variable("FONTCONFIG_PATH"), "/opt/ostrel/fonts");
  EXPECT_EQ(Variable("GTK_IM_MODULE_FILE"), "/opt/ostrel/im");
  EXPECT_EQ(Variable("GDK_PIXBUF_MODULE_FILE"), "/opt/ostrel/pixbuf");
  EXPECT_EQ(Variable("THROUGHXDG"), "1");
  EXPECT_STREQ(getenv("GTK_PATH"), "/opt/ostrel/gtk");
  EXPECT_EQ(getenv("THROUGHXDG"), nullptr);
}

TEST_F(BrowserTest, TreatsABrowserThatIsAskedAlike) {
  Has("firefox", kNote + std::string("exit 0\n")).Enter();
  ASSERT_EQ(chdir("/usr/lib"), 0);
  setenv("GTK_PATH", "/opt/ostrel/gtk", 1);
  setenv("OSTREL_GTK_PATH", "1/home/gtk", 1);
  setenv("SUDO_UID", "4711", 1);
  Browser::OpenLibDirURL(kPage, true);
  EXPECT_EQ(testhost::Calls("firefox"), (std::vector<testhost::Call>{{"-remote", kRemoteRequest}}));
  const std::vector<std::string> noted = Noted();
  ASSERT_GE(noted.size(), 5U);
  EXPECT_EQ(noted[0], "4711");
  EXPECT_EQ(noted[2], "/dev/null");
  EXPECT_EQ(noted[3], "/dev/null");
  EXPECT_EQ(noted[4], "/usr/lib");
  EXPECT_EQ(Variable("GTK_PATH"), "/home/gtk");
  EXPECT_EQ(Variable("THROUGHXDG"), "1");
}

TEST_F(BrowserTest, BecomesTheUserThatCalledSudo) {
  Has("galeon").Enter();
  setenv("SUDO_UID", "4711", 1);
  Open();
  EXPECT_EQ(Noted()[0], "4711");
  EXPECT_EQ(Noted()[1], "0");
  EXPECT_EQ(getuid(), 0U);
}

TEST_F(BrowserTest, ReadsTheUserAsADecimalNumber) {
  Has("galeon").Enter();
  setenv("SUDO_UID", "04711", 1);
  Open();
  EXPECT_EQ(Noted()[0], "4711");
}

TEST_F(BrowserTest, StartsNonethelessWhereTheUserCannotBeLeft) {
  host.User(4713);
  Has("galeon").Enter();
  setenv("SUDO_UID", "4711", 1);
  Open();
  EXPECT_EQ(Noted()[0], "4713");
}

// The user goes first, and who is no longer root can't take the group: the browser starts nonetheless.
TEST_F(BrowserTest, KeepsRootsGroupBehindTheUser) {
  Has("galeon").Enter();
  setenv("SUDO_UID", "4711", 1);
  setenv("SUDO_GID", "4712", 1);
  Open();
  EXPECT_EQ(Noted()[0], "4711");
  EXPECT_EQ(Noted()[1], "0");
}

TEST_F(BrowserTest, TakesTheGroupWhereTheUserStaysRoot) {
  Has("galeon").Enter();
  setenv("SUDO_UID", "0", 1);
  setenv("SUDO_GID", "4712", 1);
  Open();
  EXPECT_EQ(Noted()[0], "0");
  EXPECT_EQ(Noted()[1], "4712");
}

TEST_F(BrowserTest, LooksAtNoGroupWithoutAUser) {
  Has("galeon").Enter();
  setenv("SUDO_GID", "4712", 1);
  Open();
  EXPECT_EQ(Noted()[0], "0");
  EXPECT_EQ(Noted()[1], "0");
}

// ---- The environment by itself

// What ResetEnvVars makes of a variable whose saved form is `saved`; null for none.
std::string Reset(const char *name, const char *saved) {
  const std::string savedName = std::string("OSTREL_") + name;
  setenv(name, "launcher's", 1);
  unsetenv(savedName.c_str());
  if (saved != nullptr) {
    setenv(savedName.c_str(), saved, 1);
  }
  Browser::ResetEnvVars(false, false);
  const char *value = getenv(name);
  return value == nullptr ? "(unset)" : value;
}

TEST(BrowserResetEnvVars, PutsEachOverriddenVariableBack) {
  for (const char *name : {"LD_LIBRARY_PATH", "LD_PRELOAD", "PANGO_RC_FILE", "GDK_PIXBUF_MODULE_FILE",
                           "GTK_IM_MODULE_FILE", "FONTCONFIG_PATH", "GTK2_RC_FILES", "GTK_PATH"}) {
    EXPECT_EQ(Reset(name, "1/the user's"), "/the user's") << name;
    EXPECT_EQ(Reset(name, "1"), "") << name;
    EXPECT_EQ(Reset(name, "0"), "(unset)") << name;
    EXPECT_EQ(Reset(name, "10"), "0") << name;
    EXPECT_EQ(Reset(name, "00"), "launcher's") << name;
    EXPECT_EQ(Reset(name, "2/foo"), "launcher's") << name;
    EXPECT_EQ(Reset(name, ""), "launcher's") << name;
    EXPECT_EQ(Reset(name, nullptr), "launcher's") << name;
  }
  EXPECT_EQ(Reset("PATH_OF_NOBODY", "1/x"), "launcher's");
}

TEST(BrowserResetEnvVars, MarksTheWayThroughXdg) {
  setenv("THROUGHXDG", "no", 1);
  Browser::ResetEnvVars(false, false);
  EXPECT_STREQ(getenv("THROUGHXDG"), "no");
  Browser::ResetEnvVars(true, false);
  EXPECT_STREQ(getenv("THROUGHXDG"), "1");
}

TEST(BrowserResetEnvVars, KeepsRootWhenAsked) {
  testhost::Host host;
  host.Enter();
  setenv("SUDO_UID", "4711", 1);
  setenv("SUDO_GID", "4712", 1);
  Browser::ResetEnvVars(false, false);
  EXPECT_EQ(getuid(), 0U);
  EXPECT_EQ(getgid(), 0U);
}

}  // namespace
}  // namespace kernprep
