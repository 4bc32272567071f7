#include "toolkit/triage/reading/crash_record.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <map>

#include "tarvo/crash_report.h"
#include "tarvo/format.h"
#include "toolkit/document/crash.h"
#include "toolkit/triage/grouping/crash_class.h"
#include "toolkit/triage/grouping/frame_rules.h"
#include "toolkit/triage/grouping/stack_keys.h"
#include "toolkit/triage/reading/crash_time.h"

namespace tarvo::toolkit {
namespace {

namespace variable = crash_report::variable;

/// Longer texts are cut: they come from strangers, and are kept for each variant.
constexpr std::size_t kLongestText = 1024;
/// So many digits of a build id are enough to tell builds apart.
constexpr std::size_t kBuildIdDigits = 16;

/// At most kLongestText bytes, and no part of a character at the end.
std::string Cut(std::string_view text) {
  if (text.size() <= kLongestText) return std::string(text);
  std::size_t end = kLongestText;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  return std::string(text.substr(0, end));
}

std::optional<std::uint64_t> HexadecimalNumber(std::string_view text) {
  if (text.starts_with(crash_report::kHexadecimal)) text.remove_prefix(2);
  std::uint64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data(), end, number, 16);
  return status == std::errc{} && stop == end ? std::optional(number) : std::nullopt;
}

/// What programs write that do not know their build.
bool IsKnownBuild(std::string_view build) {
  constexpr std::array<std::string_view, 4> kNone = {"", "unknown", "UNKNOWNBUILDID", "?"};
  return std::ranges::find(kNone, build) == kNone.end();
}

/// The modules of a document, and what is known of their builds.
class Modules {
 public:
  explicit Modules(const CrashDocument& document) : document_(document) {
    for (const DocumentThread& thread : document.threads)
      for (const auto& [name, value] : thread.variables)
        if (name.starts_with(variable::kBuildIdPrefix))
          buildIds_.emplace(
              HexadecimalNumber(name.substr(variable::kBuildIdPrefix.size())).value_or(0), value);
  }

  [[nodiscard]] const DocumentModule* Find(const DocumentFrame& frame) const {
    const auto named = std::ranges::find(document_.modules, frame.module, &DocumentModule::name);
    if (named != document_.modules.end()) return &*named;
    const auto around = std::ranges::find_if(document_.modules, [&](const DocumentModule& module) {
      return frame.address && *frame.address >= module.baseAddress &&
             *frame.address - module.baseAddress < module.size;
    });
    return around == document_.modules.end() ? nullptr : &*around;
  }

  [[nodiscard]] std::string BuildOf(const DocumentModule& module) const {
    if (IsKnownBuild(module.build)) return Cut(module.build);
    const auto id = buildIds_.find(module.baseAddress);
    return id == buildIds_.end() ? std::string()
                                 : std::string(id->second.substr(0, kBuildIdDigits));
  }

  /// The build of the program: that of its own file, what it says of itself, else of a module.
  [[nodiscard]] std::string BuildOfProgram() const {
    const auto program = std::ranges::find_if(document_.modules, &DocumentModule::isExecutable);
    const bool hasProgram = program != document_.modules.end();
    if (hasProgram && IsKnownBuild(program->build)) return Cut(program->build);
    for (const std::string_view key :
         {std::string_view("BuildName"), std::string_view("Build"), crash_report::key::kVersion})
      if (const auto text = FindText(document_.application, key); IsKnownBuild(text))
        return Cut(text);
    for (const DocumentModule& module : document_.modules)
      if (IsKnownBuild(module.build)) return Cut(module.build);
    const std::string build = hasProgram ? BuildOf(*program) : std::string();
    return build.empty() ? std::string(kNotTold) : build;
  }

 private:
  const CrashDocument& document_;
  std::map<std::uint64_t, std::string_view> buildIds_{};  ///< by base address
};

std::string SystemOf(const CrashDocument& document) {
  struct System {
    std::string_view magic;
    std::string_view name;
  };
  constexpr std::array kSystems = {
      System{crash_report::kTarvoMagic, "Linux"}, System{crash_report::kLinuxMagic, "Linux"},
      System{crash_report::kWindowsMagic, "Windows"}, System{crash_report::kMacosMagic, "macOS"}};
  const std::string_view text = FindText(document.computer, crash_report::key::kOsType);
  if (text.empty()) return std::string(kNotTold);
  const auto known = std::ranges::find(kSystems, text, &System::magic);
  return known == kSystems.end() ? Cut(text) : std::string(known->name);
}

/// The last line of the log that tells of an assertion.
std::string_view AssertionIn(const CrashDocument& document) {
  const auto line = std::ranges::find_if(document.criticalLog.rbegin(), document.criticalLog.rend(),
                                         [](std::string_view text) {
                                           return text.find("ssert") != std::string_view::npos ||
                                                  text.find("ASSERT") != std::string_view::npos;
                                         });
  return line == document.criticalLog.rend() ? std::string_view() : *line;
}

/// Whether one function fills the stack.
bool IsDeeplyRecursive(const DocumentThread& thread) {
  constexpr std::size_t kLeastTimes = 64;
  std::map<std::string_view, std::size_t> times;
  return std::ranges::any_of(thread.frames, [&](const DocumentFrame& frame) {
    if (frame.function.empty()) return false;
    const std::size_t count = ++times[frame.function];
    return count >= kLeastTimes && count * 4 > thread.frames.size();
  });
}

std::string ClassOf(const CrashDocument& document, const DocumentThread* thread) {
  CrashSigns signs{
      .exceptionText = FindText(document.exception, crash_report::key::kExceptionText),
      .exceptionNumber = FindText(document.exception, crash_report::key::kExceptionNumber),
      .assertion = AssertionIn(document)};
  if (thread != nullptr) {
    const TextPairs& variables = thread->variables;
    signs.signal = FindText(variables, variable::kFaultSignal);
    signs.exceptionType = FindText(variables, variable::kExceptionType);
    signs.faultAddress = HexadecimalNumber(FindText(variables, variable::kFaultAddress));
    signs.stackPointer = HexadecimalNumber(FindText(variables, "Fault_rsp"));
    signs.isDeeplyRecursive = IsDeeplyRecursive(*thread);
  }
  return Cut(CrashClass(signs));
}

StackEntry EntryOf(const DocumentFrame& frame, const Modules& modules) {
  StackEntry entry{.function = std::string(frame.function),
                   .module = Cut(frame.module),
                   .sourceFile = Cut(frame.sourceFile),
                   .sourceLine = frame.sourceLine,
                   .symbolOffset = frame.symbolOffset,
                   .isInlined = !frame.inlinedInto.empty()};
  if (const DocumentModule* module = modules.Find(frame)) {
    if (entry.module.empty()) entry.module = Cut(module->name);
    entry.build = modules.BuildOf(*module);
    if (frame.address) entry.moduleOffset = *frame.address - module->baseAddress;
  }
  return entry;
}

/// The inlined callers of a frame, behind its own entry.
void AddCallers(const DocumentFrame& frame, CrashStack& stack) {
  const StackEntry own = stack.back();
  for (std::size_t i = 0; i < frame.inlinedInto.size() && stack.size() < kMostStackEntries; ++i) {
    const DocumentCaller& caller = frame.inlinedInto[i];
    StackEntry entry = own;
    entry.function = std::string(caller.function);
    entry.sourceFile = Cut(caller.sourceFile);
    entry.sourceLine = caller.sourceLine;
    entry.symbolOffset.reset();
    entry.isInlined = i + 1 < frame.inlinedInto.size();
    stack.push_back(std::move(entry));
  }
}

std::vector<MissingSymbols> MissingIn(const CrashStack& stack) {
  std::map<std::pair<std::string_view, std::string_view>, std::size_t> frames;
  for (const StackEntry& entry : stack)
    if (!entry.module.empty() && !IsOfCrashHandler(entry) && (!entry.isNamed || entry.symbolOffset))
      ++frames[{entry.module, entry.build}];
  std::vector<MissingSymbols> missing;
  for (const auto& [module, count] : frames)
    missing.push_back({std::string(module.first), std::string(module.second), count});
  return missing;
}

/// Sets stack, class and what follows from them.
void TakeStack(const CrashDocument& document, const Modules& modules, CrashRecord& record) {
  const report::CrashSite crash = FindCrash(document).value_or(report::CrashSite{});
  const DocumentThread* thread =
      crash.thread < document.threads.size() ? &document.threads[crash.thread] : nullptr;
  record.crashClass = ClassOf(document, thread);
  if (thread != nullptr) {
    std::size_t frame = crash.frame < thread->frames.size() ? crash.frame : 0;
    for (; frame < thread->frames.size() && record.stack.size() < kMostStackEntries; ++frame) {
      record.stack.push_back(EntryOf(thread->frames[frame], modules));
      AddCallers(thread->frames[frame], record.stack);
    }
    record.furtherFrames = thread->frames.size() - frame;
  }
  SetKeys(record.stack);
  // Of a name that is too long to be kept the key says more than its beginning.
  for (StackEntry& entry : record.stack) {
    entry.key = Cut(entry.key);
    if (entry.function.size() > kLongestText) entry.function = entry.key;
  }
  record.namedFrames =
      static_cast<std::size_t>(std::ranges::count_if(record.stack, &StackEntry::isNamed));
  record.missing = MissingIn(record.stack);
  record.fingerprint = MakeFingerprint(record.stack, record.crashClass);
}

}  // namespace

CrashRecord MakeCrashRecord(const CrashDocument& document, std::string path,
                            std::string contentHash) {
  const Modules modules(document);
  const std::string_view reportHash =
      FindText(document.outcome, crash_report::property::kOutcomeHash);
  CrashRecord record{.path = std::move(path),
                     .hash = reportHash.empty() ? std::move(contentHash) : Cut(reportHash),
                     .time = CrashTimeOf(document),
                     .build = modules.BuildOfProgram(),
                     .system = SystemOf(document)};
  TakeStack(document, modules, record);
  return record;
}

}  // namespace tarvo::toolkit
