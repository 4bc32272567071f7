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

Result<void> ReadMagic(Tokenizer& tokens) {
  if (tokens.ReadNext() != TokenKind::Identifier)
    return Error::Plain(kSource.Here(), "Expected identifier");
  if (std::ranges::find(crash_report::kMagics, tokens.Text()) == crash_report::kMagics.end())
    return Error::Plain(kSource.Here(), Format("Wrong type of report: @", TokenForMessage(tokens)));
  return {};
}

/// A thread or module on its own, behind damage: the block around it has ended early.
template <auto kParse>
Result<void> ReadStray(Tokenizer& tokens, DataDictionary& report, const String& property,
                       const auto&... arguments) {
  Result<DataDictionary> entry = kParse(tokens, arguments...);
  if (!entry) return entry.GetError();
  const auto* before = report.FindAs<DataArray>(property);
  DataArray all = before == nullptr ? DataArray() : *before;
  all.Append(*std::move(entry));
  report.Set(property, std::move(all));
  return {};
}

Result<void> ReadSection(Tokenizer& tokens, DataDictionary& report) {
  if (tokens.Kind() != TokenKind::Identifier)
    return ErrorInLine("ParseBugReport found an error in line @ with @ and unknown symbol type",
                       tokens, TokenForMessage(tokens));
  if (tokens.Salvages() && tokens.Text().starts_with(section::kThreadPrefix))
    return ReadStray<ParseCallstack>(tokens, report, property::kThreads, DataDictionary());
  if (tokens.Salvages() && tokens.IsIdentifier(crash_report::key::kModuleName))
    return ReadStray<ParseModuleInfo>(tokens, report, property::kLoadedModules);
  const auto section = std::ranges::find(kSections, tokens.Text(), &Section::keyword);
  if (section == kSections.end())
    return ErrorInLine("ParseBugReport found an error in line @ with @", tokens,
                       TokenForMessage(tokens));
  Result<DataValue> value = section->parse(tokens);
  if (!value) return value.GetError();
  report.Set(section->property, *std::move(value));
  return {};
}

/// Whether the body was whole, which may be empty then; what is found behind its end is read too.
Result<bool> ReadBody(Tokenizer& tokens, DataDictionary& report) {
  const auto readSection = [&] { return ReadSection(tokens, report); };
  Result<void> sections = ReadBlock(tokens, BlockKind::Body, readSection);
  const bool isWhole = tokens.State().damage.IsEmpty() || tokens.State().lacksOnlyItsEnd;
  while (sections && GoesOnBehindEnd(tokens))
    sections = ReadEntries(tokens, BlockKind::Body, readSection);
  if (!sections) return sections.GetError();
  return isWhole;
}

/// Whether `text` ends within the report: nothing stands behind the last place of damage, and it
/// does not end as reports do.
bool IsCut(std::string_view text, const Recovery& state) {
  text = text.substr(0, text.find_last_not_of(" \t\r\n") + 1);
  const auto lines = static_cast<std::size_t>(std::ranges::count(text, '\n')) + 1;
  return state.damage.LastLine() >= lines && (state.isEndMissed || !text.ends_with('}'));
}

}  // namespace

Result<DataDictionary> ParseReport(String text, OnDamage onDamage) {
  const String whole = text;
  Tokenizer tokens(std::move(text), onDamage);
  if (Result<void> magic = ReadMagic(tokens); !magic) return magic.GetError();
  tokens.State().isOwn = tokens.IsIdentifier(crash_report::kTarvoMagic);
  DataDictionary report;
  const Result<bool> isWhole = ReadBody(tokens, report);
  if (!isWhole) return isWhole.GetError();
  Damage& damage = tokens.State().damage;
  if (report.IsEmpty() && !*isWhole) return Error::Plain(kSource.Here(), damage.First());
  if (report.Find(property::kComputerInfo) == nullptr) {
    DataDictionary computer;
    computer.Set(property::kOsType, String::Literal(crash_report::kLinuxMagic));
    report.Set(property::kComputerInfo, std::move(computer));
  }
  if (!damage.IsEmpty() && IsCut(whole, tokens.State())) damage.MarkCut();
  if (!damage.IsEmpty()) report.Set(property::kDamage, damage.Notes());
  return report;
}

std::optional<Error> FindWrongStart(String start, bool isWhole) {
  Tokenizer tokens(std::move(start));
  const Result<void> magic = ReadMagic(tokens);
  const bool isUndecided = !isWhole && tokens.IsAtEnd();
  if (magic || isUndecided) return std::nullopt;
  return magic.GetError();
}

}  // namespace tarvo::crashhandler
