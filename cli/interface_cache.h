// Interfaces of function modules kept between runs in their XML form, so
// that a call needs no dictionary reads once its interface is known:
// $XDG_CACHE_HOME/veltrane/<system>/<client>/<FUNCTION>.xml (else
// ~/.cache/...), where <system> is the back end and the place it connects
// to. An interface may also come from a file (--interface), for a user
// who may call a module but not read the dictionary.
#pragma once

#include <string>

#include <veltrane.h>

#include "connection.h"

namespace veltrane::cli {

struct InterfaceSource {
  bool refresh = false;  // import from the system and replace the cached copy
  std::string file;      // the interface's XML form; empty: the cache
};

// The directory of the cached interfaces of the settings' system and client.
std::string interfaceCacheDirectory(const ConnectionSettings& settings);

// An empty call with the interface of `function`: from the file, from the
// cache, or imported from the system (and then cached).
CComPtr<IFunctionCall> functionInterface(Connection& connection, const std::string& function,
                                         const InterfaceSource& source);

}  // namespace veltrane::cli
