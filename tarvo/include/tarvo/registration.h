#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "tarvo/configuration.h"
#include "tarvo/job.h"
#include "tarvo/object.h"
#include "tarvo/result.h"

namespace tarvo {

/// An implementation of an interface that a module brings.
struct ComponentRecord {
  std::string_view interfaceId;  ///< "net.tarvo.interface.…"
  std::string_view className;
  Ref<Object> (*create)() = nullptr;     ///< never null; the object implements `interfaceId`
  const char* status = "uninitialized";  ///< "initialized" once the host has set it up
};

/// A source's part in the module's life. `initialise` runs after all modules are registered,
/// `free` at shutdown if `initialise` succeeded, both in the host's thread.
struct LifecycleRecord {
  Result<void> (*initialise)() = nullptr;
  void (*free)() = nullptr;
};

/// Makes an execution job: work that `tarvo run ID` (or the host application) starts by its id.
struct ExecutionJobRecord {
  static constexpr std::string_view kRegistry = "net.tarvo.registry.executionjobs";

  std::string_view registryId;
  std::string_view jobId;
  Ref<Job> (*create)() = nullptr;
};

struct EnumerationValue {
  std::string_view name;
  std::int64_t value = 0;
};

/// An enumeration that describes the values of an Int entry.
struct EnumerationRecord {
  std::string_view name;
  std::span<const EnumerationValue> values;
};

/// All that one module tells the host when it is loaded. Owned by the host, filled by the module's
/// sources in their stated order. The texts live as long as the module.
struct Registration {
  ConfigurationTable configuration;
  std::vector<ComponentRecord> components;
  std::vector<LifecycleRecord> lifecycle;
  std::vector<ExecutionJobRecord> executionJobs;
  std::vector<EnumerationRecord> enumerations;
};

}  // namespace tarvo
