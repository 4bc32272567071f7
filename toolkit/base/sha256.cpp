#include "toolkit/base/sha256.h"

#include <array>

#include "files/bound_library.h"
#include "toolkit/base/hexadecimal.h"

namespace tarvo::toolkit {
namespace {

constexpr SourceFile kSha256{"command/sha256"};
constexpr const char* kNettle = "libnettle.so.8";

struct Nettle {
  decltype(&::nettle_sha256_init) init = nullptr;
  decltype(&::nettle_sha256_update) update = nullptr;
  decltype(&::nettle_sha256_digest) digest = nullptr;
  String problem = LibraryBinder(kNettle)
                       .Bind("nettle_sha256_init", init)
                       .Bind("nettle_sha256_update", update)
                       .Bind("nettle_sha256_digest", digest)
                       .Problem();
};

const Nettle& Library() {
  static const Nettle library;
  return library;
}

}  // namespace

Result<void> Sha256::Load() {
  if (Library().problem.IsEmpty()) return {};
  return Error::IllegalState(kSha256.Here(), Library().problem);
}

Sha256::Sha256() noexcept { Library().init(&state_); }

void Sha256::Add(std::string_view bytes) noexcept {
  Library().update(&state_, bytes.size(), reinterpret_cast<const std::uint8_t*>(bytes.data()));
}

std::string Sha256::TakeHexadecimal() {
  std::array<std::uint8_t, SHA256_DIGEST_SIZE> digest;
  Library().digest(&state_, digest.size(), digest.data());
  return Hexadecimal(digest);
}

}  // namespace tarvo::toolkit
