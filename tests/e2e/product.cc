#include "product.h"

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace e2e {

using testhost::ReadFile;
using testhost::Run;
using testhost::WriteFile;

namespace {

constexpr char kLoaded[] = "/run/loaded-modules";
constexpr char kPrivilegeCalls[] = "/run/gksu-calls";

std::string QuotedForMake(const std::string &recipe) {
  std::string lines;
  std::istringstream in(recipe);
  for (std::string line; std::getline(in, line);) {
    lines += "\t" + line + "\n";
  }
  return lines;
}

std::vector<std::string> Words(const std::string &text) {
  std::istringstream in(text);
  std::vector<std::string> words;
  for (std::string word; in >> word;) {
    words.push_back(word);
  }
  return words;
}

void AddUser() {
  const std::string home = std::string("/home/") + kUserName;
  const std::string id = std::to_string(kUser);
  std::ofstream("/etc/passwd", std::ios::app)
      << kUserName << ":x:" << id << ":" << id << "::" << home << ":/bin/sh\n";
  std::ofstream("/etc/shadow", std::ios::app) << kUserName << ":*:19000:0:99999:7:::\n";
  std::filesystem::create_directories(home);
  Run("chown " + id + ":" + id + " " + home);
}

}  // namespace

void Kernel::Describe(testhost::Host &host) const {
  host.Release(release).Version(version).Machine(machine);
  const std::string compilerText = compiler.empty() ? "" : " (gcc version " + compiler + " (Debian))";
  host.File("/proc/version",
            "Linux version " + release + " (builder@host)" + compilerText + " " + version + "\n");
  if (hostCompiler.empty()) {
    host.NoProgram("gcc").NoProgram("egcs").NoProgram("kgcc");
  } else {
    host.Program(
        "gcc", "[ \"$1\" = -dumpversion ] && { echo " + hostCompiler + "; exit; }\nexec /usr/bin/gcc \"$@\"");
  }
  if (moduleDirectory) {
    host.Directory("/lib/modules/" + release);
  }
  if (headers) {
    const std::string build = "/lib/modules/" + release + "/build";
    host.File(build + "/Makefile", "").File(build + "/.config", "");
    host.File(build + "/include/linux/version.h", "#define LINUX_VERSION_CODE 393472\n");
    host.File(build + "/include/generated/utsrelease.h", "#define UTS_RELEASE \"" + release + "\"\n");
    host.File(build + "/include/generated/autoconf.h",
              version.find(" SMP ") == std::string::npos ? "" : "#define CONFIG_SMP 1\n");
  }
  host.Program("modinfo", "test -e /lib/modules/$(uname -r)/misc/$1.o");
  host.Program("depmod").Program("lsmod", std::string("cat ") + kLoaded + " 2>/dev/null");
  host.Program("insmod", std::string("basename $1 .o >>") + kLoaded);
  host.Program("rmmod", std::string("grep -qx $1 ") + kLoaded + " && sed -i /^$1$/d " + kLoaded);
}

Product::Product() {
  Answer("BINDIR", kBinDir);
  Answer("LIBDIR", kLibDir);
  Answer("INITSCRIPTSDIR", kInitDir);
  Service("exit 0");
  WriteFile(std::string(kBinDir) + "/launcher", "#!/bin/sh\nexec ostrel-kernprep --launcher=\"$0\" \"$@\"\n",
            0755);
  WriteFile(std::string(kBinDir) + "/ostrel-gksu",
            std::string("#!/bin/sh\nprintf '%s\\n' \"$1\" >>") + kPrivilegeCalls +
                "\nexec sudo -E /bin/sh -c \"$1\"\n",
            0755);
  WriteFile(kPrivilegeCalls, "", 0666);
  WriteFile("/etc/sudoers.d/product",
            "ALL ALL=(ALL) NOPASSWD: SETENV: ALL\nDefaults !secure_path, !use_pty\n", 0440);
  AddUser();
}

Product &Product::Module(const ModuleSpec &module) {
  modules_.push_back(module);
  return *this;
}

Product &Product::Answer(const std::string &key, const std::string &value) {
  std::filesystem::create_directories(std::filesystem::path(kJournal).parent_path());
  std::ofstream(kJournal, std::ios::app) << "answer " << key << " " << value << "\n";
  return *this;
}

Product &Product::Source(const std::string &module, const std::string &recipe) {
  const std::string work = "/run/source/" + module;
  const std::string tree = work + "/" + module + "-only";
  WriteFile(tree + "/Makefile", "auto-build:\n" + QuotedForMake(recipe) + "\techo object >../" + module +
                                    ".o\n\techo symbols >Module.symvers\n");
  const std::string sources = std::string(kLibDir) + "/modules/source";
  Run("mkdir -p " + sources + " && tar -C " + work + " -cf " + sources + "/" + module + ".tar " + module +
      "-only");
  return *this;
}

Product &Product::Set(const std::string &set, const std::string &properties,
                      const std::vector<std::string> &modules) {
  const std::string directory = std::string(kLibDir) + "/modules/binary/" + set;
  WriteFile(directory + "/properties", properties);
  for (const std::string &module : modules) {
    std::string object = directory;
    object.append("/objects/").append(module).append(".o");
    std::string content = "prebuilt ";
    WriteFile(object, content.append(module).append("\n"));
  }
  return *this;
}

Product &Product::Service(const std::string &body) {
  WriteFile(std::string(kInitDir) + "/ostrel-tools",
            std::string("#!/bin/sh\necho $1 >>") + kServiceRecord + "\n" + body + "\n", 0755);
  return *this;
}

void Product::Write() const {
  std::string list = "<?xml version=\"1.0\"?>\n<modules>\n";
  for (const ModuleSpec &module : modules_) {
    list +=
        "  <module name=\"" + module.name + "\" required=\"" + (module.required ? "true" : "false") + "\"";
    list += (module.key.empty() ? "" : " key=\"" + module.key + "\"");
    list += " description=\"The " + module.name + " module\">\n    <dependencies>\n";
    for (const std::string &dependency : module.dependencies) {
      list += "      <dependency name=\"" + dependency + "\"/>\n";
    }
    list += "    </dependencies>\n  </module>\n";
  }
  WriteFile(std::string(kLibDir) + "/modules/modules.xml", list + "</modules>\n");
}

std::string Product::PerfectProperties(const Kernel &kernel) {
  const bool smp = kernel.version.find(" SMP ") != std::string::npos;
  return "UtsRelease " + kernel.release + "\nUtsVersion " + kernel.version + "\nUtsMachine " +
         (kernel.machine == "x86_64" ? "x86_64" : "i386") + "\nAthlonKernel forbidden\nModVersion no\nSMP " +
         (smp ? "yes" : "no") + "\n";
}

namespace {

std::vector<std::string> WithProductOptions(const std::vector<std::string> &arguments) {
  std::vector<std::string> all = {std::string("--launcher=") + kBinDir + "/launcher", "--icon=product",
                                  "--appname=Ostrel Bench"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return all;
}

std::string NextOutputPath() {
  static int runs = 0;
  return "/run/tool-output-" + std::to_string(runs++);
}

}  // namespace

Tool::Tool(const std::vector<std::string> &arguments, uid_t user, const std::vector<std::string> &environment)
    : Tool(Exactly(), WithProductOptions(arguments), user, environment) {}

Tool Tool::Bare(const std::vector<std::string> &arguments, uid_t user,
                const std::vector<std::string> &environment) {
  return {Exactly(), arguments, user, environment};
}

Tool::Tool(Tool &&other) noexcept
    : pid_(other.pid_), status_(other.status_), outputPath_(std::move(other.outputPath_)) {
  other.pid_ = -1;
}

Tool::~Tool() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
}

Tool::Tool(Exactly /*tag*/, const std::vector<std::string> &arguments, uid_t user,
           const std::vector<std::string> &environment)
    : outputPath_(NextOutputPath()) {
  const int output = open(outputPath_.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_APPEND | O_CLOEXEC, 0666);
  std::vector<char *> vector = {const_cast<char *>("ostrel-kernprep")};
  for (const std::string &argument : arguments) {
    vector.push_back(const_cast<char *>(argument.c_str()));
  }
  vector.push_back(nullptr);
  pid_ = fork();
  if (pid_ != 0) {
    close(output);
    return;
  }
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
  if (user != 0) {
    setenv("HOME", (std::string("/home/") + kUserName).c_str(), 1);
  }
  for (const std::string &word : environment) {
    putenv(const_cast<char *>(word.c_str()));
  }
  if (user != 0 && (setgroups(0, nullptr) != 0 || setgid(user) != 0 || setuid(user) != 0)) {
    _exit(126);
  }
  execvp("ostrel-kernprep", vector.data());
  _exit(127);
}

bool Tool::Running() {
  if (pid_ <= 0) {
    return false;
  }
  int status = 0;
  if (waitpid(pid_, &status, WNOHANG) != pid_) {
    return true;
  }
  pid_ = -1;
  status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return false;
}

int Tool::Wait(double seconds) {
  return Eventually([this] { return !Running(); }, seconds) ? status_ : -1;
}

std::string Tool::Output() const {
  return ReadFile(outputPath_);
}

std::vector<std::string> Tool::LogPaths() const {
  const std::string announcement = "Logging to ";
  std::vector<std::string> paths;
  std::istringstream output(Output());
  for (std::string line; std::getline(output, line);) {
    if (line.rfind(announcement, 0) == 0) {
      paths.push_back(line.substr(announcement.size()));
    }
  }
  return paths;
}

std::string Tool::LogPath() const {
  const std::vector<std::string> paths = LogPaths();
  return paths.empty() ? "" : paths.back();
}

std::string Tool::Log() const {
  return ReadFile(LogPath());
}

std::vector<std::string> ServiceCalls() {
  return Words(ReadFile(kServiceRecord));
}

std::string PrivilegeCalls() {
  return ReadFile(kPrivilegeCalls);
}

std::vector<pid_t> ProcessesWith(const std::string &text) {
  std::vector<pid_t> found;
  for (const auto &entry : std::filesystem::directory_iterator("/proc")) {
    const std::string name = entry.path().filename();
    if (name.find_first_not_of("0123456789") == std::string::npos &&
        ReadFile(entry.path().string() + "/cmdline").find(text) != std::string::npos) {
      found.push_back(static_cast<pid_t>(std::stol(name)));
    }
  }
  return found;
}

void Pause(std::chrono::milliseconds time) {
  std::this_thread::sleep_for(time);
}

}  // namespace e2e
