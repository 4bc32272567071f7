#include "command/pack_progress.h"

#include <unistd.h>

#include <cstddef>
#include <cstdio>

#include "toolkit/base/safe_text.h"

namespace tarvo::command {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kBetweenShows{100};
constexpr std::chrono::seconds kBetweenLines{10};
constexpr std::size_t kProgressColumns = 79;

}  // namespace

PackProgress::PackProgress() : last_(steady_clock::now()), isTerminal_(isatty(STDERR_FILENO) == 1) {
  interval_ = isTerminal_ ? steady_clock::duration(kBetweenShows) : kBetweenLines;
}

PackProgress::~PackProgress() { Hide(); }

void PackProgress::Show(const std::string& text) {
  const auto now = steady_clock::now();
  if (now - last_ < interval_) return;
  last_ = now;
  const std::string safe = toolkit::SafeText(text);
  if (!isTerminal_) {
    std::fprintf(stderr, "tarvo: %s\n", safe.c_str());
    return;
  }
  isShown_ = true;
  std::fprintf(stderr, "\r%s\x1b[K", toolkit::Shortened(safe, kProgressColumns).c_str());
}

void PackProgress::Hide() {
  if (isShown_) std::fputs("\r\x1b[K", stderr);
  isShown_ = false;
}

}  // namespace tarvo::command
