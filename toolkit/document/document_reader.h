#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "toolkit/document/crash_document.h"

namespace tarvo::toolkit {

/// Takes the events of a JSON parser and fills a CrashDocument from them, so that the JSON is never
/// there as a tree. What is not known, at any depth, is passed over.
class DocumentReader {
 public:
  explicit DocumentReader(CrashDocument& document) : document_(document) {}

  /// Whether the document is an object with an array "Threads".
  [[nodiscard]] bool HasThreads() const { return hasThreads_; }

  /// The events, under the names that the parser gives them. All return true: go on. Texts must
  /// live as long as the document.
  bool Null() { return true; }
  bool Bool(bool value);
  bool Int(int value) { return Int64(value); }
  bool Uint(unsigned value) { return Uint64(value); }
  bool Int64(std::int64_t value) { return value < 0 || Uint64(static_cast<std::uint64_t>(value)); }
  bool Uint64(std::uint64_t value);
  bool Double(double /*value*/) { return true; }
  bool RawNumber(const char* /*text*/, unsigned /*size*/, bool /*copy*/) { return true; }
  bool String(const char* text, unsigned size, bool copy);
  bool StartObject() { return Open(false); }
  bool Key(const char* text, unsigned size, bool copy);
  bool EndObject(unsigned /*members*/) { return Close(); }
  bool StartArray() { return Open(true); }
  bool EndArray(unsigned /*elements*/) { return Close(); }

  /// What an object or array that is open stands for.
  enum class Place {
    Outside,
    Document,
    Outcome,
    Application,
    Computer,
    Exception,
    Threads,
    Thread,
    Variables,
    Registers,
    Frames,
    Frame,
    Callers,
    Caller,
    Modules,
    Module,
    Scenes,
    Scene,
    Damages,
    Damage,
    CriticalLog
  };

 private:
  bool Open(bool isArray);
  bool Close();
  void Enter(Place place);
  TextPairs* OpenPairs();

  CrashDocument& document_;
  std::vector<Place> places_{Place::Outside};
  std::size_t unknownDepth_ = 0;  ///< objects and arrays inside the first that is not known
  std::string_view key_{};        ///< of the member at hand; empty in arrays
  bool hasThreads_ = false;
};

}  // namespace tarvo::toolkit
