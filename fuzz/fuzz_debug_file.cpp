// Opens any bytes as a debug file of each format: its facts, or an error that names the file.

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "files/debug_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const int file = memfd_create("debug-file", MFD_CLOEXEC);
  static const std::string path = "/proc/self/fd/" + std::to_string(file);
  if (ftruncate(file, 0) != 0 || pwrite(file, data, size, 0) != static_cast<ssize_t>(size))
    std::abort();
  for (const tarvo::symbolreader::DebugFileRequest& request :
       {tarvo::symbolreader::DebugFileRequest{.architecture = "x86_64"},
        {.architecture = "arm64"},
        {.takesSymbolTable = true}}) {
    const auto opened = tarvo::symbolreader::OpenDebugFile(path, request);
    if (opened ? (*opened)->Facts().path != path : opened.GetError().Text().IsEmpty()) std::abort();
  }
  return 0;
}
