// A module whose symbolification answers from the file in g_recorderAnswers, lines of
// BUNDLE|OFFSET|FUNCTION|FILE|LINE, and tells its calls on the console.

#include <fstream>

#include "recording_symbolification.h"
#include "tarvo/module.h"

namespace tarvo::crashhandler {

void RegisterRecorder(Registration& registration);

namespace {

constexpr SourceFile kSource{"tests/recorder"};

String g_recorderAnswers;

AnswerTable ReadAnswers() {
  AnswerTable answers;
  std::ifstream file(g_recorderAnswers.ToStdString());
  std::string bundle;
  std::string offset;
  std::string line;
  for (Answer answer; std::getline(file, bundle, '|') && std::getline(file, offset, '|') &&
                      std::getline(file, answer.function, '|') &&
                      std::getline(file, answer.sourceFile, '|') && std::getline(file, line);) {
    answer.line = std::stoll(line);
    answers[bundle][std::stoull(offset, nullptr, 0)] = answer;
  }
  return answers;
}

void Tell(const String& call) { g_tarvo.framework->Output().Console(kSource.Here(), call); }

}  // namespace

void RegisterRecorder(Registration& registration) {
  registration.configuration.DeclareString("g_recorderAnswers", g_recorderAnswers, "",
                                           kGeneralCategory, "file of answers");
  registration.components.push_back({.interfaceId = Symbolification::kInterfaceId,
                                     .className = "Recorder",
                                     .create = []() -> Ref<Object> {
                                       return Make<RecordingSymbolification>(ReadAnswers(), Tell);
                                     }});
}

}  // namespace tarvo::crashhandler
