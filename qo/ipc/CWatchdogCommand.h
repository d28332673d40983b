// qo/ipc/CWatchdogCommand.h - the commands a watched process sends to its
// crash watchdog (qo-watchdog), in the record format of CDataOutStream.
//
// Each command is one IPC frame (CIPCConnection): an int32 kind, then its
// fields in this order:
//   kHello      int64 processId, int32 hangTimeoutMs (-1: no hang
//               detection), String crashFolder, String logPath
//   kHeartbeat  nothing
//   kCrash      int32 threadId, int64 crashTime (seconds since 1970 UTC),
//               uint64 exceptionPointers (Windows: the EXCEPTION_POINTERS*
//               in the crashed process, else 0), int32 n and n bytes of the
//               crash context (platform::CrashRecord), String dumpPath
//   kStop       nothing
// Strings are the record format's (int32 byte count, UTF-8). The watchdog
// answers each with an empty payload, except kCrash: a bool, true when it
// wrote the dump.
//
// The crash command is written on the crash path, where nothing may
// allocate: encodeCrash writes it into a caller's buffer with the same
// bytes that toBytes() gives.
//
//   CWatchdogCommand hello;
//   hello.kind = CWatchdogCommand::kHello;  hello.processId = 42;
//   connection->call(hello.toBytes());
//   CWatchdogCommand back = CWatchdogCommand::fromBytes(frame);
#ifndef QO_IPC_CWATCHDOGCOMMAND_H
#define QO_IPC_CWATCHDOGCOMMAND_H

#include <cstdint>
#include <vector>

#include "qo/core/Export.h"
#include "qo/core/String.h"

namespace qo {

/// One watchdog command (a value). Not thread-safe.
class QO_API CWatchdogCommand {
public:
  enum Kind { kHello = 1, kHeartbeat = 2, kCrash = 3, kStop = 4 };
  /// The application protocol version the watchdog speaks (IPC hello).
  static constexpr int kProtocolVersion = 1;
  /// The largest command frame: a crash context and two paths fit.
  static constexpr int kMaxFrameSize = 64 * 1024;

  Kind kind = kHeartbeat;
  // kHello
  long long processId = 0;
  int hangTimeoutMs = -1;
  String crashFolder;
  String logPath;
  // kCrash
  std::uint32_t threadId = 0;
  long long crashTime = 0;
  std::uint64_t exceptionPointers = 0;
  std::vector<unsigned char> context;
  String dumpPath;

  /// The command's frame payload. Throws CUnencodableStringError for a path
  /// that UTF-8 cannot hold. Not thread-safe.
  [[nodiscard]] std::vector<unsigned char> toBytes() const;
  /// Reads a command from a frame payload. Throws CIOError kind 5 ("The
  /// data is invalid or corrupted.") for an unknown kind, a negative or
  /// too long count, bytes left over, or text that is not UTF-8 or holds a
  /// NUL (property "reason"), and kind 4 for a frame cut short. Thread-safe.
  static CWatchdogCommand fromBytes(std::vector<unsigned char> const& frame);

  /// Writes a kCrash command into buffer (capacity bytes) without
  /// allocating: dumpPath is wide text (UTF-16 or UTF-32 as wchar_t is;
  /// unpaired surrogates become U+FFFD). Returns the byte count, -1 when it
  /// does not fit. Never throws.
  static int encodeCrash(unsigned char* buffer, int capacity, std::uint32_t threadId, long long crashTime,
                         std::uint64_t exceptionPointers, void const* context, int contextSize,
                         wchar_t const* dumpPath) noexcept;
};

}  // namespace qo

#endif  // QO_IPC_CWATCHDOGCOMMAND_H
