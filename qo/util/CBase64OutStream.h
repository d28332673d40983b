// qo/util/CBase64OutStream.h - an output stream that writes the Base64 text
// of the bytes written to it into another stream.
//
// Complete 3-byte groups go out with each write; the last one or two bytes
// wait for finish() or close(), which write the final group (padded when
// asked). Position and length count the bytes written to this stream, not
// the text. Only forward writing is possible: seek to another position,
// setLength and lockRange throw CIOError kind 14. Write barriers are the
// target's own and are passed on with the text.
//
//   P<CBase64OutStream> b64 = newP<CBase64OutStream>(file, CBase64::kUrlSafe, false);
//   b64->write(data, n);
//   b64->close();   // writes the tail, then closes file
//
// Not thread-safe.
#ifndef QO_UTIL_CBASE64OUTSTREAM_H
#define QO_UTIL_CBASE64OUTSTREAM_H

#include <string>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/stream/IOutStream.h"
#include "qo/util/CBase64.h"

namespace qo {

/// Base64-encoding stream wrapper. Not thread-safe.
class QO_API CBase64OutStream : public CBase, public IOutStream {
public:
  /// Writes into target (not null), which it holds.
  explicit CBase64OutStream(P<IOutStream> const& target, CBase64::Alphabet alphabet = CBase64::kStandard,
                            bool pad = true);
  ~CBase64OutStream() override;  ///< Does not finish: call close() or finish().
  CBase64OutStream(CBase64OutStream const&) = delete;
  CBase64OutStream& operator=(CBase64OutStream const&) = delete;

  /// Writes the last group to the target without closing it; later writes
  /// start a new text. Throws the target's errors, CIOError kind 10 when
  /// closed.
  void finish();

  long long getLength() const override;    ///< Bytes written to this stream.
  long long getPosition() const override;  ///< As getLength().
  CURI getURI() override;                  ///< The target's.
  /// Only the current position; others throw CIOError kind 14.
  void seek(long long position) override;
  /// Throws CIOError kind 14.
  P<IStreamLock> lockRange(long long start, long long length, LockType type) override;
  /// finish(), then closes the target. A second close does nothing.
  void close() override;
  /// Encodes and writes the complete groups. Throws CIOError kind 10 when
  /// closed, CInvalidArgError for a negative size, the target's errors.
  void write(void const* data, int size, IWriteBarrier* barrier = nullptr) override;
  /// As write(); the slice is not kept.
  void writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier = nullptr) override;
  /// The target's barrier.
  P<IWriteBarrier> createWriteBarrier(IWriteBarrier* previous) override;
  /// Flushes the target; bytes of an incomplete group stay held.
  void flush() override;
  /// Throws CIOError kind 14.
  void setLength(long long length) override;

private:
  void checkOpen(char const* place);
  P<IOutStream> m_target;
  CBase64::CEncoder m_encoder;
  std::string m_text;
  long long m_position = 0;
  bool m_closed = false;
};

}  // namespace qo

#endif  // QO_UTIL_CBASE64OUTSTREAM_H
