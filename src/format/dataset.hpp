// The data set file, version 96: a 128-byte header, a variable block of names
// and type bytes padded to a multiple of 8, then the rows. This module builds
// the header image `uhout` and decides whether an existing file may be
// appended to.
#pragma once

#include <cstdint>
#include <cstdio>

namespace kolv {

inline constexpr int kHeaderSize = 128;
inline constexpr uint32_t kFileVersion = 96;

// Byte offsets of the header fields that are set or read by name.
inline constexpr int kOrderFlagAt = 20;
inline constexpr int kCheckWordAt = 28;
inline constexpr int kTypeCodeAt = 44;
inline constexpr int kElementSizeAt = 48;
inline constexpr int kComplexAt = 52;
inline constexpr int kDataOffsetAt = 72;
inline constexpr int kRowsAt = 80;
inline constexpr int kColumnsAt = 84;

// The word at 28 as the writer stores it; a reader of the other byte order
// sees it as 0x02EFCDAB.
inline constexpr uint32_t kCheckWord = 0xABCDEF02u;
// Bytes 4-7 of a version-92 header.
inline constexpr uint32_t kV92Mark = 0xEECACACAu;

// Element type codes stored at 44.
inline constexpr uint32_t kTypeInt16 = 12;
inline constexpr uint32_t kTypeFloat = 1004;
inline constexpr uint32_t kTypeDouble = 1008;

// Missing values as stored: the 8-byte slot (a NaN whose bits are
// 0x7FFFFFFF00000000), the 4-byte float pattern and the 2-byte integer.
inline constexpr uint64_t kMissvalBits = 0x7FFFFFFF00000000ULL;
inline constexpr uint32_t kMissing32 = 0x7FFFFFF8;
inline constexpr uint16_t kMissing16 = 0x8000;

// Bytes of one variable name in the variable block.
inline constexpr int kNameBytes = 32;

// Little-endian 32-bit word access in a byte image.
inline void store_le32(uint8_t* at, uint32_t value) {
  at[0] = static_cast<uint8_t>(value);
  at[1] = static_cast<uint8_t>(value >> 8);
  at[2] = static_cast<uint8_t>(value >> 16);
  at[3] = static_cast<uint8_t>(value >> 24);
}
inline uint32_t load_le32(const uint8_t* at) {
  return static_cast<uint32_t>(at[0]) | static_cast<uint32_t>(at[1]) << 8 |
         static_cast<uint32_t>(at[2]) << 16 | static_cast<uint32_t>(at[3]) << 24;
}

// Zero bytes after the type bytes that bring the data to a multiple of 8.
uint32_t variable_pad(uint32_t columns);

// Offset of the first row: header, 32-byte names, type bytes and pad.
uint32_t data_offset(uint32_t columns);

// Builds the finished header image from scratch. An `otyp` other than 2, 4
// or 8 leaves the element type code and size at 0.
void build_header(uint8_t uhout[kHeaderSize], int otyp, int cplx, uint32_t rows, uint32_t columns);

// Reads the header of a file offered for append into `uhout` and returns 96
// when rows may be appended; ends the run through getout otherwise.
int ReadFileHeader(FILE* stream, uint8_t uhout[kHeaderSize]);

// The row count stored at 80.
uint32_t header_rows(const uint8_t uhout[kHeaderSize]);

// How writing the variable block ended: the part that failed, if any.
enum class VarBlockWrite { kDone, kNamesFailed, kTypesFailed, kPadFailed };

// Writes the variable block (32-byte names, one type byte each, zero pad to a
// multiple of 8) at byte 128 of out.
VarBlockWrite write_variable_block(FILE* out, const char* names, const uint8_t* types, int count);

}  // namespace kolv
