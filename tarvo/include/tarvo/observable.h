#pragma once

#include <cstdint>
#include <functional>

#include "tarvo/data_dictionary.h"
#include "tarvo/object.h"
#include "tarvo/result.h"

namespace tarvo {

/// Something that others can watch: a named object that hands each new value to its observers.
/// The framework makes one for the class id "net.tarvo.class.observable".
///
/// Thread safety: every operation may be called from any thread. Observers run in the thread that
/// calls Notify, outside the observable's lock, in the order in which they were added; they may
/// add and remove observers.
class Observable : public Object {
 public:
  static constexpr std::string_view kClassId = "net.tarvo.class.observable";

  /// What an observer does with a new value; its error ends the notification.
  using Observer = std::function<Result<void>(const DataValue&)>;
  using ObserverId = std::uint64_t;

  /// Gives the name, which appears in errors. An illegal-state error when it already has one.
  virtual Result<void> Initialise(const String& name) = 0;
  /// Lets go of all observers; later notifications reach nobody and later Adds are refused.
  virtual void Deactivate() = 0;

  [[nodiscard]] virtual String Name() const = 0;
  /// Adds an observer. An illegal-state error before Initialise and after Deactivate.
  virtual Result<ObserverId> Add(Observer observer) = 0;
  /// Removes an observer; an id that is not there is ignored. A notification that runs meanwhile
  /// may still reach it.
  virtual void Remove(ObserverId id) = 0;
  /// Calls the observers with `value`; the first error ends the round and is returned.
  virtual Result<void> Notify(const DataValue& value) = 0;

 protected:
  ~Observable() = default;
};

}  // namespace tarvo
