// qo/stream/IStreamBase.h - what every stream has: length, position, identity,
// seeking, range locks and closing.
//
// IInStream and IOutStream derive from it virtually, so an object that is
// both (IIOStream) has one IStreamBase and one IBase. Rules shared by all
// streams:
// - Positions and lengths are signed 64-bit byte counts; a stream that
//   cannot know its length reports -1.
// - After close(), reads, writes and end-of-stream queries throw CIOError
//   kind 10 ("Error: stream has been closed.").
// - Every failure is a CError subclass, mostly CIOError with the stream's URI
//   under the property "uri".
//
//   P<IStreamLock> lock = stream->lockRange(0, 512, IStreamBase::LockShared);
//   stream->seek(100);
//   long long where = stream->getPosition();   // 100
//
// A stream is used by one thread at a time unless its class says otherwise.
#ifndef QO_STREAM_ISTREAMBASE_H
#define QO_STREAM_ISTREAMBASE_H

#include "qo/core/Export.h"
#include "qo/core/IBase.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/fs/CURI.h"
#include "qo/stream/IStreamLock.h"

namespace qo {

/// The operations common to input and output streams. Not thread-safe.
class QO_API IStreamBase : public virtual IBase {
public:
  /// How a byte range is locked. The values travel in properties as text
  /// (lockTypeToString) under the key paramLockType().
  enum LockType { LockShared = 0, LockExclusive = 1 };

  ~IStreamBase() override;

  /// The length in bytes; -1 when the stream cannot know it.
  virtual long long getLength() const = 0;
  /// The current byte position.
  virtual long long getPosition() const = 0;
  /// The stream's identity, used in error messages and properties; may be
  /// the empty URI.
  virtual CURI getURI() = 0;
  /// Sets the absolute position. Throws CIOError when the position is not
  /// reachable or the stream is closed.
  virtual void seek(long long position) = 0;
  /// Locks [start, start + length) and returns the lock; dropping its last
  /// reference unlocks the range. Throws CFileSystemError (problem 5) on a
  /// conflict, or a CError when the stream cannot lock at all.
  [[nodiscard]] virtual P<IStreamLock> lockRange(long long start, long long length, LockType type) = 0;
  /// Ends the stream; later operations throw CIOError kind 10.
  virtual void close() = 0;

  /// "shared" or "exclusive"; "" for a value outside the enumeration.
  static String lockTypeToString(LockType type);
  /// The property key under which errors give the lock type: "lockType".
  static String paramLockType();
};

}  // namespace qo

#endif  // QO_STREAM_ISTREAMBASE_H
