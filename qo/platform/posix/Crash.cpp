#include "qo/platform/Crash.h"
#include "qo/platform/UnexpectedHandler.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <ctime>
#include <new>

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <ucontext.h>
#include <unistd.h>
#include <unwind.h>

#include "qo/platform/posix/CrashRecord.h"

namespace qo::platform {

using namespace posixcrash;

namespace {

std::atomic<bool> g_utcOffsetKnown{false};
std::atomic<long> g_utcOffsetSeconds{0};

// localtime_r may lock and allocate: done before any crash where possible.
void learnUtcOffset() {
  time_t const now = std::time(nullptr);
  struct tm local{};
  if (localtime_r(&now, &local) == nullptr) return;
  g_utcOffsetSeconds = local.tm_gmtoff;
  g_utcOffsetKnown = true;
}


// --- process-wide hook state ---------------------------------------------------

constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};
constexpr int kSignalCount = static_cast<int>(sizeof kSignals / sizeof kSignals[0]);

// Read by the signal handler; written only while the hooks are being
// (un)installed, which the caller serialises.
CrashHooks g_hooks;
struct sigaction* g_pPreviousActions = nullptr;
std::atomic<bool> g_abortAfterReport{false};

struct SavedActions {
  struct sigaction actions[kSignalCount];
};
static_assert(sizeof(SavedActions) <= sizeof(CrashSavedHooks::signalActions), "grow CrashSavedHooks");
static_assert(alignof(SavedActions) <= 16, "CrashSavedHooks alignment");

// --- per-thread state ----------------------------------------------------------

// Plain TLS words (no constructor, no destructor), so the signal handler can
// read them without triggering lazy TLS initialisation.
__thread std::uintptr_t t_stackLow __attribute__((tls_model("initial-exec"))) = 0;
__thread std::uintptr_t t_stackHigh __attribute__((tls_model("initial-exec"))) = 0;

constexpr std::size_t kAltStackSize = 128 * 1024;
constexpr std::size_t kMinForeignAltStack = 32 * 1024;

// Owns the thread's alternate signal stack; the thread_local destructor
// puts back whatever stack the thread had before.
struct AltStackOwner {
  void* mapping = nullptr;
  std::size_t mappingSize = 0;
  stack_t previous{};
  bool prepared = false;

  ~AltStackOwner() {
    if (mapping == nullptr) return;
    stack_t current{};
    if (sigaltstack(nullptr, &current) == 0 && current.ss_sp == static_cast<char*>(mapping) + getpagesize()) {
      if (previous.ss_sp != nullptr && (previous.ss_flags & SS_DISABLE) == 0) {
        sigaltstack(&previous, nullptr);
      } else {
        stack_t off{};
        off.ss_flags = SS_DISABLE;
        sigaltstack(&off, nullptr);
      }
    }
    munmap(mapping, mappingSize);
  }
};

thread_local AltStackOwner t_altStack;

void recordStackBounds() {
  pthread_attr_t attr;
  if (pthread_getattr_np(pthread_self(), &attr) != 0) return;
  void* low = nullptr;
  std::size_t size = 0;
  if (pthread_attr_getstack(&attr, &low, &size) == 0 && low != nullptr) {
    t_stackLow = reinterpret_cast<std::uintptr_t>(low);
    t_stackHigh = t_stackLow + size;
  }
  pthread_attr_destroy(&attr);
}

void prepareAltStack() {
  stack_t current{};
  if (sigaltstack(nullptr, &current) != 0) return;
  if ((current.ss_flags & SS_DISABLE) == 0 && current.ss_size >= kMinForeignAltStack) return;  // e.g. a sanitizer's
  std::size_t const page = static_cast<std::size_t>(getpagesize());
  std::size_t const total = kAltStackSize + page;
  void* mapping = mmap(nullptr, total, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapping == MAP_FAILED) return;
  // A guard page below, so an overflow of the handler itself faults cleanly.
  mprotect(mapping, page, PROT_NONE);
  stack_t stack{};
  stack.ss_sp = static_cast<char*>(mapping) + page;
  stack.ss_size = kAltStackSize;
  if (sigaltstack(&stack, nullptr) != 0) {
    munmap(mapping, total);
    return;
  }
  t_altStack.mapping = mapping;
  t_altStack.mappingSize = total;
  t_altStack.previous = current;
}

// --- small signal-safe helpers -------------------------------------------------

int utf8FromWide(wchar_t const* text, char* out, int capacity, bool slashes) {
  int n = 0;
  for (; text != nullptr && *text != 0; ++text) {
    std::uint32_t c = static_cast<std::uint32_t>(*text);
    if (slashes && c == '\\') c = '/';
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
    char buf[4];
    int len;
    if (c < 0x80) {
      buf[0] = static_cast<char>(c);
      len = 1;
    } else if (c < 0x800) {
      buf[0] = static_cast<char>(0xC0 | (c >> 6));
      buf[1] = static_cast<char>(0x80 | (c & 0x3F));
      len = 2;
    } else if (c < 0x10000) {
      buf[0] = static_cast<char>(0xE0 | (c >> 12));
      buf[1] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      buf[2] = static_cast<char>(0x80 | (c & 0x3F));
      len = 3;
    } else {
      buf[0] = static_cast<char>(0xF0 | (c >> 18));
      buf[1] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      buf[2] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      buf[3] = static_cast<char>(0x80 | (c & 0x3F));
      len = 4;
    }
    if (n + len >= capacity) return -1;
    for (int i = 0; i < len; ++i) out[n++] = buf[i];
  }
  if (n >= capacity) return -1;
  out[n] = 0;
  return n;
}

bool isFaultSignal(int sig) { return sig == SIGSEGV || sig == SIGBUS || sig == SIGFPE || sig == SIGILL; }

// A fault just below the thread's stack, or right at the stack pointer, is
// the stack running into its guard area.
bool looksLikeStackOverflow(PosixRecord const& r) {
  if (r.signal != SIGSEGV) return false;
  auto const fault = reinterpret_cast<std::uintptr_t>(r.info.si_addr);
  auto const sp = static_cast<std::uintptr_t>(stackPointer(r));
  std::uintptr_t const page = 4096;
  if (r.stackLow != 0 && fault + 1024 * 1024 >= r.stackLow && fault < r.stackLow + page) return true;
  if (r.stackLow != 0 && sp < r.stackLow + page) return true;
  return sp != 0 && fault <= sp + 256 && fault + 65536 >= sp;
}

// --- crash-path signal handler -------------------------------------------------

void restorePrevious(int sig) {
  for (int i = 0; i < kSignalCount; ++i) {
    if (kSignals[i] != sig) continue;
    if (g_pPreviousActions != nullptr) {
      sigaction(sig, &g_pPreviousActions[i], nullptr);
    } else {
      struct sigaction dfl{};
      dfl.sa_handler = SIG_DFL;
      sigaction(sig, &dfl, nullptr);
    }
  }
}

extern "C" void qoCrashSignalHandler(int sig, siginfo_t* info, void* context) {
  int const savedErrno = errno;
  bool const reported = sig == SIGABRT && g_abortAfterReport.load();
  if (!reported && g_hooks.onFault != nullptr) {
    CrashContext crash;
    crash.signalNumber = sig;
    crash.signalInfo = info;
    crash.userContext = context;
    g_hooks.onFault(crash);
  }
  restorePrevious(sig);
  // A fault comes back when the instruction runs again and meets the
  // previous disposition; a sent signal must be sent again (it stays
  // pending until this handler returns).
  if (!isFaultSignal(sig) || info == nullptr || info->si_code <= 0) raise(sig);
  errno = savedErrno;
}

struct PosixModuleIterator {
  int next;
};
static_assert(sizeof(PosixModuleIterator) <= sizeof(CrashModuleIterator::bytes), "grow CrashModuleIterator");

}  // namespace

// --- hooks -------------------------------------------------------------------------

void crashInstallHooks(CrashHooks const& hooks, CrashSavedHooks& previous) {
  auto* saved = new (previous.signalActions) SavedActions;
  g_hooks = hooks;
  g_abortAfterReport = false;
  g_pPreviousActions = saved->actions;
  struct sigaction action{};
  action.sa_sigaction = &qoCrashSignalHandler;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigemptyset(&action.sa_mask);
  // A second crash signal while reporting kills the process instead of
  // re-entering the report.
  for (int sig : kSignals) sigaddset(&action.sa_mask, sig);
  for (int i = 0; i < kSignalCount; ++i) {
    sigaction(kSignals[i], hooks.onFault != nullptr ? &action : nullptr, &saved->actions[i]);
  }
  // POSIX runtimes have no pure-call or invalid-parameter hook; the
  // terminate hook recognises a pure virtual call (crashIsInPureVirtualCall).
  previous.pureCallHandler = nullptr;
  previous.invalidParameterHandler = nullptr;
  previous.unhandledExceptionFilter = nullptr;
  learnUtcOffset();
  previous.unexpectedHandler = hooks.onUnexpected != nullptr ? swapUnexpectedHandler(hooks.onUnexpected) : nullptr;
  previous.installed = true;
}

void crashRestoreHooks(CrashSavedHooks& previous) {
  if (!previous.installed) return;
  auto* saved = std::launder(reinterpret_cast<SavedActions*>(previous.signalActions));
  for (int i = 0; i < kSignalCount; ++i) sigaction(kSignals[i], &saved->actions[i], nullptr);
  if (previous.unexpectedHandler != nullptr) {
    swapUnexpectedHandler(reinterpret_cast<void (*)()>(previous.unexpectedHandler));
  }
  g_pPreviousActions = nullptr;
  g_hooks = CrashHooks();
  previous.installed = false;
}

void crashPrepareThread(void (*)(unsigned, void*)) {
  if (t_altStack.prepared) return;
  t_altStack.prepared = true;
  recordStackBounds();
  prepareAltStack();
}

void crashAbort() {
  g_abortAfterReport = true;
  std::abort();
}

void crashTerminateProcess(unsigned exitCode) { _exit(static_cast<int>(exitCode)); }

namespace {
constexpr int kMaxPureVirtualFunctions = 16;
std::atomic<void const*> g_pureVirtualFunctions[kMaxPureVirtualFunctions];
}  // namespace

void crashRegisterPureVirtualFunction(void const* function) {
  for (auto& slot : g_pureVirtualFunctions) {
    void const* expected = nullptr;
    if (slot.load() == function) return;
    if (slot.compare_exchange_strong(expected, function)) return;
  }
}

namespace {
struct FrameWalk {
  bool found;
  int frames;
};

_Unwind_Reason_Code frameCallback(_Unwind_Context* context, void* data) {
  auto* walk = static_cast<FrameWalk*>(data);
  if (++walk->frames > 32) return _URC_END_OF_STACK;
  auto const ip = _Unwind_GetIP(context);
  if (ip == 0) return _URC_NO_REASON;
  Dl_info info;
  // ip - 1: the call into std::terminate may be the function's last
  // instruction, so the return address can lie past its end.
  if (dladdr(reinterpret_cast<void*>(ip - 1), &info) == 0) return _URC_NO_REASON;
  bool found = info.dli_sname != nullptr && std::strcmp(info.dli_sname, "__cxa_pure_virtual") == 0;
  for (auto const& slot : g_pureVirtualFunctions) {
    found = found || (info.dli_saddr != nullptr && slot.load() == info.dli_saddr);
  }
  if (found) {
    walk->found = true;
    return _URC_END_OF_STACK;
  }
  return _URC_NO_REASON;
}
}  // namespace

bool crashIsInPureVirtualCall() {
  FrameWalk walk{false, 0};
  _Unwind_Backtrace(&frameCallback, &walk);
  return walk.found;
}

long long crashTimeNow() { return static_cast<long long>(std::time(nullptr)); }


bool crashLocalTime(long long secondsSince1970, LocalTimeFields& out) {
  if (!g_utcOffsetKnown) learnUtcOffset();
  long long const local = secondsSince1970 + g_utcOffsetSeconds.load();
  long long days = local / 86400;
  long long rest = local % 86400;
  if (rest < 0) {
    rest += 86400;
    --days;
  }
  // Days since 1970-01-01 to a civil date (proleptic Gregorian calendar).
  long long const z = days + 719468;
  long long const era = (z >= 0 ? z : z - 146096) / 146097;
  long long const doe = z - era * 146097;
  long long const yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  long long const doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  long long const mp = (5 * doy + 2) / 153;
  long long const month = mp < 10 ? mp + 3 : mp - 9;
  out.year = static_cast<int>(yoe + era * 400 + (month <= 2 ? 1 : 0));
  out.month = static_cast<int>(month);
  out.day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  out.hour = static_cast<int>(rest / 3600);
  out.minute = static_cast<int>(rest / 60 % 60);
  out.second = static_cast<int>(rest % 60);
  return true;
}

std::uint32_t crashCurrentThreadId() { return static_cast<std::uint32_t>(syscall(SYS_gettid)); }

void crashSleep(int millis) {
  timespec ts{millis / 1000, static_cast<long>(millis % 1000) * 1000000L};
  while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
  }
}

// --- the record ------------------------------------------------------------------

void crashRecordCapture(CrashRecord& record, CrashContext const& context) {
  std::memset(record.bytes, 0, sizeof record.bytes);
  PosixRecord& r = rec(record);
  r.magic = kRecordMagic;
  r.hasFault = true;
  r.signal = context.signalNumber;
  r.threadId = crashCurrentThreadId();
  if (context.signalInfo != nullptr) std::memcpy(&r.info, context.signalInfo, sizeof r.info);
  if (context.userContext != nullptr) {
    std::memcpy(&r.context, context.userContext, sizeof r.context);
#if defined(__x86_64__)
    auto const* uc = static_cast<ucontext_t const*>(context.userContext);
    if (uc->uc_mcontext.fpregs != nullptr) {
      std::memcpy(r.fpState, uc->uc_mcontext.fpregs, sizeof r.fpState);
      r.hasFpState = true;
    }
    r.context.uc_mcontext.fpregs = nullptr;  // pointed into the signal frame
#endif
  }
  r.stackLow = t_stackLow;
  r.stackHigh = t_stackHigh;
}

void crashRecordCaptureCurrent(CrashRecord& record) {
  std::memset(record.bytes, 0, sizeof record.bytes);
  PosixRecord& r = rec(record);
  r.magic = kRecordMagic;
  r.hasFault = false;
  r.signal = SIGABRT;
  r.threadId = crashCurrentThreadId();
  getcontext(&r.context);
#if defined(__x86_64__)
  if (r.context.uc_mcontext.fpregs != nullptr) {
    std::memcpy(r.fpState, r.context.uc_mcontext.fpregs, sizeof r.fpState);
    r.hasFpState = true;
  }
  r.context.uc_mcontext.fpregs = nullptr;
#endif
  r.stackLow = t_stackLow;
  r.stackHigh = t_stackHigh;
}

bool crashRecordHasFault(CrashRecord const& record) {
  return rec(record).magic == kRecordMagic && rec(record).hasFault;
}

CrashFaultKind crashRecordKind(CrashRecord const& record) {
  PosixRecord const& r = rec(record);
  if (r.magic != kRecordMagic || !r.hasFault) return CrashFaultKind::kUnknown;
  int const code = r.info.si_code;
  switch (r.signal) {
    case SIGSEGV:
      return looksLikeStackOverflow(r) ? CrashFaultKind::kStackOverflow : CrashFaultKind::kAccessViolation;
    case SIGBUS:
      return code == BUS_ADRALN ? CrashFaultKind::kDataMisaligned : CrashFaultKind::kAccessViolation;
    case SIGFPE:
      if (code == FPE_INTDIV) return CrashFaultKind::kIntDivideByZero;
      if (code == FPE_INTOVF) return CrashFaultKind::kIntOverflow;
      if (code == FPE_FLTDIV) return CrashFaultKind::kFloatDivideByZero;
      return CrashFaultKind::kFloatError;
    case SIGILL:
      return CrashFaultKind::kIllegalInstruction;
    case SIGABRT:
      return CrashFaultKind::kAbort;
    default:
      return CrashFaultKind::kUnknown;
  }
}

std::uint32_t crashRecordCode(CrashRecord const& record) {
  PosixRecord const& r = rec(record);
  switch (crashRecordKind(record)) {
    case CrashFaultKind::kAccessViolation: return r.signal == SIGBUS ? 0xC0000006u : 0xC0000005u;
    case CrashFaultKind::kStackOverflow: return 0xC00000FDu;
    case CrashFaultKind::kDataMisaligned: return 0x80000002u;
    case CrashFaultKind::kIntDivideByZero: return 0xC0000094u;
    case CrashFaultKind::kIntOverflow: return 0xC0000095u;
    case CrashFaultKind::kFloatDivideByZero: return 0xC000008Eu;
    case CrashFaultKind::kFloatError: return 0xC0000090u;
    case CrashFaultKind::kIllegalInstruction: return 0xC000001Du;
    case CrashFaultKind::kAbort: return 0x40000015u;
    case CrashFaultKind::kUnknown: break;
  }
  if (r.signal == SIGTRAP) return 0x80000003u;
  return 0xE0000000u + static_cast<std::uint32_t>(r.signal & 0xFF);
}

std::uint32_t crashRecordFlags(CrashRecord const&) { return 0; }

std::uint64_t crashRecordAddress(CrashRecord const& record) { return instructionPointer(rec(record)); }

int crashRecordParameterCount(CrashRecord const& record) {
  PosixRecord const& r = rec(record);
  return r.magic == kRecordMagic && r.hasFault && (r.signal == SIGSEGV || r.signal == SIGBUS) ? 2 : 0;
}

std::uint64_t crashRecordParameter(CrashRecord const& record, int index) {
  if (index < 0 || index >= crashRecordParameterCount(record)) return 0;
  PosixRecord const& r = rec(record);
  if (index == 1) return reinterpret_cast<std::uintptr_t>(r.info.si_addr);
#if defined(__x86_64__)
  // The page-fault error code: bit 1 is set for a write.
  return (static_cast<std::uint64_t>(r.context.uc_mcontext.gregs[REG_ERR]) & 2u) != 0 ? 1 : 0;
#else
  return 0;
#endif
}

bool crashRecordSignal(CrashRecord const& record, int& number, int& code, std::uint64_t& address) {
  PosixRecord const& r = rec(record);
  if (r.magic != kRecordMagic || !r.hasFault) return false;
  number = r.signal;
  code = r.info.si_code;
  address = reinterpret_cast<std::uintptr_t>(r.info.si_addr);
  return true;
}

bool crashRecordCodeAddress(CrashRecord const& record, std::uint64_t& address) {
  PosixRecord const& r = rec(record);
  if (r.magic != kRecordMagic || !r.hasFault) return false;
  address = instructionPointer(r);
  return address != 0 || r.signal == SIGSEGV;  // a jump to null faults at 0
}

bool crashRecordMemoryAddress(CrashRecord const& record, std::uint64_t& address) {
  switch (crashRecordKind(record)) {
    case CrashFaultKind::kAccessViolation:
    case CrashFaultKind::kDataMisaligned:
    case CrashFaultKind::kStackOverflow:
      address = reinterpret_cast<std::uintptr_t>(rec(record).info.si_addr);
      return true;
    default:
      return false;
  }
}


// --- modules -----------------------------------------------------------------------

bool crashModulesBegin(CrashModuleIterator& it) {
  new (it.bytes) PosixModuleIterator{0};
  return true;
}

bool crashModulesNext(CrashModuleIterator& it, CrashModule& module) {
  auto& state = *std::launder(reinterpret_cast<PosixModuleIterator*>(it.bytes));
  ModuleData data;
  if (!moduleAt(state.next, data)) return false;
  ++state.next;
  if (data.name[0] == 0) {
    char path[kCrashMaxModuleName];
    if (mainProgramPath(path, sizeof path) > 0) wideFromUTF8(path, module.name, kCrashMaxModuleName);
    else module.name[0] = 0;
  } else {
    wideFromUTF8(data.name, module.name, kCrashMaxModuleName);
  }
  module.baseAddress = data.base;
  module.size = data.size;
  return true;
}

void crashModulesEnd(CrashModuleIterator& it) { std::memset(it.bytes, 0, sizeof it.bytes); }

// --- raw files ---------------------------------------------------------------------

CrashFileHandle crashFileOpen(wchar_t const* path, CrashOpenType type) {
  char narrow[4096];
  if (utf8FromWide(path, narrow, sizeof narrow, true) <= 0) return kCrashNoFile;
  int flags = O_CLOEXEC;
  switch (type) {
    case CrashOpenType::kCreate: flags |= O_WRONLY | O_CREAT | O_TRUNC; break;
    case CrashOpenType::kAppend: flags |= O_WRONLY | O_CREAT | O_APPEND; break;
    case CrashOpenType::kRead: flags |= O_RDONLY; break;
    case CrashOpenType::kUpdate: flags |= O_WRONLY; break;
  }
  int fd;
  do {
    fd = ::open(narrow, flags, 0644);
  } while (fd < 0 && errno == EINTR);
  return fd < 0 ? kCrashNoFile : static_cast<CrashFileHandle>(fd);
}

int crashFileRead(CrashFileHandle file, void* buffer, int size) {
  if (file == kCrashNoFile || size < 0) return -1;
  ssize_t n;
  do {
    n = ::read(static_cast<int>(file), buffer, static_cast<std::size_t>(size));
  } while (n < 0 && errno == EINTR);
  return static_cast<int>(n);
}

bool crashFileWrite(CrashFileHandle file, void const* data, int size) {
  if (file == kCrashNoFile || size < 0) return false;
  return writeAll(static_cast<int>(file), data, static_cast<std::size_t>(size));
}

bool crashFileWriteAt(CrashFileHandle file, long long offset, void const* data, int size) {
  if (file == kCrashNoFile || size < 0) return false;
  auto const* p = static_cast<char const*>(data);
  while (size > 0) {
    ssize_t const n = static_cast<ssize_t>(
        syscall(SYS_pwrite64, static_cast<int>(file), p, static_cast<std::size_t>(size), static_cast<off_t>(offset)));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    p += n;
    offset += n;
    size -= static_cast<int>(n);
  }
  return true;
}

long long crashFileSeekEnd(CrashFileHandle file) {
  if (file == kCrashNoFile) return -1;
  return static_cast<long long>(::lseek(static_cast<int>(file), 0, SEEK_END));
}

void crashFileClose(CrashFileHandle file) {
  if (file != kCrashNoFile) ::close(static_cast<int>(file));
}

SysError crashCreateFolder(wchar_t const* path) {
  char narrow[4096];
  if (utf8FromWide(path, narrow, sizeof narrow, true) <= 0) {
    return sysErrorOf(EINVAL, "mkdir");
  }
  // Each prefix that ends before a separator, then the whole path.
  for (char* p = narrow + 1;; ++p) {
    if (*p != '/' && *p != 0) continue;
    char const saved = *p;
    *p = 0;
    if (::mkdir(narrow, 0755) != 0 && errno != EEXIST) {
      int const code = errno;
      *p = saved;
      if (saved == 0) return sysErrorOf(static_cast<std::uint32_t>(code), "mkdir");
    }
    *p = saved;
    if (saved == 0) break;
  }
  struct stat st{};
  if (::stat(narrow, &st) != 0) return lastSysError("stat");
  if (!S_ISDIR(st.st_mode)) return sysErrorOf(ENOTDIR, "mkdir");
  return SysError();
}

}  // namespace qo::platform
