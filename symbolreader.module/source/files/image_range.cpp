#include "files/image_range.h"

#include <array>
#include <span>

namespace tarvo::symbolreader {
namespace {

/// One shape of an offset: what must be done to it to get an address of the image.
struct Shape {
  bool addsStart;  ///< it counts from the image's first address, not from 0
  bool dropsBias;  ///< it holds kExecutableBias on top
};

constexpr Shape kAddress{false, false};
constexpr Shape kRelative{true, false};
constexpr Shape kBiasedAddress{false, true};
constexpr Shape kBiasedRelative{true, true};

/// The loader's base of an ELF module is what it added to the file's addresses, so offsets are such
/// addresses. Lists made from /proc/PID/maps give the first mapping instead: these come last.
constexpr std::array kElfShapes = {kAddress, kBiasedAddress, kRelative, kBiasedRelative};
/// An executable at the bias gives addresses, a library (at 0) both in one; an executable linked
/// elsewhere gives biased distances.
constexpr std::array kMachOShapes = {kAddress, kRelative, kBiasedRelative};
/// A Windows module's base is where it begins. Addresses come from crash logs that take base 0.
constexpr std::array kPeShapes = {kRelative, kBiasedRelative, kAddress};

std::span<const Shape> ShapesOf(ImageFormat format) {
  switch (format) {
    case ImageFormat::Elf:
      return kElfShapes;
    case ImageFormat::MachO:
      return kMachOShapes;
    case ImageFormat::Pe:
      return kPeShapes;
  }
  return {};
}

}  // namespace

std::optional<std::uint64_t> ImageAddress(ImageFormat format, const ImageRange& image,
                                          std::uint64_t offset) {
  for (const Shape& shape : ShapesOf(format)) {
    if (shape.dropsBias && offset < kExecutableBias) continue;
    const std::uint64_t address =
        offset - (shape.dropsBias ? kExecutableBias : 0) + (shape.addsStart ? image.start : 0);
    if (image.Contains(address)) return address;
  }
  return std::nullopt;
}

}  // namespace tarvo::symbolreader
