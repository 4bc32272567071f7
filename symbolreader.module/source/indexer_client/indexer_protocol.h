#pragma once

#include <cstdint>

/// What the module and its program tarvo-symbol-indexer have to agree on.
namespace tarvo::symbolreader {

/// The program's exit status when the debug file or the limits are at fault; others than this and 0
/// stand for what may be better next time.
inline constexpr int kExitUnreadable = 1;

/// What the program that makes an index keeps at the start of the file that is its standard output:
/// how far it is, in bytes of debug information. Both are 0 until it knows.
struct IndexProgress {
  std::uint64_t done = 0;
  std::uint64_t all = 0;
};
static_assert(sizeof(IndexProgress) == 16);
/// Behind that it keeps the files with parts of the debug file, as missing_files.h encodes them,
/// each before it is looked at: how it ends is not known.

}  // namespace tarvo::symbolreader

/// How the module asks tarvo-symbol-indexer for single addresses, over a stream socket, in the
/// machine's byte order. The program starts with an AnswerGreeting, with the bytes of the error
/// text behind it where the file cannot be read. Then the question is the address, 8 bytes; the
/// answer an AnswerHeader, and behind it for each frame an AnswerFrame with the bytes of function,
/// file and the file's checksum behind it. Questions are answered one by one; the program ends when
/// the socket is closed.
namespace tarvo::symbolreader {

/// More than this of a function's name or a file's path is cut off.
inline constexpr std::uint32_t kMostAnswerText = 1 << 20;

struct AnswerGreeting {
  std::uint32_t isOpen = 0;
  std::uint32_t errorSize = 0;
  std::uint64_t imageStart = 0;
  std::uint64_t imageEnd = 0;
};
static_assert(sizeof(AnswerGreeting) == 24);

struct AnswerHeader {
  std::uint32_t frames = 0;        ///< 0: nothing is known of the address; at most kLongestChain
  std::uint32_t isSymbol = 0;      ///< whether only a symbol table knows the address, and then ...
  std::uint64_t symbolOffset = 0;  ///< ... how far behind the symbol it is
};
static_assert(sizeof(AnswerHeader) == 16);

struct AnswerFrame {
  std::uint32_t functionSize = 0;
  std::uint32_t fileSize = 0;
  std::uint32_t checksumSize = 0;
  std::uint32_t line = 0;
};
static_assert(sizeof(AnswerFrame) == 16);

}  // namespace tarvo::symbolreader
