#include "services/clock.h"

namespace tarvo {
namespace {

class Steady final : public ClockService {
 public:
  [[nodiscard]] std::chrono::nanoseconds Now() override {
    return std::chrono::steady_clock::now().time_since_epoch();
  }
};

}  // namespace

ClockService& SteadyClock() noexcept {
  static constinit Steady clock;
  return clock;
}

}  // namespace tarvo
