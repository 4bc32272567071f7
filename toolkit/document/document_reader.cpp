#include "toolkit/document/document_reader.h"

#include <algorithm>
#include <array>

#include "tarvo/crash_report.h"
#include "toolkit/report/own_frame.h"

namespace tarvo::toolkit {

namespace property = crash_report::property;

namespace {

using Place = DocumentReader::Place;

/// The objects and arrays that are known: what opens inside of what, under which key.
struct Step {
  Place from;
  std::string_view key;
  bool isArray;
  Place to;
};
constexpr std::array kSteps = {
    Step{Place::Outside, "", false, Place::Document},
    Step{Place::Document, property::kOutcome, false, Place::Outcome},
    Step{Place::Document, property::kApplicationInfo, false, Place::Application},
    Step{Place::Document, property::kComputerInfo, false, Place::Computer},
    Step{Place::Document, property::kException, false, Place::Exception},
    Step{Place::Document, property::kThreads, true, Place::Threads},
    Step{Place::Threads, "", false, Place::Thread},
    Step{Place::Thread, property::kProperties, false, Place::Variables},
    Step{Place::Thread, property::kRegisters, false, Place::Registers},
    Step{Place::Thread, property::kCallstack, true, Place::Frames},
    Step{Place::Frames, "", false, Place::Frame},
    Step{Place::Frame, property::kInlinedInto, true, Place::Callers},
    Step{Place::Callers, "", false, Place::Caller},
    Step{Place::Document, property::kLoadedModules, true, Place::Modules},
    Step{Place::Modules, "", false, Place::Module},
    Step{Place::Document, property::kDocuments, true, Place::Scenes},
    Step{Place::Scenes, "", false, Place::Scene},
    Step{Place::Document, property::kDamage, true, Place::Damages},
    Step{Place::Damages, "", false, Place::Damage},
    Step{Place::Document, property::kCriticalLog, true, Place::CriticalLog}};

/// The members that are known: which value they set. The object that they are of is the last one.
template <typename Value>
struct Field {
  Place place;
  std::string_view key;
  void (*set)(CrashDocument& document, Value value);
};
DocumentFrame& LastFrame(CrashDocument& document) { return document.threads.back().frames.back(); }

DocumentCaller& LastCaller(CrashDocument& document) {
  return LastFrame(document).inlinedInto.back();
}

using Text = std::string_view;
constexpr std::array kTexts = {
    Field<Text>{Place::Frame, property::kModuleName,
                [](CrashDocument& d, Text text) { LastFrame(d).module = text; }},
    Field<Text>{Place::Frame, property::kFunctionName,
                [](CrashDocument& d, Text text) { LastFrame(d).function = text; }},
    Field<Text>{Place::Frame, property::kSourceFileName,
                [](CrashDocument& d, Text text) { LastFrame(d).sourceFile = text; }},
    Field<Text>{Place::Frame, property::kSourceFileChecksum,
                [](CrashDocument& d, Text text) { LastFrame(d).sourceFileChecksum = text; }},
    Field<Text>{Place::Caller, property::kFunctionName,
                [](CrashDocument& d, Text text) { LastCaller(d).function = text; }},
    Field<Text>{Place::Caller, property::kSourceFileName,
                [](CrashDocument& d, Text text) { LastCaller(d).sourceFile = text; }},
    Field<Text>{Place::Caller, property::kSourceFileChecksum,
                [](CrashDocument& d, Text text) { LastCaller(d).sourceFileChecksum = text; }},
    Field<Text>{Place::Module, property::kModuleName,
                [](CrashDocument& d, Text text) { d.modules.back().name = text; }},
    Field<Text>{Place::Module, crash_report::key::kExecutable,
                [](CrashDocument& d, Text text) { d.modules.back().path = text; }},
    Field<Text>{Place::Module, property::kBuild,
                [](CrashDocument& d, Text text) { d.modules.back().build = text; }},
    Field<Text>{Place::Scene, property::kDocumentName,
                [](CrashDocument& d, Text text) { d.scenes.back().first = text; }},
    Field<Text>{Place::Scene, property::kDocumentPath,
                [](CrashDocument& d, Text text) { d.scenes.back().second = text; }},
    Field<Text>{Place::Damage, property::kDamageExpected,
                [](CrashDocument& d, Text text) { d.damage.back().expected = text; }},
    Field<Text>{Place::CriticalLog, "",
                [](CrashDocument& d, Text text) { d.criticalLog.push_back(text); }}};

using Number = std::uint64_t;
constexpr std::array kNumbers = {
    Field<Number>{Place::Damage, property::kDamageLine,
                  [](CrashDocument& d, Number number) { d.damage.back().line = number; }},
    Field<Number>{Place::Thread, property::kThreadNumber,
                  [](CrashDocument& d, Number number) { d.threads.back().number = number; }},
    Field<Number>{Place::Frame, property::kSourceLine,
                  [](CrashDocument& d, Number number) { LastFrame(d).sourceLine = number; }},
    Field<Number>{Place::Caller, property::kSourceLine,
                  [](CrashDocument& d, Number number) { LastCaller(d).sourceLine = number; }},
    Field<Number>{Place::Frame, property::kSymbolOffset,
                  [](CrashDocument& d, Number number) { LastFrame(d).symbolOffset = number; }},
    Field<Number>{Place::Frame, property::kAddress,
                  [](CrashDocument& d, Number number) { LastFrame(d).address = number; }},
    Field<Number>{Place::Module, property::kBaseAddress,
                  [](CrashDocument& d, Number number) { d.modules.back().baseAddress = number; }},
    Field<Number>{Place::Module, property::kBaseSize,
                  [](CrashDocument& d, Number number) { d.modules.back().size = number; }}};

constexpr std::array kTruths = {
    Field<bool>{Place::Damage, property::kDamageCut,
                [](CrashDocument& d, bool value) { d.damage.back().isCut = value; }},
    Field<bool>{Place::Module, property::kIsExecutable,
                [](CrashDocument& d, bool value) { d.modules.back().isExecutable = value; }},
    Field<bool>{Place::Thread, property::kCrashed,
                [](CrashDocument& d, bool value) { d.threads.back().isCrashed = value; }},
    Field<bool>{Place::Frame, property::kCrashed,
                [](CrashDocument& d, bool value) { LastFrame(d).isCrashed = value; }}};

template <typename Fields, typename Value>
void SetField(const Fields& fields, Place place, std::string_view key, CrashDocument& document,
              Value value) {
  const auto field = std::ranges::find_if(
      fields, [&](const auto& known) { return known.place == place && known.key == key; });
  if (field != fields.end()) field->set(document, value);
}

/// Takes a frame apart that its report has in one text, as capture writes it and resolution leaves
/// it.
void SplitModuleText(DocumentFrame& frame) {
  const auto text = report::ParseFrameText(frame.module);
  if (!text || text->module.empty()) return;
  frame.module = text->module;
  frame.function = text->place;
  frame.address = text->address;
}

}  // namespace

bool DocumentReader::Open(bool isArray) {
  const auto step = std::ranges::find_if(kSteps, [&](const Step& known) {
    return known.from == places_.back() && known.key == key_ && known.isArray == isArray;
  });
  if (unknownDepth_ > 0 || step == kSteps.end()) {
    ++unknownDepth_;
  } else {
    places_.push_back(step->to);
    Enter(step->to);
  }
  key_ = {};
  return true;
}

bool DocumentReader::Close() {
  key_ = {};
  if (unknownDepth_ > 0) {
    --unknownDepth_;
    return true;
  }
  if (places_.back() == Place::Frame && LastFrame(document_).function == crash_report::kNull)
    SplitModuleText(LastFrame(document_));
  places_.pop_back();
  return true;
}

void DocumentReader::Enter(Place place) {
  hasThreads_ |= place == Place::Threads;
  if (place == Place::Thread) document_.threads.emplace_back();
  if (place == Place::Frame) document_.threads.back().frames.emplace_back();
  if (place == Place::Caller) LastFrame(document_).inlinedInto.emplace_back();
  if (place == Place::Module) document_.modules.emplace_back();
  if (place == Place::Scene) document_.scenes.emplace_back();
  if (place == Place::Damage) document_.damage.emplace_back();
}

TextPairs* DocumentReader::OpenPairs() {
  switch (places_.back()) {
    case Place::Outcome:
      return &document_.outcome;
    case Place::Application:
      return &document_.application;
    case Place::Computer:
      return &document_.computer;
    case Place::Exception:
      return &document_.exception;
    case Place::Variables:
      return &document_.threads.back().variables;
    case Place::Registers:
      return &document_.threads.back().registers;
    default:
      return nullptr;
  }
}

bool DocumentReader::Key(const char* text, unsigned size, bool /*copy*/) {
  key_ = {text, size};
  return true;
}

bool DocumentReader::String(const char* text, unsigned size, bool /*copy*/) {
  if (unknownDepth_ > 0) return true;
  const std::string_view value(text, size);
  if (TextPairs* pairs = OpenPairs()) {
    pairs->emplace_back(key_, value);
  } else {
    SetField(kTexts, places_.back(), key_, document_, value);
  }
  return true;
}

bool DocumentReader::Uint64(std::uint64_t value) {
  if (unknownDepth_ == 0) SetField(kNumbers, places_.back(), key_, document_, value);
  return true;
}

bool DocumentReader::Bool(bool value) {
  if (unknownDepth_ == 0) SetField(kTruths, places_.back(), key_, document_, value);
  return true;
}

}  // namespace tarvo::toolkit
