// qo/platform/posix/CrashRecord.h - what the POSIX crash sources (Crash,
// Minidump) share; internal.
//
// The layout of a CrashRecord on POSIX, the loaded modules as the loader
// lists them, and writing that bypasses every wrapper. All of it runs on
// the crash path: no allocation, no lock of the library.
#ifndef QO_PLATFORM_POSIX_CRASHRECORD_H
#define QO_PLATFORM_POSIX_CRASHRECORD_H

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

#include <elf.h>
#include <link.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <ucontext.h>
#include <unistd.h>

#include "qo/platform/Crash.h"

namespace qo::platform::posixcrash {

// Bytes that are not UTF-8 are taken as Latin-1, as the library reads
// narrow text of unknown origin.
inline void wideFromUTF8(char const* text, wchar_t* out, int capacity) {
  int n = 0;
  auto const* p = reinterpret_cast<unsigned char const*>(text);
  while (p != nullptr && *p != 0 && n + 1 < capacity) {
    unsigned char const b = *p;
    int len = b < 0x80 ? 1 : (b >> 5) == 6 ? 2 : (b >> 4) == 14 ? 3 : (b >> 3) == 30 ? 4 : 0;
    std::uint32_t c = b;
    bool ok = len > 0;
    if (len > 1) {
      c = b & (0x7F >> len);
      for (int i = 1; i < len && ok; ++i) {
        if ((p[i] & 0xC0) != 0x80) ok = false;
        else c = (c << 6) | (p[i] & 0x3F);
      }
      if (ok && ((len == 2 && c < 0x80) || (len == 3 && c < 0x800) || (len == 4 && (c < 0x10000 || c > 0x10FFFF)) ||
                 (c >= 0xD800 && c <= 0xDFFF)))
        ok = false;
    }
    if (!ok) {
      c = b;
      len = 1;
    }
    out[n++] = static_cast<wchar_t>(c);
    p += len;
  }
  if (capacity > 0) out[n] = 0;
}

// The system call itself, not the C library's (or a sanitizer's) wrapper:
// the minidump copies raw stack memory, redzones included, into the file.
inline ssize_t rawWrite(int fd, void const* data, std::size_t size) {
  return static_cast<ssize_t>(syscall(SYS_write, fd, data, size));
}

inline bool writeAll(int fd, void const* data, std::size_t size) {
  auto const* p = static_cast<char const*>(data);
  while (size > 0) {
    ssize_t const n = rawWrite(fd, p, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    p += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

// --- the fault record --------------------------------------------------------

constexpr std::uint32_t kRecordMagic = 0x71635243;  // marks a filled record

struct PosixRecord {
  std::uint32_t magic;
  bool hasFault;
  bool hasFpState;
  int signal;
  std::uint32_t threadId;
  siginfo_t info;
  ucontext_t context;
  unsigned char fpState[512];
  std::uintptr_t stackLow;
  std::uintptr_t stackHigh;
};
static_assert(sizeof(PosixRecord) <= sizeof(CrashRecord::bytes), "grow CrashRecord");

inline PosixRecord& rec(CrashRecord& record) { return *std::launder(reinterpret_cast<PosixRecord*>(record.bytes)); }
inline PosixRecord const& rec(CrashRecord const& record) {
  return *std::launder(reinterpret_cast<PosixRecord const*>(record.bytes));
}

inline std::uint64_t instructionPointer(PosixRecord const& r) {
#if defined(__x86_64__)
  return static_cast<std::uint64_t>(r.context.uc_mcontext.gregs[REG_RIP]);
#elif defined(__aarch64__)
  return static_cast<std::uint64_t>(r.context.uc_mcontext.pc);
#else
  (void)r;
  return 0;
#endif
}

inline std::uint64_t stackPointer(PosixRecord const& r) {
#if defined(__x86_64__)
  return static_cast<std::uint64_t>(r.context.uc_mcontext.gregs[REG_RSP]);
#elif defined(__aarch64__)
  return static_cast<std::uint64_t>(r.context.uc_mcontext.sp);
#else
  (void)r;
  return 0;
#endif
}

// --- modules -----------------------------------------------------------------

struct ModuleData {
  char const* name;  // the loader's text; "" for the main program
  std::uint64_t base;
  std::uint64_t size;
  unsigned char buildId[32];
  int buildIdSize;
};

struct ModuleSearch {
  int wanted;
  int index;
  ModuleData* out;
  bool found;
};

inline void readBuildId(dl_phdr_info const* info, ModuleData& out) {
  out.buildIdSize = 0;
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    ElfW(Phdr) const& ph = info->dlpi_phdr[i];
    if (ph.p_type != PT_NOTE) continue;
    auto const* p = reinterpret_cast<unsigned char const*>(info->dlpi_addr + ph.p_vaddr);
    auto const* end = p + ph.p_memsz;
    while (p + sizeof(ElfW(Nhdr)) <= end) {
      ElfW(Nhdr) note;
      std::memcpy(&note, p, sizeof note);
      unsigned char const* name = p + sizeof note;
      unsigned char const* desc = name + ((note.n_namesz + 3) & ~3u);
      unsigned char const* next = desc + ((note.n_descsz + 3) & ~3u);
      if (next > end) break;
      if (note.n_type == NT_GNU_BUILD_ID && note.n_namesz == 4 && std::memcmp(name, "GNU", 4) == 0) {
        int const n = note.n_descsz < sizeof out.buildId ? static_cast<int>(note.n_descsz) : int(sizeof out.buildId);
        std::memcpy(out.buildId, desc, static_cast<std::size_t>(n));
        out.buildIdSize = n;
        return;
      }
      p = next;
    }
  }
}

inline int moduleCallback(dl_phdr_info* info, std::size_t, void* data) {
  auto* search = static_cast<ModuleSearch*>(data);
  std::uint64_t low = ~0ull, high = 0;
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    ElfW(Phdr) const& ph = info->dlpi_phdr[i];
    if (ph.p_type != PT_LOAD) continue;
    if (ph.p_vaddr < low) low = ph.p_vaddr;
    if (ph.p_vaddr + ph.p_memsz > high) high = ph.p_vaddr + ph.p_memsz;
  }
  if (high <= low) return 0;  // nothing mapped
  if (search->index++ != search->wanted) return 0;
  std::uint64_t const page = 4096;
  ModuleData& out = *search->out;
  out.name = info->dlpi_name != nullptr ? info->dlpi_name : "";
  out.base = (info->dlpi_addr + low) & ~(page - 1);
  out.size = ((info->dlpi_addr + high + page - 1) & ~(page - 1)) - out.base;
  readBuildId(info, out);
  search->found = true;
  return 1;
}

// The index-th module with mapped segments. dl_iterate_phdr takes the
// loader's (recursive) lock; it allocates nothing.
inline bool moduleAt(int index, ModuleData& out) {
  ModuleSearch search{index, 0, &out, false};
  dl_iterate_phdr(&moduleCallback, &search);
  return search.found;
}

// The main program's path, read once per use: readlink is signal-safe.
inline int mainProgramPath(char* out, int capacity) {
  ssize_t const n = readlink("/proc/self/exe", out, static_cast<std::size_t>(capacity - 1));
  if (n <= 0) return 0;
  out[n] = 0;
  return static_cast<int>(n);
}

}  // namespace qo::platform::posixcrash

#endif  // QO_PLATFORM_POSIX_CRASHRECORD_H
