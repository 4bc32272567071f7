#pragma once

#include <string>

#include "tarvo/connection.h"
#include "tarvo/result.h"

namespace tarvo {

/// The `g_tarvo` of a library that was opened from `file`, when host and module were built so that
/// they can call each other. An illegal-state error that names the file, and both build tags where
/// they do not fit, when not. Nothing of the library is called, and nothing but the tag is read
/// before that fits.
Result<Connection*> FindConnection(void* library, const std::string& file);

/// A data object of at least `size` bytes that the library itself exports; null when there is none.
void* FindData(void* library, const char* name, std::size_t size);

/// The error of a module that could not be loaded.
Error CouldNotLoadModule(SourceLocation where, const std::string& file, std::string_view reason);

}  // namespace tarvo
