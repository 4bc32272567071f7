#include "services/observable.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "tarvo/format.h"

namespace tarvo {
namespace {

constexpr SourceFile kObservable{"tarvo/source/observable"};

class ObservableImplementation final : public Counted<Observable> {
 public:
  Result<void> Initialise(const String& name) override {
    const std::scoped_lock lock(mutex_);
    if (state_ != State::Unnamed) {
      return Error::IllegalState(kObservable.Here(),
                                 Format("The observable @ already has a name.", name_));
    }
    name_ = name;
    state_ = State::Active;
    return {};
  }

  void Deactivate() override {
    // Observers are let go outside the lock: their closures' ends may call back.
    std::vector<Entry> observers;
    const std::scoped_lock lock(mutex_);
    state_ = State::Deactivated;
    observers.swap(observers_);
  }

  [[nodiscard]] String Name() const override {
    const std::scoped_lock lock(mutex_);
    return name_;
  }

  Result<ObserverId> Add(Observer observer) override {
    const std::scoped_lock lock(mutex_);
    if (state_ != State::Active) {
      return Error::IllegalState(
          kObservable.Here(),
          Format("The observable @ is not active and takes no observers.", name_));
    }
    observers_.push_back({++lastId_, std::make_shared<const Observer>(std::move(observer))});
    return lastId_;
  }

  void Remove(ObserverId id) override {
    std::shared_ptr<const Observer> removed;
    const std::scoped_lock lock(mutex_);
    const auto at = std::ranges::find(observers_, id, &Entry::id);
    if (at == observers_.end()) return;
    removed = std::move(at->observer);
    observers_.erase(at);
  }

  Result<void> Notify(const DataValue& value) override {
    for (const Entry& entry : Current())
      if (auto result = Tell(*entry.observer, value); !result) return result;
    return {};
  }

 private:
  enum class State { Unnamed, Active, Deactivated };
  struct Entry {
    ObserverId id;
    std::shared_ptr<const Observer> observer;
  };

  ~ObservableImplementation() override = default;

  /// No exception leaves: the notifying module may have been built without them.
  static Result<void> Tell(const Observer& observer, const DataValue& value) try {
    return observer(value);
  } catch (const std::exception& exception) {
    return Error::Plain(kObservable.Here(), Format("An observer threw: @", exception.what()));
  } catch (...) {
    return Error::Plain(kObservable.Here(), "An observer threw what is no exception.");
  }

  [[nodiscard]] std::vector<Entry> Current() const {
    const std::scoped_lock lock(mutex_);
    return observers_;
  }

  mutable std::mutex mutex_;
  State state_ = State::Unnamed;
  String name_;
  std::vector<Entry> observers_;
  ObserverId lastId_ = 0;
};

}  // namespace

Ref<Object> CreateObservable() { return Make<ObservableImplementation>(); }

}  // namespace tarvo
