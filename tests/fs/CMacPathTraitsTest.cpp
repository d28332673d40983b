#include "qo/fs/CMacPathTraits.h"

#include <gtest/gtest.h>

#include "qo/core/String.h"
#include "qo/fs/CUnixPathTraits.h"
#include "qo/fs/TPathImpl.h"

namespace qo {
namespace {

using M = CMacPathTraits;

TEST(CMacPathTraitsTest, UnixSyntaxButCaseInsensitive) {
  EXPECT_EQ(M::getSepChar(), u'/');
  EXPECT_EQ(&M::getSep(), &CUnixPathTraits::getSep());
  EXPECT_FALSE(M::isSep(u'\\'));
  EXPECT_FALSE(M::isCaseSensitive());
  EXPECT_FALSE(M::isNativePathType());
  EXPECT_EQ(M::getRootLength(u"/x"), 1);
  EXPECT_EQ(TPathImpl<M>(u"/Users/A"), TPathImpl<M>(u"/users/a"));
  EXPECT_NE(TPathImpl<CUnixPathTraits>(u"/Users/A"), TPathImpl<CUnixPathTraits>(u"/users/a"));
  // The API path is the text as it is.
  EXPECT_EQ(M::toAPIPath(u"/Volumes/Disk/name "), String(u"/Volumes/Disk/name "));
  EXPECT_EQ(TPathImpl<M>(u"/a//b ").toAPIPath(), String(u"/a/b "));
}

TEST(CMacPathTraitsTest, InvalidCharsAreSlashColonNul) {
  String const& chars = M::getDefaultFSInvalidComponentChars();
  EXPECT_EQ(chars, String(u"/:") + String(1, u'\0'));
  EXPECT_NE(&chars, &CUnixPathTraits::getDefaultFSInvalidComponentChars());
  EXPECT_EQ(CUnixPathTraits::getDefaultFSInvalidComponentChars().length(), 2u);  // not replaced by the Mac set
}

}  // namespace
}  // namespace qo
