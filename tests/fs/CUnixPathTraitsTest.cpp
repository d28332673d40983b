#include "qo/fs/CUnixPathTraits.h"

#include <gtest/gtest.h>

#include "qo/core/String.h"

namespace qo {
namespace {

using U = CUnixPathTraits;

TEST(CUnixPathTraitsTest, SeparatorsFlagsAndInvalidChars) {
  EXPECT_EQ(U::getSepChar(), u'/');
  EXPECT_EQ(U::getSep(), String(u"/"));
  EXPECT_EQ(U::getAllSeps(), String(u"/"));
  EXPECT_TRUE(U::isSep(u'/'));
  EXPECT_FALSE(U::isSep(u'\\'));
  EXPECT_TRUE(U::isCaseSensitive());
  EXPECT_FALSE(U::isNativePathType());
  EXPECT_EQ(U::getDefaultFSInvalidComponentChars(), String(u"/") + String(1, u'\0'));
  EXPECT_EQ(U::getDefaultFSInvalidComponentChars().length(), 2u);
}

TEST(CUnixPathTraitsTest, RootAndAbsoluteness) {
  struct Case { char16_t const* text; int root; } const cases[] = {
      {u"/", 1}, {u"/a/b", 1}, {u"//a", 1}, {u"a/b", -1}, {u"", -1}, {u"C:\\x", -1}, {u"\\x", -1}};
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.text));
    int rootEnd = -99;
    EXPECT_EQ(U::getRootLength(c.text, &rootEnd), c.root);
    EXPECT_EQ(rootEnd, c.root);
    EXPECT_EQ(U::isAbsolute(c.text), c.root == 1);
  }
}

TEST(CUnixPathTraitsTest, FindNextComponentUsesOnlySlash) {
  String const text = u"a\\b//c";
  int start = 0, end = 0;
  ASSERT_TRUE(U::findNextComponent(text, 0, start, end));
  EXPECT_EQ(text.Mid(start, end - start), String(u"a\\b"));
  ASSERT_TRUE(U::findNextComponent(text, end, start, end));
  EXPECT_EQ(text.Mid(start, end - start), String(u"c"));
  EXPECT_FALSE(U::findNextComponent(text, end, start, end));
  EXPECT_EQ(start, -1);
  EXPECT_EQ(end, -1);
}

TEST(CUnixPathTraitsTest, NormalisingOperationsChangeNothing) {
  for (char16_t const* in : {u"/A\\b//c/", u"\\\\?\\C:\\x", u"x/./y"}) {
    SCOPED_TRACE(String(in));
    String text = in;
    U::normalizeSeparators(text);
    U::normalizeRoot(text);
    U::normalizeComponent(text);
    U::finalizeNormalizedPath(text);
    EXPECT_EQ(text, String(in));
    EXPECT_FALSE(U::pathNeedsToBeNormalizedToBeValid(text));
  }
}

}  // namespace
}  // namespace qo
