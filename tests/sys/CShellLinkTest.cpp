// CShellLink against hand-built shortcut files (exact bytes both ways), its
// own writer (round trips), malformed data, and under Windows (or Wine)
// against the shell's own IShellLinkW.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "qo/core/CNotImplementedError.h"
#include "qo/core/CParseError.h"
#include "qo/sys/CShellLink.h"
#include "../TempFolder.h"

namespace qo {
namespace {

using Bytes = CShellLink::Bytes;

// Bytes from hex digits; blanks are ignored.
Bytes hex(std::string const& digits) {
  Bytes out;
  std::string pair;
  for (char c : digits) {
    if (c == ' ' || c == '\n') continue;
    pair += c;
    if (pair.size() == 2) {
      out.push_back(static_cast<unsigned char>(std::stoi(pair, nullptr, 16)));
      pair.clear();
    }
  }
  return out;
}
Bytes ansi(std::string const& text) { return Bytes(text.begin(), text.end()); }
Bytes utf16(std::u16string const& text) {
  Bytes out;
  for (char16_t c : text) {
    out.push_back(static_cast<unsigned char>(c));
    out.push_back(static_cast<unsigned char>(c >> 8));
  }
  return out;
}
Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (Bytes const& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

std::string const kHeaderStart = "4C000000 01140200 00000000 C0000000 00000046";

// A shortcut to C:\test\a.txt as the shell writes one: link information
// with a local base path, Unicode name, relative path and working folder.
Bytes localLink() {
  return cat({hex(kHeaderStart),
              hex("9E000000"                                 // flags: info, name, relative, workdir, unicode
                  "20000000"                                 // archive
                  "00407E3C2D2ECD01 0000000000000000 0000000000000000"  // creation, access, write time
                  "06000000 00000000 01000000 0000 0000 00000000 00000000"),
              hex("3C000000 1C000000 01000000 1C000000 2D000000 00000000 3B000000"  // link info header
                  "11000000 03000000 818A7A30 10000000 00"),                          // volume id, empty label
              ansi(std::string("C:\\test\\a.txt") + '\0'), hex("00"),                // base path, suffix
              hex("0500"), utf16(u"Hello"), hex("0700"), utf16(u".\\a.txt"), hex("0700"), utf16(u"C:\\test"),
              hex("00000000")});
}

// A shortcut to a file on a share, as older systems wrote it: ANSI string
// data, an item-ID list, an environment-variable target and a block this
// reader does not know.
Bytes networkLink() {
  Bytes envBlock = cat({hex("14030000 010000A0"), ansi("%HOME%\\x")});
  envBlock.resize(8 + 260, 0);
  Bytes wide = utf16(u"%HOME%\\x");
  envBlock.insert(envBlock.end(), wide.begin(), wide.end());
  envBlock.resize(0x314, 0);
  return cat({hex(kHeaderStart),
              hex("23220000 00000000 0000000000000000 0000000000000000 0000000000000000"
                  "00000000 00000000 07000000 0000 0000 00000000 00000000"),
              hex("0700 0500 1F50AA 0000"),                                          // one item
              hex("50000000 1C000000 02000000 00000000 00000000 1C000000 42000000"),  // link info header
              hex("26000000 03000000 14000000 23000000 00000200"),                   // network link
              ansi(std::string("\\\\server\\share") + '\0'), ansi(std::string("Z:") + '\0'),
              ansi(std::string("docs\\caf\xE9.txt") + '\0'),                         // suffix in 1252
              hex("0200"), ansi("-x"), envBlock, hex("0C000000 990000A0 01020304"), hex("00000000")});
}

TEST(CShellLink, ReadsAndWritesALocalLinkByteForByte) {
  Bytes const bytes = localLink();
  P<CShellLink> link = CShellLink::parse(bytes.data(), bytes.size());
  EXPECT_EQ(link->getTargetPath(), u"C:\\test\\a.txt");
  EXPECT_EQ(link->getLocalBasePath(), u"C:\\test\\a.txt");
  EXPECT_EQ(link->getName(), u"Hello");
  EXPECT_EQ(link->getRelativePath(), u".\\a.txt");
  EXPECT_EQ(link->getWorkingDir(), u"C:\\test");
  EXPECT_EQ(link->getDriveType(), CShellLink::kDriveFixed);
  EXPECT_EQ(link->getDriveSerialNumber(), 0x307A8A81u);
  EXPECT_EQ(link->getFileAttributes(), 0x20u);
  EXPECT_EQ(link->getFileSize(), 6u);
  EXPECT_EQ(link->getShowCommand(), CShellLink::kShowNormal);
  EXPECT_EQ(link->getCreationTime().getWindowsFileTimeUTC(), 0x01CD2E2D3C7E3FFE);  // to the microsecond
  EXPECT_FALSE(link->getWriteTime().isValid());
  EXPECT_TRUE(link->serialize() == bytes);

  auto made = newP<CShellLink>();  // the same, built from its parts
  made->setLocalBasePath(u"C:\\test\\a.txt");
  made->setVolume(CShellLink::kDriveFixed, 0x307A8A81u, String());
  made->setName(u"Hello");
  made->setRelativePath(u".\\a.txt");
  made->setWorkingDir(u"C:\\test");
  made->setFileAttributes(0x20);
  made->setFileSize(6);
  made->setTimes(CTime::fromFileTime(0x01CD2E2D3C7E4000), CTime::invalid(), CTime::invalid());
  Bytes expected = bytes;
  expected[28] = 0xFE;  // CTime holds microseconds: the last 200 ns are gone
  expected[29] = 0x3F;
  EXPECT_TRUE(made->serialize() == expected);
}

TEST(CShellLink, ReadsANetworkLinkWithAnsiTextsAndKeepsUnknownBlocks) {
  Bytes const bytes = networkLink();
  P<CShellLink> link = CShellLink::parse(bytes.data(), bytes.size(), 1252);
  EXPECT_EQ(link->getNetName(), u"\\\\server\\share");
  EXPECT_EQ(link->getDeviceName(), u"Z:");
  EXPECT_EQ(link->getNetworkProviderType(), 0x20000u);
  EXPECT_EQ(link->getCommonPathSuffix(), u"docs\\caf\u00E9.txt");
  EXPECT_EQ(link->getTargetPath(), u"\\\\server\\share\\docs\\caf\u00E9.txt");
  EXPECT_EQ(link->getArguments(), u"-x");
  EXPECT_EQ(link->getEnvironmentTarget(), u"%HOME%\\x");
  ASSERT_EQ(link->getIDList().size(), 1u);
  EXPECT_TRUE(link->getIDList()[0] == hex("1F50AA"));
  ASSERT_EQ(link->getExtraDataBlocks().size(), 1u);
  EXPECT_TRUE(link->getExtraDataBlocks()[0] == hex("0C000000 990000A0 01020304"));
  EXPECT_EQ(link->getLinkFlags() & CShellLink::kRunAsUser, static_cast<unsigned>(CShellLink::kRunAsUser));

  // Written back in Unicode, it reads the same and writes the same again.
  Bytes const written = link->serialize();
  P<CShellLink> again = CShellLink::parse(written.data(), written.size());
  EXPECT_EQ(again->getTargetPath(), link->getTargetPath());
  EXPECT_EQ(again->getDeviceName(), u"Z:");
  EXPECT_EQ(again->getEnvironmentTarget(), link->getEnvironmentTarget());
  EXPECT_TRUE(again->getIDList() == link->getIDList());
  EXPECT_TRUE(again->getExtraDataBlocks() == link->getExtraDataBlocks());
  EXPECT_EQ(again->getLinkFlags() & CShellLink::kRunAsUser, static_cast<unsigned>(CShellLink::kRunAsUser));
  EXPECT_TRUE(again->serialize() == written);
}

TEST(CShellLink, TextsBeyondTheCodePageRoundTripThroughTheFile) {
  test::TempFolder temp;
  auto made = newP<CShellLink>();
  made->setLocalBasePath(u"C:\\D\u00FCcher\\\u65E5\u672C.txt");
  made->setCommonPathSuffix(u"");
  made->setVolume(CShellLink::kDriveRemovable, 7, u"St\u00E9ck \u2603");
  made->setNetwork(u"\\\\h\u00F6st\\share", u"Y:", 0);
  made->setArguments(String(u"a\0b", 3));
  made->setIconLocation(u"%SystemRoot%\\icon.dll");
  made->setIconIndex(-3);
  made->setHotKey(0x0241);
  made->save(temp.path("x.lnk"));
  P<CShellLink> back = CShellLink::load(temp.path("x.lnk"));
  EXPECT_EQ(back->getLocalBasePath(), made->getLocalBasePath());
  EXPECT_EQ(back->getVolumeLabel(), made->getVolumeLabel());
  EXPECT_EQ(back->getDriveType(), CShellLink::kDriveRemovable);
  EXPECT_EQ(back->getNetName(), made->getNetName());
  EXPECT_EQ(back->getDeviceName(), u"Y:");
  EXPECT_EQ(back->getArguments(), String(u"a\0b", 3));
  EXPECT_EQ(back->getIconLocation(), made->getIconLocation());
  EXPECT_EQ(back->getIconIndex(), -3);
  EXPECT_EQ(back->getHotKey(), 0x0241);
  EXPECT_TRUE(back->serialize() == made->serialize());
}

TEST(CShellLink, MalformedDataNamesWhereItBreaks) {
  Bytes const good = localLink();
  auto cut = [&](std::size_t n) { return Bytes(good.begin(), good.begin() + static_cast<long>(n)); };
  auto with = [&](std::size_t at, Bytes const& patch) {
    Bytes b = good;
    std::copy(patch.begin(), patch.end(), b.begin() + static_cast<long>(at));
    return b;
  };
  struct Case {
    char const* name;
    Bytes data;
    long long offset;
  };
  Case const cases[] = {
      {"empty", {}, 0},
      {"header size", with(0, hex("4D")), 0},
      {"class id", with(19, hex("47")), 4},
      {"header cut", cut(70), 0},
      {"link info cut", cut(100), 76},
      {"link info size below its header", with(76, hex("10")), 76},
      {"volume offset outside", with(76 + 12, hex("FF")), 76 + 12},
      {"string beyond the end", cut(good.size() - 10), 76 + 0x3C + 12 + 2 + 14 + 2},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    try {
      CShellLink::parse(c.data.data(), c.data.size());
      ADD_FAILURE() << "accepted";
    } catch (CParseError const& e) {
      EXPECT_TRUE(e.getMessage().StartsWith(u"Malformed shell link: ")) << e.getMessage().toUTF8();
      EXPECT_EQ(e.getParams().lookupLong(u"offset", -1), c.offset);
    }
  }
}

TEST(CShellLink, TheShellReadsOurLinksAndWeReadItsLinks) {
  test::TempFolder temp;
  String const target = temp.path("target.txt");
  std::ofstream(temp.file("target.txt")) << "x";
  try {
    CShellLink::createWithShell(temp.path("shell.lnk"), target, u"--flag", temp.path(), u"made by the shell");
  } catch (CNotImplementedError const&) {
    GTEST_SKIP() << "no Windows shell on this system";
  }
  P<CShellLink> theirs = CShellLink::load(temp.path("shell.lnk"));
  EXPECT_EQ(theirs->getTargetPath().Lower(), target.Lower());
  EXPECT_EQ(theirs->getArguments(), u"--flag");
  EXPECT_EQ(theirs->getName(), u"made by the shell");

  auto ours = newP<CShellLink>();
  ours->setLocalBasePath(target);
  ours->save(temp.path("ours.lnk"));
  EXPECT_EQ(CShellLink::getPathWithShell(temp.path("ours.lnk")).Lower(), target.Lower());
}

}  // namespace
}  // namespace qo
