#include "format/dataset.hpp"

#include <cstring>
#include <utility>

namespace kolv {

namespace {

// Bytes 0-15 of a version-96 header: signature words 1 to 4.
constexpr uint8_t kSignatureHead[16] = {0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0,
                                        0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0};
// Bytes 16-31: signature word 5, the byte-order flag (0: the writer's own
// order), a reserved word and the check word 0xABCDEF02.
constexpr uint8_t kSignatureTail[16] = {0xFF, 0xFF, 0xFF, 0xFF, 0,    0,    0,    0,
                                        0,    0,    0,    0,    0x02, 0xEF, 0xCD, 0xAB};

constexpr int kV92HeaderSize = 40;

}  // namespace

uint32_t variable_pad(uint32_t columns) {
  return columns % 8 == 0 ? 0 : 8 - columns % 8;
}

uint32_t data_offset(uint32_t columns) {
  return kHeaderSize + 32 * columns + columns + variable_pad(columns);
}

void build_header(uint8_t uhout[kHeaderSize], int otyp, int cplx, uint32_t rows, uint32_t columns) {
  std::memset(uhout, 0, kHeaderSize);
  std::memcpy(uhout, kSignatureHead, sizeof kSignatureHead);
  std::memcpy(uhout + 16, kSignatureTail, sizeof kSignatureTail);
  store_le32(uhout + 32, 1);
  store_le32(uhout + 40, 1);
  switch (otyp) {
    case 2:
      store_le32(uhout + kTypeCodeAt, kTypeInt16);
      break;
    case 4:
      store_le32(uhout + kTypeCodeAt, kTypeFloat);
      break;
    case 8:
      store_le32(uhout + kTypeCodeAt, kTypeDouble);
      break;
    default:
      break;
  }
  if (otyp == 2 || otyp == 4 || otyp == 8) {
    store_le32(uhout + kElementSizeAt, static_cast<uint32_t>(otyp));
  }
  store_le32(uhout + kComplexAt, cplx == 2 ? 1 : 0);
  store_le32(uhout + 56, 1);
  store_le32(uhout + 60, 2);
  store_le32(uhout + 64, 1);
  store_le32(uhout + kDataOffsetAt, data_offset(columns));
  store_le32(uhout + kRowsAt, rows);
  store_le32(uhout + kColumnsAt, columns);
}

bool has_signature(const uint8_t uhout[kHeaderSize]) {
  return std::memcmp(uhout, kSignatureHead, sizeof kSignatureHead) == 0 &&
         load_le32(uhout + 16) == 0xFFFFFFFFu;
}

bool is_version92(const uint8_t* dout) {
  return load_le32(dout + 4) == kV92Mark;
}

HeaderOrder header_order(const uint8_t uhout[kHeaderSize]) {
  const uint8_t* check = uhout + kCheckWordAt;
  if (load_le32(uhout + kOrderFlagAt) != 0) {
    uint8_t reversed[4] = {check[3], check[2], check[1], check[0]};
    return load_le32(reversed) == kCheckWord ? HeaderOrder::kReversed : HeaderOrder::kUnrecognised;
  }
  return load_le32(check) == kCheckWord ? HeaderOrder::kOwn : HeaderOrder::kUnrecognised;
}

HeaderFields header_fields(const uint8_t uhout[kHeaderSize]) {
  HeaderFields f;
  f.type_code = load_le32(uhout + kTypeCodeAt);
  f.element_size = load_le32(uhout + kElementSizeAt);
  f.complex_flag = load_le32(uhout + kComplexAt);
  f.data_offset = load_le32(uhout + kDataOffsetAt);
  f.rows = load_le32(uhout + kRowsAt);
  f.columns = load_le32(uhout + kColumnsAt);
  return f;
}

uint32_t element_width(uint32_t type_code, uint32_t element_size) {
  if ((type_code == kTypeInt16 && element_size == 2) ||
      (type_code == kTypeFloat && element_size == 4) ||
      (type_code == kTypeDouble && element_size == 8)) {
    return element_size;
  }
  return 0;
}

uint64_t data_offset_wide(uint64_t columns) {
  return kHeaderSize + 33 * columns + (columns % 8 == 0 ? 0 : 8 - columns % 8);
}

HeaderCheck ReadFileHeader(FILE* stream, uint8_t uhout[kHeaderSize]) {
  // A short read leaves the rest of the image zero, never stale bytes.
  std::memset(uhout, 0, kHeaderSize);
  std::rewind(stream);
  if (std::fread(uhout, 1, kHeaderSize, stream) < static_cast<size_t>(kHeaderSize)) {
    std::clearerr(stream);
  }

  if (!has_signature(uhout)) {
    uint8_t dout[kV92HeaderSize] = {};
    std::rewind(stream);
    if (std::fread(dout, 1, sizeof dout, stream) < sizeof dout) std::clearerr(stream);
    return is_version92(dout) ? HeaderCheck::kVersion92 : HeaderCheck::kUnrecognised;
  }

  const HeaderOrder order = header_order(uhout);
  if (load_le32(uhout + kOrderFlagAt) != 0) {
    // The image keeps the check word as this machine reads it once reversed.
    uint8_t* check = uhout + kCheckWordAt;
    std::swap(check[0], check[3]);
    std::swap(check[1], check[2]);
  }
  if (order == HeaderOrder::kReversed) return HeaderCheck::kReversed;
  if (order == HeaderOrder::kUnrecognised) return HeaderCheck::kUnrecognised;
  return HeaderCheck::kVersion96;
}

uint32_t header_rows(const uint8_t uhout[kHeaderSize]) {
  return load_le32(uhout + kRowsAt);
}

VarBlockWrite write_variable_block(FILE* out, const char* names, const uint8_t* types, int count) {
  size_t n = static_cast<size_t>(count);
  if (std::fseek(out, kHeaderSize, SEEK_SET) != 0) return VarBlockWrite::kNamesFailed;
  if (n > 0 && std::fwrite(names, n * kNameSize, 1, out) != 1) return VarBlockWrite::kNamesFailed;
  if (n > 0 && std::fwrite(types, n, 1, out) != 1) return VarBlockWrite::kTypesFailed;
  if (n % 8 != 0) {
    static constexpr char kZeros[8] = {};
    if (std::fwrite(kZeros, 8 - n % 8, 1, out) != 1) return VarBlockWrite::kPadFailed;
  }
  return VarBlockWrite::kDone;
}

}  // namespace kolv
