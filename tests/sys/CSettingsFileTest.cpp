// CSettingsFile: the exact escapes, refused escapes, and merging of repeated
// keys and names on reading.
#include <gtest/gtest.h>

#include "qo/core/CFileCorruptedError.h"
#include "qo/sys/CSettingsFile.h"

namespace qo {
namespace {

TEST(CSettingsFile, EscapesExactlyWhatTheFormatNeeds) {
  struct Case {
    String text;
    String escaped;
  } const cases[] = {
      {u"plain text", u"plain text"},
      {u"a=b,c[d]#e", u"a\\x3db\\x2cc\\x5bd\\x5d\\x23e"},
      {u"\\", u"\\\\"},
      {u"\n\t\x7f", u"\\x0a\\x09\\x7f"},
      {u"\u00e9\U0001F600", u"\u00e9\U0001F600"},         // a pair stays as it is
      {String(u"\xD800x\xDC00", 3), u"\\ud800x\\udc00"},  // lone halves are escaped
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.escaped.toUTF8());
    EXPECT_EQ(CSettingsFile::escape(c.text), c.escaped);
    String back;
    ASSERT_TRUE(CSettingsFile::unescape(c.escaped, back));
    EXPECT_EQ(back, c.text);
  }
  for (char16_t const* bad : {u"\\", u"a\\q", u"\\x4", u"\\xg0", u"\\u12", u"\\u12z4"}) {
    SCOPED_TRACE(String(bad).toUTF8());
    String out;
    EXPECT_FALSE(CSettingsFile::unescape(bad, out));
  }
}

TEST(CSettingsFile, RepeatedKeysAndNamesMergeIgnoringCase) {
  CSettingsFile file = CSettingsFile::parse("[A/b]\r\nn=int32:1\n\n# note\n[a/B]\nN=int64:-2\nm=stringList:\n", u"p");
  ASSERT_EQ(file.sections.size(), 1u);
  ASSERT_EQ(file.sections[0].values.size(), 2u);
  EXPECT_EQ(file.sections[0].values[0].second.type, CSystemSettings::TypeInt64);
  EXPECT_EQ(file.sections[0].values[0].second.number, -2);
  EXPECT_TRUE(file.sections[0].values[1].second.list.empty());
  EXPECT_EQ(file.serialize(),
            "# Settings kept by the qo library; one [key] per section, name=type:value.\n"
            "[A/b]\nn=int64:-2\nm=stringList:\n");
  EXPECT_TRUE(file.removeKey(u"a"));
  EXPECT_TRUE(file.sections.empty());
  EXPECT_THROW(CSettingsFile::parse("[k]\nn=int32:1\n\xff\n", u"p"), CFileCorruptedError);
}

}  // namespace
}  // namespace qo
