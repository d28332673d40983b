// CVolumeStream on real image files read past the cache (O_DIRECT,
// FILE_FLAG_NO_BUFFERING), on tmpfs (which refuses that) and on a loop
// device when the machine lets root attach one.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/fs/LocalFile.h"
#include "qo/stream/IAlignedStreamBase.h"
#include "qo/sys/CVolumeStream.h"
#include "../TempFolder.h"

#ifndef _WIN32
#include <unistd.h>
#endif

namespace qo {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<unsigned char>;

// Memory at an address that is a multiple of align.
class AlignedBuffer {
public:
  AlignedBuffer(std::size_t size, std::size_t align) : m_raw(size + align) {
    auto const address = reinterpret_cast<std::uintptr_t>(m_raw.data());
    m_data = m_raw.data() + (align - address % align) % align;
  }
  unsigned char* data() { return m_data; }

private:
  std::vector<unsigned char> m_raw;
  unsigned char* m_data;
};

std::vector<unsigned char> pattern(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<unsigned char> bytes(size);
  for (auto& b : bytes) b = static_cast<unsigned char>(random());
  return bytes;
}

void writeFile(fs::path const& path, std::vector<unsigned char> const& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<char const*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

bool refusesUnbuffered(CIOError const& e) {
  return e.getMessage().StartsWith(u"The file system does not support unbuffered access");
}

// A folder on a file system with unbuffered reads: the test's temporary
// folder, or (where that is tmpfs) one in the current folder.
class ImageFolder {
public:
  ImageFolder() {
    if (works(m_temp.folder())) {
      m_path = m_temp.folder();
      return;
    }
    fs::path const local = fs::current_path() / m_temp.folder().filename();
    fs::create_directories(local);
    m_own = local;
    if (works(local)) m_path = local;
  }
  ~ImageFolder() {
    std::error_code ignored;
    if (!m_own.empty()) fs::remove_all(m_own, ignored);
  }
  bool ok() const { return !m_path.empty(); }
  fs::path file(char const* name) const { return m_path / name; }
  static String native(fs::path const& p) { return String::fromUTF8(p.u8string()); }

private:
  static bool works(fs::path const& folder) {
    fs::path const probe = folder / "probe.img";
    writeFile(probe, std::vector<unsigned char>(8192));
    try {
      CVolumeStream stream(native(probe));
      return true;
    } catch (CIOError const& e) {
      if (!refusesUnbuffered(e)) throw;
      return false;
    }
  }
  test::TempFolder m_temp;
  fs::path m_own;
  fs::path m_path;
};

#define QO_NEED_IMAGE_FOLDER(folder) \
  if (!(folder).ok()) GTEST_SKIP() << "no folder here allows unbuffered reads (temporary and current folder refuse)"

TEST(CVolumeStream, ReadsAnImageInBestSizedBlocks) {
  ImageFolder folder;
  QO_NEED_IMAGE_FOLDER(folder);
  std::size_t const size = (3u << 20) + 8 * 4096;
  auto const bytes = pattern(size, 1);
  writeFile(folder.file("disk.img"), bytes);
  P<IAlignedInStream> in = CVolumeStream::open(ImageFolder::native(folder.file("disk.img")));
  int position = 0, buffer = 0, best = 0;
  IAlignedStreamBase::getAlignInfo(*in, position, buffer, best);
  EXPECT_GE(position, 512);
  EXPECT_EQ(position & (position - 1), 0) << "a power of two";
  EXPECT_EQ(buffer, position);
  EXPECT_EQ(best, CVolumeStream::kBestTransferSize);
  EXPECT_EQ(in->getLength(), static_cast<long long>(size));
  AlignedBuffer block(static_cast<std::size_t>(best), static_cast<std::size_t>(buffer));
  std::vector<unsigned char> got;
  while (int n = in->readLax(block.data(), best)) got.insert(got.end(), block.data(), block.data() + n);
  EXPECT_TRUE(got == bytes);
  EXPECT_TRUE(in->isEndOfStream());
  in->seek(static_cast<long long>(size) - position);
  in->read(block.data(), position);
  EXPECT_EQ(0, std::memcmp(block.data(), bytes.data() + size - static_cast<std::size_t>(position), position));
}

TEST(CVolumeStream, MisalignedUseIsRefusedBeforeTheDevice) {
  ImageFolder folder;
  QO_NEED_IMAGE_FOLDER(folder);
  writeFile(folder.file("disk.img"), pattern(1 << 16, 2));
  P<IAlignedInStream> in = CVolumeStream::open(ImageFolder::native(folder.file("disk.img")));
  int const sector = in->getPositionAlign();
  String const sectorText = toString(sector);
  AlignedBuffer block(static_cast<std::size_t>(sector) * 2, static_cast<std::size_t>(sector));
  struct Case {
    char const* name;
    long long kind;
    String message;
    std::function<void()> call;
  };
  Case const cases[] = {
      {"seek", CIOError::kPositionNotAligned,
       u"The specified stream position or size 100 does not conform to the alignment requirement of " + sectorText,
       [&] { in->seek(100); }},
      {"size", CIOError::kPositionNotAligned,
       u"The specified stream position or size 100 does not conform to the alignment requirement of " + sectorText,
       [&] { in->readLax(block.data(), 100); }},
      {"buffer", CIOError::kBufferNotAligned,
       u"The specified buffer for a stream operation does not conform to the buffer alignment requirement of " +
           sectorText,
       [&] { in->read(block.data() + 1, sector); }},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    try {
      c.call();
      ADD_FAILURE() << "accepted";
    } catch (CIOError const& e) {
      EXPECT_EQ(e.getErrorCode(), c.kind);
      EXPECT_EQ(e.getMessage(), c.message);
    }
    EXPECT_EQ(in->getPosition(), 0);
  }
}

TEST(CVolumeStream, AShortImageEndsInsideTheLastTransfer) {
  ImageFolder folder;
  QO_NEED_IMAGE_FOLDER(folder);
  writeFile(folder.file("short.img"), {});
  int const sector = newP<CVolumeStream>(ImageFolder::native(folder.file("short.img")))->getPositionAlign();
  auto const bytes = pattern(static_cast<std::size_t>(sector) * 2 + 100, 3);
  writeFile(folder.file("short.img"), bytes);
  auto raw = newP<CVolumeStream>(ImageFolder::native(folder.file("short.img")));
  AlignedBuffer block(static_cast<std::size_t>(sector) * 3, static_cast<std::size_t>(sector));
  EXPECT_EQ(raw->readLax(block.data(), sector * 3), sector * 2 + 100);
  EXPECT_EQ(0, std::memcmp(block.data(), bytes.data(), bytes.size()));
  EXPECT_TRUE(raw->isEndOfStream());
  EXPECT_EQ(raw->readLax(block.data(), sector), 0);
}

TEST(CVolumeStream, FailuresAreIOErrorsOfTheirKind) {
  ImageFolder folder;
  QO_NEED_IMAGE_FOLDER(folder);
  writeFile(folder.file("disk.img"), pattern(8192, 4));
  auto raw = newP<CVolumeStream>(ImageFolder::native(folder.file("disk.img")));
  AlignedBuffer block(8192, 4096);
  struct Case {
    char const* name;
    long long kind;
    std::function<void()> call;
  };
  Case const cases[] = {
      {"seek beyond the end", CIOError::kSeekFailed, [&] { raw->seek(8192 + 4096); }},
      {"lock", CIOError::kUnsupported, [&] { raw->lockRange(0, 512, IStreamBase::LockShared); }},
      {"missing file", CIOError::kOpenFailed,
       [&] { CVolumeStream(ImageFolder::native(folder.file("missing.img"))); }},
      {"read past the end", CIOError::kUnexpectedEOF,
       [&] {
         raw->seek(4096);
         raw->read(block.data(), 8192);
       }},
      {"read after close", CIOError::kStreamClosed,
       [&] {
         raw->close();
         raw->read(block.data(), 4096);
       }},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    try {
      c.call();
      ADD_FAILURE() << "accepted";
    } catch (CIOError const& e) {
      EXPECT_EQ(e.getErrorCode(), c.kind) << e.getDesc().toUTF8();
      if (c.kind == CIOError::kOpenFailed) {
        EXPECT_EQ(e.getParams().lookupLong(CFileSystemError::paramFileSysProblem(), 0), CFileSystemError::kNotFound);
        EXPECT_TRUE(e.getCause() != nil);
      }
    }
  }
}

#ifndef _WIN32
TEST(CVolumeStream, FileSystemsWithoutUnbufferedReadsNeedAllowBuffered) {
  // tmpfs refused O_DIRECT before Linux 6.6; /proc always does.
  std::error_code error;
  fs::path const shm = fs::path("/dev/shm") / ("qo-volume-test-" + std::to_string(getpid()) + ".img");
  auto const bytes = pattern(3 * 4096, 5);
  if (fs::is_directory(shm.parent_path(), error)) writeFile(shm, bytes);
  struct Remove {
    fs::path path;
    ~Remove() {
      std::error_code ignored;
      fs::remove(path, ignored);
    }
  } remove{shm};
  struct Case {
    fs::path path;
    std::vector<unsigned char> content;
  };
  Case const cases[] = {{shm, bytes}, {"/proc/self/mountinfo", {}}};  // /proc files report length 0
  int refused = 0;
  for (Case const& c : cases) {
    SCOPED_TRACE(c.path.string());
    if (!fs::exists(c.path, error)) continue;
    String const path = String::fromUTF8(c.path.u8string());
    try {
      CVolumeStream stream(path);
      continue;
    } catch (CIOError const& e) {
      EXPECT_EQ(e.getErrorCode(), CIOError::kOpenFailed);
      EXPECT_TRUE(refusesUnbuffered(e)) << e.getMessage().toUTF8();
    }
    ++refused;
    auto raw = newP<CVolumeStream>(path, true);
    EXPECT_FALSE(raw->isUnbuffered());
    EXPECT_EQ(raw->getLength(), static_cast<long long>(c.content.size()));
    AlignedBuffer block(c.content.size() + 4096, 4096);
    EXPECT_EQ(raw->readLax(block.data(), static_cast<int>(c.content.size()) + 4096),
              static_cast<int>(c.content.size()));
    EXPECT_TRUE(Bytes(block.data(), block.data() + c.content.size()) == c.content);
    P<IAlignedInStream> in = CVolumeStream::open(path, true);
    EXPECT_THROW(in->seek(1), CIOError);  // the alignment holds all the same
  }
  if (refused == 0) GTEST_SKIP() << "every file system here reads unbuffered";
}

// The output of a shell command, without its final newline.
std::string run(std::string const& command) {
  std::string out;
  if (FILE* pipe = popen((command + " 2>/dev/null").c_str(), "r")) {
    char buffer[256];
    std::size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
    pclose(pipe);
  }
  while (!out.empty() && out.back() == '\n') out.pop_back();
  return out;
}

TEST(CVolumeStream, ReadsALoopDevice) {
  if (geteuid() != 0) GTEST_SKIP() << "attaching a loop device needs root";
  ImageFolder folder;
  QO_NEED_IMAGE_FOLDER(folder);
  auto const bytes = pattern(1 << 20, 6);
  writeFile(folder.file("loop.img"), bytes);
  std::string const device = run("losetup -f --show '" + folder.file("loop.img").string() + "'");
  if (device.compare(0, 9, "/dev/loop") != 0) GTEST_SKIP() << "losetup cannot attach a loop device here";
  struct Detach {
    std::string device;
    ~Detach() { run("losetup -d " + device); }
  } detach{device};
  P<CVolumeStream> raw;
  try {
    raw = newP<CVolumeStream>(String::fromUTF8(device));
  } catch (CIOError const& e) {
    if (e.getParams().lookupLong(CFileSystemError::paramFileSysProblem(), 0) == CFileSystemError::kAccessDenied)
      GTEST_SKIP() << "the device cgroup refuses opening " << device;
    throw;
  }
  EXPECT_TRUE(raw->isDevice());
  EXPECT_EQ(raw->getLength(), static_cast<long long>(bytes.size()));
  int const sector = raw->getPositionAlign();
  EXPECT_GE(sector, 512);
  AlignedBuffer block(bytes.size(), static_cast<std::size_t>(sector));
  raw->read(block.data(), static_cast<int>(bytes.size()));
  EXPECT_EQ(0, std::memcmp(block.data(), bytes.data(), bytes.size()));
}
#endif

}  // namespace
}  // namespace qo
