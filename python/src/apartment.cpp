#include "apartment.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "com_error.h"
#include "gil.h"

namespace vpy {

namespace {

// Destroyed when the thread ends: balances the initialisation made for it.
struct ThreadInitialisation {
  bool initialized = false;
  ~ThreadInitialisation() {
    if (initialized) CoUninitialize();
  }
};

bool Initialized() {
  INT type = 0, qualifier = 0;
  return CoGetApartmentType(&type, &qualifier) == S_OK;
}

ThreadInitialisation& ThisThread() {
  // The platform's own per-thread state is made first (CoGetApartmentType
  // touches it), so that it outlives ours when the thread ends.
  Initialized();
  static thread_local ThreadInitialisation initialisation;
  return initialisation;
}

void Initialize(bool multithreaded) {
  const bool already = Initialized();
  ThreadInitialisation& initialisation = ThisThread();
  const HRESULT hr = CoInitializeEx(nullptr, multithreaded ? COINIT_MULTITHREADED : COINIT_APARTMENTTHREADED);
  if (FAILED(hr))
    ThrowComError(hr, multithreaded ? "initialising the thread as multithreaded apartment"
                                    : "initialising the thread as single-threaded apartment");
  if (already || initialisation.initialized) {
    CoUninitialize();  // one initialisation per thread is enough
  } else {
    initialisation.initialized = true;
  }
}

}  // namespace

void EnsureApartment() {
  if (Initialized()) return;
  Initialize(false);
}

void InitializeThread(bool multithreaded) { Initialize(multithreaded); }

py::object ApartmentKind() {
  INT type = 0, qualifier = 0;
  if (CoGetApartmentType(&type, &qualifier) != S_OK) return py::none();
  return py::str(type == APTTYPE_MTA ? "mta" : "sta");
}

unsigned long Pump(std::optional<double> timeout) {
  EnsureApartment();
  using Clock = std::chrono::steady_clock;
  constexpr DWORD kSliceMs = 100;  // how often Ctrl+C is looked for
  const bool unlimited = !timeout.has_value();
  const double seconds = unlimited ? 0.0 : std::max(0.0, *timeout);
  const auto deadline =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  // Nothing is ever queued for the multithreaded apartment: its calls run
  // directly. A pump there only waits.
  INT type = 0, qualifier = 0;
  const bool queued = CoGetApartmentType(&type, &qualifier) == S_OK && type == APTTYPE_STA;
  for (;;) {
    DWORD wait = kSliceMs;
    if (!unlimited) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
      wait = static_cast<DWORD>(std::clamp<long long>(left, 0, kSliceMs));
    }
    DWORD ran = 0;
    {
      GilReleased released;
      if (queued)
        ran = CoPumpMessages(wait);
      else
        std::this_thread::sleep_for(std::chrono::milliseconds(wait));
    }
    if (ran > 0) return ran;
    if (PyErr_CheckSignals() != 0) throw py::error_already_set();
    if (!unlimited && Clock::now() >= deadline) return 0;
  }
}

void EndThreadApartment() {
  ThreadInitialisation& initialisation = ThisThread();
  if (!initialisation.initialized) return;
  initialisation.initialized = false;
  CoUninitialize();
}

}  // namespace vpy
