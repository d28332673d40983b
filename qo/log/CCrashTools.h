// qo/log/CCrashTools.h - the resources of one crash slot, prepared before
// any crash.
//
// CCrashManager keeps ten of these next to ten CCrashInfo slots, so that up
// to ten threads can report crashes at once without allocating: each slot
// has two files (A for the crash-information file and the minidump, B for
// the session log and its suffix), a byte buffer and a buffer for building
// file paths. The static helpers measure and copy text into fixed buffers.
//
//   CCrashTools& tools = ...;                    // from a slot
//   wchar_t* path = tools.getPathBuffer();
//   CCrashTools::fsStringCopy(path, CCrashTools::kPathCapacity, folder);
#ifndef QO_LOG_CCRASHTOOLS_H
#define QO_LOG_CCRASHTOOLS_H

#include "qo/core/Export.h"
#include "qo/core/String.h"
#include "qo/log/CCrashFileAccess.h"

namespace qo {

/// Preallocated crash-path resources. Not thread-safe (one crashing thread
/// uses one slot); not copyable. Nothing here allocates or throws.
class QO_API CCrashTools {
public:
  /// Bytes of the temporary buffer.
  static constexpr int kTempBufferSize = 4096;
  /// Characters of the path buffer, the terminating NUL included.
  static constexpr int kPathCapacity = 4096;

  CCrashTools() noexcept;
  ~CCrashTools();
  CCrashTools(CCrashTools const&) = delete;
  CCrashTools& operator=(CCrashTools const&) = delete;

  CCrashFileAccess& getFileAccessA() noexcept { return m_fileA; }
  CCrashFileAccess& getFileAccessB() noexcept { return m_fileB; }
  /// kTempBufferSize bytes.
  unsigned char* getTempBuffer() noexcept { return m_tempBuffer; }
  /// kPathCapacity wide characters.
  wchar_t* getPathBuffer() noexcept { return m_pathBuffer; }

  /// Closes both files and empties the buffers.
  void clear() noexcept;

  /// Characters before the NUL; 0 for null.
  static int getStringLength(char const* text) noexcept;
  /// Wide characters before the NUL; 0 for null.
  static int getFSStringLength(wchar_t const* text) noexcept;
  /// Copies source with its NUL into target (capacity characters, NUL
  /// included). On Windows the UTF-16 units are copied as they are; on
  /// POSIX, where wchar_t holds code points, surrogate pairs are joined and
  /// a lone surrogate becomes U+FFFD. Returns the length copied, or -1 (and
  /// an empty target) when it does not fit.
  static int fsStringCopy(wchar_t* target, int capacity, String const& source) noexcept;
  static int fsStringCopy(wchar_t* target, int capacity, wchar_t const* source) noexcept;
  /// Narrow text (ASCII) appended as wide characters at target + length;
  /// returns the new length or -1 when it does not fit.
  static int fsStringAppend(wchar_t* target, int capacity, int length, char const* source) noexcept;
  /// Writes value in decimal into target (at least kDecimalCapacity
  /// characters), padded on the left with "0" to minDigits digits and
  /// preceded by "-" when negative, NUL-terminated. Returns the length.
  static constexpr int kDecimalCapacity = 26;
  static int formatDecimal(char* target, long long value, int minDigits = 1) noexcept;
  /// Sleeps about millis milliseconds.
  static void sleep(int millis) noexcept;

private:
  CCrashFileAccess m_fileA;
  CCrashFileAccess m_fileB;
  unsigned char m_tempBuffer[kTempBufferSize];
  wchar_t m_pathBuffer[kPathCapacity];
};

}  // namespace qo

#endif  // QO_LOG_CCRASHTOOLS_H
