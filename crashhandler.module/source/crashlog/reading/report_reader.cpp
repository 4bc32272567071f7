#include "crashlog/reading/report_reader.h"

#include <algorithm>
#include <array>
#include <utility>

#include "crashlog/base/property_names.h"
#include "crashlog/base/source.h"
#include "crashlog/reading/block.h"
#include "crashlog/reading/messages.h"
#include "crashlog/reading/section_parsers.h"
#include "crashlog/reading/tokenizer.h"
#include "tarvo/crash_report.h"

namespace tarvo::crashhandler {

namespace section = crash_report::section;

namespace {

/// "Opened Scenes", on its first word.
Result<DataArray> ParseOpened(Tokenizer& tokens) {
  Result<void> word = tokens.ReadNext(TokenKind::Identifier);
  if (!word) return word.GetError();
  if (tokens.Text() != section::kScenes) return Error::Plain(kSource.Here());
  return ParseOpenedScenes(tokens);
}

struct Section {
  std::string_view keyword;
  const String& property;
  Result<DataValue> (*parse)(Tokenizer&);
};

template <auto kParse>
Result<DataValue> AsValue(Tokenizer& tokens) {
  auto section = kParse(tokens);
  if (!section) return section.GetError();
  return DataValue(*std::move(section));
}

constexpr std::array kSections = {
    Section{section::kCallStacks, property::kThreads, AsValue<ParseThreads>},
    Section{section::kException, property::kException, AsValue<ParseException>},
    Section{section::kComputerInfo, property::kComputerInfo, AsValue<ParseComputerInfo>},
    Section{section::kApplicationInfo, property::kApplicationInfo, AsValue<ParseApplicationInfo>},
    Section{section::kOpened, property::kDocuments, AsValue<ParseOpened>},
    Section{section::kLoadedModules, property::kLoadedModules, AsValue<ParseLoadedModules>},
    Section{section::kCriticalLog, property::kCriticalLog, AsValue<ParseCriticalLog>},
};

Result<void> ReadHeader(Tokenizer& tokens) {
  if (tokens.ReadNext() != TokenKind::Identifier)
    return Error::Plain(kSource.Here(), "Expected identifier");
  if (std::ranges::find(crash_report::kMagics, tokens.Text()) == crash_report::kMagics.end())
    return Error::Plain(kSource.Here(), Format("Wrong type of report: @", TokenForMessage(tokens)));
  return tokens.ReadNext(TokenKind::OpenBrace);
}

Result<void> ReadSection(Tokenizer& tokens, DataDictionary& report) {
  if (tokens.Kind() != TokenKind::Identifier)
    return ErrorInLine("ParseBugReport found an error in line @ with @ and unknown symbol type",
                       tokens, TokenForMessage(tokens));
  const auto section = std::ranges::find(kSections, tokens.Text(), &Section::keyword);
  if (section == kSections.end())
    return ErrorInLine("ParseBugReport found an error in line @ with @", tokens,
                       TokenForMessage(tokens));
  Result<DataValue> value = section->parse(tokens);
  if (!value) return value.GetError();
  report.Set(section->property, *std::move(value));
  return {};
}

}  // namespace

Result<DataDictionary> ParseReport(String text) {
  Tokenizer tokens(std::move(text));
  if (Result<void> header = ReadHeader(tokens); !header) return header.GetError();
  DataDictionary report;
  Result<void> sections = ReadEntries(tokens, [&] { return ReadSection(tokens, report); });
  if (!sections) return sections.GetError();
  if (report.Find(property::kComputerInfo) == nullptr) {
    DataDictionary computer;
    computer.Set(property::kOsType, String::Literal(crash_report::kLinuxMagic));
    report.Set(property::kComputerInfo, std::move(computer));
  }
  return report;
}

}  // namespace tarvo::crashhandler
