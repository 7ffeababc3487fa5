// The library's trace for the command: the user's --trace file, checked
// before anything is sent, or else a private file at level ERROR from which
// the command reads the cause of a transport failure (failure.h).
#pragma once

#include <string>

#include <veltrane.h>

namespace veltrane::cli {

// Creates `path` for the owner only (0600) when it does not exist; a path
// that cannot be written is a UsageError.
void requireWritableTrace(const std::string& path);

// Points the session's trace at `userFile`, or at a private file when it
// is empty, and tells failure.h where to look.
void attachTrace(ISession* session, const std::string& userFile);

// Removes the private file, once the library is done.
void removePrivateTrace();

}  // namespace veltrane::cli
