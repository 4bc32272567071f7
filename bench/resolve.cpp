// What resolving crash reports costs where their symbol archives are missing: reports a second, and
// each stage's share. The peer is reading: a resolve should cost little more than reading the
// report, however large the archive tree is that it searches in vain.
//
//     build/release/bench/resolve [--reports 200] [--threads 20] [--frames 30] [--modules 100]
//                                 [--builds 5] [--archives 1000]

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>

#include "connection.h"
#include "crashlog/base/configuration.h"
#include "crashlog/crash_log.h"
#include "crashlog/reading/report_reader.h"
#include "crashlog/writing/crash_log_writer.h"
#include "tarvo/crash_report.h"
#include "tarvo/format.h"
#include "tarvo/host/host.h"
#include "toolkit/command_line/command_line.h"

// The module's code is linked into this program, with a connection of its own.
tarvo::Connection g_tarvo;
tarvo::CpuYieldDelegate g_CpuYieldDelegate = nullptr;

namespace tarvo::crashhandler {
namespace {

namespace fs = std::filesystem;

struct Options {
  int reports = 200;
  int threads = 20;
  int frames = 30;
  int modules = 100;
  int builds = 5;
  int archives = 1000;
};

/// The frames are spread over the modules, the modules over the builds.
std::string MakeReport(const Options& options) {
  std::string text =
      "PALLADO_Crash_Report_MACOS\n{\n\tApplicationInfo\n\t{\n\t\tPALLADO_Version: 15.6\n\t}\n"
      "\tComputerInfo\n\t{\n\t\tOS_Type = macos 14.2\n\t}\n\tCall_Stacks\n\t{\n";
  for (int thread = 0; thread < options.threads; ++thread) {
    text += Format("\t\tCall_Stack_Thread_@\n\t\t{\n", thread);
    for (int frame = 0; frame < options.frames; ++frame) {
      const int module = (thread * options.frames + frame) % options.modules;
      text += Format(
          "\t\t\tlibrary@.dylib:\tns::Class@::Operation(int, char const*) + 0x@{x} "
          "(SP: 0x16fdff@{x}, PC: 0x@{x})\n",
          module, frame, 16 * frame, 64 * frame, 0x100000000 + (module << 20) + frame);
    }
    text += "\t\t\tRegisters\n\t\t\t{\n";
    for (int line = 0; line < 8; ++line)
      text += "\t\t\t\tx0: 0x00000000deadbeef x1: 0x00000000deadbeef x2: 0x00000000deadbeef\n";
    text += "\t\t\t}\n\t\t}\n";
  }
  text += "\t}\n\tLoaded_Modules\n\t{\n";
  for (int module = 0; module < options.modules; ++module)
    text += Format(
        "\t\tModuleName = library@.dylib\n\t\t{\n\t\t\tBaseAddress = 0x@{x}\n"
        "\t\t\tBaseSize = 1048576\n\t\t\tBuild = 20240@\n\t\t}\n",
        module, 0x100000000 + (module << 20), module % options.builds);
  return text + "\t}\n}\n";
}

/// Reports, and archives of other builds in two levels of directories.
void MakeFiles(const Options& options, const fs::path& folder) {
  fs::create_directories(folder / "reports");
  const std::string report = MakeReport(options);
  for (int i = 0; i < options.reports; ++i)
    std::ofstream(folder / "reports" / (std::to_string(i) + "_bugreport.txt")) << report;
  for (int i = 0; i < options.archives; ++i) {
    const fs::path builds =
        folder / "archives" / std::to_string(i % 30) / std::to_string(i) / "builds";
    fs::create_directories(builds);
    std::ofstream(builds / ("R14.0-" + std::to_string(i) + "_dsym.zip"));
  }
}

template <typename T>
T Checked(Result<T> result) {
  if (!result) throw std::runtime_error(result.GetError().Text().ToStdString());
  if constexpr (!std::is_void_v<T>) return *std::move(result);
}

enum Stage { kRead, kParse, kResolve, kDocument, kCopy, kStages };
constexpr std::array<const char*, kStages> kNames = {"read the file", "parse", "resolve",
                                                     "write JSON", "write text"};
using Times = std::array<double, kStages>;  ///< seconds

/// Takes one report through all stages.
void Run(Framework& framework, const fs::path& folder, const Url& report, Times& times) {
  auto last = std::chrono::steady_clock::now();
  const auto lap = [&](Stage stage) {
    const auto now = std::chrono::steady_clock::now();
    times[stage] += std::chrono::duration<double>(now - std::exchange(last, now)).count();
  };
  String text = Checked(framework.Files().ReadText(report));
  lap(kRead);
  CrashLog crashLog(Checked(ParseReport(std::move(text))));
  lap(kParse);
  Checked(crashLog.Resolve(Url::FromSystemPath((folder / "archives").string()),
                           Url::FromSystemPath((folder / "cache").string())));
  lap(kResolve);
  Checked(framework.DataFormats().WriteJson(
      crashLog.Data(), Checked(report.WithSuffix(crash_report::kDocumentSuffix))));
  lap(kDocument);
  const Ref<OutputFile> copy =
      Checked(framework.Files().Create(Checked(report.WithSuffix(crash_report::kCopySuffix))));
  Checked(WriteCrashLog(crashLog.Data(), *copy));
  Checked(copy->Commit());
  lap(kCopy);
}

void Print(const Options& options, const Times& times, std::uintmax_t bytes) {
  double total = 0;
  for (const double time : times) total += time;
  std::printf(
      "%d reports of %.0f KiB, %d frames in %d modules of %d builds; %d archives of others\n",
      options.reports, static_cast<double>(bytes) / 1024, options.threads * options.frames,
      options.modules, options.builds, options.archives);
  for (std::size_t stage = 0; stage < kStages; ++stage)
    std::printf("  %-14s %8.3f ms a report %6.1f %%\n", kNames[stage],
                times[stage] * 1e3 / options.reports, 100 * times[stage] / total);
  std::printf("%.0f reports a second; resolving takes %.2f of the time of reading and parsing\n",
              options.reports / total, times[kResolve] / (times[kRead] + times[kParse]));
}

void Measure(const Options& options, const fs::path& folder) {
  const auto host = Checked(Host::Start({.modules = {CRASHHANDLER_MODULE}}));
  g_tarvo.framework = &host->Services();
  g_crashlogResolveDiagnosticOutput = static_cast<std::int64_t>(ResolveDiagnostics::None);
  MakeFiles(options, folder);
  Times times{};
  for (int i = 0; i < options.reports; ++i) {
    const fs::path report = folder / "reports" / (std::to_string(i) + "_bugreport.txt");
    Run(host->Services(), folder, Url::FromSystemPath(report.string()), times);
  }
  Print(options, times, fs::file_size(folder / "reports/0_bugreport.txt"));
}

int Main(int argc, char** argv) {
  Options options;
  command_line::Program program(
      "resolve", "What resolving crash reports costs where their symbol archives are missing");
  program.AddOption("--reports", options.reports, "How many reports");
  program.AddOption("--threads", options.threads, "Threads in a report");
  program.AddOption("--frames", options.frames, "Frames of a thread");
  program.AddOption("--modules", options.modules, "Modules of a report");
  program.AddOption("--builds", options.builds, "Builds that these are of");
  program.AddOption("--archives", options.archives, "Archives of other builds");
  if (const auto status = program.Parse(argc, argv)) return *status;
  std::string pattern = (fs::temp_directory_path() / "tarvo-bench-XXXXXX").string();
  const fs::path folder = mkdtemp(pattern.data());
  Measure(options, folder);
  fs::remove_all(folder);
  return 0;
}

}  // namespace
}  // namespace tarvo::crashhandler

int main(int argc, char** argv) try {
  return tarvo::crashhandler::Main(argc, argv);
} catch (const std::exception& exception) {
  std::fprintf(stderr, "resolve: %s\n", exception.what());
  return 1;
}
