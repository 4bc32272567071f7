#include "toolkit/resolve/running/schedule.h"

#include <utility>

namespace tarvo::toolkit {
namespace {

std::size_t TakeFront(std::deque<std::size_t>& queue) {
  const std::size_t front = queue.front();
  queue.pop_front();
  return front;
}

}  // namespace

Schedule::Schedule(std::span<const Report> reports) {
  std::map<std::string_view, std::size_t> firsts;
  for (std::size_t i = 0; i < reports.size(); ++i) {
    if (reports[i].builds->empty()) {
      ready_.push_back(i);
    } else if (const auto [first, isNew] = firsts.try_emplace(reports[i].builds->front(), i);
               isNew) {
      firsts_.push_back(i);
      followers_[i];
    } else {
      followers_[first->second].push_back(i);
    }
  }
}

std::optional<std::size_t> Schedule::Take() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return !ready_.empty() || !firsts_.empty() || awaitedFirsts_ == 0; });
  if (!ready_.empty()) return TakeFront(ready_);
  if (firsts_.empty()) return std::nullopt;
  ++awaitedFirsts_;
  return TakeFront(firsts_);
}

void Schedule::Done(std::size_t report) {
  const std::scoped_lock lock(mutex_);
  const auto followers = followers_.find(report);
  if (followers == followers_.end()) return;
  ready_.insert(ready_.end(), followers->second.begin(), followers->second.end());
  followers_.erase(followers);
  --awaitedFirsts_;
  changed_.notify_all();
}

void Schedule::Stop() {
  const std::scoped_lock lock(mutex_);
  ready_.clear();
  firsts_.clear();
  for (auto& [first, followers] : followers_) followers.clear();
  changed_.notify_all();
}

}  // namespace tarvo::toolkit
