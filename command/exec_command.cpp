#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "command/subcommand.h"
#include "tarvo/crash_report.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/exec/exec_target.h"
#include "toolkit/exec/preload/environment.h"

namespace tarvo::command {
namespace {

namespace fs = std::filesystem;

constexpr const char* kExecFooter =
    R"(The program runs unchanged in the place of this command: its standard streams,
signals, terminal and exit status are its own. Programs that it starts are covered
as well. At a crash a line on standard error names the report, and the process ends
with status 1; with --g_crashGuardReraise=true by the signal, as without this
command.

Configuration entries are given in front of "--"; they reach the program as
environment variables TARVO_g_NAME.

Not covered: static programs, programs of another loader than the GNU C library's
(musl) and programs with rights of their own (set-user-ID, capabilities), into which
nothing is preloaded; programs with a shared address sanitizer, which refuse it. One
that is named here is an error; those that the program starts run without capture,
the last ones not at all. Under a debugger (gdb, strace) there is no capture either,
which a line on standard error says. Signals that are ignored stay ignored.

A program that starts a host of its own has the report's path and the build of this
command, unless its configuration says otherwise.

Exit status: the program's own, or
  125  the program cannot be covered, or this command failed
  126  the program was found and cannot be run
  127  the program was not found

Examples:
  tarvo exec -- python3 script.py
  tarvo exec --report '/var/crash/%e-%p_bugreport.txt' -- sh -c 'xz -T4 <in >out'
)";

constexpr int kMajorVersion = TARVO_MAJOR_VERSION;

std::string DefaultReport() { return "%e-%p" + std::string(crash_report::kNameEnd); }

struct ExecOptions {
  std::string report;
  std::string build;
  std::vector<std::string> words;  ///< the program and its arguments
};

/// The libraries and modules that belong to this program.
struct Files {
  std::string hostLibrary;
  std::string preload;
  std::string variable;  ///< what LD_PRELOAD is to hold
  std::string modules;   ///< ":" between them
};

int Refuse(const std::string& text, int status = kNotStarted) {
  std::fprintf(stderr, "tarvo: %s.\n", toolkit::SafeText(text).c_str());
  return status;
}

/// What the loader puts in the place of "$LIB": the folder below the root, or below /usr, that its
/// own libraries are in (ld.so(8)).
std::string LoaderFolder() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<const void*>(&getenv), &info) == 0) return {};
  const std::string folder = fs::path(info.dli_fname).parent_path().relative_path();
  constexpr std::string_view kMerged = "usr/";
  return folder.starts_with(kMerged) ? folder.substr(kMerged.size()) : folder;
}

/// The host library and, below its folder, the preloaded one.
void FindLibraries(Files& files) {
  Dl_info info{};
  if (dladdr(reinterpret_cast<const void*>(&TakeConfigurationArguments), &info) == 0) return;
  std::error_code error;
  files.hostLibrary = fs::canonical(info.dli_fname, error).string();
  const fs::path folder = fs::path(files.hostLibrary).parent_path();
  files.preload = (folder / "tarvo" / "tarvo_exec.so").string();
  files.variable = files.hostLibrary + ":" + files.preload;
  const fs::path links = folder / "tarvo/preload";
  const std::string library = "libtarvo.so." + std::to_string(kMajorVersion);
  if (!fs::exists(links / LoaderFolder() / library, error)) return;
  const std::string path = (links / "$LIB").string() + '/';
  files.variable = path + library + ":" + path + "tarvo_exec.so";
}

/// The modules that were asked for; else the crash handler alone, so that programs load no more
/// than they need.
std::string FindModules(const std::vector<std::string>& asked, const std::string& hostLibrary) {
  std::error_code error;
  std::string all;
  for (const std::string& module : asked)
    all += (all.empty() ? "" : ":") + fs::absolute(module, error).string();
  if (!all.empty()) return all;
  const fs::path program = fs::read_symlink("/proc/self/exe", error).parent_path();
  for (const fs::path& folder : {program.parent_path() / "modules",
                                 fs::path(hostLibrary).parent_path() / "tarvo" / "modules"})
    if (fs::exists(folder / "crashhandler.so", error)) return folder / "crashhandler.so";
  return {};
}

/// "--g_NAME=VALUE" as a variable of the environment.
void PassEntry(const std::string& argument) {
  const std::size_t equals = argument.find('=');
  const std::string name = "TARVO_" + argument.substr(2, equals - 2);
  setenv(name.c_str(), equals == std::string::npos ? "" : argument.c_str() + equals + 1, 1);
}

/// The loader takes blanks and colons for the ends of names.
bool CanBePreloaded(const std::string& file) {
  return !file.empty() && file.find_first_of(" :\t\n") == std::string::npos;
}

/// The report's pattern, absolute, so that programs that are started elsewhere leave their reports
/// at the same place; empty when the configuration has a place for them.
std::string ReportPattern(const Context& context, const ExecOptions& options) {
  const bool hasPlace =
      std::getenv("TARVO_g_crashReportUrl") != nullptr ||
      std::ranges::any_of(context.host.arguments, [](const std::string& argument) {
        return argument.starts_with("--g_crashReportUrl=");
      });
  if (options.report.empty() && hasPlace) return {};
  std::error_code error;
  return fs::absolute(options.report.empty() ? DefaultReport() : options.report, error).string();
}

/// A value that is not empty; what an outer command of this kind has set is not left.
void SetOrUnset(const char* name, const std::string& value) {
  if (value.empty()) {
    unsetenv(name);
  } else {
    setenv(name, value.c_str(), 1);
  }
}

/// A report that was asked for replaces what the program itself says; the usual one does not.
void PassReport(const ExecOptions& options, const std::string& report) {
  SetOrUnset("TARVO_DEFAULT_g_crashGuardReport", report);
  if (!options.report.empty()) setenv("TARVO_g_crashGuardReport", report.c_str(), 1);
}

/// Empty when it is not set.
std::string Variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

void SetEnvironment(const Context& context, const ExecOptions& options, const std::string& report,
                    const Files& files) {
  PassReport(options, report);
  for (const std::string& argument : context.host.arguments) PassEntry(argument);
  setenv(kModulesVariable, files.modules.c_str(), 1);
  setenv("TARVO_DEFAULT_g_crashGuard", "true", 1);
  setenv("TARVO_DEFAULT_g_crashGuardHangup", "true", 1);
  SetOrUnset("TARVO_DEFAULT_g_UnitTests_Id", options.build);
  if (!context.host.configFile.empty())
    setenv(kConfigVariable, fs::absolute(context.host.configFile).c_str(), 1);
  const std::string others = Variable("LD_PRELOAD");
  setenv("LD_PRELOAD", (others + (others.empty() ? "" : ":") + files.variable).c_str(), 1);
  // The address sanitizer's shared runtime ends a program that finds another library before it,
  // also one that the program starts, which nothing has looked at. It works behind this one.
  // What the user says about it stands last and holds.
  setenv("ASAN_OPTIONS", ("verify_asan_link_order=0:" + Variable("ASAN_OPTIONS")).c_str(), 1);
}

/// The program's configuration is tried here once, so that its mistakes are this command's.
int TryConfiguration(const Context& context, const std::string& build, const std::string& report,
                     const Files& files) {
  HostOptions options = context.host;
  options.modules = SplitFiles(files.modules);
  options.build = build;
  options.crashGuard = {.enabled = true, .report = report};
  options.yields = true;
  const auto host = Host::Start(options);
  if (!host) return Fail(host.GetError(), kNotStarted);
  for (const std::string& warning : (*host)->Warnings())
    std::fprintf(stderr, "tarvo: %s\n", SafeText(warning).c_str());
  return kDone;
}

int Run(const Context& context, const ExecOptions& options) {
  const std::string& name = options.words.front();
  const std::string program = FindProgram(name);
  if (program.empty()) return Refuse("There is no program \"" + name + "\"", kNoSuchProgram);
  if (const TargetProblem problem = CheckTarget(program); !problem.text.empty())
    return Refuse(problem.text, problem.status);
  Files files;
  FindLibraries(files);
  if (!CanBePreloaded(files.hostLibrary) || access(files.preload.c_str(), R_OK) != 0)
    return Refuse("The library \"" + files.preload +
                  "\" cannot be preloaded: it is not there, or its path has a blank or colon");
  files.modules = FindModules(context.host.modules, files.hostLibrary);
  if (files.modules.empty()) return Refuse("There is no module crashhandler.so");
  const std::string report = ReportPattern(context, options);
  if (const int status = TryConfiguration(context, options.build, report, files); status != kDone)
    return status;
  SetEnvironment(context, options, report, files);
  std::vector<char*> arguments;
  for (const std::string& word : options.words)
    arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  execv(program.c_str(), arguments.data());
  return Refuse("\"" + program + "\" could not be run: " + std::strerror(errno), kCannotRun);
}

}  // namespace

void FillExecCommand(Command& exec, Context& context) {
  exec.SetFooter(kExecFooter);
  auto options = std::make_shared<ExecOptions>();
  exec.AddOption("--report", options->report,
                 "The report's path; %p stands for the\n"
                 "process id, %e for the program's name,\n"
                 "%t for the time of its start. Default:\n" +
                     DefaultReport() + " in the\ncurrent directory")
      .Named("PATTERN");
  exec.AddOption("--build", options->build,
                 "What reports call the program's build.\n"
                 "Default: the program's GNU build id")
      .Named("BUILD");
  exec.AddOption("PROGRAM", options->words, "The program and its arguments, behind \"--\"")
      .Named("[ARGUMENT...]")
      .Required();
  exec.OnNamed([&context, options] {
    context.action = [&context, options] { return Run(context, *options); };
  });
}

}  // namespace tarvo::command
