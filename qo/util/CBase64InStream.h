// qo/util/CBase64InStream.h - an input stream that reads Base64 text from
// another stream and delivers the decoded bytes.
//
// Decoding is as strict as CBase64::decode: a bad character or a text that
// ends too early throws CIOError kind 5 ("The data is invalid or
// corrupted.") with "offset" (in the text) and "reason" properties and the
// CParseError as its cause; bytes decoded before the fault are delivered
// first. Position counts decoded bytes; the length is unknown (-1). Only
// forward reading: seek to another position and lockRange throw CIOError
// kind 14.
//
//   P<CBase64InStream> in = newP<CBase64InStream>(textStream);
//   while (int got = in->readLax(buf, sizeof buf)) use(buf, got);
//
// Not thread-safe.
#ifndef QO_UTIL_CBASE64INSTREAM_H
#define QO_UTIL_CBASE64INSTREAM_H

#include <string>

#include "qo/core/CBase.h"
#include "qo/core/CError.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/stream/IInStream.h"
#include "qo/util/CBase64.h"

namespace qo {

/// Base64-decoding stream wrapper. Not thread-safe.
class QO_API CBase64InStream : public CBase, public IInStream {
public:
  /// Reads text from source (not null), which it holds.
  explicit CBase64InStream(P<IInStream> const& source, CBase64::Alphabet alphabet = CBase64::kStandard,
                           bool pad = true);
  ~CBase64InStream() override;
  CBase64InStream(CBase64InStream const&) = delete;
  CBase64InStream& operator=(CBase64InStream const&) = delete;

  long long getLength() const override;    ///< -1.
  long long getPosition() const override;  ///< Decoded bytes delivered.
  CURI getURI() override;                  ///< The source's.
  /// Only the current position; others throw CIOError kind 14.
  void seek(long long position) override;
  /// Throws CIOError kind 14.
  P<IStreamLock> lockRange(long long start, long long length, LockType type) override;
  /// Closes the source. A second close does nothing.
  void close() override;
  /// Throws CIOError kind 4 at the end, 5 for bad text, 10 when closed.
  void read(void* buffer, int size) override;
  /// Throws CIOError kind 5 for bad text, 10 when closed.
  int readLax(void* buffer, int size) override;
  /// What the source has without blocking, decoded. Throws as readLax.
  int readAvailable(void* buffer, int size) override;
  /// True at once when decoded bytes wait or the source ended; else the
  /// source's answer.
  bool waitReadable(int timeoutMs) const override;
  /// Throws CIOError kind 5 for bad text, 10 when closed.
  bool isEndOfStream() const override;
  /// -1 until the source is at its end (text may decode to nothing).
  /// Throws as isEndOfStream.
  int isEndOfStream_NonBlocking() const override;

private:
  // Reads one chunk of text from the source and decodes it; false when
  // nothing more came (the source ended or, not blocking, had nothing).
  bool fill(bool blocking) const;
  int take(void* buffer, int size) const;
  void checkOpen(char const* place) const;
  P<IInStream> m_source;
  mutable CBase64::CDecoder m_decoder;
  mutable std::string m_pending;       // decoded, not yet delivered
  mutable std::size_t m_pendingStart = 0;
  mutable long long m_position = 0;
  mutable bool m_sourceEnded = false;
  mutable P<CError> m_fault;           // thrown once the bytes before it are delivered
  bool m_closed = false;
};

}  // namespace qo

#endif  // QO_UTIL_CBASE64INSTREAM_H
