#include "qo/fs/TPathImpl.h"

#include <gtest/gtest.h>

#include <random>
#include <unordered_set>

#include "qo/core/CBadPathError.h"
#include "qo/core/CBadStateError.h"
#include "qo/core/CError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/String.h"
#include "qo/fs/CMacPathTraits.h"
#include "qo/fs/CUnixPathTraits.h"
#include "qo/fs/CWindowsPathTraits.h"

namespace qo {
namespace {

using WinPath = TPathImpl<CWindowsPathTraits>;
using UnixPath = TPathImpl<CUnixPathTraits>;
using MacPath = TPathImpl<CMacPathTraits>;

String repeat(char16_t c, std::size_t count) { return String(count, c); }

struct NormCase { String in; String out; };

TEST(TPathImplTest, WindowsNormalForm) {
  NormCase const cases[] = {
      {u"", u""}, {u"C:\\", u"C:\\"}, {u"c:/x/y", u"c:\\x\\y"}, {u"C:\\a\\\\\\b\\", u"C:\\a\\b"},
      {u"C:\\a\\.\\b\\..\\c", u"C:\\a\\c"}, {u"C:\\..\\..\\x", u"C:\\x"}, {u"C:\\a\\..", u"C:\\"},
      {u"\\\\Server\\Share\\Dir", u"\\\\server\\Share\\Dir"}, {u"//Server/Share/x/", u"\\\\server\\Share\\x"},
      {u"\\\\server\\share\\..\\..", u"\\\\server\\share"}, {u"\\\\server\\share\\", u"\\\\server\\share"},
      {u"\\\\?\\C:\\x\\..\\y", u"C:\\y"}, {u"\\\\.\\C:\\x", u"C:\\x"}, {u"\\??\\C:\\x", u"C:\\x"},
      {u"\\\\?\\UNC\\Srv\\Share\\x", u"\\\\srv\\Share\\x"}, {u"\\??\\UNC\\Srv\\Share\\x", u"\\\\srv\\Share\\x"},
      {u"\\\\?\\Volume{ABC-1}\\Dir", u"\\\\?\\volume{abc-1}\\dir"},
      {u"\\\\?\\Volume{ABC-1}\\", u"\\\\?\\volume{abc-1}\\"}, {u"\\\\?\\Volume{ABC-1}", u"\\\\?\\volume{abc-1}"},
      {u"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy3\\Windows\\..\\Users",
       u"\\\\?\\globalroot\\device\\harddiskvolumeshadowcopy3\\users"},
      {u"\\\\.\\PhysicalDrive0", u"\\\\.\\physicaldrive0"}, {u"a\\\\\\b", u"a\\b"},
      {u"a/./b/../../..", u".."}, {u"..\\..\\a", u"..\\..\\a"}, {u".", u"."}, {u".\\", u"."}, {u"a\\..", u"."},
      {u"\\x\\..\\y", u"\\y"}, {u"\\", u"\\"}, {u"C:\\a\tb", u"C:\\a\tb"}, {u"C:\\name. \\x ", u"C:\\name. \\x "},
      {u"C:\\...\\x", u"C:\\...\\x"},
  };
  for (NormCase const& c : cases) {
    SCOPED_TRACE(c.in);
    EXPECT_EQ(WinPath(c.in).toString(), c.out);
  }
}

TEST(TPathImplTest, UnixNormalFormKeepsDotDot) {
  NormCase const cases[] = {
      {u"/", u"/"},        {u"//a//b/", u"/a/b"},   {u"/a/./b", u"/a/b"},   {u"/a/../b", u"/a/../b"},
      {u"./a", u"a"},      {u".", u"."},            {u"a\\b", u"a\\b"},     {u"C:", u"C:"},
      {u"../..", u"../.."}, {u"/A/B", u"/A/B"},
  };
  for (NormCase const& c : cases) {
    SCOPED_TRACE(c.in);
    EXPECT_EQ(UnixPath(c.in).toString(), c.out);
  }
}

TEST(TPathImplTest, DriveWithoutSeparatorIsRefused) {
  for (char16_t const* text : {u"C:", u"C:x", u"z:dir\\file", u"\\\\?\\C:x", u"\\\\", u"//", u"/??x", u"\\\\.\\C:", u"\\\\?\\c:"}) {
    SCOPED_TRACE(String(text));
    try {
      WinPath path(text);
      ADD_FAILURE() << "accepted as " << path.toString();
    } catch (CBadPathError const& e) {
      EXPECT_EQ(e.getMessage(), u"Invalid path: " + String(text));
    }
  }
  // Relative components that would read as a drive are refused too.
  EXPECT_THROW(WinPath(u"a\\..\\C:\\x"), CBadPathError);
  EXPECT_THROW(WinPath(u"a\\..\\C:"), CBadPathError);
  EXPECT_THROW(WinPath(u"\\x\\..\\??\\y"), CBadPathError);  // would read as the NT form
  EXPECT_EQ(WinPath(u"x\\C:").toString(), String(u"x\\C:"));
}

TEST(TPathImplTest, LongPrefixFrom247Characters) {
  String const p246 = u"C:\\dir\\" + repeat(u'a', 239), p247 = u"C:\\dir\\" + repeat(u'a', 240);
  ASSERT_EQ(p246.length(), 246u);
  EXPECT_EQ(WinPath(p246).toString(), p246);
  EXPECT_EQ(WinPath(p247).toString(), u"\\\\?\\" + p247);
  // The length that counts is the one after normalisation.
  EXPECT_EQ(WinPath(u"C:\\x\\..\\dir\\" + repeat(u'a', 239)).toString(), p246);
  // A long relative path has no prefix.
  EXPECT_EQ(WinPath(repeat(u'r', 300)).toString(), repeat(u'r', 300));
}

TEST(TPathImplTest, LongUNCPathGetsTheLowerCaseUncPrefix) {
  String const tail = repeat(u'b', 300 - 16);
  WinPath const path(u"\\\\SRV\\share\\" + tail);
  EXPECT_EQ(path.toString(), u"\\\\?\\unc\\srv\\share\\" + tail);
  EXPECT_EQ(path.getRoot(), String(u"\\\\srv\\share"));
  EXPECT_EQ(WinPath(u"\\\\?\\UNC\\srv\\share\\" + tail), path);
  // Going up below the threshold drops the prefix again.
  EXPECT_EQ(path.getParent().toString(), String(u"\\\\srv\\share"));
}

TEST(TPathImplTest, LongPathRoundTripsAndCompares) {
  String const name = repeat(u'n', 260);
  WinPath const longPath(u"C:\\data\\" + name);
  EXPECT_EQ(longPath.toString(), u"\\\\?\\C:\\data\\" + name);
  EXPECT_EQ(longPath.getRoot(), String(u"C:\\"));
  EXPECT_EQ(longPath.getName(), name);
  EXPECT_EQ(longPath.getParent().toString(), String(u"C:\\data"));
  EXPECT_EQ(WinPath(longPath.toString()), longPath);
  EXPECT_EQ(WinPath(u"\\\\?\\c:\\DATA\\" + name), longPath);
  EXPECT_LT(WinPath(u"C:\\a"), longPath);  // ordered by the short form
  EXPECT_EQ(longPath.makeRelativeTo(WinPath(u"c:\\Data")).toString(), name);
}

TEST(TPathImplTest, ComponentsOfEachRootForm) {
  struct Case { String text; String root; std::vector<String> components; } const cases[] = {
      {u"a\\\\\\b", u"", {u"a", u"b"}}, {u"C:\\", u"C:\\", {}}, {u"C:\\x\\y", u"C:\\", {u"x", u"y"}},
      {u"\\\\srv\\share\\x", u"\\\\srv\\share", {u"x"}}, {u"\\\\?\\Volume{A}\\x", u"\\\\?\\volume{a}\\", {u"x"}},
      {u"\\\\?\\globalroot\\device\\shadow1\\x\\y", u"\\\\?\\globalroot\\device\\shadow1\\", {u"x", u"y"}},
      {u"\\\\.\\pipe\\name", u"\\\\.\\pipe\\", {u"name"}}, {u"\\x", u"\\", {u"x"}}, {u".", u"", {}}, {u"", u"", {}},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.text);
    WinPath const path(c.text);
    EXPECT_EQ(path.getRoot(), c.root);
    EXPECT_EQ(path.hasRoot(), !c.root.isEmpty());
    EXPECT_EQ(path.getComponents(), c.components);
    EXPECT_EQ(path.getComponentCount(), static_cast<int>(c.components.size()));
    EXPECT_EQ(path.hasParent(), !c.components.empty());
  }
}

TEST(TPathImplTest, NameExtensionTitle) {
  struct Case { char16_t const *text, *name, *ext, *title; } const cases[] = {
      {u"C:\\a\\archive.tar.gz", u"archive.tar.gz", u"gz", u"archive.tar"},
      {u"C:\\a\\.profile", u".profile", u"", u".profile"}, {u"C:\\a\\file.", u"file.", u"", u"file"},
      {u"C:\\a\\noext", u"noext", u"", u"noext"}, {u"C:\\", u"", u"", u""}, {u"..", u"..", u"", u".."},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.text));
    WinPath const path(c.text);
    EXPECT_EQ(path.getName(), String(c.name));
    EXPECT_EQ(path.getExtension(), String(c.ext));
    EXPECT_EQ(path.getTitle(), String(c.title));
  }
  EXPECT_EQ(WinPath(u"C:\\a\\x.txt").withExtension(u"bak").toString(), String(u"C:\\a\\x.bak"));
  EXPECT_EQ(WinPath(u"C:\\a\\x.txt").withExtension(u"").toString(), String(u"C:\\a\\x"));
  EXPECT_EQ(WinPath(u"C:\\a\\x").withExtension(u"txt").toString(), String(u"C:\\a\\x.txt"));
  EXPECT_THROW(WinPath(u"C:\\").withExtension(u"txt"), CBadStateError);
  EXPECT_THROW(WinPath(u"C:\\x").withExtension(u"a\\b"), CInvalidArgError);
}

TEST(TPathImplTest, ParentAndAppend) {
  EXPECT_EQ(WinPath(u"C:\\a\\b").getParent().toString(), String(u"C:\\a"));
  EXPECT_EQ(WinPath(u"C:\\a").getParent().toString(), String(u"C:\\"));
  EXPECT_EQ(WinPath(u"a").getParent().toString(), String(u"."));
  EXPECT_EQ(WinPath(u"\\\\srv\\share\\a").getParent().toString(), String(u"\\\\srv\\share"));
  EXPECT_THROW(WinPath(u"C:\\").getParent(), CBadStateError);
  EXPECT_THROW(WinPath().getParent(), CBadStateError);

  EXPECT_EQ((WinPath(u"C:\\a") / u"b\\c").toString(), String(u"C:\\a\\b\\c"));
  EXPECT_EQ((WinPath(u"C:\\") / u"b").toString(), String(u"C:\\b"));
  EXPECT_EQ((WinPath(u"\\\\srv\\share") / WinPath(u"b")).toString(), String(u"\\\\srv\\share\\b"));
  EXPECT_EQ((WinPath(u"C:\\a\\b") / u"..\\c").toString(), String(u"C:\\a\\c"));
  EXPECT_EQ((WinPath() / u"x").toString(), String(u"x"));
  EXPECT_EQ((WinPath(u".") / u"x").toString(), String(u"x"));
  EXPECT_EQ(WinPath(u"C:\\a").getChild(u"b c").toString(), String(u"C:\\a\\b c"));
  EXPECT_EQ(WinPath(u"C:\\a").getChild(u"..").toString(), String(u"C:\\"));
  EXPECT_EQ(UnixPath(u"/a").getChild(u"..").toString(), String(u"/a/.."));
  EXPECT_THROW(WinPath(u"C:\\a").getChild(u""), CInvalidArgError);
  EXPECT_THROW(WinPath(u"C:\\a").getChild(u"b/c"), CInvalidArgError);
  EXPECT_EQ(UnixPath(u"/a").getChild(u"b\\c").toString(), String(u"/a/b\\c"));
  EXPECT_THROW(WinPath(u"C:\\a") / u"D:\\b", CInvalidArgError);
  EXPECT_THROW(WinPath(u"C:\\a") / u"\\b", CInvalidArgError);
  WinPath grown(u"C:\\a");
  grown /= u"b";
  grown.appendComponent(u"c");
  EXPECT_EQ(grown.toString(), String(u"C:\\a\\b\\c"));
  // Appending past the threshold adds the prefix.
  EXPECT_EQ(WinPath(u"C:\\").getChild(repeat(u'x', 244)).toString(), u"\\\\?\\C:\\" + repeat(u'x', 244));
}

TEST(TPathImplTest, ComparisonIgnoresCaseOnlyOnWindows) {
  EXPECT_EQ(WinPath(u"C:\\Data\\File.TXT"), WinPath(u"c:/data/file.txt"));
  EXPECT_EQ(WinPath(u"\\\\SRV\\Share"), WinPath(u"\\\\srv\\SHARE"));
  EXPECT_NE(WinPath(u"C:\\a"), WinPath(u"C:\\b"));
  EXPECT_EQ(WinPath(u"C:\\Data").compare(WinPath(u"c:\\data")), 0);
  EXPECT_EQ(WinPath(u"C:\\Data").getHash(), WinPath(u"c:\\DATA").getHash());
  std::unordered_set<WinPath> set{WinPath(u"C:\\Data"), WinPath(u"c:\\data"), WinPath(u"C:\\Other")};
  EXPECT_EQ(set.size(), 2u);
  EXPECT_TRUE(WinPath(u"C:\\a").isParentOf(WinPath(u"c:\\A\\b")));
  EXPECT_FALSE(WinPath(u"C:\\a").isParentOf(WinPath(u"C:\\a")));
  EXPECT_TRUE(WinPath(u"C:\\a").isParentOfOrEqual(WinPath(u"C:\\A")));
  EXPECT_FALSE(WinPath(u"C:\\a").isParentOf(WinPath(u"C:\\ab")));
  EXPECT_FALSE(WinPath(u"C:\\a").isParentOf(WinPath(u"D:\\a\\b")));
  EXPECT_NE(UnixPath(u"/Data"), UnixPath(u"/data"));
  EXPECT_EQ(UnixPath(u"/data//x"), UnixPath(u"/data/x"));
  EXPECT_FALSE(UnixPath(u"/a").isParentOf(UnixPath(u"/A/b")));
  EXPECT_TRUE(UnixPath(u"/a").isParentOf(UnixPath(u"/a/b")));
  EXPECT_EQ((std::unordered_set<UnixPath>{UnixPath(u"/Data"), UnixPath(u"/data")}.size()), 2u);
}

TEST(TPathImplTest, OrderIsComponentWise) {
  // A separator sorts before every character, so a folder's entries follow it.
  std::vector<WinPath> const ordered{WinPath(u"C:\\a"), WinPath(u"C:\\a\\z"), WinPath(u"C:\\a b"),
                                     WinPath(u"C:\\a-b"), WinPath(u"C:\\B")};
  for (std::size_t i = 0; i + 1 < ordered.size(); ++i) {
    SCOPED_TRACE(ordered[i].toString());
    EXPECT_LT(ordered[i], ordered[i + 1]);
    EXPECT_GT(ordered[i + 1], ordered[i]);
    EXPECT_LE(ordered[i], ordered[i]);
  }
}

TEST(TPathImplTest, MakeRelative) {
  struct Case { String path; String base; String relative; } const cases[] = {
      {u"C:\\a\\b\\c", u"C:\\a", u"b\\c"}, {u"C:\\a\\b", u"c:\\A\\B", u"."},
      {u"C:\\a\\x", u"C:\\a\\b\\c", u"..\\..\\x"}, {u"C:\\", u"C:\\a", u".."},
      {u"\\\\srv\\share\\a", u"\\\\SRV\\share\\b", u"..\\a"}, {u"x\\y", u"x", u"y"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.path + u" from " + c.base);
    WinPath const path(c.path), base(c.base);
    WinPath const relative = path.makeRelativeTo(base);
    EXPECT_EQ(relative.toString(), c.relative);
    EXPECT_EQ(base / relative, path);
    EXPECT_EQ(WinPath::makeRelative(c.path, c.base), relative);
  }
  EXPECT_EQ(UnixPath(u"/a/b").makeRelativeTo(UnixPath(u"/a/c")).toString(), String(u"../b"));
  EXPECT_THROW(UnixPath(u"/a").makeRelativeTo(UnixPath(u"/b/../c")), CInvalidArgError);
}

TEST(TPathImplTest, MakeRelativeWithDifferentRootsFails) {
  try {
    WinPath::makeRelative(u"D:/x/./y", u"C:\\base");
    ADD_FAILURE() << "no error";
  } catch (CError const& e) {
    EXPECT_EQ(e.getMessage(), String(u"Cannot make paths relative to each other because they do not have the same root."));
    EXPECT_EQ(e.getParams().lookup(u"path"), String(u"D:/x/./y"));
    EXPECT_EQ(e.getParams().lookup(u"normalizedPath"), String(u"D:\\x\\y"));
    EXPECT_EQ(e.getParams().lookup(u"basePath"), String(u"C:\\base"));
    EXPECT_EQ(e.getParams().lookup(u"normalizedBasePath"), String(u"C:\\base"));
    EXPECT_EQ(e.getErrorCode(), -1);
    EXPECT_TRUE(e.getErrorCodeDomain().isEmpty());
  }
  EXPECT_THROW(WinPath(u"\\\\srv\\a\\x").makeRelativeTo(WinPath(u"\\\\srv\\b\\x")), CError);
  EXPECT_THROW(WinPath(u"x").makeRelativeTo(WinPath(u"C:\\x")), CError);
  EXPECT_THROW(WinPath(u"\\x").makeRelativeTo(WinPath(u"C:\\x")), CError);
  EXPECT_THROW(UnixPath(u"a").makeRelativeTo(UnixPath(u"/a")), CError);
}

TEST(TPathImplTest, TabIsAValidComponentCharacterAndU0001OnlyOutsideWindows) {
  String const tab = u"a\tb", ctrl = u"a\u0001b";
  EXPECT_TRUE(WinPath::isValidComponent(tab));
  EXPECT_FALSE(WinPath::isValidComponent(ctrl));
  EXPECT_TRUE(UnixPath::isValidComponent(tab));
  EXPECT_TRUE(UnixPath::isValidComponent(ctrl));
  EXPECT_TRUE(MacPath::isValidComponent(ctrl));
  EXPECT_FALSE(MacPath::isValidComponent(u"a:b"));
  EXPECT_TRUE(UnixPath::isValidComponent(u"a:b"));
  EXPECT_FALSE(WinPath::isValidComponent(u"a:b"));
  EXPECT_FALSE(UnixPath::isValidComponent(String(u"a") + String(1, u'\0')));
  for (char16_t const* bad : {u"", u".", u".."}) EXPECT_FALSE(WinPath::isValidComponent(bad));
  // The path value holds either; the file-system layers check.
  EXPECT_TRUE(WinPath(u"C:\\" + tab).hasOnlyValidComponents());
  WinPath const withCtrl(u"C:\\" + ctrl);
  EXPECT_EQ(withCtrl.getName(), ctrl);
  EXPECT_FALSE(withCtrl.hasOnlyValidComponents());
  EXPECT_TRUE(UnixPath(u"/" + ctrl).hasOnlyValidComponents());
  // The unsafe set adds the apostrophe and lacks U+0000.
  String const& unsafe = CPathTraitsBase::getUnsafeComponentChars();
  EXPECT_EQ(unsafe.Right(10), String(u"*/:<>?\\|\"'"));
  EXPECT_EQ(unsafe.length(), 40u);
  EXPECT_EQ(unsafe.Find(u'\t'), String::npos);
  EXPECT_EQ(unsafe.Find(u'\0'), String::npos);
}

TEST(TPathImplTest, UserInputIsTrimmed) {
  EXPECT_EQ(WinPath::fromUserInput(u"  C:\\data\t\n").toString(), String(u"C:\\data"));
  EXPECT_EQ(CPathTraitsBase::fixCommonInputMistakes(u" \u00A0a b\u3000"), String(u"a b"));
  EXPECT_EQ(WinPath(u"C:\\data ").getName(), String(u"data "));  // not trimmed when built directly
}

TEST(TPathImplTest, ToAPIPathOfATrailingSpaceName) {
  EXPECT_EQ(WinPath(u"C:\\dir\\name ").toAPIPath(), String(u"\\\\?\\C:\\dir\\name "));
  EXPECT_EQ(WinPath(u"C:\\dir\\name").toAPIPath(), String(u"C:\\dir\\name"));
  String const name = repeat(u'l', 250) + u" ";
  EXPECT_EQ(WinPath(u"C:\\" + name).toAPIPath(), u"\\\\?\\C:\\" + name);
}

// --- normalising twice changes nothing ---------------------------------------

template <class Traits>
class TPathImplIdempotenceTest : public ::testing::Test {};
using AllTraits = ::testing::Types<CWindowsPathTraits, CUnixPathTraits, CMacPathTraits>;
TYPED_TEST_SUITE(TPathImplIdempotenceTest, AllTraits);

// Pieces that combine into every root form and the tricky components.
String randomPath(std::mt19937& rng) {
  static char16_t const* const pieces[] = {
      u"\\", u"/", u"\\\\", u"C:", u"c:\\", u"?", u".", u"..", u"\\\\?\\", u"\\\\.\\", u"\\??\\", u"UNC",
      u"unc\\", u"Volume{A-b}", u"GLOBALROOT", u"Device", u"srv", u"Share", u"a", u"B", u" ", u"\t",
      u"\u0001", u"\u00C4", u"\u0130", u"x.txt", u":", u"\u0000", u"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa",
  };
  constexpr std::size_t kPieceCount = sizeof pieces / sizeof pieces[0];
  std::uniform_int_distribution<std::size_t> pick(0, kPieceCount - 1);
  std::uniform_int_distribution<int> count(0, 14);
  String text;
  for (int i = count(rng); i > 0; --i) {
    char16_t const* piece = pieces[pick(rng)];
    text += piece[0] == 0 ? String(1, u'\0') : String(piece);
  }
  return text;
}

TYPED_TEST(TPathImplIdempotenceTest, TableAndRandomPaths) {
  using Path = TPathImpl<TypeParam>;
  std::vector<String> inputs{u"", u"C:\\", u"c:/a/../b/./c/", u"\\\\Srv\\Share\\..\\x", u"\\\\?\\UNC\\srv\\share\\x",
                             u"\\??\\C:\\x", u"\\\\?\\Volume{X}\\a\\..\\b", u"\\\\?\\GLOBALROOT\\Device\\Shadow\\x",
                             u"/usr//lib/./x/../y", u"a\\\\\\b", u"C:\\" + repeat(u'a', 244),
                             u"\\\\srv\\share\\" + repeat(u'b', 290), u"\\\\?\\C:\\" + repeat(u'c', 300) + u"\\..\\d"};
  std::mt19937 rng(20240611u);
  for (int i = 0; i < 4000; ++i) inputs.push_back(randomPath(rng));
  int accepted = 0;
  for (String const& input : inputs) {
    SCOPED_TRACE(input);
    try {
      Path const once(input);
      ++accepted;
      Path const twice(once.toString());
      EXPECT_EQ(twice.toString(), once.toString());
      EXPECT_EQ(twice, once);
      EXPECT_EQ(twice.getHash(), once.getHash());
      if (!once.isEmpty()) {
        EXPECT_EQ(once.getParent() / once.getName(), once) << "parent / name";
      }
    } catch (CBadPathError const&) {
    } catch (CBadStateError const&) {  // getParent of a path without components
    }
  }
  EXPECT_GT(accepted, 1000);
}

}  // namespace
}  // namespace qo
