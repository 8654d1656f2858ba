#include "format/dataset.hpp"

#include <cstring>

#include "base/fatal.hpp"

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

[[noreturn]] void reject_unrecognised() {
  getout("kolv -- unrecognized output file type, cannot append\n");
}

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

int ReadFileHeader(FILE* stream, uint8_t uhout[kHeaderSize]) {
  // A short read leaves the rest of the image zero, never stale bytes.
  std::memset(uhout, 0, kHeaderSize);
  std::rewind(stream);
  if (std::fread(uhout, 1, kHeaderSize, stream) < static_cast<size_t>(kHeaderSize)) {
    std::clearerr(stream);
  }

  if (std::memcmp(uhout, kSignatureHead, sizeof kSignatureHead) != 0 ||
      load_le32(uhout + 16) != 0xFFFFFFFFu) {
    uint8_t dout[kV92HeaderSize] = {};
    std::rewind(stream);
    if (std::fread(dout, 1, sizeof dout, stream) < sizeof dout) std::clearerr(stream);
    if (load_le32(dout + 4) == kV92Mark) {
      getout("kolv -- v92 file format, use morvelix before appending\n");
    }
    reject_unrecognised();
  }

  if (load_le32(uhout + kOrderFlagAt) != 0) {
    uint8_t* check = uhout + kCheckWordAt;
    uint8_t reversed[4] = {check[3], check[2], check[1], check[0]};
    std::memcpy(check, reversed, sizeof reversed);
    if (load_le32(check) == kCheckWord) {
      getout("kolv -- byte order reversed, use morvelix before appending\n");
    }
    reject_unrecognised();
  }

  if (load_le32(uhout + kCheckWordAt) != kCheckWord) reject_unrecognised();
  return static_cast<int>(kFileVersion);
}

uint32_t header_rows(const uint8_t uhout[kHeaderSize]) {
  return load_le32(uhout + kRowsAt);
}

VarBlockWrite write_variable_block(FILE* out, const char* names, const uint8_t* types, int count) {
  size_t n = static_cast<size_t>(count);
  if (std::fseek(out, kHeaderSize, SEEK_SET) != 0) return VarBlockWrite::kNamesFailed;
  if (n > 0 && std::fwrite(names, n * kNameBytes, 1, out) != 1) return VarBlockWrite::kNamesFailed;
  if (n > 0 && std::fwrite(types, n, 1, out) != 1) return VarBlockWrite::kTypesFailed;
  if (n % 8 != 0) {
    static constexpr char kZeros[8] = {};
    if (std::fwrite(kZeros, 8 - n % 8, 1, out) != 1) return VarBlockWrite::kPadFailed;
  }
  return VarBlockWrite::kDone;
}

}  // namespace kolv
