// The GIL across the interpreter's exit.
//
// Before Python 3.14 a thread other than the one that finalises the
// interpreter ends (pthread_exit) when it takes the GIL after finalisation has
// begun. Unwinding through a destructor (pybind11's gil_scoped_release gives the
// GIL back in one) that aborts the process. So the module takes the GIL back
// only through here: from CloseGil() on, called at exit by the thread that
// finalises, a Python thread other than that one waits for the process to end
// instead of taking it (it would have ended there), and a thread of the library
// leaves Python alone.
#pragma once

#include "common.h"

namespace vpy {

// Releases the GIL for its lifetime; see above for how it takes it back.
class GilReleased {
 public:
  GilReleased();
  ~GilReleased();
  GilReleased(const GilReleased&) = delete;
  GilReleased& operator=(const GilReleased&) = delete;

 private:
  PyThreadState* m_state;
};

// Holds the GIL for its lifetime on any thread, if the interpreter still lets
// this thread in (`held()`); otherwise Python must not be touched.
class GilTaken {
 public:
  GilTaken();
  ~GilTaken();
  GilTaken(const GilTaken&) = delete;
  GilTaken& operator=(const GilTaken&) = delete;
  bool held() const { return m_held; }

 private:
  bool m_held = false;
  bool m_ensured = false;
  PyGILState_STATE m_state{};
};

// At exit, with the GIL: from now on only the calling thread takes the GIL.
void CloseGil();

}  // namespace vpy
