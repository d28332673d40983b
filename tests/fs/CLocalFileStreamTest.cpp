#include "qo/fs/CLocalFileStream.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "LocalFileTestSupport.h"
#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CSystemError.h"
#include "qo/fs/LocalFile.h"

namespace qo {
namespace {

using localfiletest::catchIOError;
using localfiletest::fileURIText;
using localfiletest::problemOf;
using Flags = TFlags<IIOStream::Flags>;
using Ops = std::vector<std::pair<char const*, std::function<void()>>>;

Flags const kShare{IIOStream::FlagCreate, IIOStream::FlagShareRead, IIOStream::FlagShareWrite};

P<CLocalFileStream> open(String const& path, IIOStream::Access access, Flags flags = Flags()) {
  return newP<CLocalFileStream>(path, access, flags);
}

std::string allBytes() {
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
  return bytes + std::string(70000, 'x');  // more than one read chunk of readLocalFile
}

void expectLockConflict(std::function<void()> const& body) {
  CIOError const e = catchIOError(body);
  EXPECT_EQ(CIOError::kLockFailed, e.getErrorCode());
  EXPECT_TRUE(e.getParams().lookupBool(IIOStream::errParamLockConflict(), false));
  EXPECT_EQ(CFileSystemError::kLockConflict, problemOf(e));
}

class CLocalFileStreamTest : public ::testing::Test {
protected:
  P<CLocalFileStream> shared(char const* name) { return open(dir.path(name), IIOStream::AccessReadWrite, kShare); }
  localfiletest::TempFolder dir;
};

TEST_F(CLocalFileStreamTest, RoundTripKeepsEveryByte) {
  String const path = dir.path("a.bin");
  std::string const bytes = allBytes();
  P<CLocalFileStream> out = open(path, IIOStream::AccessWriteOnly, IIOStream::FlagCreate);
  out->write(bytes.data(), static_cast<int>(bytes.size()));
  EXPECT_EQ(static_cast<long long>(bytes.size()), out->getPosition());
  EXPECT_EQ(static_cast<long long>(bytes.size()), out->getLength());
  out->flush();
  out->close();
  P<CLocalFileStream> in = open(path, IIOStream::AccessReadOnly, IIOStream::FlagShareRead);
  std::string back(bytes.size(), '\0');
  in->read(&back[0], static_cast<int>(back.size()));
  EXPECT_EQ(bytes, back);
  EXPECT_TRUE(in->isEndOfStream());
  EXPECT_EQ(1, in->isEndOfStream_NonBlocking());
  in->seek(255);
  char c = 0;
  in->read(&c, 1);
  EXPECT_EQ(static_cast<char>(255), c);
  EXPECT_EQ(bytes, readLocalFile(path));
}

TEST_F(CLocalFileStreamTest, ReadWriteOverwritesInPlace) {
  String const path = dir.path("rw.bin");
  writeLocalFile(path, "abcdef", 6);
  P<CLocalFileStream> s = open(path, IIOStream::AccessReadWrite);
  s->seek(2);
  s->write("XY", 2);
  EXPECT_EQ(4, s->getPosition());
  char rest[2];
  s->read(rest, 2);
  EXPECT_EQ("ef", std::string(rest, 2));
  s->close();
  EXPECT_EQ("abXYef", readLocalFile(path));
}

TEST_F(CLocalFileStreamTest, AppendWritesAtTheEndEvenAfterSeek) {
  String const path = dir.path("log.txt");
  writeLocalFile(path, "abc", 3);
  Flags const share{IIOStream::FlagShareRead, IIOStream::FlagShareWrite};
  P<CLocalFileStream> s = open(path, IIOStream::AccessAppend, share);
  EXPECT_EQ(3, s->getPosition());
  s->seek(0);
  s->write("XY", 2);
  EXPECT_EQ(5, s->getPosition());
  s->seek(1);
  s->write("Z", 1);
  EXPECT_EQ(6, s->getPosition());
  // Another writer growing the file meanwhile does not get overwritten.
  open(path, IIOStream::AccessAppend, share)->write("12", 2);
  s->write("!", 1);
  s->close();
  EXPECT_EQ("abcXYZ12!", readLocalFile(path));
}

TEST_F(CLocalFileStreamTest, OpenFlagsDecideAboutExistingAndMissingFiles) {
  using A = IIOStream;
  long long const kOpens = -1, kOpenFailed = CIOError::kOpenFailed;
  struct Case {
    char const* name;
    bool exists;
    IIOStream::Access access;
    Flags flags;
    long long kind, problem;
    char const* contentAfter;  // nullptr: no file
  } const cases[] = {
      {"missing, no create", false, A::AccessReadWrite, Flags(), kOpenFailed, CFileSystemError::kNotFound, nullptr},
      {"missing, read only", false, A::AccessReadOnly, Flags(), kOpenFailed, CFileSystemError::kNotFound, nullptr},
      {"missing, truncate only", false, A::AccessWriteOnly, A::FlagTruncate, kOpenFailed, CFileSystemError::kNotFound,
       nullptr},
      {"missing, create", false, A::AccessWriteOnly, A::FlagCreate, kOpens, 0, ""},
      {"missing, create new", false, A::AccessWriteOnly, {A::FlagCreate, A::FlagFailIfExists}, kOpens, 0, ""},
      {"existing, create new", true, A::AccessWriteOnly, {A::FlagCreate, A::FlagFailIfExists}, kOpenFailed,
       CFileSystemError::kAlreadyExists, "hello"},
      {"existing, create", true, A::AccessReadWrite, A::FlagCreate, kOpens, 0, "hello"},
      {"existing, truncate", true, A::AccessReadWrite, A::FlagTruncate, kOpens, 0, ""},
      {"existing, create + truncate", true, A::AccessWriteOnly, {A::FlagCreate, A::FlagTruncate}, kOpens, 0, ""},
      {"existing, plain", true, A::AccessReadOnly, Flags(), kOpens, 0, "hello"},
  };
  int n = 0;
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    String const path = dir.path("f" + std::to_string(n++) + ".txt");
    if (c.exists) writeLocalFile(path, "hello", 5);
    if (c.kind == kOpens) {
      P<CLocalFileStream> s = open(path, c.access, c.flags);
      EXPECT_EQ(static_cast<long long>(std::string(c.contentAfter).size()), s->getLength());
      s->close();
    } else {
      CIOError const e = catchIOError([&] { (void)open(path, c.access, c.flags); });
      EXPECT_EQ(c.kind, e.getErrorCode());
      EXPECT_EQ(c.problem, problemOf(e));
      EXPECT_EQ(fileURIText(path), e.getParams().lookup(u"uri").toUTF8());
      ASSERT_TRUE(e.getCause());
      EXPECT_TRUE(dynamic_cast<CSystemError const*>(e.getCause().get()));
    }
    if (c.contentAfter) {
      EXPECT_EQ(c.contentAfter, readLocalFile(path));
    } else {
      EXPECT_FALSE(localFileExists(path));
    }
  }
  CIOError const e = catchIOError([&] { (void)open(dir.path(), IIOStream::AccessReadOnly); });
  EXPECT_EQ(CIOError::kOpenFailed, e.getErrorCode());
  EXPECT_EQ(CFileSystemError::kWrongKind, problemOf(e));
}

TEST_F(CLocalFileStreamTest, BadArgumentsAreRefused) {
  String const path = dir.path("x");
  EXPECT_THROW((void)open(path, IIOStream::AccessWriteOnly, IIOStream::FlagFailIfExists), CInvalidArgError);
  EXPECT_THROW((void)open(path, static_cast<IIOStream::Access>(0), IIOStream::FlagCreate), CInvalidArgError);
  EXPECT_FALSE(localFileExists(path));
  P<CLocalFileStream> s = open(path, IIOStream::AccessReadWrite, IIOStream::FlagCreate);
  char c = 0;
  EXPECT_THROW(s->read(&c, -1), CInvalidArgError);
  EXPECT_THROW(s->write(&c, -1), CInvalidArgError);
  EXPECT_THROW(s->setLength(-1), CInvalidArgError);
  EXPECT_THROW((void)s->lockRange(-1, 5, IStreamBase::LockShared), CInvalidArgError);
  EXPECT_THROW((void)s->lockRange(0, 0, IStreamBase::LockShared), CInvalidArgError);
  CIOError const e = catchIOError([&] { s->seek(-1); });
  EXPECT_EQ(CIOError::kSeekFailed, e.getErrorCode());
  EXPECT_EQ(-1, e.getParams().lookupLong(u"pos", 0));
}

TEST_F(CLocalFileStreamTest, ReadingPastTheEnd) {
  String const path = dir.path("five");
  writeLocalFile(path, "hello", 5);
  P<CLocalFileStream> s = open(path, IIOStream::AccessReadOnly);
  char buffer[10] = {};
  CIOError const e = catchIOError([&] { s->read(buffer, 10); });
  EXPECT_EQ(CIOError::kUnexpectedEOF, e.getErrorCode());
  EXPECT_EQ(5, e.getParams().lookupLong(u"bytesRead", -1));
  EXPECT_EQ(10, e.getParams().lookupLong(u"toRead", -1));
  EXPECT_EQ(fileURIText(path), e.getParams().lookup(u"uri").toUTF8());
  EXPECT_EQ("hello", std::string(buffer, 5));
  EXPECT_EQ(5, s->getPosition());
  s->seek(2);
  EXPECT_FALSE(s->isEndOfStream());
  EXPECT_EQ(3, s->readLax(buffer, 10));
  EXPECT_EQ("llo", std::string(buffer, 3));
  EXPECT_EQ(0, s->readLax(buffer, 10));
  EXPECT_EQ(0, s->readAvailable(buffer, 10));
  EXPECT_TRUE(s->isEndOfStream());
  s->seek(100);  // beyond the end reads nothing
  EXPECT_EQ(0, s->readLax(buffer, 10));
  EXPECT_EQ(100, s->getPosition());
}

TEST_F(CLocalFileStreamTest, SetLengthGrowsAndShrinks) {
  String const path = dir.path("len");
  P<CLocalFileStream> s = open(path, IIOStream::AccessReadWrite, {IIOStream::FlagCreate, IIOStream::FlagShareRead});
  s->write("abcdef", 6);
  s->setLength(10);
  EXPECT_EQ(10, s->getLength());
  EXPECT_EQ(6, s->getPosition());
  EXPECT_EQ(std::string("abcdef\0\0\0\0", 10), readLocalFile(path));
  s->setLength(2);
  EXPECT_EQ(2, s->getLength());
  EXPECT_EQ(2, s->getPosition());
  s->write("Z", 1);
  EXPECT_EQ("abZ", readLocalFile(path));
  s->setLength(0);
  EXPECT_EQ(0, s->getPosition());
  EXPECT_EQ("", readLocalFile(path));
}

TEST_F(CLocalFileStreamTest, AccessModeRefusesTheOtherDirection) {
  String const path = dir.path("ro");
  writeLocalFile(path, "abc", 3);
  P<CLocalFileStream> s = open(path, IIOStream::AccessReadOnly, IIOStream::FlagShareRead);
  for (auto const& op : Ops{{"write", [&] { s->write("x", 1); }}, {"setLength", [&] { s->setLength(1); }}}) {
    SCOPED_TRACE(op.first);
    EXPECT_EQ(CIOError::kWriteFailed, catchIOError(op.second).getErrorCode());
  }
  EXPECT_EQ("abc", readLocalFile(path));
  P<CLocalFileStream> w = open(dir.path("wo"), IIOStream::AccessWriteOnly, IIOStream::FlagCreate);
  w->write("abc", 3);
  w->seek(0);
  char buffer[3];
  EXPECT_EQ(CIOError::kReadFailed, catchIOError([&] { (void)w->readLax(buffer, 3); }).getErrorCode());
}

TEST_F(CLocalFileStreamTest, ClosedStreamThrowsKind10) {
  String const path = dir.path("closed");
  P<CLocalFileStream> s = open(path, IIOStream::AccessReadWrite, IIOStream::FlagCreate);
  s->write("abc", 3);
  s->close();
  s->close();  // idempotent
  EXPECT_FALSE(s->isOpen());
  EXPECT_EQ(3, s->getPosition());
  EXPECT_EQ(fileURIText(path), s->getURI().toString(true).toUTF8());
  char buffer[4];
  Ops const ops = {
      {"read", [&] { s->read(buffer, 1); }},
      {"readLax", [&] { (void)s->readLax(buffer, 1); }},
      {"write", [&] { s->write("x", 1); }},
      {"seek", [&] { s->seek(0); }},
      {"getLength", [&] { (void)s->getLength(); }},
      {"isEndOfStream", [&] { (void)s->isEndOfStream(); }},
      {"flush", [&] { s->flush(); }},
      {"setLength", [&] { s->setLength(0); }},
      {"lockRange", [&] { (void)s->lockRange(0, 1, IStreamBase::LockShared); }},
  };
  for (auto const& op : ops) {
    SCOPED_TRACE(op.first);
    CIOError const e = catchIOError(op.second);
    EXPECT_EQ(CIOError::kStreamClosed, e.getErrorCode());
    EXPECT_EQ(fileURIText(path), e.getParams().lookup(u"uri").toUTF8());
  }
}

TEST_F(CLocalFileStreamTest, RangeLocksBetweenStreamsOfOneProcess) {
  P<CLocalFileStream> a = shared("locked"), b = shared("locked");
  P<IStreamLock> held = a->lockRange(0, 10, IStreamBase::LockExclusive);
  expectLockConflict([&] { (void)b->lockRange(5, 10, IStreamBase::LockShared); });
  expectLockConflict([&] { (void)b->lockRange(9, 1, IStreamBase::LockExclusive); });
  P<IStreamLock> next = b->lockRange(10, 10, IStreamBase::LockExclusive);  // touching, not overlapping
  held = nil;
  P<IStreamLock> whole = b->lockRange(0, 10, IStreamBase::LockExclusive);
  expectLockConflict([&] { (void)a->lockRange(0, 1, IStreamBase::LockShared); });
  // Shared locks coexist.
  P<CLocalFileStream> c = shared("shared"), d = shared("shared");
  P<IStreamLock> lc = c->lockRange(0, 100, IStreamBase::LockShared);
  P<IStreamLock> ld = d->lockRange(50, 100, IStreamBase::LockShared);
  expectLockConflict([&] { (void)d->lockRange(0, 10, IStreamBase::LockExclusive); });
  lc = nil;
  P<IStreamLock> ex = c->lockRange(0, 50, IStreamBase::LockExclusive);
}

TEST_F(CLocalFileStreamTest, RangeLocksWithinOneStreamAreCounted) {
  P<CLocalFileStream> a = shared("counted"), b = shared("counted");
  P<IStreamLock> first = a->lockRange(0, 100, IStreamBase::LockShared);
  P<IStreamLock> second = a->lockRange(50, 100, IStreamBase::LockShared);
  expectLockConflict([&] { (void)a->lockRange(0, 1, IStreamBase::LockExclusive); });
  first = nil;
  expectLockConflict([&] { (void)b->lockRange(100, 10, IStreamBase::LockExclusive); });
  second = nil;
  P<IStreamLock> all = b->lockRange(0, 150, IStreamBase::LockExclusive);  // every hold is gone
}

TEST_F(CLocalFileStreamTest, LocksOutliveTheHandleButNotClose) {
  P<IStreamLock> lock = shared("outlive")->lockRange(0, 1, IStreamBase::LockExclusive);
  P<CLocalFileStream> b = shared("outlive");
  expectLockConflict([&] { (void)b->lockRange(0, 1, IStreamBase::LockShared); });
  lock = nil;  // closes the first stream as well
  P<IStreamLock> now = b->lockRange(0, 1, IStreamBase::LockExclusive);
  P<CLocalFileStream> c = shared("closing"), d = shared("closing");
  P<IStreamLock> held = c->lockRange(0, 8, IStreamBase::LockExclusive);
  c->close();
  P<IStreamLock> mine = d->lockRange(0, 8, IStreamBase::LockExclusive);
  held = nil;  // releasing after close must not touch d's lock
  expectLockConflict([&] { (void)shared("closing")->lockRange(0, 8, IStreamBase::LockShared); });
}

TEST_F(CLocalFileStreamTest, SharingViolationIsALockConflict) {
  if (!localFileSharingIsEnforced()) GTEST_SKIP() << "the OS does not enforce share modes";
  String const path = dir.path("exclusive");
  P<CLocalFileStream> a = open(path, IIOStream::AccessReadWrite, IIOStream::FlagCreate);
  expectLockConflict([&] { (void)open(path, IIOStream::AccessReadOnly); });
  a->close();
  P<CLocalFileStream> b = open(path, IIOStream::AccessReadOnly, IIOStream::FlagShareRead);
  P<CLocalFileStream> c = open(path, IIOStream::AccessReadOnly, IIOStream::FlagShareRead);
  expectLockConflict([&] { (void)open(path, IIOStream::AccessWriteOnly, IIOStream::FlagShareRead); });
}

TEST_F(CLocalFileStreamTest, DeleteOnCloseAndLockFileFlags) {
  String const temp = dir.path("temp");
  P<CLocalFileStream> s = open(temp, IIOStream::AccessReadWrite, {IIOStream::FlagCreate, IIOStream::FlagDeleteOnClose});
  s->write("abc", 3);
  EXPECT_TRUE(localFileExists(temp));
  s->close();
  EXPECT_FALSE(localFileExists(temp));
  String const path = dir.path("guarded");
  Flags const flags = kShare | Flags{IIOStream::FlagLockFile};
  P<CLocalFileStream> a = open(path, IIOStream::AccessWriteOnly, flags);
  EXPECT_TRUE(localFileExists(path + u".lock"));
  expectLockConflict([&] { (void)open(path, IIOStream::AccessReadOnly, flags); });
  a->close();
  P<CLocalFileStream> r1 = open(path, IIOStream::AccessReadOnly, flags);
  P<CLocalFileStream> r2 = open(path, IIOStream::AccessReadOnly, flags);  // readers share
  expectLockConflict([&] { (void)open(path, IIOStream::AccessWriteOnly, flags); });
}

TEST_F(CLocalFileStreamTest, NonAsciiAndLongPaths) {
  std::string const name = "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80 x.bin";  // a-umlaut, euro, emoji
  String const path = dir.path(name);
  P<CLocalFileStream> s = open(path, IIOStream::AccessWriteOnly, IIOStream::FlagCreate);
  s->write("data", 4);
  EXPECT_EQ(String::fromUTF8(name), s->getURI().getName());
  EXPECT_EQ(path, s->getPath());
  s->close();
  EXPECT_TRUE(localfiletest::fs::exists(dir.folder() / localfiletest::fs::u8path(name)));
  EXPECT_EQ("data", readLocalFile(path));
  EXPECT_TRUE(deleteLocalFile(path));
  EXPECT_FALSE(localFileExists(path));
  // Each component stays below 255; the whole path passes 260.
  std::string const folder(150, 'd'), longName = std::string(150, 'f') + ".bin";
  localfiletest::fs::create_directories(dir.folder() / folder);
  String const longPath = dir.path(folder + "/" + longName);
  ASSERT_GT(longPath.length(), 300u);
  std::string const bytes = allBytes();
  writeLocalFile(longPath, bytes.data(), bytes.size());
  EXPECT_TRUE(localFileExists(longPath));
  P<CLocalFileStream> l = open(longPath, IIOStream::AccessAppend);
  l->write("!", 1);
  EXPECT_EQ(String::fromUTF8(longName), l->getURI().getName());
  l->close();
  EXPECT_EQ(bytes + "!", readLocalFile(longPath));
  EXPECT_TRUE(deleteLocalFile(longPath));
  EXPECT_FALSE(localFileExists(longPath));
}

TEST_F(CLocalFileStreamTest, WriteKeepBufferWritesTheSlice) {
  String const path = dir.path("slice");
  auto buffer = newP<TBuffer<unsigned char>>(reinterpret_cast<unsigned char const*>("abcde"), 5);
  P<CLocalFileStream> s = open(path, IIOStream::AccessWriteOnly, IIOStream::FlagCreate);
  s->writeKeepBuffer(TConstBufferSlice<unsigned char>(buffer, 1, 3), s->createWriteBarrier(nullptr).get());
  s->close();
  EXPECT_EQ("bcd", readLocalFile(path));
}

}  // namespace
}  // namespace qo
