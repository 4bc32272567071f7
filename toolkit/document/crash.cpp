#include "toolkit/document/crash.h"

#include <algorithm>
#include <vector>

#include "tarvo/crash_report.h"

namespace tarvo::toolkit {
namespace {

report::ThreadFacts FactsOf(const DocumentThread& thread) {
  namespace variable = crash_report::variable;
  return {.number = thread.number,
          .threadRegister = FindText(thread.registers, crash_report::kThreadRegister),
          .fault = FindText(thread.variables, variable::kFaultProgramCounter),
          .signal = FindText(thread.variables, variable::kFaultSignal)};
}

std::vector<report::FrameName> NamesOf(const DocumentThread& thread) {
  std::vector<report::FrameName> names;
  names.reserve(thread.frames.size());
  for (const DocumentFrame& frame : thread.frames)
    names.push_back(
        {.module = frame.module, .function = frame.function, .address = frame.address.value_or(0)});
  return names;
}

report::CrashFacts FactsOf(const CrashDocument& document) {
  namespace key = crash_report::key;
  return {.exceptionThread = FindText(document.exception, key::kExceptionThread),
          .exceptionNumber = FindText(document.exception, key::kExceptionNumber),
          .exceptionText = FindText(document.exception, key::kExceptionText),
          .threads = document.threads.size(),
          .thread = [&](std::size_t index) { return FactsOf(document.threads[index]); },
          .frames = [&](std::size_t index) { return NamesOf(document.threads[index]); },
          .isIn =
              [&](std::size_t index, std::string_view module) {
                const auto& frames = document.threads[index].frames;
                return std::ranges::find(frames, module, &DocumentFrame::module) != frames.end();
              }};
}

}  // namespace

std::optional<report::CrashSite> FindCrash(const CrashDocument& document) {
  const report::CrashFacts facts = FactsOf(document);
  const auto& threads = document.threads;
  const auto marked = std::ranges::find(threads, true, &DocumentThread::isCrashed);
  if (marked == threads.end()) return report::FindCrashSite(facts);
  auto site = report::FindCrashSite(facts, static_cast<std::size_t>(marked - threads.begin()));
  const auto frame = std::ranges::find(marked->frames, true, &DocumentFrame::isCrashed);
  if (frame == marked->frames.end()) return site;
  site.frame = static_cast<std::size_t>(frame - marked->frames.begin());
  site.interrupted = std::min(site.interrupted, site.frame);
  return site;
}

}  // namespace tarvo::toolkit
