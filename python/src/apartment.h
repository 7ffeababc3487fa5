// Apartments of Python threads. A thread that uses Veltrane is initialised on
// first use, as a single-threaded apartment unless it chose the multithreaded
// one first, and uninitialised when it ends.
#pragma once

#include "common.h"

#include <optional>

namespace vpy {

// Initialises the calling thread if it is not yet.
void EnsureApartment();

// Chooses the apartment of the calling thread before its first use; raises
// ComError (RPC_E_CHANGED_MODE) when it already has the other kind.
void InitializeThread(bool multithreaded);

// "sta", "mta", or None when the thread is not initialised.
py::object ApartmentKind();

// Runs the calls queued for this thread's apartment, waiting up to `timeout`
// seconds (None: without limit) for the first; the GIL is released meanwhile
// and Ctrl+C is honoured. Returns how many calls ran.
unsigned long Pump(std::optional<double> timeout);

// Ends the calling thread's apartment now if this module began it; used at exit
// so that calls still waiting for the main thread learn that it is gone.
void EndThreadApartment();

}  // namespace vpy
