// Each thread that sets variables owns a slot of a list that only grows. The slot publishes an
// immutable snapshot: one allocation with the array of names and values and their texts. Setting a
// variable makes a new snapshot and exchanges it for the old one; looking up is a walk over the
// slots. So the reader takes no lock, allocates nothing, and sees whole snapshots only, whatever
// thread it interrupted.
//
// When may an old snapshot be freed? A reader stores its thread id into a mark before it loads any
// snapshot, and clears the mark when it is done. A writer exchanges the snapshot, then looks at the
// marks, and frees only when all are clear. All four operations are sequentially consistent, so
// they have one order in which: when the writer finds a mark clear, a reader that sets it later
// also loads later than the exchange and gets the new snapshot; and a reader that cleared it before
// has finished, its last access ordered before the writer's look. Otherwise the snapshot goes on
// the slot's list of retired ones, and the next change of the same slot tries again.

#include "tarvo/host/thread_variables.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <new>
#include <span>
#include <vector>

#include "crash_path/crash_services.h"
#include "tarvo/framework.h"

namespace tarvo {
namespace {

constexpr SourceFile kThreadVariables{"tarvo/source/thread_variables"};

/// Threads that may read at the same moment without an effect on memory; one more ends all freeing
/// for good.
constexpr std::size_t kReaderMarks = 32;

struct Snapshot {
  std::atomic<pid_t> tid;  ///< changes only in a forked child
  std::size_t size;
  Snapshot* nextRetired;

  NameAndValue* Items() noexcept { return reinterpret_cast<NameAndValue*>(this + 1); }
  [[nodiscard]] std::span<const NameAndValue> View() noexcept { return {Items(), size}; }
};
static_assert(alignof(NameAndValue) <= alignof(Snapshot));

struct Slot {
  std::atomic<pid_t> tid{0};  ///< the owner's; saves a reader the way to the other slots' snapshots
  std::atomic<Snapshot*> snapshot{nullptr};
  std::atomic<bool> owned{true};
  Snapshot* retired = nullptr;  ///< used by the owner only
  Slot* next = nullptr;         ///< constant once the slot is in the list
};

constinit std::atomic<Slot*> g_slots{nullptr};
/// Where the slot of a thread probably is, by its id: a capture looks each of thousands up.
constexpr std::size_t kHints = 4096;
constinit std::array<std::atomic<Slot*>, kHints> g_hints{};
constinit std::array<std::atomic<pid_t>, kReaderMarks> g_readers{};
constinit std::atomic<bool> g_unmarkedReader{false};
/// The variables of the thread that crashed, with what is known of the crash.
constinit std::array<NameAndValue, kMaximumCrashVariables> g_crashVariables{};
constinit std::size_t g_crashVariableCount = 0;
constinit std::atomic<pid_t> g_crashedThread{0};
static_assert(std::atomic<Slot*>::is_always_lock_free && std::atomic<pid_t>::is_always_lock_free &&
              std::atomic<bool>::is_always_lock_free);

std::atomic<Slot*>& HintFor(pid_t tid) noexcept {
  return g_hints[static_cast<std::size_t>(tid) % kHints];
}

bool IsAnyoneReading() noexcept {
  return g_unmarkedReader.load() ||
         std::ranges::any_of(g_readers, [](const auto& reader) { return reader.load() != 0; });
}

// --- Writing -------------------------------------------------------------------------------------

/// Runs in the slot's owner. `next` may be null.
void Publish(Slot& slot, Snapshot* next) noexcept {
  if (Snapshot* old = slot.snapshot.exchange(next); old != nullptr) {
    old->nextRetired = slot.retired;
    slot.retired = old;
  }
  if (slot.retired == nullptr || IsAnyoneReading()) return;
  while (slot.retired != nullptr) {
    Snapshot* unused = slot.retired;
    slot.retired = unused->nextRetired;
    ::operator delete(unused);
  }
}

void GiveUpSlot(void* slot) {
  Publish(*static_cast<Slot*>(slot), nullptr);
  static_cast<Slot*>(slot)->owned.store(false, std::memory_order_release);
}

// --- A thread's slot -----------------------------------------------------------------------------

/// The key under which a thread finds its slot, and whose destructor gives the slot up at the
/// thread's end. A key and no thread_local: its destructor runs again when a later destructor of
/// the thread sets a variable.
class SlotKey {
 public:
  SlotKey() noexcept
      : valid_(pthread_key_create(&key_, GiveUpSlot) == 0 &&
               pthread_atfork(nullptr, nullptr, FollowFork) == 0) {}

  [[nodiscard]] Slot* Get() const noexcept {
    return valid_ ? static_cast<Slot*>(pthread_getspecific(key_)) : nullptr;
  }
  [[nodiscard]] bool Set(Slot* slot) const noexcept {
    return valid_ && pthread_setspecific(key_, slot) == 0;
  }
  static const SlotKey& Instance() {
    static const SlotKey key;
    return key;
  }

 private:
  /// Runs in the child after fork, whose only thread is the one that called it: its variables get
  /// the child's thread id. The slots of the others may have been left in the middle of a change,
  /// so what they retired is not touched again.
  static void FollowFork() {
    for (auto& reader : g_readers) reader.store(0);
    g_crashedThread.store(0);
    const Slot* const own = Instance().Get();
    for (Slot* slot = g_slots.load(); slot != nullptr; slot = slot->next) {
      if (slot == own) {
        slot->tid.store(gettid());
        if (Snapshot* snapshot = slot->snapshot.load(); snapshot != nullptr)
          snapshot->tid.store(gettid());
        continue;
      }
      slot->snapshot.store(nullptr);
      slot->retired = nullptr;
      slot->owned.store(false);
    }
  }

  pthread_key_t key_ = 0;
  bool valid_;
};

Slot* TakeFreeSlot() noexcept {
  for (Slot* slot = g_slots.load(std::memory_order_acquire); slot != nullptr; slot = slot->next) {
    bool owned = false;
    if (slot->owned.compare_exchange_strong(owned, true, std::memory_order_acquire)) return slot;
  }
  Slot* slot = new (std::nothrow) Slot;
  if (slot == nullptr) return nullptr;
  slot->next = g_slots.load(std::memory_order_relaxed);
  while (!g_slots.compare_exchange_weak(slot->next, slot, std::memory_order_release)) {
  }
  return slot;
}

/// The calling thread's slot; null when memory has run out.
Slot* OwnSlot() noexcept {
  if (Slot* slot = SlotKey::Instance().Get(); slot != nullptr) return slot;
  Slot* slot = TakeFreeSlot();
  if (slot == nullptr) return nullptr;
  slot->tid.store(gettid());
  HintFor(slot->tid.load()).store(slot);
  if (SlotKey::Instance().Set(slot)) return slot;
  GiveUpSlot(slot);
  return nullptr;
}

// --- Snapshots -----------------------------------------------------------------------------------

struct Variable {
  std::string_view name;
  std::string_view value;
};

bool IsName(std::string_view name) noexcept {
  const auto isLetter = [](char c) { return (c | 0x20) >= 'a' && (c | 0x20) <= 'z'; };
  const auto breaksLine = [](char c) {
    return static_cast<unsigned char>(c) <= ' ' || c == '\x7f' || c == '=';
  };
  return !name.empty() && name.size() <= kMaximumThreadVariableName &&
         (isLetter(name[0]) || name[0] == '_') && std::ranges::none_of(name, breaksLine);
}

/// The value's first bytes, not ending inside a UTF-8 character.
std::string_view Bounded(std::string_view value) noexcept {
  if (value.size() <= kMaximumThreadVariableValue) return value;
  std::size_t size = kMaximumThreadVariableValue;
  while (size > kMaximumThreadVariableValue - 4 && (value[size] & 0xC0) == 0x80) --size;
  return value.substr(0, size);
}

/// Copies a text with its end; bytes that would break a line of the report become blanks.
char* CopyText(std::string_view text, char* to) noexcept {
  to = std::ranges::replace_copy_if(
           text, to, [](char c) { return c == '\n' || c == '\r' || c == '\0'; }, ' ')
           .out;
  *to++ = '\0';
  return to;
}

Snapshot* MakeSnapshot(std::span<const Variable> variables) noexcept {
  std::size_t bytes = sizeof(Snapshot) + variables.size() * sizeof(NameAndValue);
  for (const auto& [name, value] : variables) bytes += name.size() + value.size() + 2;
  void* memory = ::operator new(bytes, std::nothrow);
  if (memory == nullptr) return nullptr;
  auto* snapshot = new (memory) Snapshot{gettid(), variables.size(), nullptr};
  NameAndValue* item = snapshot->Items();
  char* text = reinterpret_cast<char*>(item + variables.size());
  for (const auto& [name, value] : variables) {
    item = new (item) NameAndValue{.name = text, .value = nullptr};
    text = CopyText(name, text);
    item->value = text;
    text = CopyText(value, text);
    ++item;
  }
  return snapshot;
}

std::vector<Variable> Current(const Slot& slot) {
  std::vector<Variable> variables;
  if (Snapshot* snapshot = slot.snapshot.load(std::memory_order_relaxed); snapshot != nullptr)
    for (const auto& [name, value] : snapshot->View()) variables.push_back({name, value});
  return variables;
}

Result<void> Set(Slot& slot, const Variable& variable) {
  std::vector<Variable> variables = Current(slot);
  const auto at = std::ranges::find(variables, variable.name, &Variable::name);
  if (at != variables.end()) {
    *at = variable;
  } else {
    variables.push_back(variable);
  }
  Snapshot* snapshot = MakeSnapshot(variables);
  if (snapshot == nullptr) return Error::OutOfMemory(kThreadVariables.Here());
  Publish(slot, snapshot);
  return {};
}

void Remove(Slot& slot, std::string_view name) {
  std::vector<Variable> variables = Current(slot);
  if (std::erase_if(variables, [name](const Variable& v) { return v.name == name; }) == 0) return;
  Snapshot* snapshot = variables.empty() ? nullptr : MakeSnapshot(variables);
  if (variables.empty() || snapshot != nullptr) Publish(slot, snapshot);
}

}  // namespace

Result<void> SetThreadVariable(std::string_view name, std::string_view value) try {
  if (!IsName(name)) {
    return Error::IllegalArgument(
        kThreadVariables.Here(),
        Format("\"@\" is no name of a thread variable: it must start with a letter "
               "or \"_\", hold no \"=\", blank or control character and have at "
               "most @ bytes.",
               name, kMaximumThreadVariableName));
  }
  Slot* slot = OwnSlot();
  if (slot == nullptr) return Error::OutOfMemory(kThreadVariables.Here());
  return Set(*slot, {name, Bounded(value)});
} catch (const std::bad_alloc&) {
  return Error::OutOfMemory(kThreadVariables.Here());
}

void RemoveThreadVariable(std::string_view name) try {
  if (Slot* slot = SlotKey::Instance().Get(); slot != nullptr) Remove(*slot, name);
} catch (const std::bad_alloc&) {  // the variable stays
}

// --- Reading: runs anywhere ----------------------------------------------------------------------

namespace {

/// Marks the calling thread as reading.
void MarkReader() noexcept {
  const pid_t self = gettid();
  for (const auto& reader : g_readers)
    if (reader.load() == self) return;
  for (auto& reader : g_readers) {
    pid_t none = 0;
    if (reader.compare_exchange_strong(none, self)) return;
  }
  g_unmarkedReader.store(true);
}

/// The snapshot in the slot, when it is the thread's; null otherwise. The slot may have changed
/// hands meanwhile, so the snapshot's own id decides.
Snapshot* SnapshotOf(const Slot* slot, pid_t tid) noexcept {
  if (slot == nullptr || slot->tid.load(std::memory_order_relaxed) != tid) return nullptr;
  Snapshot* snapshot = slot->snapshot.load();
  const bool isIts = snapshot != nullptr && snapshot->tid.load(std::memory_order_relaxed) == tid;
  return isIts ? snapshot : nullptr;
}

}  // namespace

ThreadVariableList LookUpThreadVariables(pid_t tid) {
  MarkReader();
  if (tid != 0 && g_crashedThread.load() == tid)
    return {.items = g_crashVariables.data(), .size = g_crashVariableCount};
  Snapshot* found = SnapshotOf(HintFor(tid).load(), tid);
  for (Slot* slot = g_slots.load(); found == nullptr && slot != nullptr; slot = slot->next)
    found = SnapshotOf(slot, tid);
  if (found == nullptr) return {};
  return {.items = found->Items(), .size = found->size};
}

void AddCrashVariables(pid_t tid, std::span<const NameAndValue> facts) {
  facts = facts.first(std::min(facts.size(), kMaximumCrashVariables));
  // Not released: the texts are read until the process ends.
  const ThreadVariableList own = LookUpThreadVariables(tid);
  const std::size_t kept = std::min(own.size, kMaximumCrashVariables - facts.size());
  const auto end = std::copy_n(own.items, kept, g_crashVariables.begin());
  std::ranges::copy(facts, end);
  g_crashVariableCount = kept + facts.size();
  g_crashedThread.store(tid);
}

void ReleaseThreadVariables() {
  const pid_t self = gettid();
  for (auto& reader : g_readers)
    if (reader.load() == self) reader.store(0);
}

}  // namespace tarvo
