#include "host/class_registry.h"

#include <algorithm>
#include <array>

#include "archive/packed_file.h"
#include "archive/zip_archive.h"
#include "services/observable.h"
#include "tarvo/format.h"
#include "tarvo/packed_file.h"

namespace tarvo {
namespace {

constexpr SourceFile kClassRegistry{"tarvo/source/class_registry"};

struct ClassRecord {
  std::string_view classId;
  Ref<Object> (*create)(const HostEntries& entries);
};

constexpr std::array kClasses{
    ClassRecord{Observable::kClassId,
                [](const HostEntries&) -> Ref<Object> { return CreateObservable(); }},
    ClassRecord{ReadArchive::kZipClassId,
                [](const HostEntries& entries) -> Ref<Object> {
                  return CreateZipArchive(entries.archiveLimits);
                }},
    ClassRecord{kPackedFileClassId,
                [](const HostEntries& entries) -> Ref<Object> {
                  return CreatePackedFile(entries.archiveLimits);
                }},
};

}  // namespace

Result<Ref<Object>> CreateFrameworkObject(std::string_view classId, const HostEntries& entries) {
  const auto* found = std::ranges::find(kClasses, classId, &ClassRecord::classId);
  if (found == kClasses.end()) {
    return Error::IllegalArgument(kClassRegistry.Here(),
                                  Format("The framework has no class \"@\".", classId));
  }
  return found->create(entries);
}

}  // namespace tarvo
