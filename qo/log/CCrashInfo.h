// qo/log/CCrashInfo.h - the description of one crash, and how it is written.
//
// A crash is either a fault that the OS reported (an unhandled structured
// exception on Windows, a fault signal on POSIX; the record is copied in) or
// a crash that the C++ runtime reported (CRTCrash: unexpected, pure virtual
// call, terminate, invalid parameter). CCrashInfo keeps that, the crash time
// (seconds since 1970-01-01 UTC) and, for invalid-parameter crashes, the
// runtime's texts - all in fixed storage, because it is filled on the crash
// path. It writes:
//   - the crash-information file (writeXML): element `crash` with `type` and
//     `timestamp`, the fault's details, the runtime's texts and the modules;
//   - an entry in the XML session log (writeToXMLLog), keeping the log and
//     its "-suffix" companion a well-formed document;
//   - a minidump (writeWindowsMiniDumpUnsafe).
// Integers are written in decimal, addresses as "0x" and 16 lower-case hex
// digits. The file has one format on every system: the OS values of a fault
// are `win32-code`, `win32-address`, `win32-flags` and `win32-parameters`.
// POSIX gives a signal as the nearest exception (SIGSEGV as an access
// violation 0xC0000005 with its access kind and address, SIGFPE as
// 0xC0000094 ..., see platform::crashRecordCode) and adds the signal's own
// facts: `signal-number`, `signal-code` (si_code) and `signal-address`
// (si_addr).
//
//   CCrashInfo info;
//   info.init(CCrashInfo::kCRTTerminate, 12345);
//   info.getTypeString();                       // "crt terminate"
//   info.writeXML(file, true);
#ifndef QO_LOG_CCRASHINFO_H
#define QO_LOG_CCRASHINFO_H

#include <cstdint>

#include "qo/core/Export.h"
#include "qo/platform/Crash.h"

namespace qo {

class CCrashFileAccess;
class CCrashTools;

/// One crash. Not thread-safe (a slot belongs to one crashing thread); not
/// copyable. Nothing here allocates or throws.
class QO_API CCrashInfo {
public:
  /// A crash reported by the C++ runtime.
  enum CRTCrash {
    kCRTUnexpected,
    kCRTPureCall,
    kCRTTerminate,
    kCRTInvalidParam,
  };

  /// Characters kept of each invalid-parameter text (NUL included).
  static constexpr int kTextCapacity = 512;

  CCrashInfo() noexcept;
  ~CCrashInfo();
  CCrashInfo(CCrashInfo const&) = delete;
  CCrashInfo& operator=(CCrashInfo const&) = delete;

  /// A fault reported by the OS at time (seconds since 1970 UTC); the
  /// record is copied, so context need not outlive the call.
  void init(platform::CrashContext const& exception, long long time) noexcept;
  /// A runtime crash at time. Captures the calling thread's registers for
  /// the minidump.
  void init(CRTCrash kind, long long time) noexcept;
  /// An invalid-parameter crash with the runtime's texts (null is taken as
  /// empty; longer texts are cut to kTextCapacity - 1 characters).
  void initCRTInvalidParam(wchar_t const* expression, wchar_t const* function, wchar_t const* file, unsigned line,
                           long long time) noexcept;
  /// Back to the empty state (no crash, time 0).
  void clear() noexcept;

  /// True when the crash is a fault the OS reported.
  bool isException() const noexcept { return m_isException; }
  /// The runtime kind (meaningful when !isException()).
  CRTCrash getCRTCrash() const noexcept { return m_crtKind; }
  long long getTime() const noexcept { return m_time; }
  /// The OS id of the thread that crashed.
  std::uint32_t getThreadId() const noexcept { return m_threadId; }
  /// The copy of the fault (or of the registers of a runtime crash), as
  /// the platform keeps it; meaningful after init.
  platform::CrashRecord const& getRecord() const noexcept { return m_record; }
  /// Windows: the EXCEPTION_POINTERS* the OS handed to the hook, valid only
  /// while the crash is being reported (for a dump written by another
  /// process); null for runtime crashes and on POSIX.
  void* getExceptionPointers() const noexcept { return m_exceptionPointers; }

  /// "crt unexpected", "crt purecall", "crt terminate", "crt invalid param",
  /// "access violation", "floating point divide by zero", "floating point
  /// error", "illegal instruction", "integer divide by zero", "integer
  /// overflow", "stack overflow", "data misaligned", or "unknown". A POSIX
  /// SIGABRT (abort() without the runtime's hooks) is "crt terminate".
  char const* getTypeString() const noexcept;

  /// The faulting instruction; false when unknown (runtime crashes).
  bool getCodeAddress(unsigned long long& address) const noexcept;
  /// The memory address an access violation, misaligned access or stack
  /// overflow touched; false otherwise.
  bool getMemoryAddress(unsigned long long& address) const noexcept;
  /// The path of the module holding the code address; false when unknown.
  /// The text lives in this object until the next call or init.
  bool getModuleName(wchar_t const*& name) noexcept;
  /// The load address of that module; false when unknown.
  bool getModuleBaseAddress(unsigned long long& address) noexcept;

  /// Starts walking the process's modules; false when they cannot be
  /// listed. Then nextModule() until it answers false, then
  /// endModuleIteration().
  bool beginModuleIteration() noexcept;
  bool nextModule() noexcept;
  /// The current module's path (valid until the next nextModule()).
  wchar_t const* getCurrModuleName() const noexcept { return m_module.name; }
  unsigned long long getCurrModuleBaseAddress() const noexcept { return m_module.baseAddress; }
  unsigned long long getCurrModuleSize() const noexcept { return m_module.size; }
  void endModuleIteration() noexcept;

  /// Writes the `crash` element. With standalone, as a whole file: the XML
  /// declaration, then the element at depth 0. Without, at the file's
  /// current depth (as inside the session log), starting on a new line.
  void writeXML(CCrashFileAccess& file, bool standalone) noexcept;
  /// Appends the crash to the XML session log at logPath, whose suffix
  /// file (the end tags of the open elements) is suffixPath, as a `centry`
  /// of level "ERROR" holding the optional summary text and the `crash`
  /// element. Uses the tools' file B and temporary buffer. False when the
  /// log could not be opened or written (the entry is then skipped).
  bool writeToXMLLog(CCrashTools& tools, wchar_t const* logPath, wchar_t const* suffixPath,
                     wchar_t const* summary = nullptr) noexcept;
  /// Writes a minidump of this process into the open file (from its start;
  /// the file's buffer is flushed first). "Unsafe": the dump is taken from
  /// inside the crashed process. False on failure.
  bool writeWindowsMiniDumpUnsafe(CCrashFileAccess& file) noexcept;
  /// MiniDumpWriteDump of "DbgHelp.dll" for any process: process and file
  /// are Windows HANDLEs, exceptionPointers an EXCEPTION_POINTERS* valid in
  /// that process (may be null), fullMemory adds all readable memory. POSIX
  /// cannot dump another process: false.
  static bool writeWindowsMiniDumpRaw(void* process, void* file, std::uint32_t processId, void* exceptionPointers,
                                      std::uint32_t threadId, bool fullMemory) noexcept;

private:
  bool findCodeModule() noexcept;

  bool m_isException = false;
  bool m_hasRecord = false;
  CRTCrash m_crtKind = kCRTTerminate;
  long long m_time = 0;
  std::uint32_t m_threadId = 0;
  void* m_exceptionPointers = nullptr;
  unsigned m_line = 0;
  wchar_t m_expression[kTextCapacity];
  wchar_t m_function[kTextCapacity];
  wchar_t m_file[kTextCapacity];
  platform::CrashRecord m_record;
  platform::CrashModuleIterator m_iterator;
  platform::CrashModule m_module;
  platform::CrashModule m_codeModule;
  bool m_codeModuleSearched = false;
  bool m_codeModuleFound = false;
  // Working memory of the minidump writer.
  alignas(16) unsigned char m_dumpScratch[64 * 1024];
};

}  // namespace qo

#endif  // QO_LOG_CCRASHINFO_H
