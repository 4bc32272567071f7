#pragma once

#include <cstdint>
#include <optional>

namespace tarvo::symbolreader {

/// The family of an image's file format. A PDB belongs to Pe.
enum class ImageFormat { Elf, MachO, Pe };

/// The addresses that an image takes when it is loaded where its file says: the space in which its
/// debug information speaks. `end` is the first address behind it.
struct ImageRange {
  std::uint64_t start = 0;
  std::uint64_t end = 0;

  [[nodiscard]] constexpr std::uint64_t Size() const { return end - start; }
  [[nodiscard]] constexpr bool Contains(std::uint64_t address) const {
    return address >= start && address < end;
  }
  friend bool operator==(const ImageRange&, const ImageRange&) = default;
};

/// What a crash log's offsets of the executable hold on top: they count from the load address less
/// this, the preferred address of a 64-bit Mach-O executable, whatever the executable is.
inline constexpr std::uint64_t kExecutableBias = 0x100000000;

/// The address inside `image` that a module's `offset` stands for; nothing when it lies outside.
///
/// Offsets come in four shapes, by platform and by whether the module is the executable, and the
/// bundle does not tell which: a debug file of a Mach-O executable looks like that of a library. So
/// each format tries the shapes that its modules can have, in the order in which they are certain,
/// and takes the first that falls into the image. docs/symbols.md has the table.
[[nodiscard]] std::optional<std::uint64_t> ImageAddress(ImageFormat format, const ImageRange& image,
                                                        std::uint64_t offset);

}  // namespace tarvo::symbolreader
