#include "linux/linux_crashhandler/facts/modules.h"

#include <dlfcn.h>
#include <string.h>

#include "linux/linux_crashhandler/base/capture_memory.h"
#include "linux/linux_crashhandler/capture.h"

namespace tarvo::crashhandler {
namespace {

/// The size that the report gives: the file sizes of all program headers, of every type.
std::uint64_t SumOfFileSizes(const dl_phdr_info& info) {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < info.dlpi_phnum; ++i) sum += info.dlpi_phdr[i].p_filesz;
  return sum;
}

/// More objects than any process has: a list in change may have no end.
constexpr int kMaximumModules = 100'000;

/// Crashed process. Always 0, so that the iteration runs to the end.
int AppendModule(dl_phdr_info* info, std::size_t, void*) {
  ModuleRecord* record = Append(g_crashInfo.modules);
  ModuleImage* image = Append(g_moduleImages);
  if (record == nullptr || image == nullptr) {
    if (record != nullptr) --g_crashInfo.modules.size;
    Diagnose(kCaptureSource.Here(), "net.tarvo.error.outofmemory");
    return 0;
  }
  *record = {info->dlpi_name, info->dlpi_addr, SumOfFileSizes(*info)};
  *image = {info->dlpi_name, info->dlpi_addr, info->dlpi_phdr, info->dlpi_phnum};
  return 0;
}

}  // namespace

CaptureArray<ModuleImage> g_moduleImages;

const ElfW(Phdr) * ModuleImage::SegmentOf(std::uint64_t address) const {
  for (std::size_t i = 0; i < headerCount; ++i) {
    const ElfW(Phdr)& header = headers[i];
    // Unsigned: below the segment the difference wraps to something large.
    if (header.p_type == PT_LOAD && address - base - header.p_vaddr < header.p_memsz)
      return &header;
  }
  return nullptr;
}

void ListModulesWithoutLock() {
  g_crashInfo.modules = {};
  g_moduleImages = {};
  int count = 0;
  for (link_map* map = _r_debug.r_map; map != nullptr && count < kMaximumModules;
       map = map->l_next, ++count) {
    // The list does not have the program headers; the ELF header in front of them is mapped.
    dl_find_object place{};
    if (_dl_find_object(map->l_ld, &place) != 0) continue;
    const auto* start = static_cast<const char*>(place.dlfo_map_start);
    const auto* header = reinterpret_cast<const ElfW(Ehdr)*>(start);
    if (memcmp(header->e_ident, ELFMAG, SELFMAG) != 0) continue;
    dl_phdr_info info{};
    info.dlpi_addr = map->l_addr;
    info.dlpi_name = map->l_name;
    info.dlpi_phdr = reinterpret_cast<const ElfW(Phdr)*>(start + header->e_phoff);
    info.dlpi_phnum = header->e_phnum;
    AppendModule(&info, sizeof(info), nullptr);
  }
}

void ListModules() {
  g_moduleImages = {};
  dl_iterate_phdr(AppendModule, nullptr);
}

}  // namespace tarvo::crashhandler
