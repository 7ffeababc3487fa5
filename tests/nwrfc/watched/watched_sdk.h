// The test's side of the watched libsapnwrfc.so (watched_sdk.cpp), which the
// sessions of test_nwrfc_watched load: how often an entry point was called,
// and the next call of one failing.
#pragma once

#include <dlfcn.h>

#include <gtest/gtest.h>

#include <string>

#include "nwrfc/nwrfc_library.h"

namespace nwtest::watched {

namespace detail {

template <class F>
F* Hook(const char* name) {
  const std::string path = veltrane::nwrfc::NWRfcLibrary::LoadedPath();
  void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  EXPECT_NE(module, nullptr) << "the watched library is not loaded: " << path;
  F* hook = module ? reinterpret_cast<F*>(dlsym(module, name)) : nullptr;
  EXPECT_NE(hook, nullptr) << name << " is not in " << path;
  if (module) dlclose(module);
  return hook;
}

}  // namespace detail

// Calls of entry so far, in the whole process.
inline int Calls(const char* entry) {
  auto* hook = detail::Hook<int(const char*)>("VsimWatchedCalls");
  return hook ? hook(entry) : -1;
}

// Waits until entry was called count times in all; the number reached. The
// bound only keeps a broken build from hanging.
inline int WaitForCalls(const char* entry, int count) {
  auto* hook = detail::Hook<int(const char*, int, int)>("VsimWaitForWatchedCalls");
  return hook ? hook(entry, count, 90000) : -1;
}

// The next call of entry fails with RFC_ILLEGAL_STATE and does nothing else.
inline void FailNext(const char* entry) {
  if (auto* hook = detail::Hook<void(const char*)>("VsimFailNextWatchedCall")) hook(entry);
}

}  // namespace nwtest::watched
