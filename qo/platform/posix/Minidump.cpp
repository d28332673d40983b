#include "qo/platform/Minidump.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <sys/utsname.h>
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

  // System information.
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
  dir[0].rva = out.pos();
  out.u16(9);  // AMD64
  out.u16(6);  // processor level
  out.u16(0);
  out.u8(static_cast<std::uint8_t>(g_processorCount.load() > 255 ? 255 : g_processorCount.load()));
  out.u8(1);   // workstation
  out.u32(version[0]);
  out.u32(version[1]);
  out.u32(version[2]);
  out.u32(0x8201);  // Linux
  out.u32(csdRva);
  out.u16(0);
  out.u16(0);
  out.zeros(24);  // processor information
  dir[0].size = out.pos() - dir[0].rva;

  // Process id.
  dir[1].rva = out.pos();
  out.u32(24);
  out.u32(1);  // the process id is valid
  out.u32(static_cast<std::uint32_t>(getpid()));
  out.zeros(12);
  dir[1].size = 24;

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

}  // namespace qo::platform
