#include "qo/stream/CDataOutStream.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CUnencodableStringError.h"
#include "qo/core/TBuffer.h"
#include "qo/stream/CBufferStream.h"

#include "stream/DataStreamTestSupport.h"
#include "stream/StreamTestSupport.h"

using namespace qo;
using qo::test::Bytes;
using qo::test::hexBytes;
using qo::test::ioError;

namespace {

/// A data stream over a fresh buffer stream.
struct Sink {
  P<CBufferStream> buffer = newP<CBufferStream>();
  CDataOutStream out{buffer.get()};

  Bytes bytes() const {
    PC<TBuffer<unsigned char>> data = buffer->getBuffer();
    return Bytes(reinterpret_cast<char const*>(data->getData()), static_cast<std::size_t>(data->getSize()));
  }
};

/// Records every call that reaches it, to see what the data stream hands on.
class CRecordingOutStream : public CBase, public IOutStream {
public:
  struct Write {
    int size;
    IWriteBarrier* barrier;
  };
  std::vector<Write> writes;
  Bytes data;

  void write(void const* bytes, int size, IWriteBarrier* barrier) override {
    writes.push_back({size, barrier});
    data.append(static_cast<char const*>(bytes), static_cast<std::size_t>(size));
  }
  void writeKeepBuffer(TConstBufferSlice<unsigned char> const&, IWriteBarrier*) override {}
  P<IWriteBarrier> createWriteBarrier(IWriteBarrier*) override { return nil; }
  void flush() override {}
  void setLength(long long) override {}
  long long getLength() const override { return static_cast<long long>(data.size()); }
  long long getPosition() const override { return static_cast<long long>(data.size()); }
  CURI getURI() override { return CURI(); }
  void seek(long long) override {}
  P<IStreamLock> lockRange(long long, long long, LockType) override { return nil; }
  void close() override {}
};

struct WireCase {
  char const* name;
  std::function<void(CDataOutStream&)> write;
  char const* bytes;
};

}  // namespace

TEST(CDataOutStreamTest, WritesTheWireFormatOfEveryType) {
  WireCase const cases[] = {
      {"writeInt8(-1)", [](CDataOutStream& o) { o.writeInt8(-1); }, "FF"},
      {"writeInt8(0x7F)", [](CDataOutStream& o) { o.writeInt8(0x7F); }, "7F"},
      {"writeUInt8(0xAB)", [](CDataOutStream& o) { o.writeUInt8(0xAB); }, "AB"},
      {"writeInt16(-2)", [](CDataOutStream& o) { o.writeInt16(-2); }, "FE FF"},
      {"writeUInt16(0x1234)", [](CDataOutStream& o) { o.writeUInt16(0x1234); }, "34 12"},
      {"writeInt32(1)", [](CDataOutStream& o) { o.writeInt32(1); }, "01 00 00 00"},
      {"writeInt32(min)", [](CDataOutStream& o) { o.writeInt32(std::numeric_limits<std::int32_t>::min()); },
       "00 00 00 80"},
      {"writeInt32(-2)", [](CDataOutStream& o) { o.writeInt32(-2); }, "FE FF FF FF"},
      {"writeUInt32", [](CDataOutStream& o) { o.writeUInt32(0xDEADBEEFu); }, "EF BE AD DE"},
      {"writeInt64(1)", [](CDataOutStream& o) { o.writeInt64(1); }, "01 00 00 00 00 00 00 00"},
      {"writeInt64(-2)", [](CDataOutStream& o) { o.writeInt64(-2); }, "FE FF FF FF FF FF FF FF"},
      {"writeInt64(min)", [](CDataOutStream& o) { o.writeInt64(std::numeric_limits<long long>::min()); },
       "00 00 00 00 00 00 00 80"},
      {"writeUInt64", [](CDataOutStream& o) { o.writeUInt64(0x0102030405060708ull); }, "08 07 06 05 04 03 02 01"},
      {"writeBool(true)", [](CDataOutStream& o) { o.writeBool(true); }, "01"},
      {"writeBool(false)", [](CDataOutStream& o) { o.writeBool(false); }, "00"},
      {"writeDouble(1.0)", [](CDataOutStream& o) { o.writeDouble(1.0); }, "3F FF 80 00 00 00 00 00 00 00"},
      {"writeDouble(-2.0)", [](CDataOutStream& o) { o.writeDouble(-2.0); }, "C0 00 80 00 00 00 00 00 00 00"},
      {"writeDouble(0.0)", [](CDataOutStream& o) { o.writeDouble(0.0); }, "00 00 00 00 00 00 00 00 00 00"},
      {"writeDouble(44100.0)", [](CDataOutStream& o) { o.writeDouble(44100.0); }, "40 0E AC 44 00 00 00 00 00 00"},
      {"writeString empty", [](CDataOutStream& o) { o.writeString(String()); }, "00 00 00 00"},
      {"writeString abc", [](CDataOutStream& o) { o.writeString(u"abc"); }, "03 00 00 00 61 62 63"},
      {"writeString U+00E9", [](CDataOutStream& o) { o.writeString(u"\u00E9"); }, "02 00 00 00 C3 A9"},
      {"writeString U+1F600", [](CDataOutStream& o) { o.writeString(u"\U0001F600"); }, "04 00 00 00 F0 9F 98 80"},
      {"writeString cut at NUL", [](CDataOutStream& o) { o.writeString(String(u"a\0b\u00E9", 4)); }, "01 00 00 00 61"},
      {"writeString leading NUL", [](CDataOutStream& o) { o.writeString(String(u"\0b", 2)); }, "00 00 00 00"},
      {"writeUTF8(char const*)", [](CDataOutStream& o) { o.writeUTF8("ab"); }, "02 00 00 00 61 62"},
      {"writeUTF8 unchecked", [](CDataOutStream& o) { o.writeUTF8("\xFF\xC3"); }, "02 00 00 00 FF C3"},
      {"writeUTF8(null)", [](CDataOutStream& o) { o.writeUTF8(static_cast<char const*>(nullptr)); }, "00 00 00 00"},
      {"writeUTF8(std::string) cut", [](CDataOutStream& o) { o.writeUTF8(std::string("ab\0c", 4)); },
       "02 00 00 00 61 62"},
      {"<< char", [](CDataOutStream& o) { o << 'A'; }, "41"},
      {"<< signed char", [](CDataOutStream& o) { o << static_cast<signed char>(-1); }, "FF"},
      {"<< unsigned char", [](CDataOutStream& o) { o << static_cast<unsigned char>(200); }, "C8"},
      {"<< short", [](CDataOutStream& o) { o << static_cast<short>(-2); }, "FE FF"},
      {"<< unsigned short", [](CDataOutStream& o) { o << static_cast<unsigned short>(0xFFFE); }, "FE FF"},
      {"<< int", [](CDataOutStream& o) { o << 258; }, "02 01 00 00"},
      {"<< unsigned", [](CDataOutStream& o) { o << 0x80000000u; }, "00 00 00 80"},
      {"<< long long", [](CDataOutStream& o) { o << -1LL; }, "FF FF FF FF FF FF FF FF"},
      {"<< unsigned long long", [](CDataOutStream& o) { o << 0x100ULL; }, "00 01 00 00 00 00 00 00"},
      {"<< bool", [](CDataOutStream& o) { o << true; }, "01"},
      {"<< double", [](CDataOutStream& o) { o << 1.0; }, "3F FF 80 00 00 00 00 00 00 00"},
      {"<< float", [](CDataOutStream& o) { o << 0.5f; }, "3F FE 80 00 00 00 00 00 00 00"},
      {"<< String", [](CDataOutStream& o) { o << String(u"x"); }, "01 00 00 00 78"},
      {"<< char const* UTF-8", [](CDataOutStream& o) { o << "\xC3\xA9"; }, "02 00 00 00 C3 A9"},
      {"<< char const* Latin-1", [](CDataOutStream& o) { o << "\xE9!"; }, "03 00 00 00 C3 A9 21"},
      {"<< char const* null", [](CDataOutStream& o) { o << static_cast<char const*>(nullptr); }, "00 00 00 00"},
      {"<< wchar_t const*", [](CDataOutStream& o) { o << L"\u00E9x"; }, "03 00 00 00 C3 A9 78"},
      {"<< wchar_t const* astral", [](CDataOutStream& o) { o << L"\U0001F600"; }, "04 00 00 00 F0 9F 98 80"},
      {"<< wchar_t const* null", [](CDataOutStream& o) { o << static_cast<wchar_t const*>(nullptr); },
       "00 00 00 00"},
      {"<< char16_t const*", [](CDataOutStream& o) { o << u"ab"; }, "02 00 00 00 61 62"},
  };
  for (WireCase const& c : cases) {
    SCOPED_TRACE(c.name);
    Sink sink;
    c.write(sink.out);
    EXPECT_EQ(hexBytes(c.bytes), sink.bytes());
  }
}

TEST(CDataOutStreamTest, LongStringsKeepTheSameRecord) {
  // Lengths around the point where count and text stop sharing one write.
  for (std::size_t length : {251u, 252u, 253u, 256u, 300u, 70000u}) {
    for (char16_t unit : {u'q', u'\u00E9', u'\u20AC'}) {
      SCOPED_TRACE(testing::Message() << length << " x U+" << std::hex << static_cast<int>(unit));
      String const text(length, unit);
      std::string const utf8 = text.toUTF8();
      Bytes expected(4, '\0');
      for (int i = 0; i < 3; ++i) expected[i] = static_cast<char>((utf8.size() >> (8 * i)) & 0xFF);
      expected += utf8;
      Sink viaString, viaUTF8;
      viaString.out.writeString(text);
      viaUTF8.out.writeUTF8(utf8);
      EXPECT_EQ(expected, viaString.bytes());
      EXPECT_EQ(expected, viaUTF8.bytes());
    }
  }
}

TEST(CDataOutStreamTest, ValuesGoOutWithoutWriteBarrier) {
  P<CRecordingOutStream> recorder = newP<CRecordingOutStream>();
  CDataOutStream out(recorder.get());
  out.writeInt32(7).writeDouble(2.5).writeString(u"text").writeString(String(400, u'z')).writeBool(true);
  ASSERT_FALSE(recorder->writes.empty());
  for (CRecordingOutStream::Write const& w : recorder->writes) EXPECT_EQ(nullptr, w.barrier);
  EXPECT_EQ(4u + 10u + 8u + 404u + 1u, recorder->data.size());
}

TEST(CDataOutStreamTest, EveryOperationChains) {
  Sink sink;
  CDataOutStream& out = sink.out;
  EXPECT_EQ(&out, &(out << 'a' << static_cast<short>(1) << 2 << 3LL << true << 1.0 << String(u"s") << "n" << L"w"));
  EXPECT_EQ(&out, &out.writeInt8(1).writeUInt8(1).writeInt16(1).writeUInt16(1).writeInt32(1).writeUInt32(1));
  EXPECT_EQ(&out, &out.writeInt64(1).writeUInt64(1).writeBool(false).writeDouble(0).writeString(u"").writeUTF8("x"));
  EXPECT_EQ(&out, &out.patchInt8(0, 1).patchUInt8(0, 1).patchInt16(0, 1).patchUInt16(0, 1).patchInt32(0, 1));
  EXPECT_EQ(&out, &out.patchUInt32(0, 1).patchInt64(0, 1).patchUInt64(0, 1).patchBool(0, true).patchDouble(0, 1));
  EXPECT_EQ(&out, &out.patchString(0, u"ab"));
}

TEST(CDataOutStreamTest, PatchFillsInAPlaceholderAndReturnsToTheEnd) {
  Sink sink;
  long long const countPos = sink.out.getPosition();
  sink.out.writeInt32(0).writeString(u"payload");
  long long const end = sink.out.getPosition();
  sink.out.patchInt32(countPos, 42);
  EXPECT_EQ(end, sink.out.getPosition());
  EXPECT_EQ(hexBytes("2A 00 00 00 07 00 00 00") + "payload", sink.bytes());
  sink.out.writeUInt8(0xEE);  // continues at the end
  EXPECT_EQ(hexBytes("2A 00 00 00 07 00 00 00") + "payload" + hexBytes("EE"), sink.bytes());
}

namespace {
struct PatchCase {
  char const* name;
  std::function<void(CDataOutStream&)> write;
  std::function<void(CDataOutStream&, long long)> patch;
};

template <class V, class A>
PatchCase patchCase(char const* name, CDataOutStream& (CDataOutStream::*write)(V),
                    CDataOutStream& (CDataOutStream::*patch)(long long, V), A value) {
  std::decay_t<V> const v(value);
  return {name, [=](CDataOutStream& o) { (o.*write)(v); }, [=](CDataOutStream& o, long long p) { (o.*patch)(p, v); }};
}
}  // namespace

TEST(CDataOutStreamTest, EachPatchWritesWhatItsWriteWrites) {
  using O = CDataOutStream;
  PatchCase const cases[] = {
      patchCase("Int8", &O::writeInt8, &O::patchInt8, -5),
      patchCase("UInt8", &O::writeUInt8, &O::patchUInt8, 250),
      patchCase("Int16", &O::writeInt16, &O::patchInt16, -300),
      patchCase("UInt16", &O::writeUInt16, &O::patchUInt16, 65000),
      patchCase("Int32", &O::writeInt32, &O::patchInt32, -70000),
      patchCase("UInt32", &O::writeUInt32, &O::patchUInt32, 4000000000u),
      patchCase("Int64", &O::writeInt64, &O::patchInt64, -(1LL << 40)),
      patchCase("UInt64", &O::writeUInt64, &O::patchUInt64, ~0ULL - 1),
      patchCase("Bool", &O::writeBool, &O::patchBool, true),
      patchCase("Double", &O::writeDouble, &O::patchDouble, -44100.25),
      patchCase("String", &O::writeString, &O::patchString, u"\u00E9t\u00E9"),
  };
  for (PatchCase const& c : cases) {
    SCOPED_TRACE(c.name);
    Sink expected;
    expected.out.writeUInt8(0x11);
    c.write(expected.out);
    expected.out.writeUInt8(0x22);
    // The same layout with zero bytes where the value goes, patched later.
    Sink patched;
    patched.out.writeUInt8(0x11);
    long long const at = patched.out.getPosition();
    Bytes const zeros(expected.bytes().size() - 2, '\0');
    patched.out.write(zeros.data(), static_cast<int>(zeros.size()));
    patched.out.writeUInt8(0x22);
    c.patch(patched.out, at);
    EXPECT_EQ(expected.bytes(), patched.bytes());
    EXPECT_EQ(patched.out.getLength(), patched.out.getPosition());
  }
}

TEST(CDataOutStreamTest, FailedPatchLeavesThePosition) {
  P<TBuffer<unsigned char>> bytes = newP<TBuffer<unsigned char>>(10);
  P<CBufferStream> readOnly = newP<CBufferStream>(static_cast<TBuffer<unsigned char> const*>(bytes.get()));
  readOnly->seek(8);
  CDataOutStream out(readOnly.get());
  ioError([&] { out.patchInt32(2, 5); }, CIOError::kWriteFailed);
  EXPECT_EQ(2, out.getPosition());  // a failed write stays at the patch position
  Sink sink;
  sink.out.writeInt32(1);
  EXPECT_THROW(sink.out.patchInt32(100, 5), CIOError);  // a failed seek does not move
  EXPECT_EQ(4, sink.out.getPosition());
  EXPECT_EQ(hexBytes("01 00 00 00"), sink.bytes());
}

TEST(CDataOutStreamTest, LoneSurrogateThrowsAndWritesNothing) {
  String const cases[] = {String(u"\xD800", 1), String(u"ab\xDC00", 3), String(u"a\0\xD800", 3)};
  for (String const& text : cases) {
    SCOPED_TRACE(text.length());
    Sink sink;
    EXPECT_THROW(sink.out.writeString(text), CUnencodableStringError);
    EXPECT_EQ(0, sink.out.getLength());
  }
}

TEST(CDataOutStreamTest, StreamOperationsReachTheInnerStream) {
  EXPECT_THROW(CDataOutStream(nullptr), CInvalidArgError);
  P<CBufferStream> inner = newP<CBufferStream>();
  inner->setURI(CURI(u"file:///tmp/record.bin"));
  P<CDataOutStream> out = newP<CDataOutStream>(inner.get());
  EXPECT_EQ(inner.get(), out->getInnerStream().get());
  EXPECT_EQ(inner->getURI(), out->getURI());

  out->write("abcdef", 6);
  EXPECT_EQ(6, inner->getPosition());
  out->seek(2);
  EXPECT_EQ(2, inner->getPosition());
  EXPECT_EQ(2, out->getPosition());
  out->writeKeepBuffer(TConstBufferSlice<unsigned char>(newP<TBuffer<unsigned char>>(
                           reinterpret_cast<unsigned char const*>("XY"), 2)));
  EXPECT_EQ("abXYef", inner->getDataAsString().toUTF8());
  out->setLength(3);
  EXPECT_EQ(3, inner->getLength());
  EXPECT_EQ(3, out->getLength());
  EXPECT_NE(nullptr, out->createWriteBarrier(nullptr).get());
  out->flush();
  ioError([&] { (void)out->lockRange(0, 1, IStreamBase::LockShared); }, CIOError::kUnsupported);
  out->close();
  ioError([&] { out->writeInt32(1); }, CIOError::kStreamClosed);
}

// Values stored straight into a CBufferStream follow what others did to the
// stream and its shared buffer since, and fail as write() fails.
TEST(CDataOutStreamTest, InlineWritesFollowTheBufferStreamsState) {
  struct Case {
    char const* name;
    std::function<void(Sink&)> act;
    char const* bytes;  // after writeInt32(0x04030201), act, writeInt16(0x0605)
  };
  Case const cases[] = {
      {"nothing", [](Sink&) {}, "01 02 03 04 05 06"},
      {"stream seek", [](Sink& s) { s.buffer->seek(1); }, "01 05 06 04"},
      {"buffer cut", [](Sink& s) { s.buffer->getBuffer()->setSize(2); s.buffer->seek(2); }, "01 02 05 06"},
      {"buffer cleared", [](Sink& s) { s.buffer->getBuffer()->clear(); s.buffer->seek(0); }, "05 06"},
      {"buffer tight", [](Sink& s) { s.buffer->getBuffer()->shrinkToFit(); }, "01 02 03 04 05 06"},
      {"direct write", [](Sink& s) { s.buffer->write("X", 1); }, "01 02 03 04 58 05 06"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    Sink s;
    s.out.writeInt32(0x04030201);
    c.act(s);
    s.out.writeInt16(0x0605);
    EXPECT_EQ(hexBytes(c.bytes), s.bytes());
    EXPECT_EQ(s.buffer->getPosition(), s.out.getPosition());
  }
  Sink closed;
  closed.buffer->close();
  ioError([&] { closed.out.writeInt32(1); }, CIOError::kStreamClosed);
  P<TBuffer<unsigned char>> bytes = newP<TBuffer<unsigned char>>();
  bytes->reserve(16);
  P<CBufferStream> readOnly = newP<CBufferStream>(static_cast<TBuffer<unsigned char> const*>(bytes.get()));
  CDataOutStream out(readOnly.get());
  ioError([&] { out.writeInt64(1); }, CIOError::kWriteFailed);
  EXPECT_EQ(0, bytes->getSize());
}
