#include "runtime/seh.h"

#include <dlfcn.h>
#include <signal.h>

#include <mutex>

namespace {

constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE};
constexpr int kSignalCount = sizeof kSignals / sizeof kSignals[0];

std::mutex g_mutex;
int g_active = 0;  // translators active in the process
struct sigaction g_previous[kSignalCount];

__attribute__((tls_model("initial-exec"))) thread_local veltrane::runtime::detail::SehFrame* t_current = nullptr;

int IndexOf(int signo) {
  for (int i = 0; i < kSignalCount; ++i)
    if (kSignals[i] == signo) return i;
  return -1;
}

void Handler(int signo, siginfo_t* info, void* context) {
  if (veltrane::runtime::detail::SehFrame* frame = t_current) {
    t_current = frame->outer;
    frame->code = SignalExceptionCode(signo, info ? info->si_code : 0);
    siglongjmp(frame->env, 1);
  }
  // Not raised under a translator: hand it to the disposition found before.
  int i = IndexOf(signo);
  if (i < 0) return;
  const struct sigaction& previous = g_previous[i];
  if (previous.sa_flags & SA_SIGINFO) {
    if (previous.sa_sigaction) {
      previous.sa_sigaction(signo, info, context);
      return;
    }
  } else if (previous.sa_handler == SIG_IGN) {
    return;
  } else if (previous.sa_handler != SIG_DFL && previous.sa_handler != nullptr) {
    previous.sa_handler(signo);
    return;
  }
  // The default action: restore it and deliver the signal again once this
  // handler returns (a fault re-executes the faulting instruction).
  signal(signo, SIG_DFL);
  raise(signo);
}

}  // namespace

uint32_t SignalExceptionCode(int signo, int sicode) {
  switch (signo) {
    case SIGSEGV:
    case SIGBUS: return kExceptionAccessViolation;
    case SIGILL: return sicode == ILL_PRVOPC ? kExceptionPrivilegedInstruction : kExceptionIllegalInstruction;
    case SIGFPE:
      switch (sicode) {
        case FPE_INTOVF: return kExceptionIntOverflow;
        case FPE_FLTDIV: return kExceptionFltDivideByZero;
        case FPE_FLTOVF: return kExceptionFltOverflow;
        case FPE_FLTUND: return kExceptionFltUnderflow;
        case FPE_FLTRES: return kExceptionFltInexactResult;
        case FPE_FLTINV: return kExceptionFltInvalidOperation;
        case FPE_FLTSUB: return kExceptionArrayBoundsExceeded;
        default: return kExceptionIntDivideByZero;
      }
    default: return kExceptionAccessViolation;
  }
}

namespace veltrane::runtime::detail {

void SehEnter(SehFrame* frame) {
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (g_active++ == 0) {
      struct sigaction action {};
      action.sa_sigaction = Handler;
      action.sa_flags = SA_SIGINFO;
      sigemptyset(&action.sa_mask);
      for (int i = 0; i < kSignalCount; ++i) sigaction(kSignals[i], &action, &g_previous[i]);
    }
  }
  frame->outer = t_current;
  t_current = frame;
}

void SehRelease() {
  std::lock_guard<std::mutex> lock(g_mutex);
  if (g_active > 0 && --g_active == 0)
    for (int i = 0; i < kSignalCount; ++i) sigaction(kSignals[i], &g_previous[i], nullptr);
}

void SehLeave(SehFrame* frame) {
  t_current = frame->outer;
  SehRelease();
}

}  // namespace veltrane::runtime::detail

void* LoadModule(const std::string& path, std::string* error) {
  void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!module) {
    if (error) {
      const char* text = dlerror();
      *error = text ? text : "";
    }
    throw _SEHException(kExceptionModuleNotFound);
  }
  return module;
}

void* LoadProc(void* module, const char* name, std::string* error) {
  dlerror();
  void* proc = module && name ? dlsym(module, name) : nullptr;
  if (!proc) {
    if (error) {
      const char* text = dlerror();
      *error = text ? text : "no such symbol";
    }
    throw _SEHException(kExceptionProcNotFound);
  }
  return proc;
}
