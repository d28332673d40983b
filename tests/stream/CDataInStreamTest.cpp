#include "qo/stream/CDataInStream.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <tuple>

#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CParseError.h"
#include "qo/core/TBuffer.h"
#include "qo/stream/CBufferStream.h"
#include "qo/stream/CDataOutStream.h"

#include "stream/DataStreamTestSupport.h"
#include "stream/StreamTestSupport.h"

using namespace qo;
using qo::test::Bytes;
using qo::test::bitsOf;
using qo::test::catchError;
using qo::test::hexBytes;

namespace {

/// A data stream over a read-only buffer stream holding bytes.
struct Source {
  explicit Source(Bytes const& bytes, char16_t const* uri = nullptr)
      : buffer(newP<CBufferStream>(static_cast<TBuffer<unsigned char> const*>(
            newP<TBuffer<unsigned char>>(reinterpret_cast<unsigned char const*>(bytes.data()),
                                         static_cast<long long>(bytes.size()))
                .get()))),
        in(buffer.get()) {
    if (uri) buffer->setURI(CURI(uri));
  }
  P<CBufferStream> buffer;
  CDataInStream in;
};

}  // namespace

TEST(CDataInStreamTest, DecodesIntegersLittleEndianAndBools) {
  Source s(hexBytes("FF 80 FE FF 34 12 FE FF FF FF EF BE AD DE FE FF FF FF FF FF FF FF 08 07 06 05 04 03 02 01"));
  EXPECT_EQ(-1, s.in.readInt8());
  EXPECT_EQ(0x80, s.in.readUInt8());
  EXPECT_EQ(-2, s.in.readInt16());
  EXPECT_EQ(0x1234, s.in.readUInt16());
  EXPECT_EQ(-2, s.in.readInt32());
  EXPECT_EQ(0xDEADBEEFu, s.in.readUInt32());
  EXPECT_EQ(-2, s.in.readInt64());
  EXPECT_EQ(0x0102030405060708ull, s.in.readUInt64());
  EXPECT_TRUE(s.in.isEndOfStream());
  Source bools(hexBytes("00 01 7F 80 FF"));  // any non-zero byte is true
  for (bool e : {false, true, true, true, true}) EXPECT_EQ(e, bools.in.readBool());
}

TEST(CDataInStreamTest, DecodesStringRecords) {
  struct Case {
    char const* bytes;
    String text;
  } const cases[] = {
      {"00 00 00 00", String()},
      {"03 00 00 00 61 62 63", u"abc"},
      {"02 00 00 00 C3 A9", u"\u00E9"},
      {"04 00 00 00 F0 9F 98 80", u"\U0001F600"},
      {"03 00 00 00 61 00 62", u"a"},  // text ends at a NUL
      {"01 00 00 00 00", String()},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.bytes);
    Source s(hexBytes(c.bytes));
    EXPECT_EQ(c.text, s.in.readString());
    EXPECT_TRUE(s.in.isEndOfStream());
  }
}

TEST(CDataInStreamTest, LongStringRecordsDecode) {
  for (std::size_t length : {255u, 256u, 257u, 5000u}) {
    for (char const* unit : {"x", "\xC3\xA9"}) {
      SCOPED_TRACE(testing::Message() << length << " " << unit);
      std::string utf8;
      while (utf8.size() < length) utf8 += unit;
      Bytes record(4, '\0');
      record[0] = static_cast<char>(utf8.size() & 0xFF);
      record[1] = static_cast<char>(utf8.size() >> 8);
      Source s(record + utf8);
      EXPECT_EQ(String::fromUTF8(utf8), s.in.readString());
      Source raw(record + utf8);
      std::unique_ptr<char[]> text(raw.in.readUTF8());
      EXPECT_EQ(utf8, std::string(text.get()));
    }
  }
}

TEST(CDataInStreamTest, InvalidUTF8InAStringIsAParseError) {
  for (char const* bytes : {"01 00 00 00 FF", "02 00 00 00 C3 28", "03 00 00 00 ED A0 80"}) {
    SCOPED_TRACE(bytes);
    Source s(hexBytes(bytes));
    EXPECT_THROW(s.in.readString(), CParseError);
  }
}

TEST(CDataInStreamTest, ReadUTF8GivesTheRawBytesNulTerminated) {
  Source s(hexBytes("03 00 00 00 61 FF 63 00 00 00 00"));
  std::unique_ptr<char[]> first(s.in.readUTF8());
  EXPECT_EQ(0, std::memcmp(first.get(), "a\xFF" "c", 4));  // count + 1 bytes, the last 0
  std::unique_ptr<char[]> empty(s.in.readUTF8());
  EXPECT_EQ('\0', empty[0]);
  EXPECT_TRUE(s.in.isEndOfStream());
}

TEST(CDataInStreamTest, NegativeCountIsInvalidDataWithTheURI) {
  using Read = std::function<void(CDataInStream&)>;
  Read const reads[] = {[](CDataInStream& in) { (void)in.readString(); },
                        [](CDataInStream& in) { delete[] in.readUTF8(); }};
  for (char const* count : {"FF FF FF FF", "00 00 00 80"}) {
    for (Read const& read : reads) {
      for (bool withURI : {true, false}) {
        SCOPED_TRACE(testing::Message() << count << (withURI ? " with URI" : " without URI"));
        Source s(hexBytes(count) + "more bytes", withURI ? u"file:///data/record%20a.bin" : nullptr);
        auto e = catchError<CIOError>([&] { read(s.in); });
        ASSERT_TRUE(e);
        EXPECT_TRUE(e->isError(u"IO", CIOError::kCorruptData));
        EXPECT_EQ(String(u"The data is invalid or corrupted."), e->getMessage());
        EXPECT_EQ(withURI ? 1 : 0, e->getParams().getSize());
        if (withURI) {
          EXPECT_EQ(s.buffer->getURI().toString(true), e->getParams().lookup(u"uri"));
          EXPECT_FALSE(e->getParams().lookup(u"uri").isEmpty());
        }
        EXPECT_EQ(4, s.in.getPosition());  // nothing read past the count
      }
    }
  }
}

TEST(CDataInStreamTest, TruncatedValuesRaiseUnexpectedEnd) {
  struct Case {
    char const* name;
    char const* bytes;
    std::function<void(CDataInStream&)> read;
  };
  Case const cases[] = {
      {"Int8", "", [](CDataInStream& in) { (void)in.readInt8(); }},
      {"UInt8", "", [](CDataInStream& in) { (void)in.readUInt8(); }},
      {"Int16", "01", [](CDataInStream& in) { (void)in.readInt16(); }},
      {"UInt16", "01", [](CDataInStream& in) { (void)in.readUInt16(); }},
      {"Int32", "01 02 03", [](CDataInStream& in) { (void)in.readInt32(); }},
      {"UInt32", "", [](CDataInStream& in) { (void)in.readUInt32(); }},
      {"Int64", "01 02 03 04 05 06 07", [](CDataInStream& in) { (void)in.readInt64(); }},
      {"UInt64", "01", [](CDataInStream& in) { (void)in.readUInt64(); }},
      {"Bool", "", [](CDataInStream& in) { (void)in.readBool(); }},
      {"Double", "3F FF 80 00 00 00 00 00 00", [](CDataInStream& in) { (void)in.readDouble(); }},
      {"String count", "03 00 00", [](CDataInStream& in) { (void)in.readString(); }},
      {"String text", "03 00 00 00 61 62", [](CDataInStream& in) { (void)in.readString(); }},
      {"String long text", "00 10 00 00 61 62", [](CDataInStream& in) { (void)in.readString(); }},
      {"String huge count", "FF FF FF 03 61", [](CDataInStream& in) { (void)in.readString(); }},
      {"UTF8 text", "05 00 00 00 61", [](CDataInStream& in) { delete[] in.readUTF8(); }},
      {"operator>>", "01 00", [](CDataInStream& in) { int value = 0; in >> value; }},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    Source s(hexBytes(c.bytes), u"file:///data/short.bin");
    auto e = catchError<CIOError>([&] { c.read(s.in); });
    ASSERT_TRUE(e);
    EXPECT_TRUE(e->isError(u"IO", CIOError::kUnexpectedEOF));
    EXPECT_EQ(String(u"Unexpected end of data."), e->getMessage());
    EXPECT_EQ(s.buffer->getURI().toString(true), e->getParams().lookup(u"uri"));
  }
}

TEST(CDataInStreamTest, EveryTypeRoundTrips) {
  P<CBufferStream> buffer = newP<CBufferStream>();
  CDataOutStream out(buffer.get());
  String const texts[] = {String(), u"abc", u"\u00E9t\u00E9 \u20AC \U0001F600", String(1000, u'\u00FF')};
  double const doubles[] = {0.0, 1.0, -2.0, 0.1, 44100.0, std::numeric_limits<double>::max(),
                            std::numeric_limits<double>::denorm_min(), -std::numeric_limits<double>::infinity()};
  out << 'c' << static_cast<signed char>(-128) << static_cast<unsigned char>(255);
  out << std::numeric_limits<short>::min() << std::numeric_limits<unsigned short>::max();
  out << std::numeric_limits<int>::min() << std::numeric_limits<unsigned>::max();
  out << std::numeric_limits<long long>::min() << std::numeric_limits<unsigned long long>::max() << true << false;
  for (double d : doubles) out << d;
  for (String const& t : texts) out << t;
  out.writeUTF8("raw \xFF");

  CDataInStream in(buffer.get());
  in.seek(0);
  char c = 0;
  signed char sc = 0;
  unsigned char uc = 0;
  short s = 0;
  unsigned short us = 0;
  int i = 0;
  unsigned u = 0;
  long long ll = 0;
  unsigned long long ull = 0;
  bool t = false, f = true;
  EXPECT_EQ(&in, &(in >> c >> sc >> uc >> s >> us >> i >> u >> ll >> ull >> t >> f));
  EXPECT_EQ('c', c);
  EXPECT_EQ(-128, sc);
  EXPECT_EQ(255, uc);
  EXPECT_EQ(std::numeric_limits<short>::min(), s);
  EXPECT_EQ(std::numeric_limits<unsigned short>::max(), us);
  EXPECT_EQ(std::numeric_limits<int>::min(), i);
  EXPECT_EQ(std::numeric_limits<unsigned>::max(), u);
  EXPECT_EQ(std::numeric_limits<long long>::min(), ll);
  EXPECT_EQ(std::numeric_limits<unsigned long long>::max(), ull);
  EXPECT_TRUE(t);
  EXPECT_FALSE(f);
  for (double d : doubles) {
    double back = 1;
    EXPECT_EQ(&in, &in.readDouble(back));
    EXPECT_EQ(bitsOf(d), bitsOf(back));
  }
  for (String const& text : texts) {
    String back;
    EXPECT_EQ(&in, &(in >> back));
    EXPECT_EQ(text, back);
  }
  std::unique_ptr<char[]> raw(in.readUTF8());
  EXPECT_STREQ("raw \xFF", raw.get());
  EXPECT_TRUE(in.isEndOfStream());
}

TEST(CDataInStreamTest, ReferenceReadsChainAndFillTheirArguments) {
  P<CBufferStream> buffer = newP<CBufferStream>();
  CDataOutStream out(buffer.get());
  out.writeInt8(-3).writeUInt8(3).writeInt16(-300).writeUInt16(300).writeInt32(-70000).writeUInt32(70000);
  out.writeInt64(-(1LL << 50)).writeUInt64(1ULL << 63).writeBool(true).writeDouble(-0.5).writeString(u"s");
  CDataInStream in(buffer.get());
  in.seek(0);
  std::int8_t i8 = 0;
  std::uint8_t u8 = 0;
  std::int16_t i16 = 0;
  std::uint16_t u16 = 0;
  std::int32_t i32 = 0;
  std::uint32_t u32 = 0;
  long long i64 = 0;
  unsigned long long u64 = 0;
  bool b = false;
  double d = 0;
  String text;
  EXPECT_EQ(&in, &in.readInt8(i8).readUInt8(u8).readInt16(i16).readUInt16(u16).readInt32(i32).readUInt32(u32)
                      .readInt64(i64).readUInt64(u64).readBool(b).readDouble(d).readString(text));
  EXPECT_EQ(std::make_tuple(int{i8}, int{u8}, int{i16}, int{u16}, i32, u32, i64, u64, b, d, text),
            std::make_tuple(-3, 3, -300, 300, -70000, 70000u, -(1LL << 50), 1ULL << 63, true, -0.5, String(u"s")));
}

TEST(CDataInStreamTest, StreamOperationsReachTheInnerStream) {
  EXPECT_THROW(CDataInStream(nullptr), CInvalidArgError);
  Source s("0123456789", u"file:///tmp/in.bin");
  CDataInStream& in = s.in;
  EXPECT_EQ(s.buffer.get(), in.getInnerStream().get());
  EXPECT_EQ(s.buffer->getURI(), in.getURI());
  EXPECT_EQ(10, in.getLength());
  char chunk[8] = {};
  in.read(chunk, 2);
  EXPECT_EQ(0, std::memcmp(chunk, "01", 2));
  EXPECT_EQ(2, s.buffer->getPosition());
  EXPECT_EQ(3, in.readLax(chunk, 3));
  EXPECT_EQ(0, std::memcmp(chunk, "234", 3));
  in.seek(7);
  EXPECT_EQ(7, in.getPosition());
  EXPECT_TRUE(in.waitReadable(0));
  EXPECT_EQ(0, in.isEndOfStream_NonBlocking());
  EXPECT_FALSE(in.isEndOfStream());
  EXPECT_EQ(3, in.readAvailable(chunk, 8));
  EXPECT_EQ(1, in.isEndOfStream_NonBlocking());
  EXPECT_TRUE(in.isEndOfStream());
  EXPECT_THROW((void)in.lockRange(0, 1, IStreamBase::LockExclusive), CIOError);
  in.close();
  qo::test::ioError([&] { (void)in.readInt8(); }, CIOError::kStreamClosed);
}

// Values copied straight out of a CBufferStream see its current length and
// state, and a closed stream fails as read() fails.
TEST(CDataInStreamTest, InlineReadsFollowTheBufferStreamsState) {
  Source s(hexBytes("01 02 03 04 05 06"), u"file:///data/six.bin");
  EXPECT_EQ(0x0201, s.in.readUInt16());
  s.buffer->seek(4);
  EXPECT_EQ(0x0605, s.in.readUInt16());
  s.buffer->seek(1);
  EXPECT_EQ(0x05040302u, s.in.readUInt32());
  auto e = catchError<CIOError>([&] { (void)s.in.readUInt16(); });  // one byte left
  ASSERT_TRUE(e);
  EXPECT_TRUE(e->isError(u"IO", CIOError::kUnexpectedEOF));
  EXPECT_EQ(6, s.buffer->getPosition());  // the short read consumed it, as read() does
  s.buffer->close();
  e = catchError<CIOError>([&] { (void)s.in.readUInt8(); });
  ASSERT_TRUE(e);
  EXPECT_TRUE(e->isError(u"IO", CIOError::kStreamClosed));
}
