#include <gtest/gtest.h>

#include <string>

#include "qo/core/TBuffer.h"
#include "qo/stream/CBufferStream.h"
#include "qo/util/CNullCompressor.h"

using namespace qo;

TEST(CNullCompressor, IsTheIdentityOnBuffersAndStreams) {
  P<ICompressor> c = newP<CNullCompressor>();
  EXPECT_EQ(c->getName(), String(u"null"));
  for (std::string const data : {std::string(), std::string("a"), std::string("\0\x01\xff", 3)}) {
    SCOPED_TRACE(data.size());
    auto packed = c->compress(data.data(), data.size());
    ASSERT_EQ(packed->getSize(), (long long)data.size());
    EXPECT_LE((std::size_t)packed->getSize(), c->getMaxCompressedSize(data.size()));
    auto back = c->decompress(packed->getData(), (std::size_t)packed->getSize());
    EXPECT_EQ(std::string(reinterpret_cast<char const*>(back->getData()), (std::size_t)back->getSize()), data);
  }
  auto bytes = newP<TBuffer<unsigned char>>();
  P<IOutStream> out = c->createCompressingStream(newP<CBufferStream>(bytes.get()));
  out->write("stream", 6);
  out->close();
  P<IInStream> in = c->createDecompressingStream(
      newP<CBufferStream>(static_cast<TBuffer<unsigned char> const*>(bytes.get())));
  char text[6];
  in->read(text, 6);
  EXPECT_EQ(std::string(text, 6), "stream");
  EXPECT_TRUE(in->isEndOfStream());
}
