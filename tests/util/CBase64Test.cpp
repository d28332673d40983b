#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

#include "TempFolder.h"
#include "qo/core/CIOError.h"
#include "qo/core/CParseError.h"
#include "qo/core/TBuffer.h"
#include "qo/stream/CBufferStream.h"
#include "qo/util/CBase64.h"
#include "qo/util/CBase64InStream.h"
#include "qo/util/CBase64OutStream.h"

using namespace qo;

namespace {

std::string randomBytes(std::mt19937& rng, std::size_t n) {
  std::string s(n, '\0');
  for (auto& c : s) c = static_cast<char>(rng() & 0xFF);
  return s;
}

std::string bufferText(P<TBuffer<unsigned char>> const& b) {
  return std::string(reinterpret_cast<char const*>(b->getData()), static_cast<std::size_t>(b->getSize()));
}

}  // namespace

TEST(CBase64, Rfc4648VectorsInAllForms) {
  struct Case {
    char const* plain;
    char const* padded;
  } const cases[] = {{"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},         {"foo", "Zm9v"},
                     {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}};
  for (auto const& c : cases) {
    SCOPED_TRACE(c.plain);
    std::string padded = c.padded;
    std::string bare = padded.substr(0, padded.find('='));
    EXPECT_EQ(CBase64::encode(c.plain), padded);
    EXPECT_EQ(CBase64::encode(c.plain, CBase64::kUrlSafe, false), bare);
    EXPECT_EQ(CBase64::decode(padded), c.plain);
    EXPECT_EQ(CBase64::decode(bare, CBase64::kUrlSafe, false), c.plain);
    EXPECT_EQ(CBase64::getEncodedLength(std::strlen(c.plain), true), padded.size());
    EXPECT_EQ(CBase64::getEncodedLength(std::strlen(c.plain), false), bare.size());
  }
  // The two alphabets differ in the last two characters only.
  std::string const high("\xfb\xff\xbf", 3);
  EXPECT_EQ(CBase64::encode(high), "+/+/");
  EXPECT_EQ(CBase64::encode(high, CBase64::kUrlSafe), "-_-_");
}

TEST(CBase64, StrictDecodingNamesTheOffset) {
  struct Case {
    char const* text;
    CBase64::Alphabet alphabet;
    bool pad;
    long long offset;
  } const cases[] = {
      {"Zm9v YmFy", CBase64::kStandard, true, 4},   // white space
      {"Zm9v-_==", CBase64::kStandard, true, 4},    // other alphabet
      {"Zm9v+/==", CBase64::kUrlSafe, true, 4},
      {"Zg=", CBase64::kStandard, true, 3},         // incomplete padding
      {"Zg", CBase64::kStandard, true, 2},          // missing padding
      {"Zg==", CBase64::kStandard, false, 2},       // padding not expected
      {"Z===", CBase64::kStandard, true, 1},        // misplaced
      {"Zg=a", CBase64::kStandard, true, 3},        // data after '='
      {"Zg==Zg==", CBase64::kStandard, true, 4},    // text after the end
      {"Zh==", CBase64::kStandard, true, 1},        // unused bits set
      {"Zm9=", CBase64::kStandard, true, 2},
      {"Zh", CBase64::kUrlSafe, false, 1},
      {"Zm9vY", CBase64::kUrlSafe, false, 5},       // a lone last character
      {"\xc3\xa4", CBase64::kStandard, true, 0},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.text);
    try {
      (void)CBase64::decode(c.text, c.alphabet, c.pad);
      ADD_FAILURE() << "decoded";
    } catch (CParseError const& e) {
      EXPECT_EQ(e.getMessage(), String(u"Invalid Base64 text."));
      EXPECT_EQ(e.getParams().lookupLong(u"offset", -1), c.offset);
      EXPECT_FALSE(e.getParams().lookup(u"reason").isEmpty());
    }
  }
}

TEST(CBase64, RandomDataRoundTripsInPieces) {
  std::mt19937 rng(7);
  for (std::size_t size : {0u, 1u, 2u, 3u, 4u, 5u, 100u, 1001u}) {
    SCOPED_TRACE(size);
    std::string data = randomBytes(rng, size);
    for (auto alphabet : {CBase64::kStandard, CBase64::kUrlSafe}) {
      for (bool pad : {true, false}) {
        std::string whole = CBase64::encode(data, alphabet, pad);
        ASSERT_EQ(CBase64::decode(whole, alphabet, pad), data);
        // The same text when fed in uneven pieces, both ways.
        CBase64::CEncoder enc(alphabet, pad);
        CBase64::CDecoder dec(alphabet, pad);
        std::string text, back;
        for (std::size_t i = 0, step = 1; i < size; i += step, step = step % 5 + 1)
          enc.feed(data.data() + i, std::min(step, size - i), text);
        enc.finish(text);
        ASSERT_EQ(text, whole);
        for (std::size_t i = 0, step = 1; i < text.size(); i += step, step = step % 7 + 1)
          dec.feed(text.data() + i, std::min(step, text.size() - i), back);
        dec.finish(back);
        ASSERT_EQ(back, data);
      }
    }
  }
}

TEST(CBase64, AgreesWithCoreutils) {
#ifdef _WIN32
  GTEST_SKIP() << "coreutils base64 and basenc are Linux programs";
#else
  if (std::system("basenc --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "coreutils basenc not installed";
  test::TempFolder tmp;
  std::mt19937 rng(42);
  std::string const in = tmp.file("in.bin").string();
  std::string const out = tmp.file("out.txt").string();
  struct Tool {
    char const* command;
    CBase64::Alphabet alphabet;
  } const tools[] = {{"base64 -w0", CBase64::kStandard}, {"basenc --base64url -w0", CBase64::kUrlSafe}};
  for (std::size_t size : {1u, 2u, 3u, 57u, 1000u, 4099u}) {
    std::string data = randomBytes(rng, size);
    std::ofstream(in, std::ios::binary) << data;
    for (auto const& tool : tools) {
      SCOPED_TRACE(std::string(tool.command) + " " + std::to_string(size));
      ASSERT_EQ(std::system((std::string(tool.command) + " '" + in + "' > '" + out + "'").c_str()), 0);
      std::stringstream expected;
      expected << std::ifstream(out, std::ios::binary).rdbuf();
      EXPECT_EQ(CBase64::encode(data, tool.alphabet), expected.str());
      EXPECT_EQ(CBase64::decode(expected.str(), tool.alphabet), data);
    }
  }
#endif
}

TEST(CBase64, StreamsRoundTripAndReportBadText) {
  std::mt19937 rng(3);
  std::string data = randomBytes(rng, 10000);
  auto text = newP<TBuffer<unsigned char>>();
  auto b64out = newP<CBase64OutStream>(newP<CBufferStream>(text.get()), CBase64::kUrlSafe, false);
  for (std::size_t i = 0, step = 1; i < data.size(); i += step, step = step * 3 % 1000 + 1)
    b64out->write(data.data() + i, static_cast<int>(std::min(step, data.size() - i)));
  EXPECT_EQ(b64out->getPosition(), 10000);
  b64out->close();
  ASSERT_EQ(bufferText(text), CBase64::encode(data, CBase64::kUrlSafe, false));

  auto b64in = newP<CBase64InStream>(newP<CBufferStream>(static_cast<TBuffer<unsigned char> const*>(text.get())),
                                     CBase64::kUrlSafe, false);
  std::string back(data.size(), '\0');
  b64in->read(&back[0], 5000);
  EXPECT_EQ(b64in->readLax(&back[5000], 6000), 5000);
  EXPECT_EQ(back, data);
  EXPECT_TRUE(b64in->isEndOfStream());
  EXPECT_EQ(b64in->isEndOfStream_NonBlocking(), 1);

  // The bytes before a bad character arrive, then the error with its offset.
  std::string bad = "Zm9vYmFy" + std::string(5000, 'A') + "!AAA";
  auto badBuf = newP<TBuffer<unsigned char>>(reinterpret_cast<unsigned char const*>(bad.data()), (long long)bad.size());
  auto badIn = newP<CBase64InStream>(newP<CBufferStream>(static_cast<TBuffer<unsigned char> const*>(badBuf.get())));
  char six[6];
  badIn->read(six, 6);
  EXPECT_EQ(std::string(six, 6), "foobar");
  std::string rest(10000, '\0');
  long long delivered = 6;
  try {
    while (int got = badIn->readLax(&rest[0], 10000)) delivered += got;
    ADD_FAILURE() << "no error";
  } catch (CIOError const& e) {
    EXPECT_EQ(e.getErrorCode(), CIOError::kCorruptData);
    EXPECT_EQ(e.getParams().lookupLong(u"offset", -1), 5008);
    ASSERT_TRUE(e.getCause());
    EXPECT_NE(dynamic_cast<CParseError const*>(e.getCause().get()), nullptr);
  }
  EXPECT_EQ(delivered, 5008 / 4 * 3);
}
