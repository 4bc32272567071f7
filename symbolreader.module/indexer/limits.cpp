#include "indexer/limits.h"

#include <sys/resource.h>

namespace tarvo::symbolreader {
namespace {

void SetLimit(__rlimit_resource resource, std::uint64_t value) {
  rlimit limit{};
  getrlimit(resource, &limit);
  limit.rlim_cur = value < limit.rlim_max ? value : limit.rlim_max;
  setrlimit(resource, &limit);
}

}  // namespace

void LimitMemory([[maybe_unused]] std::uint64_t bytes) {
  SetLimit(RLIMIT_CORE, 0);
#ifndef TARVO_SANITIZED
  // Private writable mappings count besides the heap, see linux-4.7/mm/mmap.c may_expand_vm().
  SetLimit(RLIMIT_DATA, bytes);
#endif
}

}  // namespace tarvo::symbolreader
