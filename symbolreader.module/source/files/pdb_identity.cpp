#include "files/pdb_identity.h"

#include <llvm/ADT/StringExtras.h>
#include <llvm/BinaryFormat/COFF.h>

#include <cstring>

namespace tarvo::symbolreader {
namespace {

constexpr std::size_t kMagicSize = 32;
constexpr std::uint32_t kInfoStream = 1;
constexpr std::uint32_t kDebugStream = 3;

/// A number at `offset`; nothing where it lies outside.
template <typename T>
std::optional<T> NumberAt(std::string_view bytes, std::uint64_t offset) {
  T number{};
  if (offset > bytes.size() || bytes.size() - offset < sizeof number) return std::nullopt;
  std::memcpy(&number, bytes.data() + offset, sizeof number);
  return number;
}

/// The file of blocks.
class Blocks {
 public:
  static std::optional<Blocks> Open(std::string_view bytes) {
    const auto blockSize = NumberAt<std::uint32_t>(bytes, kMagicSize);
    const auto directorySize = NumberAt<std::uint32_t>(bytes, kMagicSize + 12);
    const auto mapBlock = NumberAt<std::uint32_t>(bytes, kMagicSize + 20);
    constexpr std::uint32_t kSmallest = 512;
    constexpr std::uint32_t kLargest = 1 << 16;
    if (!mapBlock || *blockSize < kSmallest || *blockSize > kLargest) return std::nullopt;
    return Blocks(bytes, *blockSize, *directorySize, *mapBlock);
  }

  /// The first bytes of a stream, as far as they lie in its first block; empty where there are
  /// none.
  [[nodiscard]] std::string_view StartOfStream(std::uint32_t number) const {
    const auto count = Directory(0);
    if (!count || number >= *count || *count > directorySize_ / 4) return {};
    std::uint64_t place = 1 + std::uint64_t{*count};
    for (std::uint32_t stream = 0; stream < number; ++stream) {
      const auto size = SizeOf(stream);
      if (!size) return {};
      place += (std::uint64_t{*size} + blockSize_ - 1) / blockSize_;
    }
    const auto size = SizeOf(number);
    const auto block = Directory(place);
    return !size || !block ? std::string_view() : Block(*block).substr(0, *size);
  }

 private:
  Blocks(std::string_view bytes, std::uint32_t blockSize, std::uint32_t directorySize,
         std::uint32_t mapBlock)
      : bytes_(bytes), blockSize_(blockSize), directorySize_(directorySize), mapBlock_(mapBlock) {}

  [[nodiscard]] std::string_view Block(std::uint64_t number) const {
    const std::uint64_t offset = number * blockSize_;
    return offset >= bytes_.size() ? std::string_view() : bytes_.substr(offset, blockSize_);
  }

  /// The directory's number at `index`: its blocks are listed in the map's block.
  [[nodiscard]] std::optional<std::uint32_t> Directory(std::uint64_t index) const {
    const std::uint64_t offset = index * sizeof(std::uint32_t);
    if (offset >= directorySize_) return std::nullopt;
    const std::uint64_t entry =
        std::uint64_t{mapBlock_} * blockSize_ + offset / blockSize_ * sizeof(std::uint32_t);
    const auto block = NumberAt<std::uint32_t>(bytes_, entry);
    return block ? NumberAt<std::uint32_t>(Block(*block), offset % blockSize_) : std::nullopt;
  }

  /// Of a stream that was deleted all bits are set.
  [[nodiscard]] std::optional<std::uint32_t> SizeOf(std::uint32_t stream) const {
    const auto size = Directory(1 + std::uint64_t{stream});
    return size && *size == ~std::uint32_t{0} ? 0 : size;
  }

  std::string_view bytes_;
  std::uint32_t blockSize_;
  std::uint32_t directorySize_;
  std::uint32_t mapBlock_;
};

}  // namespace

std::string MachineName(std::uint16_t machine) {
  switch (machine) {
    case llvm::COFF::IMAGE_FILE_MACHINE_AMD64:
      return "x86_64";
    case llvm::COFF::IMAGE_FILE_MACHINE_ARM64:
      return "aarch64";
    case llvm::COFF::IMAGE_FILE_MACHINE_I386:
      return "i386";
    case llvm::COFF::IMAGE_FILE_MACHINE_ARMNT:
      return "thumb";
    default:
      return "machine type " + std::to_string(machine);
  }
}

std::optional<PdbIdentity> ReadPdbIdentity(std::string_view bytes) {
  // Version, time and age of the PDB, then the signature; in the other stream two versions, then
  // the age of the build, and near its header's end the machine.
  constexpr std::size_t kSignatureOffset = 12;
  constexpr std::size_t kSignatureSize = 16;
  constexpr std::size_t kAgeOffset = 8;
  constexpr std::size_t kMachineOffset = 58;
  const auto blocks = Blocks::Open(bytes);
  if (!blocks) return std::nullopt;
  const std::string_view info = blocks->StartOfStream(kInfoStream);
  const std::string_view debug = blocks->StartOfStream(kDebugStream);
  const auto age = NumberAt<std::uint32_t>(debug, kAgeOffset);
  const auto machine = NumberAt<std::uint16_t>(debug, kMachineOffset);
  if (info.size() < kSignatureOffset + kSignatureSize || !age || !machine) return std::nullopt;
  const llvm::StringRef signature = info.substr(kSignatureOffset, kSignatureSize);
  return PdbIdentity{
      llvm::toHex(signature, /*LowerCase=*/true) + llvm::utohexstr(*age, /*LowerCase=*/true),
      MachineName(*machine)};
}

}  // namespace tarvo::symbolreader
