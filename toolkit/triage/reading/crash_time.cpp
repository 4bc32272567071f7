#include "toolkit/triage/reading/crash_time.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string>

#include "tarvo/crash_report.h"

namespace tarvo::toolkit {
namespace {

using std::chrono::sys_days;
using std::chrono::sys_seconds;

/// What keys are called that say when the program crashed, in lower case and without separators.
constexpr std::array<std::string_view, 12> kTimeKeys = {
    "crashtime", "timeofcrash", "crashdate", "exceptiontime", "datetime",  "timestamp",
    "time",      "date",        "utctime",   "crashedat",     "localtime", "crashtimestamp"};

/// Takes numbers and signs from the front of a text.
class TimeReader {
 public:
  explicit TimeReader(std::string_view text) : rest_(text) {}

  /// A number of exactly so many digits.
  std::optional<int> Number(std::size_t digits) {
    int number = 0;
    const char* end = rest_.data() + std::min(digits, rest_.size());
    const auto [stop, status] = std::from_chars(rest_.data(), end, number);
    if (rest_.size() < digits || status != std::errc{} || stop != end || rest_[0] == '-')
      return std::nullopt;
    rest_.remove_prefix(digits);
    return number;
  }
  bool Sign(std::string_view oneOf) {
    if (rest_.empty() || oneOf.find(rest_[0]) == std::string_view::npos) return false;
    last_ = rest_[0];
    rest_.remove_prefix(1);
    return true;
  }
  void Digits() {
    rest_.remove_prefix(std::min(rest_.find_first_not_of("0123456789"), rest_.size()));
  }
  [[nodiscard]] char LastSign() const { return last_; }
  [[nodiscard]] bool IsAtEnd() const { return rest_.empty(); }

 private:
  std::string_view rest_;
  char last_ = 0;
};

std::optional<sys_days> ReadDay(TimeReader& reader) {
  const auto year = reader.Number(4);
  if (!year || !reader.Sign("-/.")) return std::nullopt;
  const auto month = reader.Number(2);
  if (!month || !reader.Sign("-/.")) return std::nullopt;
  const auto day = reader.Number(2);
  if (!day) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year(*year),
                                         std::chrono::month(static_cast<unsigned>(*month)),
                                         std::chrono::day(static_cast<unsigned>(*day))};
  return date.ok() && *year >= 1970 ? std::optional(sys_days(date)) : std::nullopt;
}

/// "13:09", and with `hasSeconds` "13:09:40.123".
std::optional<std::chrono::seconds> ReadClock(TimeReader& reader, bool hasSeconds) {
  const auto hour = reader.Number(2);
  if (!hour || *hour > 23) return std::nullopt;
  const bool hasColon = reader.Sign(":");
  const auto minute = reader.Number(2);
  if (!minute || *minute > 59 || (hasSeconds && !hasColon)) return std::nullopt;
  std::chrono::seconds clock = std::chrono::hours(*hour) + std::chrono::minutes(*minute);
  if (hasSeconds && reader.Sign(":")) {
    const auto second = reader.Number(2);
    if (!second || *second > 60) return std::nullopt;
    clock += std::chrono::seconds(*second);
    if (reader.Sign(".,")) reader.Digits();
  }
  return clock;
}

std::optional<sys_seconds> ParseDate(std::string_view text) {
  TimeReader reader(text);
  const auto day = ReadDay(reader);
  if (!day) return std::nullopt;
  if (reader.IsAtEnd()) return *day;
  if (!reader.Sign("T t_")) return std::nullopt;
  const auto clock = ReadClock(reader, true);
  if (!clock) return std::nullopt;
  reader.Sign(" ");
  std::chrono::seconds offset{0};
  if (reader.Sign("+-")) {
    const int sign = reader.LastSign() == '-' ? -1 : 1;
    const auto distance = ReadClock(reader, false);
    if (!distance) return std::nullopt;
    offset = sign * *distance;
  } else {
    reader.Sign("Zz");
  }
  return reader.IsAtEnd() ? std::optional(sys_seconds(*day + *clock - offset)) : std::nullopt;
}

/// Seconds or milliseconds since 1970, of this century's dates.
std::optional<sys_seconds> ParseCount(std::string_view text) {
  constexpr std::int64_t kFirst = 946684800, kLast = 4102444800;  // the years 2000 and 2100
  std::int64_t count = 0;
  const auto [stop, status] = std::from_chars(text.data(), text.data() + text.size(), count);
  if (status != std::errc{} || stop != text.data() + text.size()) return std::nullopt;
  for (const std::int64_t unit : {1, 1000})
    if (count >= kFirst * unit && count < kLast * unit)
      return sys_seconds(std::chrono::seconds(count / unit));
  return std::nullopt;
}

bool IsTimeKey(std::string_view key) {
  std::string plain;
  for (const char c : key) {
    if (c == '_' || c == '-' || c == ' ') continue;
    plain += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return std::ranges::find(kTimeKeys, plain) != kTimeKeys.end();
}

std::optional<sys_seconds> TimeIn(const TextPairs& pairs) {
  for (const auto& [key, value] : pairs)
    if (IsTimeKey(key))
      if (const auto time = ParseTime(value)) return time;
  return std::nullopt;
}

}  // namespace

std::optional<sys_seconds> ParseTime(std::string_view text) {
  constexpr std::string_view kAround = " \t\"";
  text.remove_prefix(std::min(text.find_first_not_of(kAround), text.size()));
  text = text.substr(0, text.find_last_not_of(kAround) + 1);
  const auto date = ParseDate(text);
  return date ? date : ParseCount(text);
}

std::optional<sys_seconds> CrashTimeOf(const CrashDocument& document) {
  for (const DocumentThread& thread : document.threads)
    if (const auto time = ParseTime(FindText(thread.variables, crash_report::variable::kCrashTime)))
      return time;
  for (const TextPairs* pairs : {&document.exception, &document.application, &document.computer})
    if (const auto time = TimeIn(*pairs)) return time;
  for (const DocumentThread& thread : document.threads)
    if (const auto time = TimeIn(thread.variables)) return time;
  return ParseTime(FindText(document.outcome, crash_report::property::kOutcomeTime));
}

}  // namespace tarvo::toolkit
