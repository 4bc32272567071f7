#include "linux/linux_crashhandler/facts/thread_place.h"

#include <string_view>

#include "crash_context/proc_files.h"

namespace tarvo::crashhandler {
namespace {

/// Takes the last word off, which is a hexadecimal number behind " 0x".
bool TakeLast(std::string_view& text, std::uint64_t& value) {
  const std::size_t start = text.rfind(" 0x");
  if (start == std::string_view::npos) return false;
  std::string_view digits = text.substr(start + 3);
  value = TakeHexadecimal(digits);
  text = text.substr(0, start);
  return true;
}

long TakeDecimal(std::string_view text) {
  long number = 0;
  std::size_t digits = 0;
  for (; digits < text.size() && text[digits] >= '0' && text[digits] <= '9'; ++digits)
    number = 10 * number + (text[digits] - '0');
  return digits == 0 ? -1 : number;
}

}  // namespace

ThreadPlace ReadThreadPlace(pid_t tid) {
  const int file = OpenRaw(TaskPath(tid, "syscall").Text());
  if (file < 0) return {};
  char buffer[256];
  const ssize_t size = ReadRaw(file, buffer);
  CloseRaw(file);
  std::string_view text(buffer, static_cast<std::size_t>(size > 0 ? size : 0));
  ThreadPlace place;
  place.systemCall = TakeDecimal(text);
  place.isKnown = TakeLast(text, place.programCounter) && TakeLast(text, place.stackPointer);
  return place;
}

}  // namespace tarvo::crashhandler
