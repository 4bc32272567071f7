#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "tarvo/string.h"

namespace tarvo {

template <typename T>
class Result;

/// Names a file or directory. Holds the system path; a default-made Url is empty and means "not
/// set". A Url is a value: it does not know whether what it names exists (FileService does).
///
/// The operations that can fail need "tarvo/result.h", which brings their bodies.
class Url {
 public:
  Url() = default;

  /// Reads the text form: a `file:` URL with an absolute path ("file:///a%20b", "file:/a",
  /// "file://localhost/a"), percent-decoded, or an absolute or relative system path, kept as it
  /// stands. Empty text gives an empty Url. Any other scheme (letters, digits, "+", "-", "." before
  /// a ":" that comes before any "/"), a foreign host, a broken percent escape or a NUL byte is a
  /// conversion error.
  static Result<Url> FromText(const String& text);

  /// Takes a system path as it is, with every byte standing for itself.
  static Url FromSystemPath(String path) noexcept {
    Url url;
    url.path_ = std::move(path);
    return url;
  }

  [[nodiscard]] bool IsEmpty() const noexcept { return path_.IsEmpty(); }
  /// The path for system calls (not zero-terminated).
  [[nodiscard]] const String& SystemPath() const noexcept { return path_; }
  /// The text that people see: the system path.
  [[nodiscard]] const String& Text() const noexcept { return path_; }

  /// What stands after the last "/".
  [[nodiscard]] String Name() const;
  /// The directory that holds it: what stands before the last "/" ("." where there is none).
  [[nodiscard]] Url Parent() const;
  /// This directory with `name` below it.
  [[nodiscard]] Url Append(std::string_view name) const;

  /// What stands after the last "." of the name, without it; empty when there is none. A name's
  /// first character never starts a suffix (".profile" has none).
  [[nodiscard]] String Suffix() const;
  /// The same with another suffix; the suffix is added when there was none. An illegal-argument
  /// error when the Url names nothing (empty, or ends in "/") or `suffix` holds "/" or NUL.
  [[nodiscard]] Result<Url> WithSuffix(std::string_view suffix) const;

  friend bool operator==(const Url& a, const Url& b) noexcept { return a.path_ == b.path_; }

 private:
  friend struct BorderLayout;
  String path_;
};

inline String Url::Name() const {
  const std::size_t slash = path_.View().rfind('/');
  return slash == std::string_view::npos ? path_ : path_.Slice(slash + 1);
}

inline Url Url::Parent() const {
  const std::size_t slash = path_.View().rfind('/');
  if (slash == std::string_view::npos) return FromSystemPath("."_text);
  return FromSystemPath(path_.Slice(0, slash == 0 ? 1 : slash));
}

inline Url Url::Append(std::string_view name) const {
  if (IsEmpty()) return FromSystemPath(String(name));
  std::string path = path_.ToStdString();
  if (!path.ends_with('/')) path += '/';
  path += name;
  return FromSystemPath(String(path));
}

inline String Url::Suffix() const {
  const String name = Name();
  const std::size_t dot = name.View().rfind('.');
  return dot == std::string_view::npos || dot == 0 ? String() : name.Slice(dot + 1);
}

}  // namespace tarvo
