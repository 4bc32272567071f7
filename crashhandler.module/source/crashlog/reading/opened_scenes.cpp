#include <utility>

#include "crashlog/base/property_names.h"
#include "crashlog/base/text.h"
#include "crashlog/reading/block.h"
#include "crashlog/reading/line_rules.h"
#include "crashlog/reading/section_parsers.h"

namespace tarvo::crashhandler {
namespace {

DataDictionary Document(String name, String path) {
  DataDictionary document;
  document.Set(property::kDocumentName, std::move(name));
  document.Set(property::kDocumentPath, std::move(path));
  return document;
}

/// The document that a report states behind "Opened Scenes =", if any.
DataArray ReadStatedDocument(Tokenizer& tokens) {
  DataArray documents;
  const std::string_view rest = tokens.RestOfLine();
  const std::size_t equals = rest.find('=');
  const String name = tokens.Share(DropTrailingBlanks(rest.substr(0, equals)));
  if (equals != std::string_view::npos) {
    documents.Append(Document(name, tokens.Share(SkipBlanks(rest.substr(equals + 1)))));
  } else if (!rest.empty()) {
    DataDictionary document;
    document.Set(property::kDocumentName, name);
    documents.Append(std::move(document));
  }
  return documents;
}

Error UnexpectedToken(const Tokenizer& tokens,
                      std::source_location where = std::source_location::current()) {
  return ErrorInLine("ParseOpenedScenes found an error in line @ with @", tokens,
                     TokenForMessage(tokens), where);
}

}  // namespace

Result<DataArray> ParseOpenedScenes(Tokenizer& tokens) {
  const TokenKind form = tokens.ReadNext();
  if (form == TokenKind::Equals) return ReadStatedDocument(tokens);
  if (form != TokenKind::OpenBrace) return UnexpectedToken(tokens);
  DataArray documents;
  Result<void> result = ReadEntries(tokens, BlockKind::Scenes, [&]() -> Result<void> {
    if (tokens.Kind() != TokenKind::Identifier) return UnexpectedToken(tokens);
    std::optional<KeyAndValue> line = ReadJoinedLine(tokens, Separator::Equals);
    if (!line) return ErrorInLine("ParseOpenedScenes found an erro in line @", tokens);
    if (Result<void> taken = TakeRoom(tokens, room::kDictionary); !taken) return taken;
    documents.Append(Document(std::move(line->key), std::move(line->value)));
    return {};
  });
  if (!result) return result.GetError();
  return documents;
}

}  // namespace tarvo::crashhandler
