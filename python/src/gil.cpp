#include "gil.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace vpy {

namespace {

// Threads between deciding to take the GIL and having it.
std::atomic<int> g_entering{0};
std::atomic<bool> g_closed{false};
std::thread::id g_exiting;  // written before g_closed is set

bool PythonRuns() {
#if PY_VERSION_HEX >= 0x030D0000
  return Py_IsInitialized() && !Py_IsFinalizing();
#else
  return Py_IsInitialized() && !_Py_IsFinalizing();
#endif
}

// Admits the calling thread to take the GIL, unless the interpreter is closing
// and it is not the exiting thread. Leave() after taking it.
bool Enter() {
  g_entering.fetch_add(1);
  if (g_closed.load() && std::this_thread::get_id() != g_exiting) {
    g_entering.fetch_sub(1);
    return false;
  }
  return true;
}

void Leave() { g_entering.fetch_sub(1); }

// What the interpreter itself does from Python 3.14 on with such a thread.
[[noreturn]] void WaitForTheEnd() {
  for (;;) std::this_thread::sleep_for(std::chrono::hours(1));
}

}  // namespace

GilReleased::GilReleased() : m_state(PyEval_SaveThread()) {}

GilReleased::~GilReleased() {
  if (!Enter()) WaitForTheEnd();
  PyEval_RestoreThread(m_state);
  Leave();
}

GilTaken::GilTaken() {
  if (!PythonRuns()) return;
  if (PyGILState_Check()) {
    m_held = true;
    return;
  }
  if (!Enter()) return;
  m_state = PyGILState_Ensure();
  Leave();
  m_held = m_ensured = true;
}

GilTaken::~GilTaken() {
  if (m_ensured) PyGILState_Release(m_state);
}

void CloseGil() {
  g_exiting = std::this_thread::get_id();
  g_closed.store(true);
  // Threads already admitted take the GIL and go on; then it is closed.
  PyThreadState* state = PyEval_SaveThread();
  while (g_entering.load() != 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  PyEval_RestoreThread(state);
}

}  // namespace vpy
