// Extracts one zip archive as a module would: `extract_archive ARCHIVE DIRECTORY`. bench/extract
// measures it.

#include <cstdio>

#include "tarvo/host/host.h"

namespace {

tarvo::Result<void> Extract(const char* archive, const char* directory) {
  const auto host = tarvo::Host::Start({.modules = {EMPTY_MODULE}});
  if (!host) return host.GetError();
  const auto reader =
      tarvo::CreateObject<tarvo::ReadArchive>((*host)->Services(), tarvo::ReadArchive::kZipClassId);
  if (!reader) return reader.GetError();
  if (auto opened = (*reader)->Open(tarvo::Url::FromSystemPath(archive)); !opened) return opened;
  return (*reader)->Extract(tarvo::Url::FromSystemPath(directory));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: extract_archive ARCHIVE DIRECTORY\n");
    return 2;
  }
  const auto extracted = Extract(argv[1], argv[2]);
  if (extracted) return 0;
  std::fprintf(stderr, "%s\n", extracted.GetError().Text().ToStdString().c_str());
  return 1;
}
