#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarvo {

/// What an entry of a made-up archive says of itself.
struct ZipEntrySpec {
  std::string path;
  std::string content = {};
  std::uint32_t mode = 0100644;           ///< type and permissions, as Unix has them
  std::uint16_t flags = 0;                ///< general purpose bits: 1 is "encrypted"
  std::uint8_t madeBy = 3;                ///< the system: 0 DOS, 3 Unix
  std::optional<std::uint32_t> crc = {};  ///< the right one when there is none
};

/// Writes zip archives byte by byte, with stored entries (PKWARE's APPNOTE.TXT,
/// sections 4.3.7, 4.3.12 and 4.3.16), so that they can say what no well-behaved program writes.
class ZipBuilder {
 public:
  ZipBuilder& Add(const ZipEntrySpec& entry) {
    const auto offset = static_cast<std::uint32_t>(locals_.size());
    const std::string common = Common(entry);
    locals_ += "PK\3\4" + common + entry.path + entry.content;
    central_ += "PK\1\2";
    central_ += '\x14';  // made by version 2.0 ...
    central_ += static_cast<char>(entry.madeBy);
    central_ += common + Bytes(0, 2) + Bytes(0, 2) + Bytes(0, 2) + Bytes(entry.mode << 16, 4) +
                Bytes(offset, 4) + entry.path;
    ++count_;
    return *this;
  }

  [[nodiscard]] std::string Finish() const {
    return locals_ + central_ + "PK\5\6" + Bytes(0, 4) + Bytes(count_, 2) + Bytes(count_, 2) +
           Bytes(central_.size(), 4) + Bytes(locals_.size(), 4) + Bytes(0, 2);
  }

 private:
  static std::string Bytes(std::size_t value, int size) {
    std::string bytes;
    for (; size > 0; --size, value >>= 8) bytes += static_cast<char>(value & 0xFF);
    return bytes;
  }

  /// What both headers of an entry have: from the version that is needed to the lengths.
  static std::string Common(const ZipEntrySpec& entry) {
    return Bytes(20, 2) + Bytes(entry.flags, 2) + Bytes(0, 2) + Bytes(0x58210000, 4) +
           Bytes(entry.crc.value_or(Crc(entry.content)), 4) + Bytes(entry.content.size(), 4) +
           Bytes(entry.content.size(), 4) + Bytes(entry.path.size(), 2) + Bytes(0, 2);
  }

  static std::uint32_t Crc(std::string_view content) {
    std::uint32_t crc = ~0U;
    for (const char c : content) {
      crc ^= static_cast<std::uint8_t>(c);
      for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320U : 0U);
    }
    return ~crc;
  }

  std::string locals_;
  std::string central_;
  std::size_t count_ = 0;
};

}  // namespace tarvo
