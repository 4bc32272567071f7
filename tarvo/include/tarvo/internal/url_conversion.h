#pragma once

// The bodies of those of Url's operations that can fail. They need Result and Error, which in turn
// hold a Url; result.h includes this file at its end to close the circle.

#include <charconv>
#include <optional>
#include <string>
#include <utility>

#include "tarvo/result.h"
#include "tarvo/url.h"

namespace tarvo {
namespace url_internal {

inline constexpr SourceFile kSource{"tarvo/include/tarvo/url"};

/// The scheme in front of the first ":", when there is one by RFC 3986 section 3.1.
inline std::optional<std::string_view> Scheme(std::string_view text) noexcept {
  const auto isLetter = [](char c) { return (c | 0x20) >= 'a' && (c | 0x20) <= 'z'; };
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos || colon == 0 || !isLetter(text[0])) return std::nullopt;
  for (const char c : text.substr(0, colon)) {
    if (!isLetter(c) && !(c >= '0' && c <= '9') && c != '+' && c != '-' && c != '.')
      return std::nullopt;
  }
  return text.substr(0, colon);
}

/// Replaces each "%XX" by its byte; nothing when an escape is not two hexadecimal digits.
inline std::optional<std::string> DecodePercent(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    const std::string_view digits = text.substr(i + 1, 2);
    unsigned value = 0;
    const auto [end, status] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    if (digits.size() != 2 || status != std::errc{} || end != digits.data() + 2)
      return std::nullopt;
    decoded += static_cast<char>(value);
    i += 2;
  }
  return decoded;
}

inline Error Refused(SourceLocation where, std::string_view text, std::string_view reason) {
  std::string message = "Could not convert \"";
  message += text;
  message += "\" into a URL: ";
  message += reason;
  return Error::Conversion(where, String(message));
}

}  // namespace url_internal

inline Result<Url> Url::FromText(const String& text) {
  using namespace url_internal;
  std::string_view rest = text.View();
  if (rest.find('\0') != std::string_view::npos)
    return Refused(kSource.Here(), rest, "it holds a NUL byte");
  const auto scheme = Scheme(rest);
  if (!scheme) return FromSystemPath(text);
  if (!String::Literal(*scheme).EqualsIgnoringCase("file"))
    return Refused(kSource.Here(), rest, "only file URLs and system paths are supported");
  rest.remove_prefix(scheme->size() + 1);
  if (rest.starts_with("//")) {
    rest.remove_prefix(2);
    const std::string_view host = rest.substr(0, rest.find('/'));
    if (!host.empty() && !String::Literal(host).EqualsIgnoringCase("localhost"))
      return Refused(kSource.Here(), text, "its host is not this machine");
    rest.remove_prefix(host.size());
  }
  if (!rest.starts_with('/'))
    return Refused(kSource.Here(), text, "a file URL needs an absolute path");
  const auto path = DecodePercent(rest);
  if (!path) return Refused(kSource.Here(), text, "a \"%\" is not followed by two hex digits");
  if (path->find('\0') != std::string::npos)
    return Refused(kSource.Here(), text, "it holds a NUL byte");
  return FromSystemPath(String(*path));
}

inline Result<Url> Url::WithSuffix(std::string_view suffix) const {
  if (Name().IsEmpty())
    return Error::IllegalArgument(url_internal::kSource.Here(), "The URL names no file.");
  if (suffix.find_first_of(std::string_view("/\0", 2)) != std::string_view::npos)
    return Error::IllegalArgument(url_internal::kSource.Here(), "The suffix is no file suffix.");
  const String old = Suffix();
  std::string path(path_.View().substr(0, path_.Size() - (old.IsEmpty() ? 0 : old.Size() + 1)));
  path += '.';
  path += suffix;
  return FromSystemPath(String(path));
}

}  // namespace tarvo
