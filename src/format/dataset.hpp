// The data set file, version 96: a 128-byte header, a variable block of names
// and type bytes padded to a multiple of 8, then the rows. This module builds
// the header image `uhout` and decides whether an existing file may be
// appended to.
#pragma once

#include <cstdint>
#include <cstdio>

#include "base/limits.hpp"

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

// The missing-value test of an 8-byte slot: its top 16 bits, sign cleared,
// exceed 0x7FF0 (all exponent bits set and the top four fraction bits not all
// zero). Infinities and NaNs whose top four fraction bits are zero are values.
inline bool slot_is_missing(uint64_t bits) {
  return ((bits >> 48) & 0x7FFFu) > 0x7FF0u;
}

// Reading a header image. A version-96 header carries the five signature
// words; a file that lacks them may be a version-92 data set, whose 40-byte
// header holds kV92Mark in its second word (`dout` needs 8 bytes).
bool has_signature(const uint8_t uhout[kHeaderSize]);
bool is_version92(const uint8_t* dout);

// The byte order a signed header was written in: the writer's own (flag at 20
// zero, check word 0xABCDEF02), the other one (flag set and the check word
// reads 0xABCDEF02 once its bytes are reversed), or neither.
enum class HeaderOrder { kOwn, kReversed, kUnrecognised };
HeaderOrder header_order(const uint8_t uhout[kHeaderSize]);

// The words of a header that describe the rows.
struct HeaderFields {
  uint32_t type_code = 0;
  uint32_t element_size = 0;
  uint32_t complex_flag = 0;
  uint32_t data_offset = 0;
  uint32_t rows = 0;
  uint32_t columns = 0;
};
HeaderFields header_fields(const uint8_t uhout[kHeaderSize]);

// The element width of a type code and size the format knows (12 with 2,
// 1004 with 4, 1008 with 8); 0 for any other pair.
uint32_t element_width(uint32_t type_code, uint32_t element_size);

// data_offset(columns) without 32-bit wrap-around, to compare a header's
// data offset with what its column count implies.
uint64_t data_offset_wide(uint64_t columns);

// Zero bytes after the type bytes that bring the data to a multiple of 8.
uint32_t variable_pad(uint32_t columns);

// Offset of the first row: header, 32-byte names, type bytes and pad.
uint32_t data_offset(uint32_t columns);

// Builds the finished header image from scratch. An `otyp` other than 2, 4
// or 8 leaves the element type code and size at 0.
void build_header(uint8_t uhout[kHeaderSize], int otyp, int cplx, uint32_t rows, uint32_t columns);

// What the header of a file offered for append says.
enum class HeaderCheck {
  kVersion96,     // a finished data set in this machine's order: rows may be appended
  kVersion92,     // the older format
  kReversed,      // a data set in the other byte order
  kUnrecognised,  // anything else, an unfinished data set included
};

// Reads the header of a file offered for append into `uhout` and tells what
// it is; the caller says what is wrong with it.
HeaderCheck ReadFileHeader(FILE* stream, uint8_t uhout[kHeaderSize]);

// The row count stored at 80.
uint32_t header_rows(const uint8_t uhout[kHeaderSize]);

// How writing the variable block ended: the part that failed, if any.
enum class VarBlockWrite { kDone, kNamesFailed, kTypesFailed, kPadFailed };

// Writes the variable block (32-byte names, one type byte each, zero pad to a
// multiple of 8) at byte 128 of out.
VarBlockWrite write_variable_block(FILE* out, const char* names, const uint8_t* types, int count);

}  // namespace kolv
