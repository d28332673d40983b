// qo/stream/CLineReader.h - reads a stream line by line.
//
// Line ends: '\r' or '\n' ends a line; a '\n' that directly follows the
// '\r' that ended the previous line is swallowed, so CR LF is one line end
// while LF CR, CR CR and LF LF each make an empty line between them. The
// terminator is not part of the line. A last line without a terminator is
// delivered too; an empty stream, or one whose last byte ends a line, has no
// further line. A line is decoded as UTF-8, or as Latin-1 when it is not
// valid UTF-8 (so one line of another encoding never stops the read).
// The reader takes bytes from the stream in blocks (what readAvailable
// gives, at least one byte), so the stream's position runs ahead of the
// lines delivered; getLineEndPosition() gives the stream position of the
// current line's end.
//
//   CLineReader lines(in.get());
//   while (lines.nextLine()) handle(lines.getLine());
//
// Not thread-safe.
#ifndef QO_STREAM_CLINEREADER_H
#define QO_STREAM_CLINEREADER_H

#include <string>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/core/TBuffer.h"
#include "qo/stream/IInStream.h"

namespace qo {

/// Splits a stream into lines. Not thread-safe.
class QO_API CLineReader : public CBase {
public:
  /// Reads from in (shared, not null), starting at its current position.
  explicit CLineReader(IInStream* in);
  ~CLineReader() override;
  CLineReader(CLineReader const&) = delete;
  CLineReader& operator=(CLineReader const&) = delete;

  /// Moves to the next line; false at the end of the stream. Throws what
  /// the stream throws.
  bool nextLine();
  /// The current line, without its terminator ("" before the first line).
  String const& getLine() const noexcept { return m_line; }
  /// The stream position just after the current line's last byte, where
  /// its terminator (if any) starts.
  long long getLineEndPosition() const noexcept { return m_lineEndPosition; }
  /// The next byte into c; false at the end of the stream. Line-end rules
  /// do not apply: a byte taken this way is not part of any line. Throws
  /// what the stream throws.
  bool tryReadNextChar(char& c);
  /// True when the last nextLine() call had to read from the stream (as
  /// opposed to finding the whole line among bytes already read).
  bool wasStreamAccessedInLastNextLineCall() const noexcept { return m_streamAccessed; }

private:
  bool fill();

  P<IInStream> m_in;
  P<TBuffer<unsigned char>> m_block;  // bytes read from the stream
  int m_blockPos = 0;                 // next unread byte of m_block
  long long m_blockStartPosition = 0; // stream position of m_block's first byte
  std::string m_bytes;                // the line being collected
  String m_line;
  long long m_lineEndPosition = 0;
  bool m_afterCR = false;             // the previous line ended with '\r', no byte since
  bool m_streamAccessed = false;
};

}  // namespace qo

#endif  // QO_STREAM_CLINEREADER_H
