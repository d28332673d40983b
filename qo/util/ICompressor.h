// qo/util/ICompressor.h - what every compression method offers.
//
// A compressor works on whole buffers and on streams. The streaming forms
// wrap a stream: bytes written to the compressing stream arrive compressed
// in the target, and its close() writes the end of the compressed data and
// then closes the target; the decompressing stream reads compressed bytes
// from its source and delivers the original ones. Damaged compressed data
// throws CIOError kind 5 ("The data is invalid or corrupted."). The library
// itself ships only CNullCompressor (identity); real methods implement the
// same interface in the modules that bring their code.
//
//   P<ICompressor> c = newP<CNullCompressor>();
//   P<IOutStream> out = c->createCompressingStream(file);
//   out->write(data, n);
//   out->close();
//
// Implementations say whether they are thread-safe.
#ifndef QO_UTIL_ICOMPRESSOR_H
#define QO_UTIL_ICOMPRESSOR_H

#include <cstddef>

#include "qo/core/Export.h"
#include "qo/core/IBase.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/core/TBuffer.h"
#include "qo/stream/IInStream.h"
#include "qo/stream/IOutStream.h"

namespace qo {

/// A compression method.
class QO_API ICompressor : public virtual IBase {
public:
  ~ICompressor() override;
  /// The method's short name, e.g. "null".
  virtual String getName() const = 0;
  /// The largest compressed size of size input bytes.
  virtual std::size_t getMaxCompressedSize(std::size_t size) const = 0;
  /// The compressed form of size bytes at data (data may be null when size
  /// is 0).
  virtual P<TBuffer<unsigned char>> compress(void const* data, std::size_t size) = 0;
  /// The original bytes of compressed data. Throws CIOError kind 5 for
  /// damaged data.
  virtual P<TBuffer<unsigned char>> decompress(void const* data, std::size_t size) = 0;
  /// A stream that writes the compressed form of its bytes into target (not
  /// null); closing it finishes the data and closes target.
  virtual P<IOutStream> createCompressingStream(P<IOutStream> const& target) = 0;
  /// A stream that reads compressed bytes from source (not null) and
  /// delivers the original ones.
  virtual P<IInStream> createDecompressingStream(P<IInStream> const& source) = 0;
};

}  // namespace qo

#endif  // QO_UTIL_ICOMPRESSOR_H
