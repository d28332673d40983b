// CLocalFileSystem on real files: each operation's success and its main
// failure (error class, problem, "uri"), links, meta data, background worker.
#include "qo/fs/CLocalFileSystem.h"
#include "qo/fs/LocalFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CNotImplementedError.h"
#include "qo/core/CTime.h"
#include "qo/core/TypeName.h"
#include "qo/thread/CSignal.h"
#include "LocalFileTestSupport.h"

#include <cerrno>

#ifdef _WIN32
#include <windows.h>
#else
#include <csignal>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
extern char** environ;
#endif

namespace qo {
namespace {

namespace stdfs = std::filesystem;
using localfiletest::bypassesPermissions;
using localfiletest::kLongWait;
using localfiletest::pattern;
using localfiletest::runsOnWine;
using localfiletest::sourceOf;

std::string describe(CError const& e) {
  return typeNameOf(typeid(e)) + ": " + e.getMessage().toUTF8() + " " + e.getParams().toString().toUTF8();
}

// Runs f and checks it throws exactly an error of type with problem (unless
// -1), code (unless -1), "uri" and "uri2" (when given).
void expectError(std::type_info const& type, std::function<void()> const& f, long long problem, long long code,
                 CURI const& uri, CURI const* uri2 = nullptr) {
  try {
    f();
    ADD_FAILURE() << "no exception; expected problem " << problem;
  } catch (CError const& e) {
    EXPECT_EQ(typeid(e), type) << describe(e);
    if (problem != -1) EXPECT_EQ(CFileSystemError::getProblem(e.getParams()), problem) << describe(e);
    if (code != -1) EXPECT_EQ(e.getErrorCode(), code);
    EXPECT_EQ(e.getParams().lookup(u"uri"), uri.toString(true));
    if (uri2) EXPECT_EQ(e.getParams().lookup(u"uri2"), uri2->toString(true));
  }
}
void expectProblem(std::function<void()> const& f, int problem, CURI const& uri, CURI const* uri2 = nullptr) {
  expectError(typeid(CFileSystemError), f, problem, -1, uri, uri2);
}

// A source of bytes that, once `pauseAt` bytes are out, calls pause (once)
// before it serves more: the store is then half-way, its temporary file
// holding the first part.
class CPausingSource : public CBase, public virtual IInStream {
public:
  CPausingSource(std::string bytes, std::size_t pauseAt, std::function<void()> pause)
      : m_bytes(std::move(bytes)), m_pauseAt(pauseAt), m_pause(std::move(pause)) {}
  long long getLength() const override { return static_cast<long long>(m_bytes.size()); }
  long long getPosition() const override { return static_cast<long long>(m_pos); }
  CURI getURI() override { return CURI(); }
  void seek(long long) override { throw CNotImplementedError(u"CPausingSource::seek"); }
  P<IStreamLock> lockRange(long long, long long, LockType) override { return P<IStreamLock>(); }
  void close() override {}
  void read(void* buffer, int size) override {
    if (readLax(buffer, size) != size) throw CIOError(CIOError::kReadFailed);
  }
  int readLax(void* buffer, int size) override {
    if (m_pos >= m_pauseAt && m_pause) {
      std::function<void()> const pause = std::move(m_pause);
      m_pause = nullptr;
      pause();
    }
    std::size_t const n = std::min(static_cast<std::size_t>(size), m_bytes.size() - m_pos);
    std::memcpy(buffer, m_bytes.data() + m_pos, n);
    m_pos += n;
    return static_cast<int>(n);
  }
  int readAvailable(void* buffer, int size) override { return readLax(buffer, size); }
  bool waitReadable(int) const override { return true; }
  bool isEndOfStream() const override { return m_pos >= m_bytes.size(); }
  int isEndOfStream_NonBlocking() const override { return isEndOfStream() ? 1 : 0; }

private:
  std::string m_bytes;
  std::size_t m_pos = 0;
  std::size_t m_pauseAt;
  std::function<void()> m_pause;
};

// The names in folder that the file system uses for its temporary files.
std::vector<stdfs::path> temporaryFiles(stdfs::path const& folder) {
  std::vector<stdfs::path> found;
  for (auto const& item : stdfs::directory_iterator(folder)) {
    if (CLocalFileSystem::isTemporaryName(String(item.path().filename().wstring().c_str()))) found.push_back(item.path());
  }
  return found;
}

char const kKillTargetVar[] = "QO_TEST_KILLED_STORE_TARGET";

class CLocalFileSystemTest : public ::testing::Test {
protected:
  void TearDown() override {
    m_fs = nil;
    std::error_code ignored;
    // Read-only leftovers would stop the folder's removal on Windows.
    for (auto it = stdfs::recursive_directory_iterator(m_dir, ignored); it != stdfs::recursive_directory_iterator();
         it.increment(ignored)) {
      stdfs::permissions(it->path(), stdfs::perms::owner_all, stdfs::perm_options::add | stdfs::perm_options::nofollow,
                         ignored);
    }
  }

  // Components are appended as text, so that names need no URI escaping.
  CURI at(String const& relative) const {
    CURI uri = m_root;
    std::size_t start = 0;
    for (std::size_t slash; (slash = relative.Find(u'/', start)) != String::npos; start = slash + 1) {
      uri = uri << relative.Mid(start, slash - start);
    }
    return uri << relative.Mid(start);
  }
  static stdfs::path native(CURI const& uri) { return stdfs::path(CLocalFileSystem::toNativePath(uri).str()); }
  static void put(CURI const& uri, std::string const& bytes) {
    std::ofstream out(native(uri), std::ios::binary | std::ios::trunc);
    out << bytes;
    ASSERT_TRUE(out.good());
  }
  static std::string get(CURI const& uri) { return localfiletest::readFile(native(uri)); }
  void wait(P<IBackgroundOp> const& op) { ASSERT_TRUE(op->waitFinished(kLongWait)); }
  void finish(P<IBackgroundOp> const& op) {
    wait(op);
    op->throwErrorIfFailed();
  }
  void setReadOnly(CURI const& uri, bool readOnly = true) {
    P<IFileMetaModifier> mod = m_fs->createMetaModifier(uri, false);
    mod->setAttributes(readOnly ? TFlags<IFileInfoBase::Attribute>{IFileInfoBase::AttrReadOnly}
                                : TFlags<IFileInfoBase::Attribute>());
    mod->commit();
  }
  // Links need a privilege on Windows and support from Wine's version.
  bool trySymLink(std::function<void()> const& make) {
    try {
      make();
      return true;
    } catch (CFileSystemError const& e) {
      int const problem = e.getProblem();
      if (problem == CFileSystemError::kAccessDenied || problem == CFileSystemError::kUnsupported) return false;
      throw;
    } catch (CIOError const&) {
      return false;
    }
  }

  qo::test::TempFolder m_tmp{"qo-lfs"};
  stdfs::path const m_dir = stdfs::absolute(m_tmp.folder());
  CURI const m_root = CLocalFileSystem::toURI(String(m_dir.u16string()), true);
  P<CLocalFileSystem> m_fs = newP<CLocalFileSystem>();
};

TEST_F(CLocalFileSystemTest, UrisOfOtherSchemesAreNotServed) {
  CURI const http(u"http://host/a.txt");
  std::vector<std::pair<char const*, std::function<void()>>> const calls = {
      {"getFileInfo", [&] { (void)m_fs->getFileInfo(http, false); }},
      {"createFolder", [&] { m_fs->createFolder(http, 0); }},
      {"deleteFile", [&] { m_fs->deleteFile(http, true); }},
      {"createStream", [&] { (void)m_fs->createStream(http, IIOStream::AccessReadOnly, {}); }},
      {"account", [&] { (void)m_fs->getAccountOrUserNameUsedForAccess(http); }},
  };
  for (auto const& call : calls) {
    SCOPED_TRACE(call.first);
    expectProblem(call.second, CFileSystemError::kUnservedURI, http);
  }
  try {
    (void)m_fs->fileExists(http);
    FAIL();
  } catch (CFileSystemError const& e) {
    ASSERT_TRUE(e.getCause());
    EXPECT_EQ(e.getCause()->getMessage(), u"The URI scheme is not supported.");
  }
}

TEST_F(CLocalFileSystemTest, SystemErrorsNameTheCallThatFailed) {
  // The cause of each error is the system's: on POSIX the POSIX call and
  // errno, on Windows the Windows function and its code (-1: not checked,
  // Wine's codes differ there).
  CURI const file = at(u"file.txt");
  CURI const other = at(u"other.txt");
  CURI const folder = at(u"full/");
  put(file, "a");
  put(other, "b");
  m_fs->createFolder(folder, 0);
  put(at(u"full/x"), "x");
  struct Case {
    char const* name;
    std::function<void()> call;
    char16_t const* posixApi;
    int posixCode;
    char16_t const* windowsApi;
    long long windowsCode;
  };
  std::vector<Case> const cases = {
      {"mkdir missing parent", [&] { m_fs->createFolder(at(u"no/such/"), 0); }, u"mkdir", ENOENT, u"CreateDirectoryW", 3},
      {"mkdir existing", [&] { m_fs->createFolder(folder, 0); }, u"mkdir", EEXIST, u"CreateDirectoryW", 183},
      {"rmdir not empty", [&] { m_fs->deleteEmptyFolder(folder, false); }, u"rmdir", ENOTEMPTY, u"RemoveDirectoryW", 145},
      {"rename onto existing", [&] { m_fs->moveFileOrFolder(file, other, false); }, u"renameat2", EEXIST, u"MoveFileExW", -1},
      {"list a file", [&] { (void)m_fs->getFolderContents(file); }, u"opendir", ENOTDIR, u"FindFirstFileExW", -1},
      {"open missing", [&] { (void)m_fs->createStream(at(u"missing"), IIOStream::AccessReadOnly, {}); }, u"open", ENOENT,
       u"CreateFileW", 2},
      {"link onto existing", [&] { m_fs->createFileHardLink(other, file); }, u"link", EEXIST, u"CreateHardLinkW", 183},
      {"copy missing", [&] { m_fs->copyFile(at(u"missing"), at(u"copy"), false); }, u"open", ENOENT, u"CopyFileW", 2},
  };
  bool const posix = !localPathsAreWindowsPaths();
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    try {
      c.call();
      ADD_FAILURE() << "no exception";
    } catch (CError const& e) {
      ASSERT_TRUE(e.getCause()) << describe(e);
      CError const& cause = *e.getCause();
      EXPECT_EQ(cause.getErrorCodeDomain(), posix ? u"POSIX" : u"WIN32");
      EXPECT_EQ(cause.getParams().lookup(u"api"), String(posix ? c.posixApi : c.windowsApi)) << describe(cause);
      long long const code = posix ? c.posixCode : c.windowsCode;
      if (code != -1) EXPECT_EQ(cause.getErrorCode(), code) << describe(cause);
    }
  }
}

TEST_F(CLocalFileSystemTest, FileInfoDescribesFileFolderAndNothing) {
  put(at(u"five.bin"), "12345");
  P<IFileInfoBase> file = m_fs->getFileInfo(at(u"five.bin"), false);
  EXPECT_EQ(file->getKind(), IFileInfoBase::KindFile);
  EXPECT_EQ(file->getName(), u"five.bin");
  EXPECT_EQ(file->getURI(), at(u"five.bin"));
  EXPECT_EQ(file->getSize(), 5);
  EXPECT_EQ(file->getHardLinkCount(), 1);
  EXPECT_NE(file->getFileId(), 0u);
  EXPECT_TRUE(file->getLastWriteTime().isValid());
  EXPECT_FALSE(file->getAttributes().has(IFileInfoBase::AttrReadOnly));
  P<IFileInfoBase> folder = m_fs->getFileInfo(m_root, false);
  EXPECT_EQ(folder->getKind(), IFileInfoBase::KindFolder);
  EXPECT_EQ(folder->getSize(), 0);
  EXPECT_EQ(folder->getVolumeId(), file->getVolumeId());
  P<IFileInfoBase> none = m_fs->getFileInfo(at(u"missing/deeper"), true);
  EXPECT_EQ(none->getKind(), IFileInfoBase::KindNone);
  EXPECT_EQ(none->getSize(), -1);
}

TEST_F(CLocalFileSystemTest, ExistenceQueries) {
  put(at(u"f"), "x");
  struct Case {
    char const* name;
    bool file, folder, path, accessible;
  } const cases[] = {
      {"f", true, false, true, false}, {"", false, true, true, true}, {"nothing", false, false, false, false}};
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    CURI const uri = *c.name ? at(String(c.name)) : m_root;
    EXPECT_EQ(m_fs->fileExists(uri), c.file);
    EXPECT_EQ(m_fs->folderExists(uri), c.folder);
    EXPECT_EQ(m_fs->pathExists(uri), c.path);
    EXPECT_EQ(m_fs->quickCheckFolderAccessible(uri), c.accessible);
  }
  EXPECT_FALSE(m_fs->quickCheckFolderAccessible(CURI(u"ftp://host/")));
}

TEST_F(CLocalFileSystemTest, HardLinksShareIdentity) {
  put(at(u"original"), "shared");
  m_fs->createFileHardLink(at(u"second"), at(u"original"));
  P<IFileInfoBase> a = m_fs->getFileInfo(at(u"original"), false);
  P<IFileInfoBase> b = m_fs->getFileInfo(at(u"second"), false);
  EXPECT_EQ(a->getVolumeId(), b->getVolumeId());
  EXPECT_EQ(a->getFileId(), b->getFileId());
  EXPECT_NE(a->getFileId(), 0u);
  EXPECT_EQ(b->getHardLinkCount(), 2);
  put(at(u"second"), "changed");
  EXPECT_EQ(get(at(u"original")), "changed");
  put(at(u"other"), "shared");
  EXPECT_NE(m_fs->getFileInfo(at(u"other"), false)->getFileId(), a->getFileId());
  CURI const link = at(u"link"), missing = at(u"missing"), folder = m_root;
  expectProblem([&] { m_fs->createFileHardLink(link, missing); }, CFileSystemError::kNotFound, link, &missing);
  expectProblem([&] { m_fs->createFileHardLink(link, folder); }, CFileSystemError::kWrongKind, link, &folder);
  CURI const taken = at(u"other"), source = at(u"original");
  expectProblem([&] { m_fs->createFileHardLink(taken, source); }, CFileSystemError::kAlreadyExists, taken, &source);
}

TEST_F(CLocalFileSystemTest, FolderListingIsCompleteWithoutDots) {
  std::map<String, std::string> const files = {
      {u"a.txt", "a"}, {u"b", "bbbb"}, {u"\u00e4\u00f6\u00fc \u20ac", "ue"}, {u"\U0001F600.bin", ""}};
  for (auto const& f : files) put(at(f.first), f.second);
  m_fs->createFolder(at(u"sub"), 0);
  put(at(u"sub/hidden.txt"), "not listed");
  std::map<String, P<IFileInfoBase>> seen;
  P<IFolderContentsIterator> it = m_fs->getFolderContents(m_root);
  for (P<IFileInfoBase> entry; it->getNext(entry);) {
    EXPECT_TRUE(seen.emplace(entry->getName(), entry).second) << entry->getName();
    EXPECT_EQ(entry->getURI(), m_root << entry->getName());
  }
  P<IFileInfoBase> after;
  EXPECT_FALSE(it->getNext(after));
  EXPECT_FALSE(after);
  ASSERT_EQ(seen.size(), files.size() + 1);
  for (auto const& f : files) {
    SCOPED_TRACE(f.first.toUTF8());
    ASSERT_EQ(seen.count(f.first), 1u);
    EXPECT_EQ(seen[f.first]->getKind(), IFileInfoBase::KindFile);
    EXPECT_EQ(seen[f.first]->getSize(), static_cast<long long>(f.second.size()));
  }
  EXPECT_EQ(seen[u"sub"]->getKind(), IFileInfoBase::KindFolder);
  EXPECT_FALSE(m_fs->isFolderEmpty(m_root));
  m_fs->createFolder(at(u"empty"), 0);
  EXPECT_TRUE(m_fs->isFolderEmpty(at(u"empty")));
  P<IFileInfoBase> none;
  EXPECT_FALSE(m_fs->getFolderContents(at(u"empty"))->getNext(none));
  CURI const missing = at(u"missing"), file = at(u"a.txt");
  expectProblem([&] { (void)m_fs->getFolderContents(missing); }, CFileSystemError::kNotFound, missing);
  expectProblem([&] { (void)m_fs->getFolderContents(file); }, CFileSystemError::kWrongKind, file);
  expectProblem([&] { (void)m_fs->isFolderEmpty(file); }, CFileSystemError::kWrongKind, file);
}

TEST_F(CLocalFileSystemTest, CreateAndEnsureFoldersAndFiles) {
  CURI const deep = at(u"p/q/r"), file = at(u"file"), under = at(u"file/x/y");
  expectProblem([&] { m_fs->createFolder(deep, 0); }, CFileSystemError::kNotFound, deep);
  m_fs->createFolder(deep, CLocalFileSystem::kCreateParents);
  EXPECT_TRUE(stdfs::is_directory(native(deep)));
  expectProblem([&] { m_fs->createFolder(deep, CLocalFileSystem::kCreateParents); }, CFileSystemError::kAlreadyExists,
                deep);
  put(file, "");
  expectProblem([&] { m_fs->createFolder(under, CLocalFileSystem::kCreateParents); }, CFileSystemError::kWrongKind,
                file, &under);
  CURI const folder = at(u"a/b");
  EXPECT_TRUE(m_fs->ensureFolderExists(folder, 0));
  EXPECT_FALSE(m_fs->ensureFolderExists(folder, 0));
  EXPECT_TRUE(stdfs::is_directory(native(folder)));
  expectProblem([&] { (void)m_fs->ensureFolderExists(file, 0); }, CFileSystemError::kWrongKind, file);
  m_fs->ensureFileExists(at(u"new"));
  EXPECT_TRUE(stdfs::is_regular_file(native(at(u"new"))));
  EXPECT_EQ(stdfs::file_size(native(at(u"new"))), 0u);
  put(at(u"kept"), "keep me");
  setReadOnly(at(u"kept"));
  m_fs->ensureFileExists(at(u"kept"));
  EXPECT_EQ(get(at(u"kept")), "keep me");
  expectProblem([&] { m_fs->ensureFileExists(m_root); }, CFileSystemError::kWrongKind, m_root);
}

TEST_F(CLocalFileSystemTest, DeleteFilesAndEmptyFolders) {
  CURI const f = at(u"f"), ro = at(u"ro"), folder = at(u"d"), inner = at(u"d/f");
  put(f, "x");
  put(ro, "x");
  setReadOnly(ro);
  m_fs->deleteFile(f, false);
  m_fs->deleteFile(ro, false);
  EXPECT_FALSE(stdfs::exists(native(f)));
  EXPECT_FALSE(stdfs::exists(native(ro)));
  m_fs->deleteFile(f, true);
  expectProblem([&] { m_fs->deleteFile(f, false); }, CFileSystemError::kNotFound, f);
  expectProblem([&] { m_fs->deleteFile(m_root, false); }, CFileSystemError::kWrongKind, m_root);
  EXPECT_TRUE(stdfs::is_directory(m_dir));
  m_fs->createFolder(folder, 0);
  put(inner, "x");
  expectProblem([&] { m_fs->deleteEmptyFolder(folder, false); }, CFileSystemError::kNotEmpty, folder);
  expectProblem([&] { m_fs->deleteEmptyFolder(inner, false); }, CFileSystemError::kWrongKind, inner);
  m_fs->deleteFile(inner, false);
  m_fs->deleteEmptyFolder(folder, false);
  EXPECT_FALSE(stdfs::exists(native(folder)));
  m_fs->deleteEmptyFolder(folder, true);
  expectProblem([&] { m_fs->deleteEmptyFolder(folder, false); }, CFileSystemError::kNotFound, folder);
}

TEST_F(CLocalFileSystemTest, MoveWithAndWithoutOverwrite) {
  CURI const from = at(u"from"), to = at(u"to");
  put(from, "new");
  put(to, "old");
  expectProblem([&] { m_fs->moveFileOrFolder(from, to, false); }, CFileSystemError::kAlreadyExists, from, &to);
  EXPECT_EQ(get(from), "new");
  EXPECT_EQ(get(to), "old");
  m_fs->moveFileOrFolder(from, to, true);
  EXPECT_FALSE(stdfs::exists(native(from)));
  EXPECT_EQ(get(to), "new");
  m_fs->moveFileOrFolder(to, from, false);
  EXPECT_EQ(get(from), "new");
  CURI const dir = at(u"dir"), moved = at(u"moved"), occupied = at(u"occupied");
  m_fs->createFolder(dir, 0);
  put(at(u"dir/inner"), "in");
  m_fs->moveFileOrFolder(dir, moved, false);
  EXPECT_EQ(get(at(u"moved/inner")), "in");
  m_fs->createFolder(occupied, 0);
  expectProblem([&] { m_fs->moveFileOrFolder(moved, occupied, true); }, CFileSystemError::kAlreadyExists, moved,
                &occupied);
  expectProblem([&] { m_fs->moveFileOrFolder(dir, to, false); }, CFileSystemError::kNotFound, dir, &to);
}

TEST_F(CLocalFileSystemTest, CopyFileKeepsContentAndTime) {
  CURI const from = at(u"from"), to = at(u"to");
  put(from, pattern(100000, 1));
  P<IFileMetaModifier> mod = m_fs->createMetaModifier(from, false);
  mod->setLastWriteTime(CTime::fromSeconds(1000000000));
  mod->commit();
  m_fs->copyFile(from, to, false);
  EXPECT_EQ(get(to), pattern(100000, 1));
  EXPECT_EQ(m_fs->getFileInfo(to, false)->getLastWriteTime(), CTime::fromSeconds(1000000000));
  expectProblem([&] { m_fs->copyFile(from, to, false); }, CFileSystemError::kAlreadyExists, from, &to);
  put(from, "short");
  m_fs->copyFile(from, to, true);
  EXPECT_EQ(get(to), "short");
  expectError(typeid(CIOError), [&] { m_fs->copyFile(from, from, true); }, -1, CIOError::kWriteFailed, from);
  EXPECT_EQ(get(from), "short");
  CURI const missing = at(u"missing");
  expectProblem([&] { m_fs->copyFile(missing, to, true); }, CFileSystemError::kNotFound, missing, &to);
  expectProblem([&] { m_fs->copyFile(m_root, to, true); }, CFileSystemError::kWrongKind, m_root, &to);
  EXPECT_EQ(get(to), "short");
}

TEST_F(CLocalFileSystemTest, UniqueNamesSkipTakenOnes) {
  EXPECT_EQ(m_fs->createUniqueFilename(m_root, u"a.txt"), at(u"a.txt"));
  put(at(u"a.txt"), "");
  put(at(u"a (2).txt"), "");
  EXPECT_EQ(m_fs->createUniqueFilename(m_root, u"a.txt"), at(u"a (3).txt"));
  put(at(u".profile"), "");
  EXPECT_EQ(m_fs->createUniqueFilename(m_root, u".profile"), at(u".profile (2)"));
  m_fs->createFolder(at(u"x.y"), 0);
  EXPECT_EQ(m_fs->createUniqueFolderName(m_root, u"x.y"), at(u"x.y (2)"));
  EXPECT_EQ(m_fs->createUniqueFolderName(m_root, u"fresh"), at(u"fresh"));
  for (char16_t const* bad : {u"", u".", u"..", u"a/b"}) {
    SCOPED_TRACE(String(bad).toUTF8());
    EXPECT_THROW((void)m_fs->createUniqueFilename(m_root, bad), CInvalidArgError);
    EXPECT_THROW((void)m_fs->createUniqueFolderName(m_root, bad), CInvalidArgError);
  }
}

TEST_F(CLocalFileSystemTest, LongAndNonAsciiPaths) {
  // Five components of 70 characters: well beyond 260 in all.
  String component;
  for (int i = 0; i < 7; ++i) component += u"\u00e9t\u00e9-\U0001F600-\u4e2d";
  component = component.Left(70);
  CURI folder = m_root;
  for (int i = 0; i < 5; ++i) folder = folder << (component + toString(i));
  CURI const file = folder << u"\u00fcber \u20ac.dat";
  ASSERT_GT(CLocalFileSystem::toNativePath(file).length(), 300u);
  m_fs->createFolder(folder, CLocalFileSystem::kCreateParents);
  P<IIOStream> out = m_fs->createStream(file, IIOStream::AccessWriteOnly, {IIOStream::FlagCreate});
  out->write("long path", 9);
  out->close();
  EXPECT_EQ(m_fs->getFileInfo(file, false)->getSize(), 9);
  P<IFileInfoBase> entry;
  ASSERT_TRUE(m_fs->getFolderContents(folder)->getNext(entry));
  EXPECT_EQ(entry->getName(), file.getName());
  CURI const moved = folder << u"\u00e4.dat";
  m_fs->moveFileOrFolder(file, moved, false);
  m_fs->copyFile(moved, file, false);
  EXPECT_EQ(m_fs->getFileInfo(file, false)->getSize(), 9);
  m_fs->deleteFile(moved, false);
  m_fs->deleteFile(file, false);
  EXPECT_TRUE(m_fs->isFolderEmpty(folder));
  // Bottom up: the clean-up's std::filesystem cannot reach paths this long
  // on Windows.
  CURI f = folder;
  for (int i = 0; i < 5; ++i, f = f.getParent()) m_fs->deleteEmptyFolder(f, false);
  EXPECT_TRUE(m_fs->isFolderEmpty(m_root));
}

TEST_F(CLocalFileSystemTest, FileSymLinkKeepsRelativeTarget) {
  put(at(u"target.txt"), "through");
  CURI const link = at(u"link");
  if (!trySymLink([&] { m_fs->createFileSymLink(link, CURI(u"target.txt")); })) {
    GTEST_SKIP() << "symbolic links are not available here (privilege or Wine)";
  }
  P<IFileInfoBase> own = m_fs->getFileInfo(link, false);
  EXPECT_EQ(own->getKind(), IFileInfoBase::KindSymLink);
  EXPECT_EQ(own->getLinkTarget(), u"target.txt");
  EXPECT_FALSE(own->isLinkToFolder());
  P<IFileInfoBase> followed = m_fs->getFileInfo(link, true);
  EXPECT_EQ(followed->getKind(), IFileInfoBase::KindFile);
  EXPECT_EQ(followed->getSize(), 7);
  EXPECT_TRUE(m_fs->fileExists(link));
  EXPECT_EQ(get(link), "through");
  CURI const file = at(u"target.txt");
  expectProblem([&] { m_fs->deleteSymLink(file); }, CFileSystemError::kWrongKind, file);
  expectProblem([&] { m_fs->unlinkFolder(link); }, CFileSystemError::kWrongKind, link);
  m_fs->deleteSymLink(link);
  EXPECT_FALSE(m_fs->pathExists(link));
  EXPECT_EQ(get(file), "through");
  // A dangling link is a path, but no file.
  ASSERT_TRUE(trySymLink([&] { m_fs->createFileSymLink(link, CURI(u"gone")); }));
  EXPECT_TRUE(m_fs->pathExists(link));
  EXPECT_FALSE(m_fs->fileExists(link));
  EXPECT_EQ(m_fs->getFileInfo(link, true)->getKind(), IFileInfoBase::KindNone);
  m_fs->deleteFile(link, false);
  EXPECT_FALSE(m_fs->pathExists(link));
}

TEST_F(CLocalFileSystemTest, FolderSymLinkAndUnlinkFolder) {
  CURI const target = at(u"real"), link = at(u"alias");
  m_fs->createFolder(target, 0);
  put(at(u"real/inside"), "x");
  if (!trySymLink([&] { m_fs->createFolderSymLink(link, target); })) {
    GTEST_SKIP() << "symbolic links are not available here (privilege or Wine)";
  }
  P<IFileInfoBase> own = m_fs->getFileInfo(link, false);
  EXPECT_EQ(own->getKind(), IFileInfoBase::KindSymLink);
  EXPECT_TRUE(own->isLinkToFolder());
  EXPECT_EQ(own->getLinkTarget(), CLocalFileSystem::toNativePath(target));
  EXPECT_TRUE(m_fs->folderExists(link));
  P<IFileInfoBase> entry;
  ASSERT_TRUE(m_fs->getFolderContents(link)->getNext(entry));
  EXPECT_EQ(entry->getName(), u"inside");
  expectProblem([&] { m_fs->deleteFile(link, false); }, CFileSystemError::kWrongKind, link);
  expectProblem([&] { m_fs->deleteEmptyFolder(link, false); }, CFileSystemError::kWrongKind, link);
  expectProblem([&] { m_fs->unlinkFolder(target); }, CFileSystemError::kWrongKind, target);
  m_fs->unlinkFolder(link);
  EXPECT_FALSE(m_fs->pathExists(link));
  EXPECT_EQ(get(at(u"real/inside")), "x");
}

TEST_F(CLocalFileSystemTest, FolderHardLinkLeadsToTheFolder) {
  CURI const target = at(u"real"), link = at(u"junction");
  m_fs->createFolder(target, 0);
  if (!trySymLink([&] { m_fs->createFolderHardLink(link, target); })) {
    GTEST_SKIP() << "folder links are not available here (Wine)";
  }
  P<IFileInfoBase> own = m_fs->getFileInfo(link, false);
  EXPECT_TRUE(own->isLink());
  EXPECT_TRUE(own->isLinkToFolder());
  EXPECT_EQ(own->getLinkTarget(), CLocalFileSystem::toNativePath(target));
  put(at(u"junction/made-through-link"), "j");
  EXPECT_EQ(get(at(u"real/made-through-link")), "j");
  m_fs->unlinkFolder(link);
  EXPECT_FALSE(m_fs->pathExists(link));
  EXPECT_EQ(get(at(u"real/made-through-link")), "j");
  CURI const file = at(u"real/made-through-link");
  expectProblem([&] { m_fs->createFolderHardLink(link, file); }, CFileSystemError::kWrongKind, link, &file);
}

TEST_F(CLocalFileSystemTest, MetaModifierSetsTimesAttributesAndMode) {
  CURI const file = at(u"f");
  put(file, "data");
  CTime const written = CTime::fromMicros(981173106123456LL);  // 2001-02-03T04:05:06.123456Z
  CTime const accessed = CTime::fromMicros(1234567890654321LL);
  P<IFileMetaModifier> mod = m_fs->createMetaModifier(file, false);
  mod->setLastWriteTime(written);
  mod->setLastAccessTime(accessed);
  mod->setAttributes(TFlags<IFileInfoBase::Attribute>{IFileInfoBase::AttrReadOnly});
  mod->commit();
  P<IFileInfoBase> info = m_fs->getFileInfo(file, false);
  EXPECT_EQ(info->getLastWriteTime(), written);
  EXPECT_EQ(info->getLastAccessTime(), accessed);
  EXPECT_TRUE(info->getAttributes().has(IFileInfoBase::AttrReadOnly));
  if (!bypassesPermissions()) EXPECT_THROW((void)m_fs->createStream(file, IIOStream::AccessWriteOnly, {}), CIOError);
  setReadOnly(file, false);
  EXPECT_FALSE(m_fs->getFileInfo(file, false)->getAttributes().has(IFileInfoBase::AttrReadOnly));
  EXPECT_EQ(m_fs->getFileInfo(file, false)->getLastWriteTime(), written);
  mod = m_fs->createMetaModifier(file, false);
  mod->setPosixMode(0640);
  mod->commit();
  int const posixMode = m_fs->getFileInfo(file, false)->getPosixMode();
  if (posixMode != -1) EXPECT_EQ(posixMode & 07777, 0640);
  CURI const missing = at(u"missing");
  mod = m_fs->createMetaModifier(missing, false);
  mod->setLastWriteTime(written);
  expectProblem([&] { mod->commit(); }, CFileSystemError::kNotFound, missing);
}

TEST_F(CLocalFileSystemTest, VolumeAndAccountQueries) {
  EXPECT_GT(m_fs->getFreeSpaceInFolder(m_root), 0);
  long long const sector = m_fs->getFileSectorSize(m_root);
  EXPECT_GE(sector, 512);
  EXPECT_EQ(sector & (sector - 1), 0) << sector;
  CURI const root = m_fs->getVolumeRootPath(at(u"not/yet"));
  EXPECT_TRUE(root.isParentOfOrEqual(m_root)) << root;
  EXPECT_TRUE(m_fs->folderExists(root));
  EXPECT_EQ(m_fs->getVolumeRootPath(root), root);
  CURI const missing = at(u"missing");
  expectProblem([&] { (void)m_fs->getFreeSpaceInFolder(missing); }, CFileSystemError::kNotFound, missing);
  String const name = m_fs->getAccountOrUserNameUsedForAccess(m_root);
  EXPECT_FALSE(name.isEmpty());
  EXPECT_EQ(m_fs->getAccountOrUserNameUsedForAccess(at(u"elsewhere")), name);
#ifndef _WIN32
  // What the user database says of our uid; USER may be unset or stale.
  EXPECT_EQ(name.toUTF8().find('/'), std::string::npos);
#endif
}

TEST_F(CLocalFileSystemTest, NativeMetaDataIsTheOsRecord) {
  CURI const file = at(u"f");
  put(file, "12345");
  P<IFileSystem::CNativeMetaData> data = m_fs->getNativeMetaData(file, false, String());
  P<IFileInfoBase> info = m_fs->getFileInfo(file, false);
#ifdef _WIN32
  EXPECT_EQ(data->getFormat(), u"win32.BY_HANDLE_FILE_INFORMATION");
  ASSERT_EQ(data->getSize(), 52);  // the record's fixed size
  unsigned char const* bytes = data->getData()->getData();
  auto word = [&](int at) {  // little-endian DWORD
    unsigned long long w = 0;
    for (int i = 3; i >= 0; --i) w = w << 8 | bytes[at + i];
    return w;
  };
  EXPECT_EQ(word(28), info->getVolumeId());                // dwVolumeSerialNumber
  EXPECT_EQ(word(36), 5u);                                 // nFileSizeLow
  EXPECT_EQ(word(44) << 32 | word(48), info->getFileId());  // nFileIndexHigh, nFileIndexLow
#else
  EXPECT_EQ(data->getFormat(), u"posix.stat");
  struct stat st;
  ASSERT_EQ(data->getSize(), static_cast<long long>(sizeof st));
  std::memcpy(&st, data->getData()->getData(), sizeof st);
  EXPECT_EQ(static_cast<unsigned long long>(st.st_ino), info->getFileId());
  EXPECT_EQ(st.st_size, 5);
#endif
  expectProblem([&] { (void)m_fs->getNativeMetaData(file, false, u"no-such-record"); },
                CFileSystemError::kUnsupported, file);
  CURI const missing = at(u"missing");
  expectProblem([&] { (void)m_fs->getNativeMetaData(missing, false, String()); }, CFileSystemError::kNotFound,
                missing);
}

TEST_F(CLocalFileSystemTest, SubDataStreams) {
  CURI const file = at(u"f");
  put(file, "");
#ifndef _WIN32
  EXPECT_THROW((void)m_fs->createSubDataStream(file, u"meta", IIOStream::AccessReadWrite, {IIOStream::FlagCreate}),
               CNotImplementedError);
#else
  EXPECT_THROW((void)m_fs->createSubDataStream(file, u"a:b", IIOStream::AccessReadWrite, {IIOStream::FlagCreate}),
               CInvalidArgError);
  // Wine keeps "f:meta" as a file of that name beside "f", which its own
  // listing cannot show faithfully.
  if (runsOnWine()) GTEST_SKIP() << "Wine has no alternate data streams";
  P<IIOStream> sub = m_fs->createSubDataStream(file, u"meta", IIOStream::AccessWriteOnly, {IIOStream::FlagCreate});
  sub->write("side", 4);
  sub->close();
  P<IIOStream> in = m_fs->createSubDataStream(file, u"meta", IIOStream::AccessReadOnly, {});
  char text[4] = {};
  in->read(text, 4);
  EXPECT_EQ(std::string(text, 4), "side");
  EXPECT_EQ(m_fs->getFileInfo(file, false)->getSize(), 0);
#endif
}

TEST_F(CLocalFileSystemTest, StreamsRoundTripAndReportMissingFiles) {
  CURI const file = at(u"s.bin");
  P<IIOStream> out = m_fs->createStream(file, IIOStream::AccessWriteOnly, {IIOStream::FlagCreate});
  out->write("\x00\x01\xff", 3);
  out->close();
  EXPECT_EQ(get(file), std::string("\x00\x01\xff", 3));
  CURI const missing = at(u"missing");
  expectError(typeid(CIOError), [&] { (void)m_fs->createStream(missing, IIOStream::AccessReadOnly, {}); },
              CFileSystemError::kNotFound, CIOError::kOpenFailed, missing);
}

TEST_F(CLocalFileSystemTest, BackgroundStoreOfOneMebibyte) {
  std::string const bytes = pattern(1 << 20, 7);
  CURI const target = at(u"store.bin");
  finish(m_fs->backgroundStore(target, -1, sourceOf(bytes).get(), false, nullptr));  // listener: TypicalRequestTest
  EXPECT_TRUE(get(target) == bytes);
  P<IBackgroundOp> refused = m_fs->backgroundStore(target, 3, sourceOf("abc").get(), false, nullptr);
  wait(refused);
  try {
    refused->throwErrorIfFailed();
    ADD_FAILURE() << "replaced a file without overwrite";
  } catch (CIOError const& e) {
    EXPECT_EQ(CFileSystemError::getProblem(e.getParams()), CFileSystemError::kAlreadyExists) << describe(e);
  }
  finish(m_fs->backgroundStore(target, 3, sourceOf("abcdef").get(), true, nullptr));
  EXPECT_EQ(get(target), "abc");
}

TEST_F(CLocalFileSystemTest, AFailedReplacementKeepsTheOldFile) {
  CURI const target = at(u"kept.bin");
  std::string const old = pattern(100000, 1), fresh = pattern(300000, 2);
  struct Case {
    char const* what;
    bool background;
    bool overwrite;
  };
  for (Case const c : {Case{"store", false, true}, Case{"background store", true, true}, Case{"new file", true, false}}) {
    SCOPED_TRACE(c.what);
    if (c.overwrite) {
      put(target, old);
    } else {
      stdfs::remove(native(target));
    }
    std::vector<stdfs::path> halfWay;
    int halfWayMode = -1;
    P<CPausingSource> source = newP<CPausingSource>(fresh, 64 * 1024, [&] {
      halfWay = temporaryFiles(native(m_root));
#ifndef _WIN32
      struct stat st {};
      if (halfWay.size() == 1 && stat(halfWay[0].c_str(), &st) == 0) halfWayMode = static_cast<int>(st.st_mode & 07777);
#endif
      throw CIOError(CIOError::kReadFailed, String(), CProps().add(u"why", String(u"half-way")));
    });
    try {
      if (c.background) {
        finish(m_fs->backgroundStore(target, -1, source.get(), c.overwrite, nullptr));
      } else {
        m_fs->storeFile(target, -1, source.get(), c.overwrite);
      }
      ADD_FAILURE() << "the store did not fail";
    } catch (CIOError const& e) {
      EXPECT_EQ(e.getParams().lookup(u"why"), u"half-way") << describe(e);  // the source's own error
    }
    ASSERT_EQ(1u, halfWay.size());
#ifndef _WIN32
    EXPECT_EQ(0600, halfWayMode);  // never readable by others, not even for a moment
#endif
    EXPECT_TRUE(temporaryFiles(native(m_root)).empty());
    if (c.overwrite) {
      EXPECT_TRUE(get(target) == old);
    } else {
      EXPECT_FALSE(stdfs::exists(native(target)));
    }
  }
  m_fs->storeFile(target, -1, sourceOf(fresh).get(), true);
  EXPECT_TRUE(get(target) == fresh);
}

TEST_F(CLocalFileSystemTest, OwnersAreThePosixIds) {
  CURI const file = at(u"owned");
  put(file, "x");
  long long owner = -2, group = -2;
#ifdef _WIN32
  EXPECT_THROW(m_fs->getOwner(file, false, owner, group), CNotImplementedError);
  EXPECT_THROW(m_fs->setOwner(file, false, 1, 1), CNotImplementedError);
#else
  m_fs->getOwner(file, false, owner, group);
  EXPECT_EQ(static_cast<long long>(geteuid()), owner);
  EXPECT_EQ(static_cast<long long>(getegid()), group);
  if (geteuid() == 0) {
    m_fs->setOwner(file, false, 1234, -1);  // -1: the group stays
    m_fs->getOwner(file, false, owner, group);
    EXPECT_EQ(1234, owner);
    EXPECT_EQ(static_cast<long long>(getegid()), group);
  } else {
    expectProblem([&] { m_fs->setOwner(file, false, 0, -1); }, CFileSystemError::kAccessDenied, file);
  }
  CURI const missing = at(u"missing");
  expectProblem([&] { m_fs->getOwner(missing, false, owner, group); }, CFileSystemError::kNotFound, missing);
#endif
}

TEST_F(CLocalFileSystemTest, ExtendedAttributesRoundTrip) {
  CURI const file = at(u"tagged");
  put(file, "x");
#ifdef _WIN32
  EXPECT_THROW((void)m_fs->getExtendedAttributes(file, false), CNotImplementedError);
  EXPECT_THROW(m_fs->setExtendedAttribute(file, false, u"user.a", "b"), CNotImplementedError);
#else
  std::string const value("v\0\xFF", 3);
  try {
    m_fs->setExtendedAttribute(file, false, u"user.qo.test", value);
  } catch (CFileSystemError const& e) {
    if (CFileSystemError::getProblem(e.getParams()) == CFileSystemError::kUnsupported) {
      GTEST_SKIP() << "this file system keeps no user attributes";
    }
    throw;
  }
  auto const found = m_fs->getExtendedAttributes(file, false);
  auto const it = std::find_if(found.begin(), found.end(), [](auto const& a) { return a.first == u"user.qo.test"; });
  ASSERT_NE(it, found.end());
  EXPECT_EQ(value, it->second);
  CURI const missing = at(u"missing");
  expectProblem([&] { (void)m_fs->getExtendedAttributes(missing, false); }, CFileSystemError::kNotFound, missing);
#endif
}

TEST_F(CLocalFileSystemTest, SecurityDescriptorsCarryOver) {
  CURI const from = at(u"from"), to = at(u"to");
  put(from, "a");
  put(to, "b");
#ifdef _WIN32
  auto descriptor = [&](CURI const& uri) {
    PC<TBuffer<unsigned char>> const bytes = m_fs->getNativeMetaData(uri, true, u"security")->getData();
    return std::string(reinterpret_cast<char const*>(bytes->getData()), static_cast<std::size_t>(bytes->getSize()));
  };
  std::string const wanted = descriptor(from);
  m_fs->setSecurityDescriptor(to, wanted);
  EXPECT_TRUE(descriptor(to) == wanted);
  expectError(typeid(CIOError), [&] { m_fs->setSecurityDescriptor(to, "not a descriptor"); }, -1, CIOError::kWriteFailed,
              to);
#else
  EXPECT_THROW(m_fs->setSecurityDescriptor(to, "x"), CNotImplementedError);
#endif
}

TEST_F(CLocalFileSystemTest, TemporaryNames) {
  struct Case {
    char const* name;
    bool temporary;
  };
  for (Case const c : {Case{"~qo-0123456789abcdef.tmp", true}, Case{"~qo-0123456789abcdeF.tmp", false},
                       Case{"~qo-0123456789abcde.tmp", false}, Case{"~qo-0123456789abcdef0.tmp", false},
                       Case{"~qo-0123456789abcdef.txt", false}, Case{"x~qo-0123456789abcdef.tmp", false}}) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.temporary, CLocalFileSystem::isTemporaryName(String::fromUTF8(c.name)));
  }
}

// The child's side of AKilledStoreKeepsTheOldFile: stores into the file its
// parent names and, half-way, tells the parent on its standard output and
// waits to be killed.
TEST_F(CLocalFileSystemTest, StoreForTheKillingParent) {
  char const* const path = std::getenv(kKillTargetVar);
  if (!path || !*path) GTEST_SKIP() << "runs only as the child process of AKilledStoreKeepsTheOldFile";
  P<CPausingSource> source = newP<CPausingSource>(pattern(300000, 2), 64 * 1024, [] {
    std::fputs("half-way\n", stdout);
    std::fflush(stdout);
    CSignal never;
    (void)never.wait(-1);
  });
  m_fs->storeFile(CLocalFileSystem::toURI(String::fromUTF8(path), false), -1, source.get(), true);
  ADD_FAILURE() << "the store went on";
}

// Starts StoreForTheKillingParent in a new process of this executable to
// store into path, reads its output up to "half-way", kills it and waits for
// its end. Returns what it said, "" when it could not be run.
std::string storeHalfWayThenKill(stdfs::path const& path) {
  std::string said;
#ifdef _WIN32
  std::wstring exe(32768, L'\0');
  exe.resize(GetModuleFileNameW(nullptr, exe.data(), static_cast<DWORD>(exe.size())));
  std::wstring command = L"\"" + exe + L"\" --gtest_filter=CLocalFileSystemTest.StoreForTheKillingParent";
  SECURITY_ATTRIBUTES inherit{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  HANDLE readEnd = nullptr, writeEnd = nullptr;
  if (!CreatePipe(&readEnd, &writeEnd, &inherit, 0)) return said;
  SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
  std::wstring const var(kKillTargetVar, kKillTargetVar + std::strlen(kKillTargetVar));
  _wputenv_s(var.c_str(), path.wstring().c_str());
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  startup.hStdOutput = writeEnd;
  startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION process{};
  BOOL const started =
      CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process);
  _wputenv_s(var.c_str(), L"");
  CloseHandle(writeEnd);
  if (started) {
    char c = 0;
    DWORD got = 0;
    while (said.find("half-way") == std::string::npos && ReadFile(readEnd, &c, 1, &got, nullptr) && got == 1) said += c;
    TerminateProcess(process.hProcess, 9);
    WaitForSingleObject(process.hProcess, INFINITE);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
  }
  CloseHandle(readEnd);
#else
  std::string exe = stdfs::read_symlink("/proc/self/exe").string();
  std::string filter = "--gtest_filter=CLocalFileSystemTest.StoreForTheKillingParent";
  std::vector<std::string> env;
  for (char** e = environ; *e; ++e) env.emplace_back(*e);
  env.push_back(std::string(kKillTargetVar) + "=" + path.string());
  std::vector<char*> argv{exe.data(), filter.data(), nullptr};
  std::vector<char*> envp;
  for (std::string& e : env) envp.push_back(e.data());
  envp.push_back(nullptr);
  int fds[2];
  if (pipe(fds) != 0) return said;
  pid_t const pid = fork();
  if (pid == 0) {
    dup2(fds[1], 1);
    execve(exe.c_str(), argv.data(), envp.data());
    _exit(127);
  }
  close(fds[1]);
  char c = 0;
  while (pid > 0 && said.find("half-way") == std::string::npos && read(fds[0], &c, 1) == 1) said += c;
  close(fds[0]);
  if (pid > 0) {
    kill(pid, SIGKILL);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
  }
#endif
  return said;
}

TEST_F(CLocalFileSystemTest, AKilledStoreKeepsTheOldFile) {
  CURI const target = at(u"killed.bin");
  std::string const old = pattern(100000, 1);
  put(target, old);
  std::string const said = storeHalfWayThenKill(native(target));
  ASSERT_NE(std::string::npos, said.find("half-way")) << said;
  EXPECT_TRUE(get(target) == old);
  // The temporary file stays behind, under a name that says what it is.
  std::vector<stdfs::path> const left = temporaryFiles(native(m_root));
  ASSERT_EQ(1u, left.size());
  EXPECT_EQ(64u * 1024u, stdfs::file_size(left[0]));
}

#ifndef _WIN32
TEST_F(CLocalFileSystemTest, NamesThatAreNotUtf8SurviveTheWayThroughStrings) {
  struct Case {
    std::string bytes;     // the name on disk
    std::u16string name;  // the name in the library
  };
  std::vector<Case> const cases{
      {"latin-\xE9t\xE9", u"latin-\xDCE9t\xDCE9"},
      {"\xFF", u"\xDCFF"},
      {"cut-\xC3", u"cut-\xDCC3"},                       // a sequence that ends early
      {"surrogate-\xED\xB2\x80", u"surrogate-\xDCED\xDCB2\xDC80"},  // UTF-8 of U+DC80 is not UTF-8
      {"mixed-\xC3\xA9\xE9", u"mixed-\xE9\xDCE9"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.bytes);
    stdfs::path const onDisk = native(m_root) / c.bytes;
    {
      std::ofstream out(onDisk, std::ios::binary);
      out << c.bytes;
    }
    // Listed under the mapped name ...
    std::vector<String> names;
    P<IFolderContentsIterator> it = m_fs->getFolderContents(m_root);
    for (P<IFileInfoBase> entry; it->getNext(entry);) names.push_back(entry->getName());
    ASSERT_EQ(1u, names.size());
    EXPECT_TRUE(names[0].str() == c.name);
    // ... opened, copied and deleted by it; the copy has the same bytes in
    // its name with "copy-" in front.
    CURI const file = m_root << String(c.name);
    P<IIOStream> in = m_fs->createStream(file, IIOStream::AccessReadOnly, {});
    EXPECT_EQ(static_cast<long long>(c.bytes.size()), in->getLength());
    m_fs->storeFile(m_root << (u"copy-" + String(c.name)), -1, in.get(), false);
    in->close();
    EXPECT_EQ(localfiletest::readFile(native(m_root) / ("copy-" + c.bytes)), c.bytes);
    m_fs->deleteFile(file, false);
    m_fs->deleteFile(m_root << (u"copy-" + String(c.name)), false);
    EXPECT_TRUE(stdfs::is_empty(native(m_root)));
  }
  // A lone surrogate that stands for no byte has no name on disk.
  expectProblem([&] { (void)m_fs->getFileInfo(m_root << String(u"x\xD800"), false)->getKind(); }, CFileSystemError::kUnsupported,
                m_root << String(u"x\xD800"));
}
#endif

#ifndef _WIN32
TEST_F(CLocalFileSystemTest, SparseFilesStaySparse) {
  // 4 MiB with 4 KiB of data at both ends and in the middle.
  CURI const sparse = at(u"sparse.bin");
  constexpr off_t kSize = 4 << 20;
  std::string const data = pattern(4096, 5);
  {
    std::ofstream(native(sparse), std::ios::binary);
    stdfs::resize_file(native(sparse), static_cast<std::uintmax_t>(kSize));
    std::fstream out(native(sparse), std::ios::binary | std::ios::in | std::ios::out);
    for (off_t at : {off_t(0), kSize / 2, kSize - 4096}) out.seekp(at).write(data.data(), 4096);
  }
  auto allocated = [&](CURI const& uri) {
    struct stat st {};
    EXPECT_EQ(0, stat(native(uri).c_str(), &st));
    return static_cast<long long>(st.st_blocks) * 512;
  };
  if (allocated(sparse) >= (1 << 20)) GTEST_SKIP() << "this file system makes no holes";
  struct Case {
    char const* what;
    std::function<void(CURI const&)> copy;
  };
  std::vector<Case> const cases{
      {"copyFile", [&](CURI const& to) { m_fs->copyFile(sparse, to, false); }},
      {"storeFile", [&](CURI const& to) {
         P<IIOStream> in = m_fs->createStream(sparse, IIOStream::AccessReadOnly, {});
         m_fs->storeFile(to, -1, in.get(), false);
       }},
  };
  auto whole = [&](CURI const& uri) {  // read in one piece: 4 MiB byte by byte is slow in debug builds
    std::string bytes(static_cast<std::size_t>(stdfs::file_size(native(uri))), '\0');
    std::ifstream(native(uri), std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
  };
  std::string const original = whole(sparse);
  for (Case const& c : cases) {
    SCOPED_TRACE(c.what);
    CURI const to = at(String(std::string("copy-") + c.what));
    c.copy(to);
    EXPECT_TRUE(whole(to) == original);
    EXPECT_LT(allocated(to), 1 << 20);
  }
}
#endif

TEST_F(CLocalFileSystemTest, ManyConcurrentBackgroundStores) {
  constexpr int kThreads = 4, kPerThread = 16;
  std::vector<P<IBackgroundOp>> ops(kThreads * kPerThread);
  auto content = [](int n) { return pattern(1000 + 37 * n, n); };
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int n = t * kPerThread; n < (t + 1) * kPerThread; ++n) {
        ops[static_cast<std::size_t>(n)] =
            m_fs->backgroundStore(at(String("c" + std::to_string(n))), -1, sourceOf(content(n)).get(), false, nullptr);
      }
    });
  }
  for (std::thread& t : threads) t.join();
  for (int n = 0; n < kThreads * kPerThread; ++n) {
    SCOPED_TRACE(n);
    finish(ops[static_cast<std::size_t>(n)]);
    EXPECT_TRUE(get(at(String("c" + std::to_string(n)))) == content(n));
  }
}

TEST_F(CLocalFileSystemTest, BackgroundFolderMoveAndDelete) {
  CURI const folder = at(u"x/y"), file = at(u"x/y/f"), moved = at(u"x/g");
  finish(m_fs->backgroundCreateFolder(folder, CLocalFileSystem::kCreateParents, nullptr));
  EXPECT_TRUE(stdfs::is_directory(native(folder)));
  put(file, "m");
  finish(m_fs->backgroundMoveFileOrFolder(file, moved, false, nullptr));
  EXPECT_EQ(get(moved), "m");
  finish(m_fs->backgroundDeleteFile(moved, nullptr));
  EXPECT_FALSE(stdfs::exists(native(moved)));
  P<IBackgroundOp> again = m_fs->backgroundDeleteFile(moved, nullptr);
  wait(again);
  expectProblem([&] { again->throwErrorIfFailed(); }, CFileSystemError::kNotFound, moved);
}

TEST_F(CLocalFileSystemTest, QueuedJobsOutliveTheCallersReference) {
  std::vector<P<IBackgroundOp>> ops;
  for (int n = 0; n < 20; ++n) {
    ops.push_back(m_fs->backgroundStore(at(String("q" + std::to_string(n))), -1, sourceOf(pattern(5000, n)).get(),
                                        false, nullptr));
  }
  m_fs = nil;  // the jobs still hold the file system
  for (int n = 0; n < 20; ++n) {
    SCOPED_TRACE(n);
    finish(ops[static_cast<std::size_t>(n)]);
    EXPECT_TRUE(get(at(String("q" + std::to_string(n)))) == pattern(5000, n));
  }
}

}  // namespace
}  // namespace qo
