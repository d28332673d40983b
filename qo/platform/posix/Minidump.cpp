#include "qo/platform/Minidump.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include "qo/platform/posix/CrashRecord.h"

// The minidump of a crashed process, written by this library itself in the
// AMD64 layout that Windows tools and lldb read: header "MDMP", a stream
// directory, and the streams SystemInfo (AMD64, platform Linux 0x8201 as
// Breakpad writes it), MiscInfo (the process id), Exception (the signal and
// the registers), ThreadList (the crashing thread and its stack), ModuleList
// (with ELF build ids as CodeView records "BpEL"), MemoryList (stack and the
// code around the faulting instruction) and LinuxMaps (/proc/self/maps).
// Streams are written front to back; the header and directory last, in
// place. Other threads are not in the dump: their registers cannot be read
// from inside the process without stopping it.
// The dump of another process (crashWriteMinidumpOfOtherProcess, for the
// watchdog) has the same layout with every thread: ptrace stops them and
// gives their registers, process_vm_readv their memory.

namespace qo::platform {

using namespace posixcrash;

namespace {

// Learnt before any crash: sysconf is not for signal handlers.
std::atomic<int> g_processorCount{1};

// --- /proc/self/maps ---------------------------------------------------------

// Reads /proc/self/maps line by line through a caller's buffer.
class MapsReader {
public:
  MapsReader(char* buffer, int capacity) : m_buffer(buffer), m_capacity(capacity) {
    m_fd = ::open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
  }
  ~MapsReader() {
    if (m_fd >= 0) ::close(m_fd);
  }
  MapsReader(MapsReader const&) = delete;
  MapsReader& operator=(MapsReader const&) = delete;

  // The next mapping: its range, whether it is readable and the raw line.
  bool next(std::uintptr_t& low, std::uintptr_t& high, bool& readable) {
    for (;;) {
      std::size_t const pending = static_cast<std::size_t>(m_end - m_start);
      char* newline = static_cast<char*>(std::memchr(m_buffer + m_start, '\n', pending));
      if (newline == nullptr) {
        if (!refill()) return false;
        continue;
      }
      char const* p = m_buffer + m_start;
      m_start = static_cast<int>(newline - m_buffer) + 1;
      low = parseHex(p);
      if (*p == '-') ++p;
      high = parseHex(p);
      if (*p == ' ') ++p;
      readable = *p == 'r';
      return true;
    }
  }

private:
  static std::uintptr_t parseHex(char const*& p) {
    std::uintptr_t v = 0;
    for (;; ++p) {
      char const c = *p;
      if (c >= '0' && c <= '9') v = v * 16 + static_cast<std::uintptr_t>(c - '0');
      else if (c >= 'a' && c <= 'f') v = v * 16 + static_cast<std::uintptr_t>(c - 'a' + 10);
      else return v;
    }
  }
  bool refill() {
    if (m_fd < 0) return false;
    int const keep = m_end - m_start;
    if (keep >= m_capacity) return false;  // a line longer than the buffer
    std::memmove(m_buffer, m_buffer + m_start, static_cast<std::size_t>(keep));
    m_start = 0;
    m_end = keep;
    ssize_t const n = ::read(m_fd, m_buffer + m_end, static_cast<std::size_t>(m_capacity - m_end));
    if (n <= 0) return false;
    m_end += static_cast<int>(n);
    return true;
  }

  char* m_buffer;
  int m_capacity;
  int m_fd = -1;
  int m_start = 0;
  int m_end = 0;
};

// The readable range of memory at (or, for an overflowed stack, just above)
// address.
bool readableRangeAt(std::uintptr_t address, char* buffer, int capacity, std::uintptr_t& low, std::uintptr_t& high) {
  MapsReader maps(buffer, capacity);
  std::uintptr_t l, h;
  bool r;
  bool found = false;
  while (maps.next(l, h, r)) {
    if (!r) continue;
    if (l <= address && address < h) {
      low = l;
      high = h;
      return true;
    }
    if (l > address && (!found || l < low)) {
      low = l;
      high = h;
      found = true;
    }
  }
  return found && low - address <= 65536;
}

// --- minidump layout (little-endian, as the format defines) --------------------

constexpr std::uint32_t kStreamThreadList = 3;
constexpr std::uint32_t kStreamModuleList = 4;
constexpr std::uint32_t kStreamMemoryList = 5;
constexpr std::uint32_t kStreamException = 6;
constexpr std::uint32_t kStreamSystemInfo = 7;
constexpr std::uint32_t kStreamMiscInfo = 15;
constexpr std::uint32_t kStreamLinuxMaps = 0x47670009;
constexpr int kStreamCount = 7;
constexpr std::uint32_t kContextSize = 1232;  // the AMD64 CONTEXT
constexpr std::uint32_t kModuleEntrySize = 108;
constexpr std::uint32_t kCvSignatureElf = 0x4270454C;

// A forward-only writer into the dump file that knows its offset.
class DumpOut {
public:
  explicit DumpOut(int fd) : m_fd(fd) {}
  std::uint32_t pos() const { return m_pos; }
  bool ok() const { return m_ok; }
  void bytes(void const* data, std::size_t size) {
    if (m_ok && size > 0) m_ok = writeAll(m_fd, data, size);
    m_pos += static_cast<std::uint32_t>(size);
  }
  void u8(std::uint8_t v) { bytes(&v, 1); }
  void u16(std::uint16_t v) {
    unsigned char b[2] = {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8)};
    bytes(b, 2);
  }
  void u32(std::uint32_t v) {
    unsigned char b[4];
    for (int i = 0; i < 4; ++i) b[i] = static_cast<unsigned char>(v >> (8 * i));
    bytes(b, 4);
  }
  void u64(std::uint64_t v) {
    unsigned char b[8];
    for (int i = 0; i < 8; ++i) b[i] = static_cast<unsigned char>(v >> (8 * i));
    bytes(b, 8);
  }
  void zeros(std::size_t n) {
    static constexpr unsigned char z[64] = {};
    while (n > 0) {
      std::size_t const k = n < sizeof z ? n : sizeof z;
      bytes(z, k);
      n -= k;
    }
  }
  void align(std::uint32_t to) { zeros((to - m_pos % to) % to); }
  // A MINIDUMP_STRING of UTF-8 text.
  void utf16String(char const* text, wchar_t* scratch, int scratchCapacity) {
    wideFromUTF8(text, scratch, scratchCapacity);
    std::uint32_t units = 0;
    for (int i = 0; scratch[i] != 0; ++i) units += scratch[i] >= 0x10000 ? 2 : 1;
    u32(units * 2);
    for (int i = 0; scratch[i] != 0; ++i) {
      auto const c = static_cast<std::uint32_t>(scratch[i]);
      if (c >= 0x10000) {
        u16(static_cast<std::uint16_t>(0xD800 + ((c - 0x10000) >> 10)));
        u16(static_cast<std::uint16_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
      } else {
        u16(static_cast<std::uint16_t>(c));
      }
    }
    u16(0);
  }

private:
  int m_fd;
  std::uint32_t m_pos = 0;
  bool m_ok = true;
};

struct Location {
  std::uint32_t size = 0;
  std::uint32_t rva = 0;
};

#if defined(__x86_64__)
// The machine context as the AMD64 CONTEXT record that minidumps carry.
// The system-information stream: AMD64, the kernel's release as the
// version, Linux as the platform. Makes no allocation (crash-time safe).
Location writeSystemInfo(DumpOut& out, int processors) {
  utsname names{};
  uname(&names);
  std::uint32_t version[3] = {0, 0, 0};
  {
    char const* p = names.release;
    for (int i = 0; i < 3 && *p != 0; ++i) {
      while (*p >= '0' && *p <= '9') version[i] = version[i] * 10 + static_cast<std::uint32_t>(*p++ - '0');
      while (*p != 0 && (*p < '0' || *p > '9')) ++p;
    }
  }
  out.align(8);
  std::uint32_t const csdRva = out.pos();
  out.u32(0);
  out.u16(0);
  out.align(8);
  Location loc;
  loc.rva = out.pos();
  out.u16(9);  // AMD64
  out.u16(6);  // processor level
  out.u16(0);
  out.u8(static_cast<std::uint8_t>(processors > 255 ? 255 : processors));
  out.u8(1);   // workstation
  out.u32(version[0]);
  out.u32(version[1]);
  out.u32(version[2]);
  out.u32(0x8201);  // Linux
  out.u32(csdRva);
  out.u16(0);
  out.u16(0);
  out.zeros(24);  // processor information
  loc.size = out.pos() - loc.rva;
  return loc;
}

// The miscellaneous-information stream holding the process id.
Location writeMiscInfo(DumpOut& out, std::uint32_t processId) {
  Location loc;
  loc.rva = out.pos();
  out.u32(24);
  out.u32(1);  // the process id is valid
  out.u32(processId);
  out.zeros(12);
  loc.size = 24;
  return loc;
}

void writeContext(DumpOut& out, PosixRecord const& r) {
  greg_t const* g = r.context.uc_mcontext.gregs;
  auto const reg = [&](int index) { return static_cast<std::uint64_t>(g[index]); };
  std::uint32_t mxcsr = 0;
  if (r.hasFpState) std::memcpy(&mxcsr, r.fpState + 24, 4);
  auto const csgsfs = reg(REG_CSGSFS);
  out.zeros(6 * 8);                // P1Home..P6Home
  out.u32(0x0010000F);             // AMD64: control, integer, segments, floating point
  out.u32(mxcsr);
  out.u16(static_cast<std::uint16_t>(csgsfs));          // cs
  out.u16(0);                                           // ds
  out.u16(0);                                           // es
  out.u16(static_cast<std::uint16_t>(csgsfs >> 32));    // fs
  out.u16(static_cast<std::uint16_t>(csgsfs >> 16));    // gs
  std::uint16_t const ss = static_cast<std::uint16_t>(csgsfs >> 48);
  out.u16(ss != 0 ? ss : 0x2B);
  out.u32(static_cast<std::uint32_t>(reg(REG_EFL)));
  out.zeros(6 * 8);  // debug registers
  int const order[] = {REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP, REG_RSI, REG_RDI,
                       REG_R8,  REG_R9,  REG_R10, REG_R11, REG_R12, REG_R13, REG_R14, REG_R15, REG_RIP};
  for (int index : order) out.u64(reg(index));
  if (r.hasFpState) out.bytes(r.fpState, 512);
  else out.zeros(512);
  out.zeros(kContextSize - 0x300);  // vector registers and the debug-control tail
}
#endif

}  // namespace

void crashPrepareMinidump() {
  long const cpus = sysconf(_SC_NPROCESSORS_ONLN);
  g_processorCount = cpus > 0 ? static_cast<int>(cpus) : 1;
}

// --- minidumps -----------------------------------------------------------------------

bool crashWriteMinidump(CrashFileHandle file, CrashRecord const& record, std::uint32_t threadId, bool, void* scratch,
                        int scratchSize) {
#if !defined(__x86_64__)
  (void)file; (void)record; (void)threadId; (void)scratch; (void)scratchSize;
  return false;
#else
  PosixRecord const& r = rec(record);
  if (file == kCrashNoFile || r.magic != kRecordMagic || scratch == nullptr || scratchSize < 16 * 1024) return false;
  int const fd = static_cast<int>(file);
  // Scratch: text buffers first, then the module table.
  char* const text = static_cast<char*>(scratch);
  int const textSize = 8192;
  auto* const wide = reinterpret_cast<wchar_t*>(text + textSize);
  int const wideCount = 1024;
  auto* const modules = reinterpret_cast<ModuleData*>(text + textSize + wideCount * int(sizeof(wchar_t)));
  int const maxModules =
      (scratchSize - textSize - wideCount * int(sizeof(wchar_t))) / int(sizeof(ModuleData) + 2 * sizeof(Location));
  auto* const moduleNames = reinterpret_cast<Location*>(modules + maxModules);
  auto* const moduleCv = moduleNames + maxModules;

  DumpOut out(fd);
  Location dir[kStreamCount];
  std::uint32_t dirTypes[kStreamCount] = {kStreamSystemInfo, kStreamMiscInfo, kStreamException, kStreamThreadList,
                                          kStreamModuleList, kStreamMemoryList, kStreamLinuxMaps};
  // Header and directory are written last, in place.
  out.zeros(32 + kStreamCount * 12);

  dir[0] = writeSystemInfo(out, g_processorCount.load());
  dir[1] = writeMiscInfo(out, static_cast<std::uint32_t>(getpid()));

  // The crashing thread's registers.
  out.align(16);
  Location context{kContextSize, out.pos()};
  writeContext(out, r);

  // The exception.
  dir[2].rva = out.pos();
  out.u32(threadId);
  out.u32(0);
  out.u32(static_cast<std::uint32_t>(r.signal));
  out.u32(r.hasFault ? static_cast<std::uint32_t>(r.info.si_code) : 0);
  out.u64(0);  // no nested record
  // As Linux minidumps carry it: the address the signal reports.
  out.u64(r.hasFault ? reinterpret_cast<std::uintptr_t>(r.info.si_addr) : 0);
  out.u32(0);
  out.u32(0);
  out.zeros(15 * 8);
  out.u32(context.size);
  out.u32(context.rva);
  dir[2].size = out.pos() - dir[2].rva;

  // Stack memory: from just below the stack pointer (its red zone) to the
  // top of the stack's mapping, at most 1 MiB.
  std::uint64_t const sp = stackPointer(r);
  std::uintptr_t stackLow = 0, stackHigh = 0;
  Location stack;
  std::uint64_t stackStart = 0;
  if (readableRangeAt(static_cast<std::uintptr_t>(sp), text, textSize, stackLow, stackHigh)) {
    std::uintptr_t start = sp >= 128 ? static_cast<std::uintptr_t>(sp - 128) & ~std::uintptr_t(15) : 0;
    if (start < stackLow) start = stackLow;
    std::uintptr_t end = stackHigh;
    if (end - start > 1024 * 1024) end = start + 1024 * 1024;
    out.align(16);
    stack.rva = out.pos();
    out.bytes(reinterpret_cast<void const*>(start), end - start);
    stack.size = static_cast<std::uint32_t>(end - start);
    stackStart = start;
  }
  // The code around the instruction that faulted.
  std::uint64_t const ip = instructionPointer(r);
  Location code;
  std::uint64_t codeStart = 0;
  std::uintptr_t codeLow = 0, codeHigh = 0;
  if (ip >= 128 && readableRangeAt(static_cast<std::uintptr_t>(ip), text, textSize, codeLow, codeHigh) &&
      codeLow <= ip) {
    std::uintptr_t start = static_cast<std::uintptr_t>(ip) - 128;
    std::uintptr_t end = static_cast<std::uintptr_t>(ip) + 128;
    if (start < codeLow) start = codeLow;
    if (end > codeHigh) end = codeHigh;
    code.rva = out.pos();
    out.bytes(reinterpret_cast<void const*>(start), end - start);
    code.size = static_cast<std::uint32_t>(end - start);
    codeStart = start;
  }

  // The thread list: the crashing thread.
  out.align(8);
  dir[3].rva = out.pos();
  out.u32(1);
  out.u32(threadId);
  out.u32(0);  // suspend count
  out.u32(0);  // priority class
  out.u32(0);  // priority
  out.u64(0);  // thread environment block
  out.u64(stackStart);
  out.u32(stack.size);
  out.u32(stack.rva);
  out.u32(context.size);
  out.u32(context.rva);
  dir[3].size = out.pos() - dir[3].rva;

  // Modules: names and build ids first, then the table that points at them.
  int moduleCount = 0;
  while (moduleCount < maxModules && moduleAt(moduleCount, modules[moduleCount])) ++moduleCount;
  for (int i = 0; i < moduleCount; ++i) {
    ModuleData const& m = modules[i];
    out.align(4);
    moduleNames[i].rva = out.pos();
    if (m.name[0] == 0) {
      mainProgramPath(text, textSize);
      out.utf16String(text, wide, wideCount);
    } else {
      out.utf16String(m.name, wide, wideCount);
    }
    moduleNames[i].size = out.pos() - moduleNames[i].rva;
    moduleCv[i] = Location();
    if (m.buildIdSize > 0) {
      out.align(4);
      moduleCv[i].rva = out.pos();
      out.u32(kCvSignatureElf);
      out.bytes(m.buildId, static_cast<std::size_t>(m.buildIdSize));
      moduleCv[i].size = out.pos() - moduleCv[i].rva;
    }
  }
  out.align(8);
  dir[4].rva = out.pos();
  out.u32(static_cast<std::uint32_t>(moduleCount));
  for (int i = 0; i < moduleCount; ++i) {
    ModuleData const& m = modules[i];
    out.u64(m.base);
    out.u32(static_cast<std::uint32_t>(m.size));
    out.u32(0);  // checksum
    out.u32(0);  // time stamp
    out.u32(moduleNames[i].rva);
    out.zeros(52);  // version information
    out.u32(moduleCv[i].size);
    out.u32(moduleCv[i].rva);
    out.zeros(8 + 16);  // misc record, reserved
  }
  dir[4].size = out.pos() - dir[4].rva;
  static_assert(kModuleEntrySize == 8 + 4 * 4 + 52 + 8 + 8 + 16, "module entry layout");

  // The memory list repeats the stack and adds the code.
  dir[5].rva = out.pos();
  out.u32((stack.size != 0 ? 1u : 0u) + (code.size != 0 ? 1u : 0u));
  if (stack.size != 0) {
    out.u64(stackStart);
    out.u32(stack.size);
    out.u32(stack.rva);
  }
  if (code.size != 0) {
    out.u64(codeStart);
    out.u32(code.size);
    out.u32(code.rva);
  }
  dir[5].size = out.pos() - dir[5].rva;

  // The process's mappings, as the kernel lists them.
  dir[6].rva = out.pos();
  int const maps = ::open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
  if (maps >= 0) {
    for (;;) {
      ssize_t const n = ::read(maps, text, static_cast<std::size_t>(textSize));
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      out.bytes(text, static_cast<std::size_t>(n));
    }
    ::close(maps);
  }
  dir[6].size = out.pos() - dir[6].rva;
  if (!out.ok()) return false;

  // Header and directory.
  unsigned char head[32 + kStreamCount * 12];
  auto put32 = [&](int offset, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) head[offset + i] = static_cast<unsigned char>(v >> (8 * i));
  };
  std::memset(head, 0, sizeof head);
  put32(0, 0x504D444D);  // "MDMP"
  put32(4, 0xA793);
  put32(8, kStreamCount);
  put32(12, 32);
  put32(16, 0);
  put32(20, static_cast<std::uint32_t>(std::time(nullptr)));
  for (int i = 0; i < kStreamCount; ++i) {
    put32(32 + i * 12, dirTypes[i]);
    put32(36 + i * 12, dir[i].size);
    put32(40 + i * 12, dir[i].rva);
  }
  return crashFileWriteAt(file, 0, head, sizeof head);
#endif
}

bool crashWriteMinidumpOfProcess(void*, void*, std::uint32_t, void*, std::uint32_t, bool) { return false; }

// --- the dump of another process ---------------------------------------------------

namespace {

#if defined(__x86_64__)
// One thread's registers in the order of the AMD64 CONTEXT.
struct ThreadRegs {
  std::uint32_t tid = 0;
  std::uint64_t gp[17] = {};  // rax rcx rdx rbx rsp rbp rsi rdi r8..r15 rip
  std::uint32_t eflags = 0;
  std::uint16_t cs = 0, fs = 0, gs = 0, ss = 0;
  unsigned char fpState[512] = {};
  bool hasFpState = false;
};

ThreadRegs regsOfRecord(PosixRecord const& r) {
  ThreadRegs t;
  greg_t const* g = r.context.uc_mcontext.gregs;
  int const order[] = {REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP, REG_RSI, REG_RDI, REG_R8,
                       REG_R9,  REG_R10, REG_R11, REG_R12, REG_R13, REG_R14, REG_R15, REG_RIP};
  for (int i = 0; i < 17; ++i) t.gp[i] = static_cast<std::uint64_t>(g[order[i]]);
  t.eflags = static_cast<std::uint32_t>(g[REG_EFL]);
  auto const csgsfs = static_cast<std::uint64_t>(g[REG_CSGSFS]);
  t.cs = static_cast<std::uint16_t>(csgsfs);
  t.gs = static_cast<std::uint16_t>(csgsfs >> 16);
  t.fs = static_cast<std::uint16_t>(csgsfs >> 32);
  t.ss = static_cast<std::uint16_t>(csgsfs >> 48);
  if (r.hasFpState) std::memcpy(t.fpState, r.fpState, sizeof t.fpState);
  t.hasFpState = r.hasFpState;
  return t;
}

ThreadRegs regsOfTrace(user_regs_struct const& u, user_fpregs_struct const* fp) {
  ThreadRegs t;
  std::uint64_t const gp[17] = {u.rax, u.rcx, u.rdx, u.rbx, u.rsp, u.rbp, u.rsi, u.rdi, u.r8,
                                u.r9,  u.r10, u.r11, u.r12, u.r13, u.r14, u.r15, u.rip};
  std::memcpy(t.gp, gp, sizeof gp);
  t.eflags = static_cast<std::uint32_t>(u.eflags);
  t.cs = static_cast<std::uint16_t>(u.cs);
  t.fs = static_cast<std::uint16_t>(u.fs);
  t.gs = static_cast<std::uint16_t>(u.gs);
  t.ss = static_cast<std::uint16_t>(u.ss);
  if (fp != nullptr) {
    static_assert(sizeof(user_fpregs_struct) == 512, "FXSAVE layout");
    std::memcpy(t.fpState, fp, 512);
    t.hasFpState = true;
  }
  return t;
}

void writeThreadContext(DumpOut& out, ThreadRegs const& t) {
  std::uint32_t mxcsr = 0;
  if (t.hasFpState) std::memcpy(&mxcsr, t.fpState + 24, 4);
  out.zeros(6 * 8);
  out.u32(0x0010000F);
  out.u32(mxcsr);
  out.u16(t.cs);
  out.u16(0);
  out.u16(0);
  out.u16(t.fs);
  out.u16(t.gs);
  out.u16(t.ss != 0 ? t.ss : 0x2B);
  out.u32(t.eflags);
  out.zeros(6 * 8);
  for (std::uint64_t v : t.gp) out.u64(v);
  if (t.hasFpState) out.bytes(t.fpState, 512);
  else out.zeros(512);
  out.zeros(kContextSize - 0x300);
}

struct Mapping {
  std::uint64_t low, high, offset;
  bool readable;
  std::string path;
};

std::vector<Mapping> parseMaps(std::string const& text) {
  std::vector<Mapping> maps;
  std::size_t pos = 0;
  while (pos < text.size()) {
    std::size_t const end = text.find('\n', pos);
    std::string const line = text.substr(pos, end == std::string::npos ? std::string::npos : end - pos);
    pos = end == std::string::npos ? text.size() : end + 1;
    Mapping m{};
    char perms[8] = {};
    unsigned long long low = 0, high = 0, offset = 0;
    int consumed = 0;
    if (std::sscanf(line.c_str(), "%llx-%llx %7s %llx %*s %*s %n", &low, &high, perms, &offset, &consumed) < 4) continue;
    m.low = low;
    m.high = high;
    m.offset = offset;
    m.readable = perms[0] == 'r';
    if (consumed > 0 && static_cast<std::size_t>(consumed) <= line.size()) m.path = line.substr(static_cast<std::size_t>(consumed));
    maps.push_back(m);
  }
  return maps;
}

std::string readWholeFile(char const* path) {
  std::string text;
  int const fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return text;
  char buffer[8192];
  for (;;) {
    ssize_t const n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    text.append(buffer, static_cast<std::size_t>(n));
  }
  ::close(fd);
  return text;
}

// Another process's memory; bytes that cannot be read stay 0.
std::vector<unsigned char> readMemory(pid_t pid, std::uint64_t address, std::size_t size) {
  std::vector<unsigned char> bytes(size);
  std::size_t done = 0;
  while (done < size) {
    iovec local{bytes.data() + done, size - done};
    iovec remote{reinterpret_cast<void*>(address + done), size - done};
    ssize_t const n = process_vm_readv(pid, &local, 1, &remote, 1, 0);
    if (n > 0) {
      done += static_cast<std::size_t>(n);
      continue;
    }
    // Skip the unreadable page.
    std::size_t const page = 4096 - ((address + done) & 4095);
    done += page < size - done ? page : size - done;
  }
  return bytes;
}

// The GNU build id of the ELF image loaded at base, empty when none.
std::vector<unsigned char> buildIdAt(pid_t pid, std::uint64_t base) {
  std::vector<unsigned char> none;
  std::vector<unsigned char> const head = readMemory(pid, base, sizeof(Elf64_Ehdr));
  Elf64_Ehdr eh;
  std::memcpy(&eh, head.data(), sizeof eh);
  if (std::memcmp(eh.e_ident, ELFMAG, SELFMAG) != 0 || eh.e_ident[EI_CLASS] != ELFCLASS64 || eh.e_phnum == 0 ||
      eh.e_phnum > 256 || eh.e_phentsize != sizeof(Elf64_Phdr))
    return none;
  std::vector<unsigned char> const table = readMemory(pid, base + eh.e_phoff, eh.e_phnum * sizeof(Elf64_Phdr));
  std::vector<Elf64_Phdr> phdrs(eh.e_phnum);
  std::memcpy(phdrs.data(), table.data(), table.size());
  std::uint64_t bias = base;
  for (Elf64_Phdr const& ph : phdrs) {
    if (ph.p_type == PT_LOAD) {
      bias = base - (ph.p_vaddr & ~std::uint64_t(4095));
      break;
    }
  }
  for (Elf64_Phdr const& ph : phdrs) {
    if (ph.p_type != PT_NOTE || ph.p_memsz > 65536) continue;
    std::vector<unsigned char> const notes = readMemory(pid, bias + ph.p_vaddr, ph.p_memsz);
    std::size_t at = 0;
    while (at + sizeof(Elf64_Nhdr) <= notes.size()) {
      Elf64_Nhdr nh;
      std::memcpy(&nh, notes.data() + at, sizeof nh);
      std::size_t const nameAt = at + sizeof nh;
      std::size_t const descAt = nameAt + ((nh.n_namesz + 3u) & ~3u);
      std::size_t const next = descAt + ((nh.n_descsz + 3u) & ~3u);
      if (next > notes.size()) break;
      if (nh.n_type == NT_GNU_BUILD_ID && nh.n_namesz == 4 && std::memcmp(notes.data() + nameAt, "GNU", 4) == 0) {
        return std::vector<unsigned char>(notes.begin() + static_cast<long>(descAt),
                                          notes.begin() + static_cast<long>(descAt + nh.n_descsz));
      }
      at = next;
    }
  }
  return none;
}

// Stops every thread of a process for as long as it lives.
class ThreadStopper {
public:
  explicit ThreadStopper(pid_t pid) : m_pid(pid) {}
  ~ThreadStopper() {
    for (pid_t tid : m_tids) ptrace(PTRACE_DETACH, tid, nullptr, nullptr);
  }
  ThreadStopper(ThreadStopper const&) = delete;
  ThreadStopper& operator=(ThreadStopper const&) = delete;

  // Stops all threads, also those started meanwhile. 0 or an errno.
  int stopAll(char const*& api) {
    char folder[64];
    std::snprintf(folder, sizeof folder, "/proc/%d/task", static_cast<int>(m_pid));
    for (int round = 0; round < 100; ++round) {
      DIR* dir = opendir(folder);
      if (dir == nullptr) {
        api = "opendir";
        return errno;
      }
      bool added = false;
      while (dirent* entry = readdir(dir)) {
        if (entry->d_name[0] < '0' || entry->d_name[0] > '9') continue;
        pid_t const tid = static_cast<pid_t>(std::atol(entry->d_name));
        bool known = false;
        for (pid_t t : m_tids) known = known || t == tid;
        if (known) continue;
        if (ptrace(PTRACE_SEIZE, tid, nullptr, nullptr) != 0) {
          if (errno == ESRCH) continue;  // the thread ended meanwhile
          int const error = errno;
          closedir(dir);
          api = "ptrace";
          return error;
        }
        m_tids.push_back(tid);
        added = true;
        ptrace(PTRACE_INTERRUPT, tid, nullptr, nullptr);
        int status = 0;
        while (waitpid(tid, &status, __WALL) < 0 && errno == EINTR) {
        }
      }
      closedir(dir);
      if (!added) return m_tids.empty() ? ESRCH : 0;
    }
    return 0;
  }
  std::vector<pid_t> const& tids() const { return m_tids; }

private:
  pid_t m_pid;
  std::vector<pid_t> m_tids;
};
#endif

}  // namespace

SysError crashWriteMinidumpOfOtherProcess(std::uint32_t processId, wchar_t const* path, std::uint32_t threadId,
                                          CrashRecord const* fault, std::uint64_t, char const*& api) {
#if !defined(__x86_64__)
  (void)processId; (void)path; (void)threadId; (void)fault;
  api = "crashWriteMinidumpOfOtherProcess";
  return sysErrorOf(ENOSYS, api);
#else
  auto const pid = static_cast<pid_t>(processId);
  ThreadStopper stopper(pid);
  if (int const error = stopper.stopAll(api)) return sysErrorOf(static_cast<std::uint32_t>(error), api);
  std::vector<ThreadRegs> threads;
  for (pid_t tid : stopper.tids()) {
    user_regs_struct regs{};
    user_fpregs_struct fp{};
    if (ptrace(PTRACE_GETREGS, tid, nullptr, &regs) != 0) continue;  // ended meanwhile
    bool const hasFp = ptrace(PTRACE_GETFPREGS, tid, nullptr, &fp) == 0;
    threads.push_back(regsOfTrace(regs, hasFp ? &fp : nullptr));
    threads.back().tid = static_cast<std::uint32_t>(tid);
  }
  // The crashing thread as it was at the fault, first: debuggers select the
  // first thread.
  PosixRecord const* r = fault != nullptr && rec(*fault).magic == kRecordMagic ? &rec(*fault) : nullptr;
  for (std::size_t i = 0; i < threads.size(); ++i) {
    if (threads[i].tid != threadId || threadId == 0) continue;
    if (r != nullptr) {
      threads[i] = regsOfRecord(*r);
      threads[i].tid = threadId;
    }
    std::swap(threads[0], threads[i]);
  }
  char procPath[64];
  std::snprintf(procPath, sizeof procPath, "/proc/%d/maps", static_cast<int>(pid));
  std::string const mapsText = readWholeFile(procPath);
  std::vector<Mapping> const maps = parseMaps(mapsText);

  CrashFileHandle const file = crashFileOpen(path, CrashOpenType::kCreate);
  if (file == kCrashNoFile) {
    api = "open";
    return lastSysError(api);
  }
  int const fd = static_cast<int>(file);
  std::vector<wchar_t> wide(4096);
  DumpOut out(fd);
  bool const withException = r != nullptr && threadId != 0;
  int const streamCount = withException ? 7 : 6;
  std::vector<std::uint32_t> dirTypes;
  std::vector<Location> dir;
  out.zeros(32 + static_cast<std::size_t>(streamCount) * 12);

  // System information and the process id, as the in-process dump has them.
  long const cpus = sysconf(_SC_NPROCESSORS_ONLN);
  dirTypes.push_back(kStreamSystemInfo);
  dir.push_back(writeSystemInfo(out, cpus > 0 ? static_cast<int>(cpus) : 1));
  dirTypes.push_back(kStreamMiscInfo);
  dir.push_back(writeMiscInfo(out, processId));
  Location loc;

  // Each thread's registers, stack and (for the first) the code around its
  // instruction.
  std::vector<Location> contexts(threads.size());
  std::vector<Location> stacks(threads.size());
  std::vector<std::uint64_t> stackStarts(threads.size(), 0);
  Location code;
  std::uint64_t codeStart = 0;
  auto const mappingAt = [&](std::uint64_t address) -> Mapping const* {
    for (Mapping const& m : maps) {
      if (m.readable && m.low <= address && address < m.high) return &m;
    }
    return nullptr;
  };
  for (std::size_t i = 0; i < threads.size(); ++i) {
    out.align(16);
    contexts[i] = Location{kContextSize, out.pos()};
    writeThreadContext(out, threads[i]);
    std::uint64_t const sp = threads[i].gp[4];
    if (Mapping const* m = mappingAt(sp)) {
      std::uint64_t start = sp >= 128 ? (sp - 128) & ~std::uint64_t(15) : 0;
      if (start < m->low) start = m->low;
      std::uint64_t end = m->high;
      if (end - start > 1024 * 1024) end = start + 1024 * 1024;
      std::vector<unsigned char> const bytes = readMemory(pid, start, static_cast<std::size_t>(end - start));
      out.align(16);
      stacks[i] = Location{static_cast<std::uint32_t>(bytes.size()), out.pos()};
      out.bytes(bytes.data(), bytes.size());
      stackStarts[i] = start;
    }
  }
  if (!threads.empty()) {
    std::uint64_t const ip = threads[0].gp[16];
    if (Mapping const* m = mappingAt(ip)) {
      std::uint64_t const start = ip - 128 < m->low || ip < 128 ? m->low : ip - 128;
      std::uint64_t const end = ip + 128 > m->high ? m->high : ip + 128;
      std::vector<unsigned char> const bytes = readMemory(pid, start, static_cast<std::size_t>(end - start));
      code = Location{static_cast<std::uint32_t>(bytes.size()), out.pos()};
      out.bytes(bytes.data(), bytes.size());
      codeStart = start;
    }
  }

  if (withException) {
    loc.rva = out.pos();
    out.u32(threadId);
    out.u32(0);
    out.u32(static_cast<std::uint32_t>(r->signal));
    out.u32(r->hasFault ? static_cast<std::uint32_t>(r->info.si_code) : 0);
    out.u64(0);
    out.u64(r->hasFault ? reinterpret_cast<std::uintptr_t>(r->info.si_addr) : 0);
    out.u32(0);
    out.u32(0);
    out.zeros(15 * 8);
    out.u32(contexts[0].size);
    out.u32(contexts[0].rva);
    loc.size = out.pos() - loc.rva;
    dirTypes.push_back(kStreamException);
    dir.push_back(loc);
  }

  out.align(8);
  loc.rva = out.pos();
  out.u32(static_cast<std::uint32_t>(threads.size()));
  for (std::size_t i = 0; i < threads.size(); ++i) {
    out.u32(threads[i].tid);
    out.u32(0);
    out.u32(0);
    out.u32(0);
    out.u64(0);
    out.u64(stackStarts[i]);
    out.u32(stacks[i].size);
    out.u32(stacks[i].rva);
    out.u32(contexts[i].size);
    out.u32(contexts[i].rva);
  }
  loc.size = out.pos() - loc.rva;
  dirTypes.push_back(kStreamThreadList);
  dir.push_back(loc);

  // Modules: each file mapped from offset 0, up to its last mapping.
  struct Module {
    std::uint64_t base, end;
    std::string path;
    Location name, cv;
  };
  std::vector<Module> modules;
  for (Mapping const& m : maps) {
    if (m.path.empty() || m.path[0] != '/') continue;
    bool extended = false;
    for (Module& mod : modules) {
      if (mod.path == m.path && m.low >= mod.end) {
        mod.end = m.high;
        extended = true;
      }
    }
    if (!extended && m.offset == 0) modules.push_back(Module{m.low, m.high, m.path, {}, {}});
  }
  for (Module& mod : modules) {
    out.align(4);
    mod.name.rva = out.pos();
    out.utf16String(mod.path.c_str(), wide.data(), static_cast<int>(wide.size()));
    mod.name.size = out.pos() - mod.name.rva;
    std::vector<unsigned char> const id = buildIdAt(pid, mod.base);
    if (!id.empty()) {
      out.align(4);
      mod.cv.rva = out.pos();
      out.u32(kCvSignatureElf);
      out.bytes(id.data(), id.size());
      mod.cv.size = out.pos() - mod.cv.rva;
    }
  }
  out.align(8);
  loc.rva = out.pos();
  out.u32(static_cast<std::uint32_t>(modules.size()));
  for (Module const& mod : modules) {
    out.u64(mod.base);
    out.u32(static_cast<std::uint32_t>(mod.end - mod.base));
    out.u32(0);
    out.u32(0);
    out.u32(mod.name.rva);
    out.zeros(52);
    out.u32(mod.cv.size);
    out.u32(mod.cv.rva);
    out.zeros(8 + 16);
  }
  loc.size = out.pos() - loc.rva;
  dirTypes.push_back(kStreamModuleList);
  dir.push_back(loc);

  loc.rva = out.pos();
  std::uint32_t ranges = code.size != 0 ? 1 : 0;
  for (Location const& s : stacks) ranges += s.size != 0 ? 1 : 0;
  out.u32(ranges);
  for (std::size_t i = 0; i < threads.size(); ++i) {
    if (stacks[i].size == 0) continue;
    out.u64(stackStarts[i]);
    out.u32(stacks[i].size);
    out.u32(stacks[i].rva);
  }
  if (code.size != 0) {
    out.u64(codeStart);
    out.u32(code.size);
    out.u32(code.rva);
  }
  loc.size = out.pos() - loc.rva;
  dirTypes.push_back(kStreamMemoryList);
  dir.push_back(loc);

  loc.rva = out.pos();
  out.bytes(mapsText.data(), mapsText.size());
  loc.size = out.pos() - loc.rva;
  dirTypes.push_back(kStreamLinuxMaps);
  dir.push_back(loc);

  std::vector<unsigned char> head(32 + dir.size() * 12, 0);
  auto put32 = [&](std::size_t offset, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) head[offset + static_cast<std::size_t>(i)] = static_cast<unsigned char>(v >> (8 * i));
  };
  put32(0, 0x504D444D);
  put32(4, 0xA793);
  put32(8, static_cast<std::uint32_t>(dir.size()));
  put32(12, 32);
  put32(20, static_cast<std::uint32_t>(std::time(nullptr)));
  for (std::size_t i = 0; i < dir.size(); ++i) {
    put32(32 + i * 12, dirTypes[i]);
    put32(36 + i * 12, dir[i].size);
    put32(40 + i * 12, dir[i].rva);
  }
  bool const ok = out.ok() && static_cast<int>(dir.size()) == streamCount &&
                  crashFileWriteAt(file, 0, head.data(), static_cast<int>(head.size()));
  int const error = errno;
  crashFileClose(file);
  if (!ok) {
    api = "write";
    return sysErrorOf(error != 0 ? static_cast<std::uint32_t>(error) : EIO, api);
  }
  return SysError();
#endif
}

}  // namespace qo::platform
