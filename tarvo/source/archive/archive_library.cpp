#include "archive/archive_library.h"

#include "files/bound_library.h"

namespace tarvo {
namespace {

constexpr SourceFile kArchiveLibrary{"tarvo/source/archive_library"};

struct Loaded {
  ArchiveLibrary functions{};
  String problem;

  Loaded() {
    ArchiveLibrary& to = functions;
    problem = LibraryBinder(TARVO_ARCHIVE_LIBRARY)
                  .Bind("archive_read_new", to.readNew)
                  .Bind("archive_read_free", to.readFree)
                  .Bind("archive_read_support_format_zip_seekable", to.supportZip)
                  .Bind("archive_read_set_read_callback", to.setRead)
                  .Bind("archive_read_set_skip_callback", to.setSkip)
                  .Bind("archive_read_set_seek_callback", to.setSeek)
                  .Bind("archive_read_set_callback_data", to.setData)
                  .Bind("archive_read_open1", to.open)
                  .Bind("archive_read_next_header", to.nextHeader)
                  .Bind("archive_read_data_block", to.readBlock)
                  .Bind("archive_set_error", to.setError)
                  .Bind("archive_error_string", to.errorText)
                  .Bind("archive_entry_pathname", to.path)
                  .Bind("archive_entry_hardlink", to.hardLink)
                  .Bind("archive_entry_symlink", to.symbolicLink)
                  .Bind("archive_entry_filetype", to.fileType)
                  .Bind("archive_entry_perm", to.permissions)
                  .Bind("archive_entry_size", to.size)
                  .Bind("archive_entry_is_encrypted", to.isEncrypted)
                  .Problem();
  }
};

}  // namespace

Result<const ArchiveLibrary*> ArchiveLibrary::Load() {
  static const Loaded loaded;
  if (!loaded.problem.IsEmpty()) return Error::IllegalState(kArchiveLibrary.Here(), loaded.problem);
  return &loaded.functions;
}

}  // namespace tarvo
