#include "toolkit/report/report_text.h"

#include <cstdint>
#include <utility>

#include "tarvo/crash_report.h"
#include "tarvo/packed_file.h"
#include "toolkit/report/report_lines.h"
#include "toolkit/report/scratch.h"

namespace tarvo::report {
namespace {

/// Most reports are smaller, and are read at once.
constexpr std::size_t kStartBytes = 64 * 1024;
constexpr std::string_view kBigMark = "\xfe\xff";
constexpr std::string_view kLittleMark = "\xff\xfe";

// --- UTF-16 --------------------------------------------------------------------------------------

constexpr char32_t kReplacement = 0xfffd;

constexpr bool IsHigh(char32_t unit) noexcept { return unit >= 0xd800 && unit < 0xdc00; }
constexpr bool IsLow(char32_t unit) noexcept { return unit >= 0xdc00 && unit < 0xe000; }

void AppendUtf8(std::string& text, char32_t c) {
  const auto add = [&](char32_t byte) {
    text += static_cast<char>(static_cast<unsigned char>(byte));
  };
  if (c < 0x80) return add(c);
  if (c < 0x800) {
    add(0xc0 | c >> 6);
  } else if (c < 0x10000) {
    add(0xe0 | c >> 12);
    add(0x80 | (c >> 6 & 0x3f));
  } else {
    add(0xf0 | c >> 18);
    add(0x80 | (c >> 12 & 0x3f));
    add(0x80 | (c >> 6 & 0x3f));
  }
  add(0x80 | (c & 0x3f));
}

std::string Converted(std::string_view text, bool isBig) {
  std::string utf8;
  utf8.reserve(text.size() / 2);
  const auto unit = [&](std::size_t at) {
    const auto first = static_cast<unsigned char>(text[at]);
    const auto second = static_cast<unsigned char>(text[at + 1]);
    return static_cast<char32_t>(isBig ? first << 8 | second : second << 8 | first);
  };
  std::size_t at = 0;
  for (; at + 1 < text.size(); at += 2) {
    const char32_t c = unit(at);
    const bool isPair = IsHigh(c) && at + 3 < text.size() && IsLow(unit(at + 2));
    if (isPair) {
      AppendUtf8(utf8, 0x10000 + ((c - 0xd800) << 10) + (unit(at + 2) - 0xdc00));
      at += 2;
    } else {
      AppendUtf8(utf8, IsHigh(c) || IsLow(c) ? kReplacement : c);
    }
  }
  if (at < text.size()) AppendUtf8(utf8, kReplacement);
  return utf8;
}

/// As the first character of a report may be, or a blank in front.
constexpr bool IsAscii(char c) noexcept { return c > 0 && c < 0x7f; }

// --- Files ---------------------------------------------------------------------------------------

Result<ReportText> Unpacked(Framework& framework, const Url& file) {
  Result<Ref<ReadArchive>> packed = CreateObject<ReadArchive>(framework, kPackedFileClassId);
  if (!packed) return packed.GetError();
  if (auto opened = (*packed)->Open(file); !opened) return opened.GetError();
  const Result<Scratch> scratch = Scratch::Make();
  if (!scratch) return scratch.GetError();
  const Url directory = Url::FromSystemPath(scratch->Path()).Append("unpacked");
  if (auto extracted = (*packed)->Extract(directory); !extracted) return extracted.GetError();
  Result<String> text = framework.Files().ReadText(directory.Append(kPackedContent));
  if (!text) return text.GetError();
  const Url damageFile = directory.Append(kPackedDamage);
  const bool isWhole = framework.Files().Detect(damageFile) == FileKind::Nothing;
  Result<String> damage = isWhole ? String() : framework.Files().ReadText(damageFile);
  if (!damage) return damage.GetError();
  return ReportText{*std::move(text), true, *std::move(damage)};
}

/// The text of `file`, which starts with `start`: with nothing where it is no regular file.
Result<ReportText> TextFrom(String start, Framework& framework, const Url& file) {
  if (IsPacked(start)) {
    Result<ReportText> unpacked = Unpacked(framework, file);
    if (!unpacked) return unpacked.GetError();
    if (const auto converted = FromUtf16(unpacked->text)) unpacked->text = String(*converted);
    return unpacked;
  }
  const bool isWhole = !start.IsEmpty() && start.Size() < kStartBytes;
  Result<String> text = isWhole ? std::move(start) : framework.Files().ReadText(file);
  if (!text) return text.GetError();
  if (const auto converted = FromUtf16(*text)) return ReportText{String(*converted), true, {}};
  return ReportText{*std::move(text), false, {}};
}

/// Whether a text that starts so may be a report in some form.
bool MayBeReport(std::string_view start) {
  if (IsPacked(start)) return true;
  const auto wide = FromUtf16(start);
  const std::string_view text = wide ? *wide : start;
  return text.find_first_not_of(" \t\r\n") == std::string_view::npos || !Magic(text).empty();
}

std::string_view PackedSuffix(std::string_view name) noexcept {
  for (const std::string_view suffix : {std::string_view(".gz"), std::string_view(".xz")}) {
    if (name.size() > suffix.size() && name.ends_with(suffix)) return suffix;
  }
  return {};
}

}  // namespace

Result<ReportText> ReadWholeText(Framework& framework, const Url& file) {
  Result<String> start = framework.Files().ReadStart(file, kStartBytes);
  if (!start) return start.GetError();
  return TextFrom(*std::move(start), framework, file);
}

Result<ReportText> ReadReportText(Framework& framework, const Url& file) {
  Result<String> start = framework.Files().ReadStart(file, kStartBytes);
  if (!start) return start.GetError();
  if (!MayBeReport(*start)) return ReportText{*std::move(start), false, {}};
  return TextFrom(*std::move(start), framework, file);
}

std::optional<std::string> FromUtf16(std::string_view text) {
  if (text.starts_with(kBigMark)) return Converted(text.substr(2), true);
  if (text.starts_with(kLittleMark)) return Converted(text.substr(2), false);
  if (text.size() < 2) return std::nullopt;
  if (text[0] == '\0' && IsAscii(text[1])) return Converted(text, true);
  if (text[1] == '\0' && IsAscii(text[0])) return Converted(text, false);
  return std::nullopt;
}

bool IsReportFileName(std::string_view name) noexcept {
  name.remove_suffix(PackedSuffix(name).size());
  return crash_report::IsReportName(name);
}

Url WithoutPacking(const Url& report) {
  const std::size_t size = PackedSuffix(report.Name().View()).size();
  return Url::FromSystemPath(report.SystemPath().Slice(0, report.SystemPath().Size() - size));
}

}  // namespace tarvo::report
