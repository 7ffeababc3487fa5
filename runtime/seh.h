// Faults in foreign code as _SEHException.
//
// RunTranslated(f) runs f and turns a synchronous fault signal raised on
// the calling thread while f runs (SIGSEGV, SIGBUS, SIGILL, SIGFPE) into
// _SEHException with the platform's exception code. The handlers are
// installed while at least one translator is active on any thread, and the
// dispositions found before are put back when the last one ends; a signal
// on a thread without an active translator goes to the disposition found
// before. Translators nest: the innermost one catches.
//
// The fault leaves f by siglongjmp: frames of f between the fault and the
// translator are abandoned without running their destructors. This is
// meant for calls into C libraries (the SDKs), whose frames have none.
// A stack overflow is not caught (no alternate signal stack).
//
// LoadModule and LoadProc are the loader's counterpart: a library that
// cannot be loaded or an entry point that cannot be found raises
// _SEHException with the codes of a failed delayed load.
#pragma once

#include <csetjmp>
#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>

#include "runtime/exceptions.h"

// Exception codes.
inline constexpr uint32_t kExceptionAccessViolation = 0xC0000005;        // SIGSEGV, SIGBUS
inline constexpr uint32_t kExceptionIllegalInstruction = 0xC000001D;     // SIGILL
inline constexpr uint32_t kExceptionPrivilegedInstruction = 0xC0000096;  // SIGILL, ILL_PRVOPC
inline constexpr uint32_t kExceptionIntDivideByZero = 0xC0000094;        // SIGFPE
inline constexpr uint32_t kExceptionIntOverflow = 0xC0000095;            // SIGFPE, FPE_INTOVF
inline constexpr uint32_t kExceptionFltDivideByZero = 0xC000008E;        // SIGFPE, FPE_FLTDIV
inline constexpr uint32_t kExceptionFltInexactResult = 0xC000008F;       // SIGFPE, FPE_FLTRES
inline constexpr uint32_t kExceptionFltInvalidOperation = 0xC0000090;    // SIGFPE, FPE_FLTINV
inline constexpr uint32_t kExceptionFltOverflow = 0xC0000091;            // SIGFPE, FPE_FLTOVF
inline constexpr uint32_t kExceptionFltUnderflow = 0xC0000093;           // SIGFPE, FPE_FLTUND
inline constexpr uint32_t kExceptionArrayBoundsExceeded = 0xC000008C;    // SIGFPE, FPE_FLTSUB
inline constexpr uint32_t kExceptionModuleNotFound = 0xC06D007E;         // library not loadable
inline constexpr uint32_t kExceptionProcNotFound = 0xC06D007F;           // entry point missing

// The exception code for a signal and its si_code.
uint32_t SignalExceptionCode(int signo, int sicode);

namespace veltrane::runtime::detail {

// One active translator on the stack of a thread.
struct SehFrame {
  sigjmp_buf env;
  volatile uint32_t code = 0;
  SehFrame* outer = nullptr;
};

void SehEnter(SehFrame* frame);  // pushes the frame; installs the handlers with the first one
void SehLeave(SehFrame* frame);  // pops the frame and releases
void SehRelease();               // restores the dispositions with the last one

}  // namespace veltrane::runtime::detail

// No object with a destructor may live in this frame between sigsetjmp and
// the jump, hence the explicit leave calls instead of a guard.
template <class F>
decltype(auto) RunTranslated(F&& f) {
  using R = std::invoke_result_t<F>;
  veltrane::runtime::detail::SehFrame frame;
  if (sigsetjmp(frame.env, 1) != 0) {
    // Back from the handler, which popped the frame.
    veltrane::runtime::detail::SehRelease();
    throw _SEHException(frame.code);
  }
  veltrane::runtime::detail::SehEnter(&frame);
  try {
    if constexpr (std::is_void_v<R>) {
      std::invoke(std::forward<F>(f));
      veltrane::runtime::detail::SehLeave(&frame);
    } else {
      R result = std::invoke(std::forward<F>(f));
      veltrane::runtime::detail::SehLeave(&frame);
      return static_cast<R>(result);
    }
  } catch (...) {
    veltrane::runtime::detail::SehLeave(&frame);
    throw;
  }
}

// dlopen with the usual flags; failure raises _SEHException(0xC06D007E)
// after writing the loader's text into *error when given.
void* LoadModule(const std::string& path, std::string* error = nullptr);
// dlsym; failure raises _SEHException(0xC06D007F).
void* LoadProc(void* module, const char* name, std::string* error = nullptr);
