#include "toolkit/resolve/running/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string_view>
#include <utility>

#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {
namespace {

using std::chrono::duration;
using std::chrono::seconds;

constexpr seconds kBetweenLines{10};
constexpr std::size_t kWidestBar = 40;
constexpr std::size_t kNarrowestBar = 5;

/// "1 h 5 min", "6 min 20 s", "12 s".
std::string Span(double time) {
  const auto whole = std::llround(std::min(time, 1e9));
  const auto text = [](long long large, const char* unit, long long small, const char* smaller) {
    return std::to_string(large) + unit + (small == 0 ? "" : " " + std::to_string(small) + smaller);
  };
  if (whole >= 3600) return text(whole / 3600, " h", whole % 3600 / 60, " min");
  if (whole >= 60) return text(whole / 60, " min", whole % 60, " s");
  return std::to_string(whole) + " s";
}

/// `rate` is what is done in a second.
std::string Rate(double rate) {
  const bool isSlow = rate < 1;
  char text[32];
  std::snprintf(text, sizeof text, rate < 10 ? "%.1f a %s" : "%.0f a %s", isSlow ? rate * 60 : rate,
                isSlow ? "minute" : "second");
  return text;
}

std::size_t TerminalWidth() {
  winsize size{};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : 80;
}

bool IsTerminal() {
  const char* kind = std::getenv("TERM");
  return isatty(STDERR_FILENO) != 0 && kind != nullptr && std::string_view(kind) != "dumb";
}

/// What takes time just now; set by any thread.
std::mutex g_activityMutex;
std::string g_activity;

std::string Activity() {
  const std::scoped_lock lock(g_activityMutex);
  return g_activity;
}

}  // namespace

void ShowActivity(const std::string& activity) {
  const std::scoped_lock lock(g_activityMutex);
  g_activity = SafeText(activity);
}

std::string ProgressLine(const Position& position) {
  std::string line =
      std::to_string(position.done) + " of " + std::to_string(position.all) + " reports";
  const double time = duration<double>(position.time).count();
  if (position.done == 0 || time <= 0) return line;
  const double rate = static_cast<double>(position.done) / time;
  line += ", " + Rate(rate);
  if (position.done < position.all)
    line += ", " + Span(static_cast<double>(position.all - position.done) / rate) + " left";
  return line;
}

std::string ProgressBar(const Position& position, std::size_t width) {
  const std::string line = ProgressLine(position);
  constexpr std::size_t kAround = 4;  // brackets, a blank, and the column that would wrap
  if (width < line.size() + kAround + kNarrowestBar)
    return line.substr(0, std::max(width, 1UL) - 1);
  const std::size_t size = std::min(width - line.size() - kAround, kWidestBar);
  const std::size_t filled = position.all == 0 ? size : position.done * size / position.all;
  return "[" + std::string(filled, '#') + std::string(size - filled, '-') + "] " + line;
}

Progress::Progress(bool isQuiet)
    : kind_(isQuiet        ? Kind::None
            : IsTerminal() ? Kind::Bar
                           : Kind::Lines),
      nextLine_(kBetweenLines) {}

Progress::~Progress() {
  if (kind_ == Kind::Bar) std::fputs("\r\x1b[K", stderr);
}

void Progress::Show(const Position& position) {
  const std::string activity = Activity();
  if (kind_ == Kind::Bar) {
    const std::size_t width = TerminalWidth();
    const std::string line = activity.empty()
                                 ? ProgressBar(position, width)
                                 : Shortened(activity, std::max<std::size_t>(width, 2) - 1);
    std::fprintf(stderr, "\r%s\x1b[K", line.c_str());
  }
  if (kind_ != Kind::Lines) return;
  const std::string about = activity.substr(0, activity.find(':'));
  if (!about.empty() && std::exchange(lastActivity_, about) != about)
    std::fprintf(stderr, "tarvo: %s\n", activity.c_str());
  if (position.time < nextLine_) return;
  std::fprintf(stderr, "tarvo: %s\n", ProgressLine(position).c_str());
  nextLine_ = position.time + kBetweenLines;
}

}  // namespace tarvo::toolkit
