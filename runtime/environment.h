// Expansion of environment variables in paths and option values.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Length of the expansion buffer, in characters including the terminator.
inline constexpr size_t kMaxPath = 260;

// Expands, in one pass from left to right (an inserted value is not
// expanded again):
//   %NAME%   the platform form; an unknown or empty name stays as written,
//            "%" included, and a "%" without a closing one stays too;
//   ${NAME}  an unknown name or a missing "}" stays as written;
//   $NAME    NAME of letters, digits and "_", not starting with a digit;
//            an unknown name stays as written, a "$" before anything else too;
//   ~        as the whole text or before "/" at the start: $HOME
//            ("~user" stays as written).
// Names are case-sensitive. The result is cut to limit - 1 characters.
std::u16string ExpandEnvironment(std::u16string_view text, size_t limit = kMaxPath);

// The running program's file, from /proc/self/exe; empty if unknown.
std::u16string ExecutablePath();

// The file that holds the component's code (libveltrane.so, or the program
// that links the layers), as an absolute path; empty if unknown.
std::u16string LibraryPath();
