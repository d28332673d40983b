// CFileInfo: everything unknown at first, setters, copies; and the native
// meta-data holder of IFileSystem.
#include "qo/fs/CFileInfo.h"

#include <gtest/gtest.h>

#include <cstring>

#include "qo/fs/IFileSystem.h"

namespace qo {
namespace {

TEST(CFileInfoTest, StartsWithEverythingUnknown) {
  CFileInfo const info(CURI(u"file:///data/dir/"));
  EXPECT_EQ("file:///data/dir/", info.getURI().toString().toUTF8());
  EXPECT_EQ("dir", info.getName().toUTF8());
  EXPECT_EQ(IFileInfoBase::KindNone, info.getKind());
  EXPECT_FALSE(info.exists());
  EXPECT_EQ(-1, info.getSize());
  EXPECT_FALSE(info.getCreationTime().isValid());
  EXPECT_FALSE(info.getLastWriteTime().isValid());
  EXPECT_FALSE(info.getLastAccessTime().isValid());
  EXPECT_TRUE(info.getAttributes().isEmpty());
  EXPECT_EQ(-1, info.getPosixMode());
  EXPECT_TRUE(info.getLinkTarget().isEmpty());
  EXPECT_FALSE(info.isLinkToFolder());
  EXPECT_EQ(0u, info.getVolumeId());
  EXPECT_EQ(0u, info.getFileId());
  EXPECT_EQ(0, info.getHardLinkCount());
}

TEST(CFileInfoTest, SettersChainAndCopiesKeepTheValues) {
  P<CFileInfo> info = newP<CFileInfo>(CURI(u"file:///a/link"));
  info->setName(u"Link")
      .setKind(IFileInfoBase::KindJunction)
      .setSize(0x7FFFFFFFFFFFFFFFLL)
      .setCreationTime(CTime::fromSeconds(1))
      .setLastWriteTime(CTime::fromSeconds(2))
      .setLastAccessTime(CTime::fromSeconds(3))
      .setAttributes({IFileInfoBase::AttrHidden, IFileInfoBase::AttrSystem})
      .setPosixMode(0120777)
      .setLinkTarget(u"../target")
      .setLinkToFolder(true)
      .setVolumeId(0xFFFFFFFFFFFFFFFFULL)
      .setFileId(42)
      .setHardLinkCount(3);
  CFileInfo const copy(*info);
  IFileInfoBase const* const both[] = {info.get(), &copy};
  for (IFileInfoBase const* i : both) {
    EXPECT_EQ("Link", i->getName().toUTF8());
    EXPECT_TRUE(i->isLink());
    EXPECT_TRUE(i->exists());
    EXPECT_FALSE(i->isFolder());
    EXPECT_EQ(0x7FFFFFFFFFFFFFFFLL, i->getSize());
    EXPECT_EQ(CTime::fromSeconds(1), i->getCreationTime());
    EXPECT_EQ(CTime::fromSeconds(2), i->getLastWriteTime());
    EXPECT_EQ(CTime::fromSeconds(3), i->getLastAccessTime());
    EXPECT_EQ(0b110u, i->getAttributes().getRaw());
    EXPECT_EQ(0120777, i->getPosixMode());
    EXPECT_EQ("../target", i->getLinkTarget().toUTF8());
    EXPECT_TRUE(i->isLinkToFolder());
    EXPECT_EQ(0xFFFFFFFFFFFFFFFFULL, i->getVolumeId());
    EXPECT_EQ(42u, i->getFileId());
    EXPECT_EQ(3, i->getHardLinkCount());
  }
  EXPECT_EQ(1, copy.getRefCountForDebugging());
}

TEST(CFileInfoTest, NativeMetaDataHoldsFormatAndBytes) {
  P<IFileSystem::CNativeMetaData> empty = newP<IFileSystem::CNativeMetaData>(u"none", P<TBuffer<unsigned char>>());
  EXPECT_EQ("none", empty->getFormat().toUTF8());
  ASSERT_TRUE(empty->getData());
  EXPECT_EQ(0, empty->getSize());

  unsigned char bytes[] = {0, 1, 0xFF};
  P<IFileSystem::CNativeMetaData> copied = newP<IFileSystem::CNativeMetaData>(u"sd", bytes, 3);
  bytes[0] = 9;  // a copy: later changes of the caller's bytes do not show
  ASSERT_EQ(3, copied->getSize());
  EXPECT_EQ(0, std::memcmp("\x00\x01\xFF", copied->getData()->getData(), 3));

  P<TBuffer<unsigned char>> shared = newP<TBuffer<unsigned char>>(bytes, 2);
  P<IFileSystem::CNativeMetaData> held = newP<IFileSystem::CNativeMetaData>(u"xattr", shared);
  EXPECT_EQ(shared.get(), held->getData().get());
}

}  // namespace
}  // namespace qo
