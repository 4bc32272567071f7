#include "services/observable.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace tarvo {
namespace {

constexpr SourceFile kSource{"tests/observable"};

Ref<Observable> MakeObservable() {
  return Ref<Observable>::Adopt(static_cast<Observable*>(CreateObservable().Detach()));
}

TEST(Observable, NotifiesInOrderUntilTheFirstError) {
  const auto observable = MakeObservable();
  ASSERT_TRUE(observable->Initialise("Watched"));
  std::string seen;
  const auto observer = [&seen](char name, bool fails) {
    return [&seen, name, fails](const DataValue& value) -> Result<void> {
      seen += name + std::to_string(*value.As<std::int64_t>());
      if (fails) return Error::IllegalState(kSource.Here(), "refused");
      return {};
    };
  };
  const auto first = observable->Add(observer('a', false));
  const auto second = observable->Add(observer('b', true));
  ASSERT_TRUE(observable->Add(observer('c', false)));
  EXPECT_EQ(observable->Notify(1).GetError().Message(), "refused");
  observable->Remove(*second);
  EXPECT_TRUE(observable->Notify(2));
  observable->Remove(*first);
  observable->Remove(*first);
  EXPECT_TRUE(observable->Notify(3));
  EXPECT_EQ(seen, "a1b1a2c2c3");
}

TEST(Observable, ObserversMayAddAndRemoveDuringANotification) {
  const auto observable = MakeObservable();
  ASSERT_TRUE(observable->Initialise("Watched"));
  std::string seen;
  Observable::ObserverId own = 0;
  own = *observable->Add([&](const DataValue&) -> Result<void> {
    seen += 'x';
    observable->Remove(own);
    return observable->Add([&](const DataValue&) -> Result<void> {
      seen += 'y';
      return {};
    })
               ? Result<void>()
               : Error::IllegalState(kSource.Here(), "not added");
  });
  EXPECT_TRUE(observable->Notify(1));
  EXPECT_TRUE(observable->Notify(1));
  EXPECT_EQ(seen, "xy");
}

TEST(Observable, ContainsWhatAnObserverThrows) {
  const auto observable = MakeObservable();
  ASSERT_TRUE(observable->Initialise("Watched"));
  const auto id = observable->Add(
      [](const DataValue&) -> Result<void> { throw std::runtime_error("no \033 way"); });
  EXPECT_EQ(observable->Notify(1).GetError().Message(), "An observer threw: no \033 way");
  observable->Remove(*id);
  ASSERT_TRUE(observable->Add([](const DataValue&) -> Result<void> { throw 1; }));
  EXPECT_EQ(observable->Notify(1).GetError().Message(), "An observer threw what is no exception.");
}

TEST(Observable, RefusesObserversOutsideItsLife) {
  const auto observable = MakeObservable();
  const auto ignore = [](const DataValue&) -> Result<void> { return {}; };
  EXPECT_EQ(observable->Add(ignore).GetError().ClassId(), Error::kIllegalState);
  ASSERT_TRUE(observable->Initialise("Watched"));
  EXPECT_EQ(observable->Initialise("Other").GetError().Message(),
            "The observable Watched already has a name.");
  auto captured = std::make_shared<int>();
  const std::weak_ptr<int> watch = captured;
  ASSERT_TRUE(observable->Add([captured](const DataValue&) -> Result<void> { return {}; }));
  captured.reset();
  observable->Deactivate();
  EXPECT_TRUE(watch.expired());
  EXPECT_TRUE(observable->Notify(1));
  EXPECT_EQ(observable->Add(ignore).GetError().Message(),
            "The observable Watched is not active and takes no observers.");
}

}  // namespace
}  // namespace tarvo
