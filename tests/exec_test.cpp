// `tarvo exec`: programs that know nothing of the capture run as they would without it, and leave a
// report when they crash.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/program.h"
#include "support/report_layout.h"

namespace {

using std::filesystem::exists;
using Texts = std::vector<std::string>;

/// Runs `tarvo exec` in a directory of its own, where it leaves its reports.
class Exec : public testing::Test {
 protected:
  void SetUp() override {
    if (kSanitized) GTEST_SKIP() << "a sanitizer's runtime refuses to be preloaded";
  }

  ProgramResult Run(const Texts& arguments, const Texts& environment = {}) {
    ProgramOptions options;
    options.directory = scratch_.Path();
    options.environment = environment;
    options.environment.push_back("TARVO=" + BuildDirectory() + "/bin/tarvo");
    Texts command = {BuildDirectory() + "/bin/tarvo", "exec"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return RunProgram(command, options);
  }
  ProgramResult RunShell(const std::string& script) { return Run({"--", "sh", "-c", script}); }
  ProgramResult RunPython(const std::string& script, Texts options = {}) {
    for (const char* word : {"--", "python3", "-c"}) options.emplace_back(word);
    options.push_back(script);
    return Run(options);
  }

  /// The reports by their files' names, each complete.
  std::map<std::string, Report> Reports() {
    std::map<std::string, Report> reports;
    for (const auto& entry : std::filesystem::directory_iterator(scratch_.Path())) {
      const std::string name = entry.path().filename();
      if (!name.ends_with("_bugreport.txt")) continue;
      EXPECT_NO_THROW(reports[name] = ReadReport(ReadFile(entry.path()))) << name;
      EXPECT_EQ(FindFaults(reports[name]), Texts()) << name;
    }
    return reports;
  }

  /// A file in the directory, executable, with the given mode.
  std::string MakeFile(const std::string& name, const std::string& content, mode_t mode) {
    const std::string path = scratch_ / name;
    std::ofstream(path, std::ios::binary) << content;
    chmod(path.c_str(), mode);
    return path;
  }

  TemporaryDirectory scratch_;
};

std::string Named(const std::string& process, const std::string& program, const char* signal,
                  const std::string& report) {
  return "tarvo: Process " + process + " (" + program + ") crashed with " + signal +
         "; its report is " + report + "\n";
}

TEST_F(Exec, ProgramsRunAsTheyWouldWithoutIt) {
  const struct {
    const char* script;
    const char* output;
    const char* errors;
    int exitStatus;
    int signal;
  } kCases[] = {
      {"cat /dev/null; echo out; echo err >&2; exit 7", "out\n", "err\n", 7, 0},
      {"kill -TERM $$", "", "", -1, SIGTERM},
      {"kill -KILL $$", "", "", -1, SIGKILL},
      {"kill -HUP $$; echo not reached", "", "", -1, SIGHUP},
      {"trap '' HUP; sh -c 'kill -HUP $$; echo ignored'", "ignored\n", "", 0, 0},
      {"trap '' SEGV; sh -c 'kill -SEGV $$; echo ignored'", "ignored\n", "", 0, 0},
      // Programs outside of the command's reach inherit what is ignored.
      {"trap '' HUP TRAP ABRT; exec \"$TARVO\" exec -- sh -c 'env -u LD_PRELOAD sh -c "
       "\"kill -HUP \\$\\$; kill -TRAP \\$\\$; kill -ABRT \\$\\$; echo ignored\"'",
       "ignored\n", "", 0, 0},
      {"trap '' HUP; exec \"$TARVO\" exec -- python3 -c 'import signal as s; "
       "print(s.getsignal(s.SIGHUP) == s.SIG_IGN)'",
       "True\n", "", 0, 0},
      {"trap 'echo caught; exit 3' HUP; kill -HUP $$", "caught\n", "", 3, 0},
      {"trap 'echo caught; exit 3' USR1; kill -USR1 $$", "caught\n", "", 3, 0},
      {"yes | head -n 2 | tr y n", "n\nn\n", "", 0, 0},
      {"echo \"$0 $1\"", "sh \n", "", 0, 0},
  };
  for (const auto& [script, output, errors, exitStatus, signal] : kCases) {
    const ProgramResult result = RunShell(script);
    EXPECT_EQ(result.output, output) << script;
    EXPECT_EQ(result.errors, errors) << script;
    EXPECT_EQ(result.exitStatus, exitStatus) << script;
    EXPECT_EQ(result.signal, signal) << script;
  }
  EXPECT_TRUE(Reports().empty());
  const ProgramResult kept =
      Run({"--", "sh", "-c", "echo ${LD_PRELOAD%%:*}"}, {"LD_PRELOAD=libm.so.6"});
  EXPECT_EQ(kept.output, "libm.so.6\n") << kept.errors;
}

TEST_F(Exec, SaysWhatItCannotCover) {
  const std::string rights =
      "\" runs with rights of its own (set-user-ID, set-group-ID or capabilities): the loader "
      "ignores preloaded libraries there.\n";
  const std::string plain = MakeFile("plain", "no program", 0644);
  const std::string wide = MakeFile("wide", ReadFile("/bin/true"), 0755);
  std::string header = ReadFile("/bin/true").substr(0, 64);
  header[4] = 1;
  const std::string narrow = MakeFile("narrow", header, 0755);
  const std::string cut = MakeFile("cut", ReadFile("/bin/true").substr(0, 80), 0755);
  const std::string fixed = BuildDirectory() + "/tests/static_subject";
  const std::string script = MakeFile("script", "#! " + fixed + " -x\n", 0755);
  const std::string loop = MakeFile("loop", "#!" + (scratch_ / "loop").string() + "\n", 0755);
  struct Case {
    Texts arguments;
    int exitStatus;
    std::string errors;
  };
  std::vector<Case> cases = {
      {{"--", "no-such-program"}, 127, "tarvo: There is no program \"no-such-program\".\n"},
      {{"--", "/no/program"},
       127,
       "tarvo: \"/no/program\" is not there: No such file or directory.\n"},
      {{"--", plain}, 126, "tarvo: \"" + plain + "\" is not an executable file.\n"},
      {{"--", narrow}, 125, "tarvo: \"" + narrow + "\" is no 64-bit x86 program.\n"},
      {{"--", cut}, 125, "tarvo: \"" + cut + "\" is cut off.\n"},
      {{"--", loop}, 126, "tarvo: \"" + loop + "\" has too many interpreters.\n"},
      {{"--g_crashGuardDeadline=soon", "--", wide},
       125,
       "tarvo: The configuration entry g_crashGuardDeadline does not accept \"soon\" (command "
       "line): expected a whole number from 0 to 86400.\n"},
      {{"--report", "%q", "--", wide},
       125,
       "tarvo: The report path \"" + scratch_.Path().string() +
           "/%q\" has a % that is followed by none of p (process id), e (program name), t (time of "
           "the start) and %.\n"}};
  for (const std::string& file : {fixed, script})
    cases.push_back({{"--", file},
                     125,
                     "tarvo: \"" + fixed +
                         "\" is statically linked: there is no loader that could load the capture "
                         "into it.\n"});
  // What another program starts has inherited the capture, and runs as it would without it.
  const auto addCase = [&](const std::string& program, const std::string& reason) {
    if (!exists(std::filesystem::path(program))) return;
    cases.push_back({{"--", program}, 125, "tarvo: \"" + program + "\" " + reason});
    const ProgramResult inherited = RunShell(program + " && echo ran");
    EXPECT_EQ(inherited.output + inherited.errors, "ran\n");
  };
  addCase(BuildDirectory() + "/tests/asan_subject",
          "is built with the address sanitizer, whose runtime libasan.so.8 ends a program when "
          "another library is loaded before it; build it without, or link the host library into "
          "it.\n");
  addCase(BuildDirectory() + "/tests/musl_subject",
          "is run by the loader \"/lib/ld-musl-x86_64.so.1\", which is not the GNU C library's, so "
          "the capture cannot be loaded into it.\n");
  // Only root may give a file to somebody else.
  if (getuid() == 0) {
    const std::string foreign = MakeFile("foreign", ReadFile("/bin/true"), 0755);
    ASSERT_EQ(chown(foreign.c_str(), 65534, 0), 0);
    ASSERT_EQ(chmod(foreign.c_str(), 04755), 0);
    cases.push_back({{"--", foreign}, 125, "tarvo: \"" + foreign + rights});
  }
  for (const auto& [arguments, exitStatus, errors] : cases) {
    const ProgramResult result = Run(arguments);
    EXPECT_EQ(result.errors, errors);
    EXPECT_EQ(result.exitStatus, exitStatus) << errors;
    EXPECT_EQ(result.output, "") << errors;
  }
}

constexpr const char* kFaultInThread = R"(
import ctypes, os, threading
print(os.getpid(), flush=True)
thread = threading.Thread(target=lambda: ctypes.string_at(16))
thread.start()
thread.join()
)";

TEST_F(Exec, AnInterpretersNativeCodeFaultsInAThread) {
  const ProgramResult result = RunPython(kFaultInThread, {"--report", "%e.%p_bugreport.txt"});
  const std::string process = result.output.substr(0, result.output.find('\n'));
  const std::string file = "python3." + process + "_bugreport.txt";
  EXPECT_EQ(result.exitStatus, 1) << result.Describe();
  EXPECT_EQ(result.errors, Named(process, "python3", "SIGSEGV", scratch_ / file));
  const auto reports = Reports();
  ASSERT_EQ(reports.count(file), 1U);
  const Report& report = reports.at(file);
  EXPECT_EQ(report.threads.size(), 2U);
  for (const ReportThread& thread : report.threads) EXPECT_FALSE(thread.frames.empty());
  EXPECT_TRUE(std::ranges::any_of(report.threads[1].frames, [](const ReportFrame& frame) {
    return frame.Module().starts_with("_ctypes");
  }));

  // As without the command when the signal is to end the process.
  const ProgramResult raised = RunPython(kFaultInThread, {"--g_crashGuardReraise=true"});
  EXPECT_EQ(raised.signal, SIGSEGV) << raised.Describe();
}

// A forked child runs no constructor again, has its parent's configuration, and may crash before
// it.
TEST_F(Exec, EachProcessHasItsOwnReport) {
  const ProgramResult result = RunPython(R"(
import ctypes, os, subprocess
ids = [os.getpid()]
for i in range(2):
    child = os.fork()
    if child == 0:
        ctypes.string_at(16)
    os.waitpid(child, 0)
    ids.append(child)
started = subprocess.Popen(['sh', '-c', 'cd /; kill -ABRT $$'])
started.wait()
ids.append(started.pid)
print(*ids, flush=True)
ctypes.string_at(16)
)");
  EXPECT_EQ(result.exitStatus, 1) << result.Describe();
  std::map<std::string, std::string> expected;
  std::string rest = result.output;
  for (const char* program : {"python3", "python3", "python3", "sh"}) {
    const std::string process = rest.substr(0, rest.find_first_of(" \n"));
    rest.erase(0, process.size() + 1);
    expected[std::string(program) + "-" + process + "_bugreport.txt"] = program;
  }
  Texts found;
  Texts names;
  for (const auto& [file, report] : Reports()) found.push_back(file);
  for (const auto& [file, program] : expected) names.push_back(file);
  EXPECT_EQ(found, names) << result.Describe();
}

TEST_F(Exec, AThreadedCompressorIsCaughtAtWork) {
  const ProgramResult result = RunShell(
      "xz -0 -T4 --block-size=1MiB </dev/zero >/dev/null & p=$!; n=0;"
      "while [ $(ls /proc/$p/task | wc -l) -lt 4 ] && [ $n -lt 200 ]; do sleep .02; n=$((n + 1)); "
      "done;"
      "kill -SEGV $p; wait $p; echo $?");
  EXPECT_EQ(result.output, "1\n") << result.Describe();
  const auto reports = Reports();
  ASSERT_EQ(reports.size(), 1U) << result.Describe();
  EXPECT_GE(reports.begin()->second.threads.size(), 4U);
}

// It restores the terminal in a handler of its own, sets SIG_DFL and raises the signal again.
TEST_F(Exec, AnEditorUnderATerminalIsCaughtBehindItsOwnHandler) {
  if (access("/usr/bin/vim", X_OK) != 0) GTEST_SKIP() << "vim is not installed";
  ProgramOptions options;
  options.directory = scratch_.Path();
  const std::string editor =
      "(sleep 0.5; kill -SEGV $$) & exec " + BuildDirectory() + "/bin/tarvo exec -- vim -u NONE -N";
  const ProgramResult result =
      RunProgram({"/usr/bin/script", "-qec", "exec sh -c '" + editor + "'", "/dev/null"}, options);
  EXPECT_EQ(result.exitStatus, 1) << result.Describe();
  EXPECT_NE(result.output.find("Vim: Finished."), std::string::npos) << result.output;
  const auto reports = Reports();
  ASSERT_EQ(reports.size(), 1U) << result.output;
  const ReportThread& thread = reports.begin()->second.threads.at(0);
  EXPECT_EQ(thread.Name(), "vim");
  EXPECT_NE(result.output.find(reports.begin()->first), std::string::npos) << result.output;
}

TEST_F(Exec, WithoutAPlaceTheReportGoesToStandardError) {
  const ProgramResult result =
      Run({"--report", "no/folder/%p_bugreport.txt", "--", "sh", "-c", "kill -SEGV $$"});
  EXPECT_EQ(result.exitStatus, 1);
  // Said at the start, by the command alone.
  const std::size_t start = result.errors.find('\n') + 1;
  EXPECT_TRUE(result.errors.starts_with("tarvo: A crash report cannot be written to \"" +
                                        (scratch_ / "no/folder/").string()))
      << result.errors;
  EXPECT_NO_THROW((void)ReadReport(result.errors.substr(start))) << result.Describe();
}

// Nor does what is kept for good count as lost memory.
TEST_F(Exec, ALeakCheckFindsNothingOfIt) {
  const ProgramResult result = Run({"--", BuildDirectory() + "/tests/leak_check_subject"});
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.exitStatus, 0);
}

TEST_F(Exec, SaysThatThereIsNoCaptureUnderADebugger) {
  std::filesystem::copy_file("/bin/sh", scratch_ / "gdb");
  const ProgramResult result =
      RunProgram({scratch_ / "gdb", "-c",
                  BuildDirectory() + "/bin/tarvo exec -- sh -c 'sh -c true; exit 3'; exit $?"});
  EXPECT_EQ(result.exitStatus, 3);
  EXPECT_EQ(result.errors,
            "tarvo: sh runs without crash capture: it runs under a debugger, which gets its "
            "signals.\n");
}

// Its host gets the command's report and build, the guard too, unless it is configured otherwise.
TEST_F(Exec, AProgramWithAHostOfItsOwnKeepsReportAndBuild) {
  const std::string program = BuildDirectory() + "/tests/crash_subject";
  const ProgramResult result = Run({"--report", "crashes/%e/%t/own_bugreport.txt", "--build", "b7",
                                    "--", program, "null-write"});
  EXPECT_EQ(result.exitStatus, 1) << result.Describe();
  const std::size_t start =
      result.errors.find(scratch_.Path().string() + "/crashes/crash_subject/");
  ASSERT_NE(start, std::string::npos) << result.errors;
  const Report report =
      ReadReport(ReadFile(result.errors.substr(start, result.errors.size() - 1 - start)));
  EXPECT_EQ(FindFaults(report), Texts());
  const auto handler = std::ranges::find(report.modules, "crashhandler.so", &ReportModule::name);
  ASSERT_NE(handler, report.modules.end());
  EXPECT_EQ(handler->build, "b7");
}

TEST_F(Exec, AProgramWithAHostOfItsOwnKeepsIt) {
  const ProgramResult result = Run({"--", BuildDirectory() + "/bin/crashdemo", "--threads", "1",
                                    "--g_crashReportUrl=own_bugreport.txt"});
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(Reports().count("own_bugreport.txt"), 1U);
}

}  // namespace
