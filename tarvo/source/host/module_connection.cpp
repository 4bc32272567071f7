#include "host/module_connection.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <algorithm>
#include <cstddef>
#include <span>

#include "tarvo/build_tag.h"
#include "tarvo/format.h"

namespace tarvo {
namespace {

constexpr SourceFile kModuleConnection{"tarvo/source/module"};

constexpr std::size_t kTagOffset = offsetof(Connection, buildTag);
/// The first SDK version whose connection has a tag.
constexpr std::uint32_t kFirstTagged = 2;

/// A data object that the library itself exports. dlsym alone would also answer with a function, or
/// with an object of a library that this one depends on.
std::span<char> FindObject(void* library, const char* name) {
  void* address = dlsym(library, name);
  if (address == nullptr) return {};
  link_map* own = nullptr;
  Dl_info info{};
  void* holder = nullptr;
  void* extra = nullptr;
  if (dlinfo(library, RTLD_DI_LINKMAP, static_cast<void*>(&own)) != 0 ||
      dladdr1(address, &info, &holder, RTLD_DL_LINKMAP) == 0 || holder != own ||
      dladdr1(address, &info, &extra, RTLD_DL_SYMENT) == 0 || extra == nullptr)
    return {};
  const auto* symbol = static_cast<const ElfW(Sym)*>(extra);
  if (ELF64_ST_TYPE(symbol->st_info) != STT_OBJECT) return {};
  return {static_cast<char*>(address), symbol->st_size};
}

/// The build tag of a connection of any version: what is printable of it. It may be longer or
/// shorter than this host's.
std::string TagOf(std::span<const char> object) {
  std::uint32_t version = 0;
  std::copy_n(object.data(), sizeof(version), reinterpret_cast<char*>(&version));
  std::string tag;
  if (version >= kFirstTagged) {
    const auto isEnd = [](char c) { return c < ' ' || c > '~'; };
    const auto text = object.subspan(kTagOffset);
    tag.assign(text.begin(), std::ranges::find_if(text, isEnd));
  }
  return tag.empty() ? Format("SDK @, without a build tag", version).ToStdString() : tag;
}

}  // namespace

void* FindData(void* library, const char* name, std::size_t size) {
  const std::span<char> object = FindObject(library, name);
  return object.size() >= size ? object.data() : nullptr;
}

Error CouldNotLoadModule(SourceLocation where, const std::string& file, std::string_view reason) {
  return Error::IllegalState(where, Format("Could not load module \"@\": @", file, reason));
}

Result<Connection*> FindConnection(void* library, const std::string& file) {
  const std::span<char> object = FindObject(library, "g_tarvo");
  if (object.size() < kTagOffset)
    return CouldNotLoadModule(kModuleConnection.Here(), file,
                              "it is no module, it does not export g_tarvo");
  static const BuildTag expected = MakeBuildTag();
  if (const std::string tag = TagOf(object); !AreCompatible(tag, expected.text)) {
    return CouldNotLoadModule(kModuleConnection.Here(), file,
                              Format("it was built as \"@\", this host as \"@\"; they must agree "
                                     "in what stands before the \";\"",
                                     tag, expected.text));
  }
  auto* connection = reinterpret_cast<Connection*>(object.data());
  if (object.size() < sizeof(Connection) || connection->size != sizeof(Connection) ||
      connection->moduleId == nullptr || connection->registerDeclarations == nullptr)
    return CouldNotLoadModule(kModuleConnection.Here(), file, "its g_tarvo is incomplete");
  return connection;
}

}  // namespace tarvo
