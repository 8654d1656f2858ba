// Temporary file names, path normalisation and small string copies.
//
// Paths live in zero-terminated 1024-byte buffers (kPathSize). Every routine
// here accepts '\\' as a path separator and turns it into '/'. Copies are
// allocated with malloc; the caller releases them with free.
#pragma once

#include <cstddef>

namespace kolv {

// Characters a path handed to pathparseex may not hold.
inline constexpr char invalid_chars[] = "\"\\[]*<>|+=;,?:";
// A sequence a path handed to pathparseex may not hold.
inline constexpr char double_sep[] = "//";

// Makes and reserves a unique file name: directory (trailing '/' removed,
// unless it is a lone '/') + '/' + prefix + six characters chosen by mkstemp,
// or prefix + six characters in the current directory when directory is null
// or empty. The file is created empty and left on disk. A failure to create
// it is not reported: the name is returned all the same and fails when the
// caller opens it. Returns a malloc'd copy of the name, null only when that
// allocation fails.
char* veldatempnam(const char* directory, const char* prefix);

// Rewrites the 1024-byte buffer `path` in place into a clean absolute path:
// '\\' becomes '/', "." components are dropped, ".." removes the previous
// component (never going above the root), a leading '~' stands for $HOME, a
// relative path is taken from `base` (the current directory when null), and
// a trailing '/' is kept. Returns 1, leaving the path with its backslashes
// turned, when it holds one of invalid_chars or "//"; 0 otherwise. An empty
// path becomes the current directory when base is null and stays empty when
// a base is given. A result longer than 1023 characters is cut; a buffer
// handed in without a terminator is cut at its last byte.
int pathparseex(char* path, const char* base);

// pathparseex against the current directory.
int pathparse(char* path);

// The current working directory in buf (at most size bytes, terminator
// included); null when it does not fit or cannot be found.
char* getcwdir(char* buf, int size);

// Copies min(length of src, size - 1) bytes, terminates them and returns the
// number of bytes copied (not the length of src). Reads no further into src
// than it copies. With size 0 nothing is written and 0 is returned.
size_t g_strlcpy(char* dst, const char* src, size_t size);

// Turns every '\\' of s into '/' in place.
void fixpath(char* s);
// fixpath, returning s.
char* pathfix(char* s);

// A copy of s in a block of exactly strlen(s) + 1 bytes; null for a null s or
// a failed allocation.
char* copy_string(const char* s);
// A zero-filled block of `size` bytes holding at most size - 1 characters of
// s; null for a null s, a size of 0 (no room for the terminator) or a failed
// allocation.
char* copy_string_ex(const char* s, size_t size);
// A zero-filled copy of s in a block of strlen(s) + 1 bytes rounded up to a
// multiple of 8; null for a null s or a failed allocation.
char* copy_string_for_symbol(const char* s);
// A zero-filled block of `size` bytes rounded up to a multiple of 8, holding
// at most block - 1 characters of s; null for a null s, a size of 0 or a
// failed allocation.
char* copy_string_for_symbol_ex(const char* s, size_t size);

// 1 when name has a '.' with no '/' after it (an extension), else 0.
int hasext(const char* name);

// Cuts name at its last '.' when no '/' follows it. Returns null when an
// extension was cut, and name itself, unchanged, when there was none, so a
// caller can tell the two apart. A null name gives null.
char* dropext(char* name);

// Convert s in place to upper / lower case.
void upper(char* s);
void lower(char* s);

}  // namespace kolv
