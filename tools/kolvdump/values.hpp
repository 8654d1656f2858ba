// kolvdump's view of one element: whether it is a number, a missing value or
// text, and its text. Numbers are written in the shortest form that reads
// back to the same value (std::to_chars), so a double stored from "68.2"
// shows as 68.2, a 4-byte float as the shortest float.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kolvdump {

enum class CellKind {
  kNumber,   // a value; its text is the number
  kMissing,  // the missing-value pattern of the element width
  kText,     // character data: of a character variable, or met in a numeric field
};

// Room for the text of any one element: a number (at most 24 characters) or
// up to 8 bytes of character data escaped as \xHH (32 characters).
inline constexpr size_t kCellRoom = 40;

// Little-endian loads of one element.
uint16_t load16(const uint8_t* at);
uint32_t load32(const uint8_t* at);
uint64_t load64(const uint8_t* at);

// The bytes of an 8-byte element up to its first zero byte (at most 8).
size_t text_length(const uint8_t* element);

// Whether an 8-byte element of a numeric variable holds character data that
// kolv stored in place of a number: 1 to 7 text bytes (0x20-0x7E and
// 0x80-0xFF) followed by zero bytes (read as a double, a value below
// 2.5e-306 that no ordinary field gives), or 8 printable ASCII bytes
// (0x20-0x7E) whose double needs 16 or 17 significant digits (a number read
// from text of at most 15 digits never does).
bool numeric_holds_text(const uint8_t* element);

// What one element of `width` bytes (2, 4 or 8) holds; `character` says the
// element belongs to a character variable of an 8-byte data set.
CellKind classify(const uint8_t* element, uint32_t width, bool character);

// The value of a numeric element of `width` bytes (2, 4 or 8) as a double,
// which holds every 2-byte integer and 4-byte float exactly.
double number_value(const uint8_t* element, uint32_t width);

// Writes the shortest round-trip text of a numeric element at `to` (room for
// kCellRoom bytes) and returns its end: an integer for 2 bytes, the shortest
// float for 4, the shortest double for 8; "inf", "-inf", "nan" for those.
char* format_number(const uint8_t* element, uint32_t width, char* to);

// The text of `bytes` for the text view: printable ASCII and well-formed
// UTF-8 sequences as they are, every other byte and the backslash as \xHH.
// Returns the end of what it wrote at `to` (room for 4 bytes per input
// byte) and adds the characters shown to `shown`.
char* escape_text(std::string_view bytes, char* to, size_t& shown);
std::string escape_text(std::string_view bytes);

// Characters a terminal shows for `bytes` written as they are (UTF-8 lead
// and single bytes count, continuation bytes do not).
size_t shown_width(std::string_view bytes);

}  // namespace kolvdump
