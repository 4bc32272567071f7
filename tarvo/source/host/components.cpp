#include "host/components.h"

#include <algorithm>

#include "tarvo/format.h"
#include "tarvo/inline_symbolification.h"
#include "tarvo/symbolification.h"

namespace tarvo {
namespace {

constexpr SourceFile kComponents{"tarvo/source/components"};

}  // namespace

Result<void> Components::Choose(const std::vector<std::unique_ptr<Module>>& modules,
                                std::vector<ComponentRecord> ofProgram,
                                const std::vector<std::string>& bindings) {
  ofProgram_ = std::move(ofProgram);
  for (const auto& module : modules) Add(module->Id(), module->Registered().components);
  Add("program", ofProgram_);
  for (const std::string& binding : bindings)
    if (auto result = Name(binding); !result) return result;
  ChooseInline();
  return {};
}

/// Of two readers one must not answer for the other.
void Components::ChooseInline() {
  const auto ownerOf = [&](const ComponentRecord* record) {
    return std::ranges::find(all_, record, &Component::record)->owner;
  };
  const auto main = bound_.find(Symbolification::kInterfaceId);
  bound_.erase(InlineSymbolification::kInterfaceId);
  if (main == bound_.end()) return;
  for (const auto& [owner, record] : all_) {
    if (record->interfaceId == InlineSymbolification::kInterfaceId &&
        record->className == main->second->className && owner == ownerOf(main->second))
      bound_[record->interfaceId] = record;
  }
}

void Components::Add(const std::string& owner, const std::vector<ComponentRecord>& records) {
  for (const ComponentRecord& record : records) {
    all_.push_back({owner, &record});
    bound_[record.interfaceId] = &record;
  }
}

Result<void> Components::Name(const std::string& binding) {
  const std::size_t equals = binding.find('=');
  if (equals == std::string::npos) {
    return Error::IllegalArgument(kComponents.Here(),
                                  Format("The binding \"@\" should be INTERFACE=CLASS.", binding));
  }
  const std::string_view interfaceId = std::string_view(binding).substr(0, equals);
  const std::string_view className = std::string_view(binding).substr(equals + 1);
  const auto bound = bound_.find(interfaceId);
  if (bound == bound_.end()) {
    return Error::IllegalArgument(
        kComponents.Here(),
        Format("No module brings a component for the interface \"@\" (binding @).", interfaceId,
               binding));
  }
  const auto component = std::ranges::find_if(all_, [&](const Component& candidate) {
    return candidate.record->interfaceId == interfaceId && candidate.record->className == className;
  });
  if (component == all_.end()) {
    return Error::IllegalArgument(
        kComponents.Here(),
        Format("No module brings a class \"@\" for the interface @ (binding @).", className,
               interfaceId, binding));
  }
  bound->second = component->record;
  return {};
}

Result<Ref<Object>> Components::Bind(std::string_view interfaceId) {
  const auto bound = bound_.find(interfaceId);
  if (bound == bound_.end()) {
    return Error::IllegalState(kComponents.Here(),
                               Format("No component is bound to the interface @.", interfaceId));
  }
  if (interfaceId == Symbolification::kInterfaceId ||
      interfaceId == InlineSymbolification::kInterfaceId)
    return bound->second->create();
  {
    const std::scoped_lock lock(mutex_);
    if (const auto made = shared_.find(interfaceId); made != shared_.end()) return made->second;
  }
  // Outside the lock: a component may bind others while it is made.
  Ref<Object> made = bound->second->create();
  const std::scoped_lock lock(mutex_);
  return shared_.try_emplace(bound->first, std::move(made)).first->second;
}

void Components::Clear() {
  std::map<std::string_view, Ref<Object>> released;
  const std::scoped_lock lock(mutex_);
  released.swap(shared_);
}

bool Components::IsBound(const ComponentRecord& record) const {
  const auto bound = bound_.find(record.interfaceId);
  return bound != bound_.end() && bound->second == &record;
}

std::vector<ComponentEntry> Components::List() const {
  std::vector<ComponentEntry> list;
  for (const auto& [owner, record] : all_) {
    list.push_back({.owner = owner,
                    .interfaceId = std::string(record->interfaceId),
                    .className = std::string(record->className),
                    .status = record->status,
                    .isBound = IsBound(*record)});
  }
  return list;
}

}  // namespace tarvo
