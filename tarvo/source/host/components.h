#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "host/module.h"
#include "tarvo/host/host.h"

namespace tarvo {

/// Which component stands for which interface.
class Components {
 public:
  /// Chooses among the components of the modules, which must outlive this object, and those of the
  /// program: the last of each interface, unless a binding "INTERFACE=CLASS" names another.
  /// InlineSymbolification goes with the Symbolification that was chosen: bound is the one of its
  /// class from the same module, or none. An illegal-argument error for a binding of another form,
  /// or of an interface or class that nobody brings.
  Result<void> Choose(const std::vector<std::unique_ptr<Module>>& modules,
                      std::vector<ComponentRecord> ofProgram,
                      const std::vector<std::string>& bindings);

  /// A reference to the component that is bound to the interface: a new object each time for
  /// the two symbolifications, whose objects are used by one thread; one shared object for the
  /// others. An illegal-state error when no module brings one.
  Result<Ref<Object>> Bind(std::string_view interfaceId);

  /// Lets go of the shared objects; a later Bind makes new ones.
  void Clear();

  [[nodiscard]] std::vector<ComponentEntry> List() const;

 private:
  struct Component {
    std::string owner;
    const ComponentRecord* record;
  };

  void Add(const std::string& owner, const std::vector<ComponentRecord>& records);
  Result<void> Name(const std::string& binding);
  void ChooseInline();
  [[nodiscard]] bool IsBound(const ComponentRecord& record) const;

  std::vector<ComponentRecord> ofProgram_;
  std::vector<Component> all_;
  std::map<std::string_view, const ComponentRecord*> bound_;  ///< by interface
  std::mutex mutex_;
  std::map<std::string_view, Ref<Object>> shared_;  ///< by interface
};

}  // namespace tarvo
