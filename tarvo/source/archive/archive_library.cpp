#include "archive/archive_library.h"

#include <dlfcn.h>

#include "tarvo/format.h"

namespace tarvo {
namespace {

constexpr SourceFile kArchiveLibrary{"tarvo/source/archive_library"};

template <typename Function>
bool Bind(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(library, name));
  return function != nullptr;
}

/// The first function that is missing, or null.
const char* BindAll(void* library, ArchiveLibrary& to) {
  const auto bind = [&](const char* name, auto& function) {
    return Bind(library, name, function) ? nullptr : name;
  };
  for (const char* missing : {bind("archive_read_new", to.readNew),
                              bind("archive_read_free", to.readFree),
                              bind("archive_read_support_format_zip_seekable", to.supportZip),
                              bind("archive_read_support_filter_gzip", to.supportGzip),
                              bind("archive_read_support_filter_xz", to.supportXz),
                              bind("archive_read_support_format_raw", to.supportRaw),
                              bind("archive_read_open_fd", to.openDescriptor),
                              bind("archive_read_set_read_callback", to.setRead),
                              bind("archive_read_set_skip_callback", to.setSkip),
                              bind("archive_read_set_seek_callback", to.setSeek),
                              bind("archive_read_set_callback_data", to.setData),
                              bind("archive_read_open1", to.open),
                              bind("archive_read_next_header", to.nextHeader),
                              bind("archive_read_data_block", to.readBlock),
                              bind("archive_set_error", to.setError),
                              bind("archive_error_string", to.errorText),
                              bind("archive_entry_pathname", to.path),
                              bind("archive_entry_hardlink", to.hardLink),
                              bind("archive_entry_symlink", to.symbolicLink),
                              bind("archive_entry_filetype", to.fileType),
                              bind("archive_entry_perm", to.permissions),
                              bind("archive_entry_size", to.size),
                              bind("archive_entry_is_encrypted", to.isEncrypted)})
    if (missing != nullptr) return missing;
  return nullptr;
}

struct Loaded {
  ArchiveLibrary functions{};
  String problem;

  Loaded() {
    void* library = dlopen(TARVO_ARCHIVE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    const char* missing = library == nullptr ? nullptr : BindAll(library, functions);
    if (library == nullptr) {
      problem = Format("The archive library could not be loaded: @", dlerror());
    } else if (missing != nullptr) {
      problem = Format("The archive library " TARVO_ARCHIVE_LIBRARY " has no function @.", missing);
    }
  }
};

}  // namespace

Result<const ArchiveLibrary*> ArchiveLibrary::Load() {
  static const Loaded loaded;
  if (!loaded.problem.IsEmpty()) return Error::IllegalState(kArchiveLibrary.Here(), loaded.problem);
  return &loaded.functions;
}

}  // namespace tarvo
