#pragma once

#include <string>
#include <utility>

#include "configuration/configuration.h"
#include "files/file_service.h"
#include "host/components.h"
#include "host/host_entries.h"
#include "services/data_formats.h"
#include "services/job_queue.h"
#include "services/output.h"
#include "tarvo/framework.h"

namespace tarvo {

/// What the modules see: the services, brought together.
class HostFramework final : public Framework {
 public:
  explicit HostFramework(ClockService& clock);

  OutputService& Output() override { return output_; }
  FileService& Files() override { return files_; }
  ConfigurationService& Configuration() override { return configuration_; }
  JobService& Jobs() override { return jobs_; }
  DataFormatService& DataFormats() override { return dataFormats_; }
  ClockService& Clock() override { return clock_; }
  const CrashServices& Crash() override;
  Result<Ref<Object>> CreateObject(std::string_view classId) override;
  Result<Ref<Object>> Bind(std::string_view interfaceId) override;
  [[nodiscard]] bool IsUnderDebugger() override { return isUnderDebugger_; }
  [[nodiscard]] String ProgramDirectory() override { return programDirectory_; }
  [[nodiscard]] String ModuleDirectory() override { return moduleDirectory_; }

  /// For the host.
  [[nodiscard]] tarvo::Configuration& Entries() noexcept { return configuration_; }
  [[nodiscard]] Components& Bindings() noexcept { return components_; }
  [[nodiscard]] JobQueue& Queue() noexcept { return jobs_; }
  /// Declares the host's own entries, after those of the modules.
  Result<void> DeclareOwnEntries(const HostOptions& options);
  [[nodiscard]] const HostEntries& OwnEntries() const noexcept { return ownEntries_; }
  void SetModuleDirectory(const std::string& directory) { moduleDirectory_ = directory; }

 private:
  ClockService& clock_;
  tarvo::Output output_;
  tarvo::Files files_;
  tarvo::DataFormats dataFormats_;
  HostEntries ownEntries_;
  ConfigurationTable ownTable_;
  tarvo::Configuration configuration_;
  JobQueue jobs_;
  Components components_;
  const bool isUnderDebugger_;
  const String programDirectory_;
  String moduleDirectory_;
};

}  // namespace tarvo
