// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/tiff_bytes.hpp"

#include <algorithm>
#include <optional>
#include <set>

namespace vorn::tools {

namespace {

/// The numbers of a TIFF file, of 32-bit addresses or of 64 bits (BigTIFF); those beyond its end are 0.
class TiffBytes {
public:
  explicit TiffBytes(std::vector<unsigned char> const& bytes)
      : bytes_(bytes), isWide_(beginsWith('I', 'I', 43, 0) || beginsWith('M', 'M', 0, 43)),
        isLittle_(beginsWith('I', 'I', 42, 0) || beginsWith('I', 'I', 43, 0)),
        isBig_(beginsWith('M', 'M', 0, 42) || beginsWith('M', 'M', 0, 43)) {}

  /// Where the first directory begins; 0 for none, and where the bytes are no TIFF file.
  std::size_t firstDirectory() const {
    return isLittle_ || isBig_ ? number(isWide_ ? 8 : 4, addressSize()) : 0;
  }
  /// Where the one behind a directory begins; 0 for none.
  std::size_t nextDirectory(std::size_t directory) const {
    return number(directory + sizeOf(directory) - addressSize(), addressSize());
  }
  /// Bytes of a directory, the place of the next one included.
  std::size_t sizeOf(std::size_t directory) const {
    return countSize() + entrySize() * entriesOf(directory) + addressSize();
  }

  /// The short number, or the lower half of a long one, that a directory has for a tag.
  std::optional<std::size_t> valueOf(std::size_t directory, std::size_t tag) const {
    std::size_t const entries = entriesOf(directory);
    for (std::size_t i = 0; i < entries; ++i) {
      std::size_t const entry = directory + countSize() + entrySize() * i;
      if (number(entry, 2) == tag) {
        constexpr std::size_t longNumber = 4;
        constexpr std::size_t wideNumber = 16;
        std::size_t const type = number(entry + 2, 2);
        std::size_t const size = type == longNumber ? 4 : type == wideNumber ? 8 : 2;
        return number(entry + 4 + addressSize() + (isBig_ ? size - 2 : 0), 2);
      }
    }
    return std::nullopt;
  }

private:
  std::size_t addressSize() const { return isWide_ ? 8 : 4; }
  std::size_t countSize() const { return isWide_ ? 8 : 2; }
  std::size_t entrySize() const { return isWide_ ? 20 : 12; }
  /// No more than the file has room for.
  std::size_t entriesOf(std::size_t directory) const {
    return std::min(number(directory, countSize()), bytes_.size() / entrySize());
  }

  bool beginsWith(unsigned char a, unsigned char b, unsigned char c, unsigned char d) const {
    unsigned char const start[] = {a, b, c, d};
    return bytes_.size() > 8 && std::equal(start, start + 4, bytes_.begin());
  }

  std::size_t number(std::size_t at, std::size_t count) const {
    std::size_t value = 0;
    bool const isInside = at <= bytes_.size() && count <= bytes_.size() - at;
    for (std::size_t i = 0; i < count && isInside; ++i) {
      std::size_t const byte = bytes_[at + i];
      value = isLittle_ ? value | byte << (8 * i) : value << 8U | byte;
    }
    return value;
  }

  std::vector<unsigned char> const& bytes_;
  bool isWide_;
  bool isLittle_;
  bool isBig_;
};

} // namespace

bool isMosaicTiff(std::vector<unsigned char> const& bytes) {
  constexpr std::size_t interpretation = 262;
  constexpr std::size_t mosaic = 32803;
  TiffBytes const tiff(bytes);
  std::size_t const directory = tiff.firstDirectory();
  return directory != 0 && tiff.valueOf(directory, interpretation) == mosaic;
}

std::size_t pageCount(std::vector<unsigned char> const& bytes) {
  constexpr std::size_t kind = 254;
  constexpr std::size_t smaller = 1; // bits of the kind
  constexpr std::size_t mask = 4;
  TiffBytes const tiff(bytes);
  std::size_t pages = 0;
  std::size_t directory = tiff.firstDirectory();
  std::set<std::size_t> seen; // the last one may lead back
  std::size_t room = bytes.size();
  while (directory != 0 && room > 0 && seen.insert(directory).second) {
    room -= std::min(room, tiff.sizeOf(directory)); // of a file that breaks off the last one has none
    pages += (tiff.valueOf(directory, kind).value_or(0) & (smaller | mask)) == 0 ? 1 : 0;
    directory = tiff.nextDirectory(directory);
  }
  return std::max<std::size_t>(pages, 1);
}

} // namespace vorn::tools
