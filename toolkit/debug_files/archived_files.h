#pragma once

#include <string>
#include <vector>

#include "tarvo/framework.h"
#include "tarvo/inline_symbolification.h"
#include "tarvo/symbol_file_source.h"
#include "toolkit/debug_files/module_identity.h"
#include "toolkit/store/archive_cache.h"

namespace tarvo::toolkit {

/// The builds whose archives may hold a module's symbols: the one that the report states for it,
/// the application's, and `given` where it states neither.
[[nodiscard]] std::vector<std::string> BuildsFor(const ModuleQuery& query,
                                                 const std::string& given);

/// The modules by whose names the look-up finds a bundle for `module`, where there is no manifest.
[[nodiscard]] std::vector<std::string> BundleNamesFor(const ModuleIdentity& module);

/// The bundles for `module` in the archives of `builds`, which are unpacked first where need be: by
/// their manifests, and in archives without one under the module's name.
[[nodiscard]] std::vector<SymbolFileRequest> FindArchived(Framework& framework,
                                                          ArchiveCache& archives,
                                                          const ModuleIdentity& module,
                                                          const std::vector<std::string>& builds);

/// An illegal-argument error when the manifest beside the bundle `request` says that it is for
/// another module, and another bundle there serves, or that it is of another id or platform.
[[nodiscard]] Result<void> CheckArchived(ArchiveCache& archives, const ModuleIdentity& module,
                                         const SymbolFileRequest& request);

/// Whether the bundle `request` is another module's, and the archive holds one for `module` too.
[[nodiscard]] bool IsBesideTheRightOne(ArchiveCache& archives, const ModuleIdentity& module,
                                       const SymbolFileRequest& request);

}  // namespace tarvo::toolkit
