#include "qo/util/CNullCompressor.h"

#include <cassert>

namespace qo {

CNullCompressor::CNullCompressor() = default;
CNullCompressor::~CNullCompressor() = default;

String CNullCompressor::getName() const { return u"null"; }

std::size_t CNullCompressor::getMaxCompressedSize(std::size_t size) const { return size; }

P<TBuffer<unsigned char>> CNullCompressor::compress(void const* data, std::size_t size) {
  return newP<TBuffer<unsigned char>>(static_cast<unsigned char const*>(data), static_cast<long long>(size));
}

P<TBuffer<unsigned char>> CNullCompressor::decompress(void const* data, std::size_t size) {
  return compress(data, size);
}

P<IOutStream> CNullCompressor::createCompressingStream(P<IOutStream> const& target) {
  assert(target);
  return target;
}

P<IInStream> CNullCompressor::createDecompressingStream(P<IInStream> const& source) {
  assert(source);
  return source;
}

}  // namespace qo
