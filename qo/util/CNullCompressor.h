// qo/util/CNullCompressor.h - the compressor that does not compress.
//
// Its compressed form is the input itself: compress and decompress copy,
// the maximal compressed size is the input size, and the streaming forms
// hand back the target or source stream itself, so data passes with no
// copy and closing the "compressing" stream closes the target, as the
// interface requires. Used where a compressor is required but the data is
// already compressed or must stay readable.
//
//   P<ICompressor> c = newP<CNullCompressor>();
//   P<TBuffer<unsigned char>> same = c->compress(data, n);
//
// Thread-safe (it has no state).
#ifndef QO_UTIL_CNULLCOMPRESSOR_H
#define QO_UTIL_CNULLCOMPRESSOR_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/util/ICompressor.h"

namespace qo {

/// Identity compression. Thread-safe.
class QO_API CNullCompressor : public CBase, public ICompressor {
public:
  CNullCompressor();
  ~CNullCompressor() override;
  CNullCompressor(CNullCompressor const&) = delete;
  CNullCompressor& operator=(CNullCompressor const&) = delete;

  /// "null".
  String getName() const override;
  /// size.
  std::size_t getMaxCompressedSize(std::size_t size) const override;
  /// A copy of the bytes.
  P<TBuffer<unsigned char>> compress(void const* data, std::size_t size) override;
  /// A copy of the bytes; never throws for the data.
  P<TBuffer<unsigned char>> decompress(void const* data, std::size_t size) override;
  /// target itself.
  P<IOutStream> createCompressingStream(P<IOutStream> const& target) override;
  /// source itself.
  P<IInStream> createDecompressingStream(P<IInStream> const& source) override;
};

}  // namespace qo

#endif  // QO_UTIL_CNULLCOMPRESSOR_H
