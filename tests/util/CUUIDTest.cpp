#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <unordered_set>
#include <vector>

#include "qo/core/CParseError.h"
#include "qo/core/CTime.h"
#include "qo/util/CUUID.h"

using namespace qo;

TEST(CUUID, Version4HasItsBitsAndNoRepeats) {
  std::unordered_set<CUUID> seen;
  for (int i = 0; i < 2000; ++i) {
    CUUID id = CUUID::generateV4();
    ASSERT_EQ(id.getVersion(), 4);
    ASSERT_EQ(id.getVariant(), CUUID::kVariantRFC);
    ASSERT_EQ(id.getTimeMillis(), -1);
    ASSERT_TRUE(seen.insert(id).second);
  }
}

TEST(CUUID, Version7IsOrderedAcrossThreadsAndCarriesTheTime) {
  long long before = CTime::now().getMicros() / 1000;
  constexpr int kThreads = 4, kEach = 3000;
  std::vector<std::vector<CUUID>> made(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&made, t] {
      for (int i = 0; i < kEach; ++i) made[t].push_back(CUUID::generateV7());
    });
  }
  for (auto& th : threads) th.join();
  long long after = CTime::now().getMicros() / 1000;
  std::unordered_set<CUUID> all;
  for (auto const& ids : made) {
    for (std::size_t i = 0; i < ids.size(); ++i) {
      ASSERT_EQ(ids[i].getVersion(), 7);
      ASSERT_EQ(ids[i].getVariant(), CUUID::kVariantRFC);
      if (i > 0) ASSERT_LT(ids[i - 1], ids[i]) << i;
      // The time field runs ahead of the clock by at most one millisecond
      // per 2048 ids made in one millisecond.
      ASSERT_GE(ids[i].getTimeMillis(), before);
      ASSERT_LE(ids[i].getTimeMillis(), after + kThreads * kEach / 2048 + 1);
      all.insert(ids[i]);
    }
  }
  EXPECT_EQ(all.size(), std::size_t(kThreads * kEach));
}

TEST(CUUID, ParsesAndFormatsTheUsualForms) {
  CUUID const id(CUUID::Bytes{0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef, 0xf0, 0xe1, 0xd2, 0xc3, 0xb4, 0xa5, 0x96, 0x87});
  EXPECT_EQ(id.toString(), String(u"01234567-89ab-cdef-f0e1-d2c3b4a59687"));
  EXPECT_EQ(id.toString(true, true), String(u"{01234567-89AB-CDEF-F0E1-D2C3B4A59687}"));
  for (char16_t const* text :
       {u"01234567-89ab-cdef-f0e1-d2c3b4a59687", u"{01234567-89AB-CDEF-F0E1-D2C3B4A59687}",
        u"0123456789abcdefF0E1D2C3B4A59687", u"{0123456789abcdeff0e1d2c3b4a59687}",
        u"URN:uuid:01234567-89ab-cdef-f0e1-d2c3b4a59687"}) {
    SCOPED_TRACE(String(text).toUTF8());
    EXPECT_EQ(CUUID::parse(text), id);
  }
  EXPECT_TRUE(CUUID::parse(u"00000000-0000-0000-0000-000000000000").isNil());
}

TEST(CUUID, ParseErrorsNameTheOffset) {
  struct Case {
    char16_t const* text;
    long long offset;
  } const cases[] = {
      {u"", 0},
      {u"01234567-89ab-cdef-f0e1-d2c3b4a5968", 35},     // short
      {u"01234567-89ab-cdef-f0e1-d2c3b4a596877", 36},   // long
      {u"01234567-89abXcdef-f0e1-d2c3b4a59687", 13},    // hyphen missing
      {u"01234567-89ab-cdeg-f0e1-d2c3b4a59687", 17},    // not hex
      {u"{01234567-89ab-cdef-f0e1-d2c3b4a59687", 37},   // no closing brace
      {u"0123456789abcdef-0e1d2c3b4a59687", 16},
      {u"01234567-89ab-cdef-f0e1-d2c3b4a5968\u00e9", 35},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(String(c.text).toUTF8());
    try {
      (void)CUUID::parse(c.text);
      ADD_FAILURE() << "parsed";
    } catch (CParseError const& e) {
      EXPECT_EQ(e.getMessage(), String(u"Invalid UUID text."));
      EXPECT_EQ(e.getParams().lookupLong(u"offset", -1), c.offset);
      EXPECT_EQ(e.getParams().lookup(u"text"), String(c.text));
    }
  }
}

TEST(CUUID, GuidByteOrderAndComparison) {
  // {00112233-4455-6677-8899-AABBCCDDEEFF} as a GUID lies in memory with its
  // first three fields little-endian.
  unsigned char const guid[16] = {0x33, 0x22, 0x11, 0x00, 0x55, 0x44, 0x77, 0x66,
                                  0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
  CUUID id = CUUID::fromGuidBytes(guid);
  EXPECT_EQ(id.toString(true, true), String(u"{00112233-4455-6677-8899-AABBCCDDEEFF}"));
  unsigned char back[16];
  id.toGuidBytes(back);
  EXPECT_EQ(std::memcmp(back, guid, 16), 0);
  CUUID other = CUUID::parse(u"00112233-4455-6677-8899-aabbccddef00");
  EXPECT_EQ(id.compare(other), -1);
  EXPECT_EQ(other.compare(id), 1);
  EXPECT_EQ(id.compare(id), 0);
  EXPECT_EQ(id.getVariant(), CUUID::kVariantRFC);
  EXPECT_EQ(CUUID::parse(u"00000000-0000-0000-c000-000000000000").getVariant(), CUUID::kVariantMicrosoft);
  EXPECT_EQ(std::hash<CUUID>()(id), id.hash());
  EXPECT_NE(id.hash(), other.hash());
}
