#include "qo/fs/LocalFile.h"

#include <gtest/gtest.h>

#include <string>

#include "LocalFileTestSupport.h"
#include "qo/core/CFileSystemError.h"
#include "qo/fs/CLocalFileStream.h"

namespace qo {
namespace {

using localfiletest::catchIOError;
using localfiletest::fileURIText;
using localfiletest::problemOf;
using localfiletest::TempFolder;

TEST(LocalFileTest, DeleteReportsWhetherTheFileWasThereAndRefusesAFolder) {
  TempFolder dir;
  String const path = dir.path("x");
  EXPECT_FALSE(deleteLocalFile(path));
  EXPECT_FALSE(deleteLocalFile(path, 5));
  writeLocalFile(path, "x", 1);
  EXPECT_TRUE(deleteLocalFile(path, 0));  // tries at least once
  EXPECT_FALSE(localFileExists(path));
  EXPECT_FALSE(deleteLocalFile(path));
  localfiletest::fs::create_directory(dir.folder() / "sub");
  String const sub = dir.path("sub");
  CIOError const e = catchIOError([&] { deleteLocalFile(sub, 3); });
  EXPECT_EQ(CIOError::kDeleteFailed, e.getErrorCode());
  EXPECT_EQ(CFileSystemError::kWrongKind, problemOf(e));
  EXPECT_EQ(fileURIText(sub), e.getParams().lookup(u"uri").toUTF8());
  EXPECT_TRUE(localfiletest::fs::is_directory(dir.folder() / "sub"));
}

TEST(LocalFileTest, DeleteOfABusyFileGivesUpAfterTheAttempts) {
  if (!localFileSharingIsEnforced()) GTEST_SKIP() << "the OS deletes open files";
  TempFolder dir;
  String const path = dir.path("busy");
  CLocalFileStream open(path, IIOStream::AccessWriteOnly, IIOStream::FlagCreate);
  CIOError const e = catchIOError([&] { deleteLocalFile(path, 3); });
  EXPECT_EQ(CIOError::kDeleteFailed, e.getErrorCode());
  EXPECT_EQ(3, e.getParams().lookupLong(u"attempts", 0));
  open.close();
  EXPECT_TRUE(deleteLocalFile(path, 3));
}

TEST(LocalFileTest, WriteThenReadRoundTripsOnRegularFilesOnly) {
  TempFolder dir;
  writeLocalFile(dir.path("file"), "", 0);
  EXPECT_TRUE(localFileExists(dir.path("file")));
  EXPECT_FALSE(localFileExists(dir.path()));
  EXPECT_FALSE(localFileExists(dir.path("none")));
  EXPECT_FALSE(localFileExists(String()));
  String const path = dir.path("data");
  std::string const inputs[] = {std::string(), std::string("\0", 1), std::string("\r\n\xFF\x00z", 5),
                                std::string(200000, 'q')};
  for (std::string const& bytes : inputs) {
    SCOPED_TRACE(bytes.size());
    writeLocalFile(path, bytes.data(), bytes.size());
    EXPECT_EQ(bytes, readLocalFile(path));
  }
  writeLocalFile(path, "long content", 12);
  writeLocalFile(path, "short", 5);  // replaces, no tail of the old content
  EXPECT_EQ("short", readLocalFile(path));
  String const missing = dir.path("missing");
  CIOError const e = catchIOError([&] { (void)readLocalFile(missing); });
  EXPECT_EQ(CIOError::kOpenFailed, e.getErrorCode());
  EXPECT_EQ(CFileSystemError::kNotFound, problemOf(e));
  EXPECT_EQ(fileURIText(missing), e.getParams().lookup(u"uri").toUTF8());
}

TEST(LocalFileTest, URIsOfRelativePathsAreAbsolute) {
  String const cwd = String::fromUTF8(localfiletest::fs::current_path().u8string());
  String const separator = localPathsAreWindowsPaths() ? String(u"\\") : String(u"/");
  String const expected = localFileURI(cwd + separator + u"some-file.bin").toString(true);
  EXPECT_EQ(expected, localFileURI(u"some-file.bin").toString(true));
  EXPECT_EQ(expected, localFileURI(String(u".") + separator + u"some-file.bin").toString(true));
  EXPECT_TRUE(expected.StartsWith(u"file:///"));
  EXPECT_TRUE(expected.EndsWith(u"/some-file.bin"));
}

TEST(LocalFileTest, APIPathGetsTheLongPrefixOnlyWhenNeeded) {
  bool const win = localPathsAreWindowsPaths();
  String const shortPath = win ? String(u"C:\\a\\b.txt") : String(u"/a/b.txt");
  EXPECT_EQ(shortPath, localFileAPIPath(shortPath));
  String const longPath = win ? u"C:\\" + String(std::u16string(250, u'x')) : u"/" + String(std::u16string(300, u'x'));
  EXPECT_EQ(win ? u"\\\\?\\" + longPath : longPath, localFileAPIPath(longPath));
}

}  // namespace
}  // namespace qo
