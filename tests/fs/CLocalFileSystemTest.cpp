// CLocalFileSystem on real files in a fresh temporary folder per test: each
// operation's success and its main failure (error class, problem or kind,
// "uri"), hard-link identity, listings, moves, unique names, long and
// non-ASCII paths, links, meta data, and the background worker.
#include "qo/fs/CLocalFileSystem.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <set>
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
#include "qo/stream/CBufferStream.h"
#include "LocalFileTestSupport.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace qo {
namespace {

namespace stdfs = std::filesystem;
using localfiletest::bypassesPermissions;
using localfiletest::runsOnWine;
using Buffer = TBuffer<unsigned char>;

constexpr int kLongWait = 60000;  // an upper bound only; passing runs are quick

std::string describe(CError const& e) {
  return typeNameOf(typeid(e)) + ": " + e.getMessage().toUTF8() + " " + e.getParams().toString().toUTF8();
}

// Runs f and checks it throws exactly a CFileSystemError with problem and
// "uri" (and "uri2" when given).
void expectProblem(std::function<void()> const& f, int problem, CURI const& uri, CURI const* uri2 = nullptr) {
  try {
    f();
    ADD_FAILURE() << "no exception; expected problem " << problem;
  } catch (CError const& e) {
    EXPECT_EQ(typeid(e), typeid(CFileSystemError)) << describe(e);
    EXPECT_EQ(CFileSystemError::getProblem(e.getParams()), problem) << describe(e);
    EXPECT_EQ(e.getParams().lookup(u"uri"), uri.toString(true));
    if (uri2) EXPECT_EQ(e.getParams().lookup(u"uri2"), uri2->toString(true));
  }
}

// A listener that counts its calls and keeps the last error text.
class CCountingListener : public CBase, public IDoneListener {
public:
  void onBackgroundOpDone(IBackgroundOp*, CError const* error) override {
    if (error) m_failures++;
    m_calls++;
  }
  std::atomic<int> m_calls{0};
  std::atomic<int> m_failures{0};
};

std::string pattern(std::size_t size, unsigned seed) {
  std::string bytes(size, '\0');
  unsigned x = seed * 2654435761u + 1;
  for (char& c : bytes) {
    x = x * 1103515245u + 12345u;
    c = static_cast<char>(x >> 24);
  }
  return bytes;
}

P<CBufferStream> sourceOf(std::string const& bytes) {
  P<Buffer> buffer = newP<Buffer>(reinterpret_cast<unsigned char const*>(bytes.data()),
                                  static_cast<long long>(bytes.size()));
  return newP<CBufferStream>(static_cast<Buffer const*>(buffer.get()));
}

class CLocalFileSystemTest : public ::testing::Test {
protected:
  void SetUp() override {
    static std::atomic<int> counter{0};
    auto const* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string const name = std::string("qo-lfs-") + info->name() + "-" +
                             std::to_string(static_cast<long long>(CTime::now().getMicros() % 1000000007)) + "-" +
                             std::to_string(counter++);
    m_dir = stdfs::absolute(stdfs::path(::testing::TempDir()) / name);
    stdfs::create_directories(m_dir);
    m_root = CLocalFileSystem::toURI(String(m_dir.u16string()), true);
    m_fs = newP<CLocalFileSystem>();
  }
  void TearDown() override {
    m_fs = nil;
    std::error_code ignored;
    // Read-only leftovers would stop remove_all on Windows.
    for (auto it = stdfs::recursive_directory_iterator(m_dir, ignored); it != stdfs::recursive_directory_iterator();
         it.increment(ignored)) {
      stdfs::permissions(it->path(), stdfs::perms::owner_all, stdfs::perm_options::add | stdfs::perm_options::nofollow,
                         ignored);
    }
    stdfs::remove_all(m_dir, ignored);
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
  static std::string get(CURI const& uri) {
    std::ifstream in(native(uri), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  void wait(P<IBackgroundOp> const& op) { ASSERT_TRUE(op->waitFinished(kLongWait)); }
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

  stdfs::path m_dir;
  CURI m_root;
  P<CLocalFileSystem> m_fs;
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
  } const cases[] = {{"f", true, false, true, false}, {"", false, true, true, true}, {"nothing", false, false, false, false}};
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

TEST_F(CLocalFileSystemTest, CreateFolderWithAndWithoutParents) {
  CURI const deep = at(u"p/q/r");
  expectProblem([&] { m_fs->createFolder(deep, 0); }, CFileSystemError::kNotFound, deep);
  m_fs->createFolder(deep, CLocalFileSystem::kCreateParents);
  EXPECT_TRUE(stdfs::is_directory(native(deep)));
  expectProblem([&] { m_fs->createFolder(deep, CLocalFileSystem::kCreateParents); }, CFileSystemError::kAlreadyExists,
                deep);
  put(at(u"file"), "");
  CURI const under = at(u"file/x/y"), blocker = at(u"file");
  expectProblem([&] { m_fs->createFolder(under, CLocalFileSystem::kCreateParents); }, CFileSystemError::kWrongKind,
                blocker, &under);
}

TEST_F(CLocalFileSystemTest, EnsureFolderExistsTellsWhetherItCreated) {
  CURI const folder = at(u"a/b");
  EXPECT_TRUE(m_fs->ensureFolderExists(folder, 0));
  EXPECT_FALSE(m_fs->ensureFolderExists(folder, 0));
  EXPECT_TRUE(stdfs::is_directory(native(folder)));
  put(at(u"f"), "");
  CURI const file = at(u"f");
  expectProblem([&] { (void)m_fs->ensureFolderExists(file, 0); }, CFileSystemError::kWrongKind, file);
}

TEST_F(CLocalFileSystemTest, EnsureFileExistsKeepsExistingContent) {
  m_fs->ensureFileExists(at(u"new"));
  EXPECT_TRUE(stdfs::is_regular_file(native(at(u"new"))));
  EXPECT_EQ(stdfs::file_size(native(at(u"new"))), 0u);
  put(at(u"kept"), "keep me");
  P<IFileMetaModifier> readOnly = m_fs->createMetaModifier(at(u"kept"), false);
  readOnly->setAttributes(TFlags<IFileInfoBase::Attribute>{IFileInfoBase::AttrReadOnly});
  readOnly->commit();
  m_fs->ensureFileExists(at(u"kept"));
  EXPECT_EQ(get(at(u"kept")), "keep me");
  expectProblem([&] { m_fs->ensureFileExists(m_root); }, CFileSystemError::kWrongKind, m_root);
}

TEST_F(CLocalFileSystemTest, DeleteFile) {
  put(at(u"f"), "x");
  put(at(u"ro"), "x");
  P<IFileMetaModifier> mod = m_fs->createMetaModifier(at(u"ro"), false);
  mod->setAttributes(TFlags<IFileInfoBase::Attribute>{IFileInfoBase::AttrReadOnly});
  mod->commit();
  m_fs->deleteFile(at(u"f"), false);
  m_fs->deleteFile(at(u"ro"), false);
  EXPECT_FALSE(stdfs::exists(native(at(u"f"))));
  EXPECT_FALSE(stdfs::exists(native(at(u"ro"))));
  m_fs->deleteFile(at(u"f"), true);
  CURI const f = at(u"f");
  expectProblem([&] { m_fs->deleteFile(f, false); }, CFileSystemError::kNotFound, f);
  expectProblem([&] { m_fs->deleteFile(m_root, false); }, CFileSystemError::kWrongKind, m_root);
  EXPECT_TRUE(stdfs::is_directory(m_dir));
}

TEST_F(CLocalFileSystemTest, DeleteEmptyFolder) {
  CURI const folder = at(u"d"), file = at(u"d/f");
  m_fs->createFolder(folder, 0);
  put(file, "x");
  expectProblem([&] { m_fs->deleteEmptyFolder(folder, false); }, CFileSystemError::kNotEmpty, folder);
  expectProblem([&] { m_fs->deleteEmptyFolder(file, false); }, CFileSystemError::kWrongKind, file);
  m_fs->deleteFile(file, false);
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

  try {
    m_fs->copyFile(from, from, true);
    ADD_FAILURE() << "copied a file onto itself";
  } catch (CError const& e) {
    EXPECT_EQ(typeid(e), typeid(CIOError)) << describe(e);
    EXPECT_EQ(e.getErrorCode(), CIOError::kWriteFailed);
    EXPECT_EQ(e.getParams().lookup(u"uri"), from.toString(true));
  }
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

  P<IFileMetaModifier> back = m_fs->createMetaModifier(file, false);
  back->setAttributes(TFlags<IFileInfoBase::Attribute>());
  back->commit();
  EXPECT_FALSE(m_fs->getFileInfo(file, false)->getAttributes().has(IFileInfoBase::AttrReadOnly));
  EXPECT_EQ(m_fs->getFileInfo(file, false)->getLastWriteTime(), written);

  P<IFileMetaModifier> mode = m_fs->createMetaModifier(file, false);
  mode->setPosixMode(0640);
  mode->commit();
  int const posixMode = m_fs->getFileInfo(file, false)->getPosixMode();
  if (posixMode != -1) EXPECT_EQ(posixMode & 07777, 0640);

  CURI const missing = at(u"missing");
  P<IFileMetaModifier> gone = m_fs->createMetaModifier(missing, false);
  gone->setLastWriteTime(written);
  expectProblem([&] { gone->commit(); }, CFileSystemError::kNotFound, missing);
}

TEST_F(CLocalFileSystemTest, VolumeQueries) {
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
}

TEST_F(CLocalFileSystemTest, AccountNameIsTheProcessUser) {
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
  auto word = [&](int at) {
    return static_cast<unsigned long long>(bytes[at]) | static_cast<unsigned long long>(bytes[at + 1]) << 8 |
           static_cast<unsigned long long>(bytes[at + 2]) << 16 | static_cast<unsigned long long>(bytes[at + 3]) << 24;
  };
  EXPECT_EQ(word(28), info->getVolumeId());                        // dwVolumeSerialNumber
  EXPECT_EQ(word(36), 5u);                                         // nFileSizeLow
  EXPECT_EQ(word(44) << 32 | word(48), info->getFileId());          // nFileIndexHigh, nFileIndexLow
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
  try {
    (void)m_fs->createStream(missing, IIOStream::AccessReadOnly, {});
    ADD_FAILURE() << "opened a missing file";
  } catch (CError const& e) {
    EXPECT_EQ(typeid(e), typeid(CIOError)) << describe(e);
    EXPECT_EQ(e.getErrorCode(), CIOError::kOpenFailed);
    EXPECT_EQ(CFileSystemError::getProblem(e.getParams()), CFileSystemError::kNotFound);
    EXPECT_EQ(e.getParams().lookup(u"uri"), missing.toString(true));
  }
}

TEST_F(CLocalFileSystemTest, BackgroundStoreOfOneMebibyte) {
  std::string const bytes = pattern(1 << 20, 7);
  P<CCountingListener> listener = newP<CCountingListener>();
  CURI const target = at(u"store.bin");
  P<IBackgroundOp> op = m_fs->backgroundStore(target, -1, sourceOf(bytes).get(), false, listener.get());
  wait(op);
  op->throwErrorIfFailed();
  EXPECT_TRUE(get(target) == bytes);
  EXPECT_EQ(listener->m_calls, 1);
  EXPECT_EQ(listener->m_failures, 0);

  P<IBackgroundOp> refused = m_fs->backgroundStore(target, 3, sourceOf("abc").get(), false, nullptr);
  wait(refused);
  try {
    refused->throwErrorIfFailed();
    ADD_FAILURE() << "replaced a file without overwrite";
  } catch (CIOError const& e) {
    EXPECT_EQ(CFileSystemError::getProblem(e.getParams()), CFileSystemError::kAlreadyExists) << describe(e);
  }
  P<IBackgroundOp> replaced = m_fs->backgroundStore(target, 3, sourceOf("abcdef").get(), true, nullptr);
  wait(replaced);
  replaced->throwErrorIfFailed();
  EXPECT_EQ(get(target), "abc");
}

TEST_F(CLocalFileSystemTest, ManyConcurrentBackgroundStores) {
  constexpr int kThreads = 4;
  constexpr int kPerThread = 16;
  std::vector<P<IBackgroundOp>> ops(kThreads * kPerThread);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kPerThread; ++i) {
        int const n = t * kPerThread + i;
        ops[static_cast<std::size_t>(n)] = m_fs->backgroundStore(at(String("c" + std::to_string(n))), -1,
                                                                 sourceOf(pattern(1000 + 37 * n, n)).get(), false,
                                                                 nullptr);
      }
    });
  }
  for (std::thread& t : threads) t.join();
  for (int n = 0; n < kThreads * kPerThread; ++n) {
    SCOPED_TRACE(n);
    wait(ops[static_cast<std::size_t>(n)]);
    ops[static_cast<std::size_t>(n)]->throwErrorIfFailed();
    EXPECT_TRUE(get(at(String("c" + std::to_string(n)))) == pattern(1000 + 37 * n, n));
  }
}

TEST_F(CLocalFileSystemTest, BackgroundFolderMoveAndDelete) {
  CURI const folder = at(u"x/y"), file = at(u"x/y/f"), moved = at(u"x/g");
  P<IBackgroundOp> create = m_fs->backgroundCreateFolder(folder, CLocalFileSystem::kCreateParents, nullptr);
  wait(create);
  create->throwErrorIfFailed();
  EXPECT_TRUE(stdfs::is_directory(native(folder)));
  put(file, "m");
  P<IBackgroundOp> move = m_fs->backgroundMoveFileOrFolder(file, moved, false, nullptr);
  wait(move);
  move->throwErrorIfFailed();
  EXPECT_EQ(get(moved), "m");
  P<IBackgroundOp> remove = m_fs->backgroundDeleteFile(moved, nullptr);
  wait(remove);
  remove->throwErrorIfFailed();
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
    wait(ops[static_cast<std::size_t>(n)]);
    ops[static_cast<std::size_t>(n)]->throwErrorIfFailed();
    EXPECT_TRUE(get(at(String("q" + std::to_string(n)))) == pattern(5000, n));
  }
}

}  // namespace
}  // namespace qo
