#include <utility>

#include "crashlog/base/property_names.h"
#include "crashlog/reading/block.h"
#include "crashlog/reading/line_rules.h"
#include "crashlog/reading/numbers.h"
#include "crashlog/reading/section_parsers.h"
#include "tarvo/crash_report.h"

namespace tarvo::crashhandler {

namespace section = crash_report::section;

namespace {

/// The value of a module's line: a number under the keys that hold one, else text as written.
Result<DataValue> ModuleValue(const KeyAndValue& line, const Tokenizer& tokens) {
  const bool isAddress = line.key == property::kBaseAddress;
  if (!isAddress && line.key != property::kBaseSize) return DataValue(line.value);
  const Result<std::uint64_t> number =
      isAddress ? ToAddress(line.value, tokens) : ToSize(line.value, tokens);
  if (!number) return number.GetError();
  return DataValue(*number);
}

}  // namespace

Result<DataArray> ParseLoadedModules(Tokenizer& tokens) {
  DataArray modules;
  Result<void> result = ReadBlock(tokens, BlockKind::Modules, [&]() -> Result<void> {
    if (tokens.IsIdentifier(section::kModuleSnapshotNote)) {
      tokens.RestOfLine();
      return {};
    }
    if (!tokens.IsIdentifier(crash_report::key::kModuleName))
      return ErrorInLine("ParseLoadedModules found an error in line @ with @", tokens,
                         TokenForMessage(tokens));
    Result<DataDictionary> module = ParseModuleInfo(tokens);
    if (!module) return module.GetError();
    if (Result<void> taken = TakeRoom(tokens, room::kModule); !taken) return taken;
    if (modules.IsEmpty()) module->Set(property::kIsExecutable, true);
    modules.Append(*std::move(module));
    return {};
  });
  if (!result) return result.GetError();
  return modules;
}

Result<DataDictionary> ParseModuleInfo(Tokenizer& tokens) {
  Result<KeyAndValue> title = ReadEqualsLine(tokens);
  if (!title) return title.GetError();
  DataDictionary module;
  module.Set(property::kModuleName, std::move(title->value));

  Result<void> result = ReadBlock(tokens, BlockKind::Entries, [&]() -> Result<void> {
    if (tokens.Kind() != TokenKind::Identifier)
      return ErrorInLine("ParseModuleInfo found an error in line @ with @", tokens,
                         TokenForMessage(tokens));
    Result<KeyAndValue> line = ReadEqualsLine(tokens);
    if (!line) return line.GetError();
    if (Result<void> whole = CheckLineEnd(tokens); !whole) return whole;
    Result<DataValue> value = ModuleValue(*line, tokens);
    if (!value) return value.GetError();
    module.Set(std::move(line->key), *std::move(value));
    return {};
  });
  if (!result) return result.GetError();
  return module;
}

}  // namespace tarvo::crashhandler
