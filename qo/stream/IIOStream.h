// qo/stream/IIOStream.h - a stream that reads and writes.
//
// The union of IInStream and IOutStream (both inherited virtually, so there
// is one IStreamBase), plus the access modes and open flags with which file
// streams are opened.
//
//   IIOStream::Access access = IIOStream::AccessReadWrite;
//   TFlags<IIOStream::Flags> flags{IIOStream::FlagCreate, IIOStream::FlagShareRead};
#ifndef QO_STREAM_IIOSTREAM_H
#define QO_STREAM_IIOSTREAM_H

#include "qo/core/Export.h"
#include "qo/core/String.h"
#include "qo/core/TFlags.h"
#include "qo/stream/IInStream.h"
#include "qo/stream/IOutStream.h"

namespace qo {

/// An input and output stream. Not thread-safe.
class QO_API IIOStream : public virtual IInStream, public virtual IOutStream {
public:
  /// How a stream is opened. Only AccessReadOnly forbids writing.
  enum Access {
    AccessReadOnly = 1,
    AccessWriteOnly = 2,
    AccessReadWrite = 3,
    AccessAppend = 4,  ///< Write access; every write goes to the end.
  };
  /// Open flags, held in a TFlags<Flags> set (each value is a bit index).
  enum Flags {
    FlagCreate = 0,         ///< Create the file when it does not exist.
    FlagTruncate = 1,       ///< Cut an existing file to length 0.
    FlagFailIfExists = 2,   ///< Refuse to open an existing file.
    FlagShareRead = 3,      ///< Others may read meanwhile.
    FlagShareWrite = 4,     ///< Others may write meanwhile.
    FlagShareDelete = 5,    ///< Others may delete or rename meanwhile.
    FlagNoBuffering = 6,    ///< Unbuffered device access (alignment applies).
    FlagWriteThrough = 7,   ///< Writes reach the medium before returning.
    FlagSequential = 8,     ///< Hint: mostly sequential access.
    FlagRandomAccess = 9,   ///< Hint: mostly random access.
    FlagDeleteOnClose = 10, ///< The file goes away when closed.
    FlagLockFile = 11,      ///< Guard the file with a lock file.
  };

  ~IIOStream() override;

  /// The property key under which an error states that a lock conflict
  /// caused it: "lockConflict".
  static String errParamLockConflict();
};

}  // namespace qo

#endif  // QO_STREAM_IIOSTREAM_H
