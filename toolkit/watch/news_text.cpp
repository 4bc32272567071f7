#include "toolkit/watch/news_text.h"

#include <cstdint>
#include <string_view>

#include "json/json_writer.h"
#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {
namespace {

std::string TextOf(const DataDictionary& news, const char* key) {
  const auto* text = news.FindAs<String>(key);
  return text == nullptr ? std::string() : SafeText(*text);
}

std::string NumberOf(const DataDictionary& news, const char* key) {
  const auto* number = news.FindAs<std::uint64_t>(key);
  return number == nullptr ? std::string() : std::to_string(*number);
}

bool Holds(const DataDictionary& news, const char* key) {
  const auto* value = news.FindAs<bool>(key);
  return value != nullptr && *value;
}

std::string FramesText(const DataDictionary& news) {
  const std::string all = NumberOf(news, news::kFrames);
  return all.empty() ? "resolved before"
                     : NumberOf(news, news::kResolved) + " of " + all + " frames resolved";
}

std::string GroupText(const DataDictionary& news) {
  if (news.Find(news::kNotGrouped) != nullptr)
    return "; not grouped: " + TextOf(news, news::kNotGrouped);
  if (news.Find(news::kGroup) == nullptr) return {};
  return std::string(Holds(news, news::kNewGroup) ? "; new group " : "; group ") +
         TextOf(news, news::kGroup) + " " + TextOf(news, news::kSignature);
}

}  // namespace

std::string NewsText(const DataDictionary& news) {
  const std::string start = TextOf(news, news::kReport) + ": ";
  if (TextOf(news, news::kOutcome) == news::kFailed)
    return start + "failed: " + TextOf(news, news::kError) + "\n";
  return start + FramesText(news) + (Holds(news, news::kDamaged) ? ", damaged" : "") +
         GroupText(news) + "\n";
}

std::string NewsLine(const DataDictionary& news) { return JsonDocument(news, JsonForm::Line); }

}  // namespace tarvo::toolkit
