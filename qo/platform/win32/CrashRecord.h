// qo/platform/win32/CrashRecord.h - the layout of a CrashRecord on Windows,
// shared by the Crash and Minidump sources; internal.
#ifndef QO_PLATFORM_WIN32_CRASHRECORD_H
#define QO_PLATFORM_WIN32_CRASHRECORD_H

#include <new>

#include <windows.h>

#include "qo/platform/Crash.h"

namespace qo::platform::win32crash {

constexpr DWORD kRecordMagic = 0x71635243;

struct WinRecord {
  CONTEXT context;
  EXCEPTION_RECORD exception;
  EXCEPTION_POINTERS pointers;  // into this record, for MiniDumpWriteDump
  DWORD magic;
  DWORD threadId;
  bool hasFault;
};
static_assert(sizeof(WinRecord) <= sizeof(CrashRecord::bytes), "grow CrashRecord");
static_assert(alignof(WinRecord) <= 16, "CrashRecord alignment");

inline WinRecord& rec(CrashRecord& record) { return *std::launder(reinterpret_cast<WinRecord*>(record.bytes)); }
inline WinRecord const& rec(CrashRecord const& record) {
  return *std::launder(reinterpret_cast<WinRecord const*>(record.bytes));
}

inline bool hasFault(CrashRecord const& record) { return rec(record).magic == kRecordMagic && rec(record).hasFault; }

}  // namespace qo::platform::win32crash

#endif  // QO_PLATFORM_WIN32_CRASHRECORD_H
