// The sizes everything else is built from, and what the fast paths rely on.
#pragma once

namespace kolv {

// Bytes read into the buffer at a time. A statement, a packed record and a
// number must each fit in one read.
inline constexpr int kReadSize = 131072;

// Readable bytes kept after the buffer's text (its zero byte included): the
// field readers load 8 bytes, or a 16-byte window, at any place in the text.
inline constexpr int kReadSlack = 4096;
inline constexpr int kWidestLoad = 16;
static_assert(kReadSlack >= kWidestLoad + 1, "a window at the zero byte must stay in the buffer");

// The read buffer: a full read, then the slack.
inline constexpr int kInbuffSize = kReadSize + kReadSlack;
static_assert(kInbuffSize == 135168);

// One variable-name field, in the command language and in the data set.
inline constexpr int kNameSize = 32;

// Every path buffer.
inline constexpr int kPathSize = 1024;

// Largest single write of rows.
inline constexpr int kBlockBytes = 131072;
static_assert(kBlockBytes % 8 == 0, "a block holds whole 8-byte elements");

}  // namespace kolv
