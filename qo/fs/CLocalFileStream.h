// qo/fs/CLocalFileStream.h - a stream on a local file.
//
// Opens a file by its native path ("C:\x\y" on Windows, "/x/y" on POSIX,
// or relative to the current folder) and reads and writes it directly
// through the OS: there is no buffer in the stream, so flush() only asks the
// OS to put its cache on the medium.
// - Access: AccessReadOnly refuses writes (CIOError kind 3); AccessWriteOnly
//   and AccessAppend refuse reads (the OS's read error, kind 2);
//   AccessAppend writes every byte at the end of the file, wherever the
//   position was, and leaves the position there.
// - Flags: FlagCreate, FlagTruncate, FlagFailIfExists, the share flags
//   (enforced on Windows only), FlagWriteThrough, FlagDeleteOnClose,
//   FlagLockFile (holds a CLockFile at the path plus ".lock", exclusive for
//   writers and shared for readers, for the stream's life) and the hints
//   FlagSequential/FlagRandomAccess. FlagNoBuffering is refused where the OS
//   service lacks it (CNotImplementedError).
// - Range locks are counted per stream (CStreamLockManager) and taken at the
//   OS as well, so they hold against other streams on the same file in this
//   process and in others. A conflict throws CIOError kind 15 with
//   "lockConflict" = "true" and a CFileSystemError problem 5 as cause.
//   Windows releases an OS range only when every part of it has been
//   unlocked here, since it cannot unlock a part of a locked range.
// - Every failure is a CIOError with "uri" (the file URI of the path), the
//   system error as cause and, where known, the CFileSystemError problem
//   under "fileSysProblem" (1 not found, 2 already exists, 3 access
//   denied, 4 a folder, 5 sharing or lock conflict, 8 no space).
// - After close() every operation except getPath, getURI, getPosition and
//   close throws CIOError kind 10.
//
//   P<CLocalFileStream> out = newP<CLocalFileStream>(u"/tmp/a.log", IIOStream::AccessAppend,
//                                                    TFlags<IIOStream::Flags>{IIOStream::FlagCreate});
//   out->write("line\n", 5);
//   out->close();
//
// Not thread-safe, except that range locks may be released on any thread.
#ifndef QO_FS_CLOCALFILESTREAM_H
#define QO_FS_CLOCALFILESTREAM_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/core/TArray.h"
#include "qo/core/TFlags.h"
#include "qo/fs/CURI.h"
#include "qo/stream/CStreamLockManager.h"
#include "qo/stream/IIOStream.h"
#include "qo/thread/CMutex.h"

namespace qo {

namespace platform {
struct NativeFile;
}  // namespace platform

class CLockFile;

/// An input and output stream on a local file. Not thread-safe.
class QO_API CLocalFileStream : public CBase, public virtual IIOStream {
public:
  /// Opens the file at path (native, absolute or relative) with access and
  /// flags as described at the top. Throws CIOError: kind 1 when the file
  /// cannot be opened (with "fileSysProblem" 1, 2, 3 or 4 when that is the
  /// reason), kind 15 for a sharing violation or a held lock file; always
  /// with "uri" and the system error as cause. CNotImplementedError for
  /// FlagNoBuffering where it is not supported; CInvalidArgError for an
  /// access outside the enumeration or FlagFailIfExists without FlagCreate.
  CLocalFileStream(String const& path, IIOStream::Access access, TFlags<IIOStream::Flags> flags);
  /// Closes; never throws.
  ~CLocalFileStream() override;
  CLocalFileStream(CLocalFileStream const&) = delete;
  CLocalFileStream& operator=(CLocalFileStream const&) = delete;

  /// The path as given to the constructor.
  String const& getPath() const;
  IIOStream::Access getAccess() const noexcept { return m_access; }
  TFlags<IIOStream::Flags> getFlags() const noexcept { return m_flags; }
  /// True until close().
  bool isOpen() const noexcept { return m_file != nullptr; }
  /// True when the path still names the open file: it was neither deleted
  /// nor replaced by another file meanwhile. Throws CIOError (kind 10 when
  /// closed).
  bool isStillAtPath() const;

  // IStreamBase
  /// The file's current length. Throws CIOError (kind 10 when closed).
  long long getLength() const override;
  /// The position; after close the last one.
  long long getPosition() const override;
  /// The file URI of the path made absolute; the empty URI when the path
  /// has no file URI.
  CURI getURI() override;
  /// Any position >= 0, also beyond the end (a later write fills the gap
  /// with zero bytes). Throws CIOError kind 7 (property "pos") for a
  /// negative one, kind 10 when closed.
  void seek(long long position) override;
  /// Locks [start, start + length) as described at the top. Throws CIOError
  /// kind 15 on a conflict, kind 10 when closed; CInvalidArgError for a
  /// negative start or a length below 1.
  P<IStreamLock> lockRange(long long start, long long length, LockType type) override;
  /// Closes the file (deleting it when opened with FlagDeleteOnClose) and
  /// releases the lock file. Idempotent. Throws CIOError when the OS reports
  /// a failure closing; the stream is closed all the same.
  void close() override;

  // IInStream
  /// Throws CIOError kind 4 (properties "bytesRead", "toRead") when the
  /// file ends first (what was there is consumed), kind 2 when the OS
  /// refuses, kind 10 when closed; CInvalidArgError for a negative size.
  void read(void* buffer, int size) override;
  /// Up to size bytes; fewer only at the end of the file. Throws as read()
  /// except for the end.
  int readLax(void* buffer, int size) override;
  /// Same as readLax.
  int readAvailable(void* buffer, int size) override;
  /// True: a local file never makes a reader wait for data.
  bool waitReadable(int timeoutMs) const override;
  /// position >= length. Throws CIOError (kind 10 when closed).
  bool isEndOfStream() const override;
  /// isEndOfStream() as 1 or 0.
  int isEndOfStream_NonBlocking() const override;

  // IOutStream
  /// Writes at the position (at the end for AccessAppend). Throws CIOError
  /// kind 3 for AccessReadOnly or when the OS refuses ("fileSysProblem" 8
  /// for a full medium), kind 10 when closed; CInvalidArgError for a
  /// negative size.
  void write(void const* data, int size, IWriteBarrier* barrier = nullptr) override;
  /// Writes the slice's bytes as write() does.
  void writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier = nullptr) override;
  /// A new CDummyWriteBarrier: each write is complete when it returns.
  P<IWriteBarrier> createWriteBarrier(IWriteBarrier* previous) override;
  /// Asks the OS to put the file's data on the medium. Throws CIOError
  /// kind 3 (kind 10 when closed).
  void flush() override;
  /// Cuts or extends (with zero bytes) the file; a position beyond the new
  /// end moves to it. Throws CIOError kind 3 for AccessReadOnly, kind 13
  /// when the OS refuses, kind 10 when closed; CInvalidArgError for a
  /// negative length.
  void setLength(long long length) override;

private:
  class CRangeLock;
  struct OsLock {
    long long start;
    long long length;
  };

  void checkOpen(char const* place) const;
  void checkWritable(char const* place) const;
  void releaseRange(long long start, long long length, LockType type) noexcept;
  void closeNoThrow() noexcept;

  String m_path;
  String m_apiPath;  // what the OS gets (long-path prefix where needed)
  CURI m_uri;
  IIOStream::Access m_access;
  TFlags<IIOStream::Flags> m_flags;
  platform::NativeFile* m_file = nullptr;
  long long m_position = 0;
  P<CLockFile> m_lockFile;
  CStreamLockManager m_locks;
  mutable CMutex m_osLockMutex;  // guards m_osLocks and the OS lock calls
  TArray<OsLock> m_osLocks;      // ranges locked at the OS, as locked
};

}  // namespace qo

#endif  // QO_FS_CLOCALFILESTREAM_H
