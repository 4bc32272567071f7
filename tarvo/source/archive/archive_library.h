#pragma once

#include <archive.h>
#include <archive_entry.h>

#include "tarvo/result.h"

namespace tarvo {

/// The functions of the archive library that are used here. They are bound when the first archive
/// is opened: the library brings a dozen others with it (cryptography, XML, compression), and no
/// program should load them, and take their names into its own, because it may crash one day.
struct ArchiveLibrary {
  decltype(&::archive_read_new) readNew;
  decltype(&::archive_read_free) readFree;
  decltype(&::archive_read_support_format_zip_seekable) supportZip;
  decltype(&::archive_read_set_read_callback) setRead;
  decltype(&::archive_read_set_skip_callback) setSkip;
  decltype(&::archive_read_set_seek_callback) setSeek;
  decltype(&::archive_read_set_callback_data) setData;
  decltype(&::archive_read_open1) open;
  decltype(&::archive_read_next_header) nextHeader;
  decltype(&::archive_read_data_block) readBlock;
  decltype(&::archive_set_error) setError;
  decltype(&::archive_error_string) errorText;
  decltype(&::archive_entry_pathname) path;
  decltype(&::archive_entry_hardlink) hardLink;
  decltype(&::archive_entry_symlink) symbolicLink;
  decltype(&::archive_entry_filetype) fileType;
  decltype(&::archive_entry_perm) permissions;
  decltype(&::archive_entry_size) size;
  decltype(&::archive_entry_is_encrypted) isEncrypted;

  /// The library, loaded at the first call and kept. An illegal-state error with the loader's
  /// reason when it is not there.
  static Result<const ArchiveLibrary*> Load();
};

}  // namespace tarvo
