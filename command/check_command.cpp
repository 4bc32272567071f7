#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "command/subcommand.h"
#include "tarvo/crash_report.h"
#include "tarvo/format.h"
#include "tarvo/symbol_archive.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/debug_files/module_identity.h"
#include "toolkit/report/report_resolver.h"
#include "toolkit/report/scratch.h"
#include "toolkit/resolve/report_list.h"
#include "toolkit/resolve/report_work.h"
#include "toolkit/store/bundle_check.h"
#include "toolkit/store/bundle_choice.h"
#include "toolkit/store/json_text.h"

namespace tarvo::command {
namespace {

namespace property = crash_report::property;

constexpr const char* kCheckFooter =
    R"(Of each ARCHIVE every bundle is read as a resolve reads it, and shown with its format,
system, processor and id, with the functions, lines and inlined functions in it, and
what is wrong: no debug information, parts that are missing, another id than the
archive's own list says. Of each REPORT every module that has frames is shown, with the
bundle that serves it, or "no".

Exit status:
  0  all bundles serve, and all modules of the build of an archive
  1  some do not, or could not be read
  2  wrong usage

Example:
  tarvo check archives/R15.6-4213_dsym.zip crash_bugreport.txt
)";

struct CheckOptions {
  std::vector<std::string> files;
  bool isJson = false;
};

/// What is served of one report's module.
struct ServedModule {
  std::string module;
  std::string build;
  std::string bundle;  ///< empty: none serves
};

std::string Count(const char* name, const std::optional<std::uint64_t>& count) {
  return count ? ", " + std::to_string(*count) + ' ' + name : std::string();
}

std::string Describe(const FileDescription& file) {
  std::string text = file.format + " for " + file.platform;
  for (const SymbolSlice& slice : file.slices)
    text += ' ' + slice.architecture + ", id " + (slice.id.empty() ? "none" : slice.id);
  return text + Count("functions", file.functions) + Count("lines", file.lines) +
         Count("inlined", file.inlined) + (file.split.empty() ? "" : ", split") +
         (file.shared ? ", with a shared part" : "") +
         (file.pdb.empty() ? "" : ", PDB " + file.pdb);
}

DataDictionary DocumentOf(const CheckedBundle& bundle) {
  DataDictionary document;
  document.Set("Bundle", String(bundle.name));
  if (bundle.told) document.Set("Module", String(bundle.told->module));
  if (bundle.description) {
    const FileDescription& file = *bundle.description;
    document.Set("Format", String(file.format));
    document.Set("Platform", String(file.platform));
    DataArray symbols;
    for (const SymbolSlice& slice : file.slices) {
      DataDictionary entry;
      entry.Set("Architecture", String(slice.architecture));
      entry.Set("Id", String(slice.id));
      symbols.Append(std::move(entry));
    }
    document.Set("Symbols", std::move(symbols));
    if (file.functions) document.Set("Functions", *file.functions);
    if (file.lines) document.Set("Lines", *file.lines);
    if (file.inlined) document.Set("Inlined", *file.inlined);
  }
  DataArray problems;
  for (const std::string& problem : bundle.problems) problems.Append(String(problem));
  document.Set("Problems", std::move(problems));
  return document;
}

/// The modules that the frames of a crash log are in.
std::vector<DataDictionary> UsedModules(const DataDictionary& crashLog) {
  std::vector<std::string> names;
  const auto* threads = crashLog.FindAs<DataArray>(property::kThreads);
  for (std::size_t i = 0; threads != nullptr && i < threads->Size(); ++i) {
    const auto* thread = (*threads)[i].As<DataDictionary>();
    const auto* frames =
        thread == nullptr ? nullptr : thread->FindAs<DataArray>(property::kCallstack);
    for (std::size_t k = 0; frames != nullptr && k < frames->Size(); ++k) {
      const auto* frame = (*frames)[k].As<DataDictionary>();
      const auto* name = frame == nullptr ? nullptr : frame->FindAs<String>(property::kModuleName);
      if (name != nullptr && std::ranges::find(names, name->ToStdString()) == names.end())
        names.push_back(name->ToStdString());
    }
  }
  std::vector<DataDictionary> used;
  const auto* modules = crashLog.FindAs<DataArray>(property::kLoadedModules);
  for (std::size_t i = 0; modules != nullptr && i < modules->Size(); ++i) {
    const auto* module = (*modules)[i].As<DataDictionary>();
    const auto* name = module == nullptr ? nullptr : module->FindAs<String>(property::kModuleName);
    if (name != nullptr && std::ranges::find(names, name->ToStdString()) != names.end())
      used.push_back(*module);
  }
  return used;
}

class Checker {
 public:
  Checker(Host& host, const CheckOptions& options) : host_(host), options_(options) {}

  int Run() {
    std::vector<std::string> reports;
    for (const std::string& file : options_.files) {
      if (file.ends_with(".zip")) {
        Check(file);
      } else {
        reports.push_back(file);
      }
    }
    if (!reports.empty()) CheckReports(reports);
    if (options_.isJson) PrintDocument();
    return isGood_ ? kDone : kFailed;
  }

 private:
  void Check(const std::string& file) {
    const Result<report::Scratch> scratch = report::Scratch::Make();
    const auto archive = scratch
                             ? CheckArchive(host_.Services(), file, scratch->Path() + "/archive")
                             : Result<CheckedArchive>(scratch.GetError());
    if (!archive) {
      isGood_ = false;
      Fail(archive.GetError());
      return;
    }
    archives_.push_back(*archive);
    if (!options_.isJson)
      std::printf("%s: %zu bundles\n", SafeText(file).c_str(), archive->bundles.size());
    for (const CheckedBundle& bundle : archive->bundles) {
      isGood_ = isGood_ && bundle.problems.empty();
      if (!options_.isJson) Print(bundle);
    }
  }

  static void Print(const CheckedBundle& bundle) {
    std::printf("  %s: %s\n", SafeText(bundle.name).c_str(),
                bundle.description ? SafeText(Describe(*bundle.description)).c_str() : "");
    for (const std::string& problem : bundle.problems)
      std::printf("    wrong: %s\n", SafeText(problem).c_str());
  }

  void CheckReports(const std::vector<std::string>& paths) {
    const Result<report::Scratch> scratch = report::Scratch::Make();
    const Url nothing = Url::FromSystemPath(scratch ? scratch->Path() : "");
    auto resolver = scratch ? report::ReportResolver::Make(host_.Services(),
                                                           {.archives = nothing, .cache = nothing},
                                                           report::Documents::Left)
                            : Result<report::ReportResolver>(scratch.GetError());
    if (!resolver) {
      isGood_ = Fail(resolver.GetError()) == kDone;
      return;
    }
    ReportList list = ListReports(host_.Services(), paths, {.hasPlaces = false});
    for (const Failure& failure : list.failures) {
      isGood_ = false;
      Fail(Error::Plain({}, Format("@: @", failure.file, failure.reason)));
    }
    for (const Report& report : list.reports) CheckReport(*resolver, report);
  }

  /// The report is read as a resolve reads it, with nothing to resolve it with.
  void CheckReport(report::ReportResolver& resolver, const Report& report) {
    ReportWork work;
    work.onResolved = [&](DataDictionary& crashLog) {
      Serve(report, crashLog);
      return false;
    };
    const ReportWorkScope scope(work);
    const Result<bool> read = resolver.Resolve(report.file, report.place, report.needsCopy);
    if (read) return;
    isGood_ = false;
    Fail(Error::Plain({}, Format("@: @", report.file, read.GetError())));
  }

  void Serve(const Report& report, const DataDictionary& crashLog) {
    std::vector<ServedModule> served;
    for (const DataDictionary& module : UsedModules(crashLog))
      served.push_back(Served(Identify({crashLog, module}), module));
    if (!options_.isJson) std::printf("%s:\n", SafeText(report.file.SystemPath()).c_str());
    DataArray modules;
    for (const ServedModule& module : served) {
      const bool isAsked = std::ranges::any_of(archives_, [&](const CheckedArchive& archive) {
        return archive.file.ends_with(module.build + std::string(symbol_archive::kSuffix));
      });
      if (module.bundle.empty() && !module.build.empty() && isAsked) isGood_ = false;
      if (!options_.isJson)
        std::printf("  %s: %s\n", SafeText(module.module).c_str(),
                    module.bundle.empty() ? "no" : ("yes, " + SafeText(module.bundle)).c_str());
      DataDictionary entry;
      entry.Set("Module", String(module.module));
      entry.Set("Build", String(module.build));
      entry.Set("IsServed", !module.bundle.empty());
      if (!module.bundle.empty()) entry.Set("Bundle", String(module.bundle));
      modules.Append(std::move(entry));
    }
    DataDictionary document;
    document.Set("Report", report.file.Text());
    document.Set("Modules", std::move(modules));
    reports_.Append(std::move(document));
  }

  [[nodiscard]] ServedModule Served(const ModuleIdentity& identity,
                                    const DataDictionary& module) const {
    const auto* build = module.FindAs<String>(property::kBuild);
    ServedModule served{identity.name, build == nullptr ? "" : build->ToStdString(), {}};
    for (const CheckedArchive& archive : archives_) {
      const auto entries = EntriesFor({.name = identity.name,
                                       .path = identity.path,
                                       .platform = identity.platform,
                                       .id = identity.id,
                                       .isExecutable = identity.isExecutable},
                                      archive.manifest);
      if (served.bundle.empty() && !entries.empty()) served.bundle = entries.front()->bundle;
    }
    return served;
  }

  void PrintDocument() {
    DataArray archives;
    for (const CheckedArchive& archive : archives_) {
      DataDictionary document;
      document.Set("Archive", String(archive.file));
      DataArray bundles;
      for (const CheckedBundle& bundle : archive.bundles) bundles.Append(DocumentOf(bundle));
      document.Set("Bundles", std::move(bundles));
      archives.Append(std::move(document));
    }
    DataDictionary document;
    document.Set("IsGood", isGood_);
    document.Set("Archives", std::move(archives));
    document.Set("Reports", std::move(reports_));
    std::fputs(JsonText(document).c_str(), stdout);
  }

  Host& host_;
  const CheckOptions& options_;
  std::vector<CheckedArchive> archives_;
  DataArray reports_;
  bool isGood_ = true;
};

}  // namespace

void AddCheckCommand(Program& program, Context& context) {
  Command check =
      program.AddSubcommand("check", "Say what archives of symbols hold, and whom they serve");
  check.SetFooter(kCheckFooter);
  auto options = std::make_shared<CheckOptions>();
  check.AddFlag("--json", options->isJson, "Print a document for programs");
  check.AddOption("FILE", options->files, "Archives (*.zip) and crash reports").Required();
  check.OnNamed([&context, options] {
    context.action = [&context, options] {
      context.host.components.push_back(ReportWorkComponent());
      context.host.arguments.insert(context.host.arguments.begin(),
                                    "--g_crashlogResolveDiagnosticOutput=0");
      return WithHost(context, [options](Host& host) { return Checker(host, *options).Run(); });
    };
  });
}

}  // namespace tarvo::command
