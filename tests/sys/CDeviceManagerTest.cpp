// CDeviceManager against the system's own tools (findmnt, df, lsblk) on
// Linux, and against what the volume calls answer under Windows (or Wine).
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/sys/CDeviceManager.h"
#include "../TempFolder.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace qo {
namespace {

using Volume = CDeviceManager::CVolumeInfo;

#ifndef _WIN32
// The output of a shell command; empty when it cannot run.
std::string run(std::string const& command) {
  std::string out;
  if (FILE* pipe = popen((command + " 2>/dev/null").c_str(), "r")) {
    char buffer[4096];
    std::size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
    pclose(pipe);
  }
  return out;
}

bool haveTool(char const* name) { return !run(std::string("command -v ") + name).empty(); }

// The blank-separated fields of each line of text.
std::vector<std::vector<std::string>> table(std::string const& text) {
  std::vector<std::vector<std::string>> rows;
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream fields(line);
    std::vector<std::string> row;
    std::string f;
    while (fields >> f) row.push_back(f);
    if (!row.empty()) rows.push_back(row);
  }
  return rows;
}

// util-linux's raw output writes unsafe bytes as \xHH.
std::string unhex(std::string const& s) {
  std::string out;
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '\\' && i + 3 < s.size() && s[i + 1] == 'x') {
      out += static_cast<char>(std::stoi(s.substr(i + 2, 2), nullptr, 16));
      i += 3;
    } else {
      out += s[i];
    }
  }
  return out;
}

// Our volumes by mount point.
std::map<std::string, Volume> byMountPoint() {
  std::map<std::string, Volume> result;
  for (Volume const& v : CDeviceManager::get()->getVolumes()) {
    for (String const& m : v.mountPoints) result[m.toUTF8()] = v;
  }
  return result;
}

TEST(CDeviceManager, VolumesMatchFindmnt) {
  if (!haveTool("findmnt")) GTEST_SKIP() << "findmnt (util-linux) is not installed";
  std::map<std::string, Volume> ours;
  for (Volume const& v : CDeviceManager::get()->getVolumes()) ours[v.id.toUTF8()] = v;
  auto rows = table(run("findmnt -rn -o TARGET,FSTYPE,MAJ:MIN"));
  ASSERT_FALSE(rows.empty());
  std::set<std::pair<std::string, std::string>> theirs;  // (id, mount point)
  for (auto const& row : rows) {
    ASSERT_EQ(row.size(), 3u);
    std::string const target = unhex(row[0]);
    SCOPED_TRACE(target);
    theirs.insert({"dev:" + row[2], target});
    auto found = ours.find("dev:" + row[2]);
    ASSERT_NE(found, ours.end());
    EXPECT_EQ(found->second.fileSystem.toUTF8(), row[1]);
    bool listed = false;
    for (String const& m : found->second.mountPoints) listed = listed || m.toUTF8() == target;
    EXPECT_TRUE(listed);
  }
  for (auto const& entry : ours) {
    for (String const& m : entry.second.mountPoints)
      EXPECT_EQ(theirs.count({entry.first, m.toUTF8()}), 1u) << entry.first << " " << m.toUTF8();
  }
}

TEST(CDeviceManager, SizesMatchDf) {
  if (!haveTool("df")) GTEST_SKIP() << "df is not installed";
  auto ours = byMountPoint();
  auto rows = table(run("df -B1 --output=target,size,avail,fstype -x tmpfs -x devtmpfs"));
  int compared = 0;
  for (auto const& row : rows) {
    if (row.size() != 4 || row[0] == "Mounted") continue;  // header, or a target with blanks
    SCOPED_TRACE(row[0]);
    auto found = ours.find(row[0]);
    ASSERT_NE(found, ours.end());
    Volume const& v = found->second;
    ASSERT_TRUE(v.sizeKnown);
    EXPECT_EQ(v.totalBytes, std::stoull(row[1]));
    // Other programs write meanwhile: the free space only roughly agrees.
    unsigned long long const avail = std::stoull(row[2]);
    unsigned long long const slack = 512ull << 20;
    EXPECT_LE(v.freeBytes, avail + slack);
    EXPECT_GE(v.freeBytes + slack, avail);
    EXPECT_EQ(v.fileSystem.toUTF8(), row[3]);
    ++compared;
  }
  EXPECT_GT(compared, 0);
}

TEST(CDeviceManager, DisksMatchLsblk) {
  if (!haveTool("lsblk")) GTEST_SKIP() << "lsblk (util-linux) is not installed";
  std::map<std::string, CDeviceManager::CDiskInfo> ours;
  for (auto const& d : CDeviceManager::get()->getDisks()) ours[d.name.toUTF8()] = d;
  auto rows = table(run("lsblk -b -d -n -r -o NAME,SIZE,LOG-SEC,PHY-SEC,RM"));
  std::set<std::string> theirs;
  for (auto const& row : rows) {
    ASSERT_EQ(row.size(), 5u);
    if (row[1] == "0") continue;  // no medium
    std::string const name = unhex(row[0]);
    SCOPED_TRACE(name);
    theirs.insert(name);
    auto found = ours.find(name);
    ASSERT_NE(found, ours.end());
    EXPECT_EQ(found->second.size, std::stoll(row[1]));
    EXPECT_EQ(found->second.logicalSectorSize, std::stoi(row[2]));
    EXPECT_EQ(found->second.physicalSectorSize, std::stoi(row[3]));
    EXPECT_EQ(found->second.removable, row[4] == "1");
    EXPECT_EQ(found->second.devicePath.toUTF8(), "/dev/" + name);
  }
  // Loop devices come and go as other programs attach them; lsblk leaves
  // RAM disks out unless asked.
  for (auto const& entry : ours) {
    if (entry.first.compare(0, 4, "loop") != 0 && entry.first.compare(0, 3, "ram") != 0)
      EXPECT_EQ(theirs.count(entry.first), 1u) << entry.first;
  }
}
#else
TEST(CDeviceManager, VolumesAnswerAsTheVolumeCalls) {
  TArray<Volume> volumes = CDeviceManager::get()->getVolumes();
  if (volumes.empty()) GTEST_SKIP() << "the system lists no volumes (FindFirstVolumeW)";
  int withLetter = 0;
  for (Volume const& v : volumes) {
    SCOPED_TRACE(v.id.toUTF8());
    for (String const& m : v.mountPoints) EXPECT_TRUE(m.EndsWith(u"\\")) << m.toUTF8();
    if (!v.mountPoints.empty() && v.mountPoints[0].getLength() == 3) {
      ++withLetter;
      EXPECT_EQ(v.devicePath, u"\\\\.\\" + v.mountPoints[0].Left(2));
      wchar_t fs[64] = L"";
      if (GetVolumeInformationW(reinterpret_cast<wchar_t const*>(v.mountPoints[0].c_str()), nullptr, 0, nullptr,
                                nullptr, nullptr, fs, 64))
        EXPECT_EQ(v.fileSystem.str(), std::u16string(reinterpret_cast<char16_t const*>(fs)));
      ULARGE_INTEGER avail, total, free;
      if (GetDiskFreeSpaceExW(reinterpret_cast<wchar_t const*>(v.mountPoints[0].c_str()), &avail, &total, &free)) {
        EXPECT_TRUE(v.sizeKnown);
        EXPECT_EQ(v.totalBytes, total.QuadPart);
      }
    }
  }
  EXPECT_GT(withLetter, 0);
}
#endif

TEST(CDeviceManager, VolumeOfAPathIsTheDeepestMountPoint) {
  test::TempFolder temp;
  Volume const v = CDeviceManager::get()->getVolumeOf(temp.path(u8"x"));
  bool prefix = false;
  for (String const& m : v.mountPoints) {
    String const p = temp.path(u8"x");
    prefix = prefix || p.Lower().StartsWith(m.Lower()) || m == u"/";
  }
  EXPECT_TRUE(prefix);
  for (Volume const& other : CDeviceManager::get()->getVolumes()) {
    for (String const& m : other.mountPoints) {
      // A deeper mount point holding the folder would have been chosen.
      if (m.getLength() > v.mountPoints[0].getLength() && temp.path().StartsWith(m + u"/"))
        ADD_FAILURE() << m.toUTF8();
    }
  }
  try {
    CDeviceManager::get()->getVolumeOf(u"relative/path");
    FAIL() << "a relative path lies on no volume";
  } catch (CInvalidArgError const& e) {
    EXPECT_EQ(e.getParams().lookup(u"path"), u"relative/path");
  }
}

TEST(CDeviceManager, OpensARawVolumeOrSaysWhyNot) {
  test::TempFolder temp;
  Volume const v = CDeviceManager::get()->getVolumeOf(temp.path());
  if (!v.hasDevice()) GTEST_SKIP() << "the temporary folder lies on a volume without a device";
  P<IAlignedInStream> in;
  try {
    in = CDeviceManager::get()->openVolume(v);
  } catch (CIOError const& e) {
    EXPECT_EQ(e.getErrorCode(), CIOError::kOpenFailed);
    if (e.getParams().lookupLong(CFileSystemError::paramFileSysProblem(), 0) == CFileSystemError::kAccessDenied)
      GTEST_SKIP() << "reading " << v.devicePath.toUTF8() << " raw is not allowed here";
    throw;
  }
  int const sector = in->getPositionAlign();
  EXPECT_GE(sector, 512);
  EXPECT_GT(in->getLength(), 0);
  EXPECT_EQ(in->getLength() % sector, 0);
  std::vector<unsigned char> raw(static_cast<std::size_t>(sector) * 2);
  unsigned char* block = raw.data() + (sector - reinterpret_cast<std::uintptr_t>(raw.data()) % sector) % sector;
  try {
    in->read(block, sector);
  } catch (CIOError const& e) {
    // Wine opens volumes but has no raw reads for them.
    if (e.getCause() != nil && e.getCause()->isError(u"WIN32", 1))
      GTEST_SKIP() << "the system answers raw volume reads with ERROR_INVALID_FUNCTION (Wine)";
    throw;
  }
  EXPECT_EQ(in->getPosition(), sector);
}

}  // namespace
}  // namespace qo
