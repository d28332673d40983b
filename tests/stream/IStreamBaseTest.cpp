#include "qo/stream/IStreamBase.h"

#include <gtest/gtest.h>

#include "qo/stream/CBufferStream.h"
#include "qo/stream/CEnforcingIOStreamWrapper.h"
#include "qo/stream/IAlignedIOStream.h"
#include "qo/stream/IIOStream.h"

using qo::CBufferStream;
using qo::CEnforcingIOStreamWrapper;
using qo::IAlignedIOStream;
using qo::IBase;
using qo::IInStream;
using qo::IIOStream;
using qo::IOutStream;
using qo::IStreamBase;
using qo::P;
using qo::String;

TEST(IStreamBaseTest, LockTypeTextsAndKeys) {
  EXPECT_EQ(static_cast<int>(IStreamBase::LockShared), 0);
  EXPECT_EQ(static_cast<int>(IStreamBase::LockExclusive), 1);
  EXPECT_EQ(IStreamBase::lockTypeToString(IStreamBase::LockShared), String(u"shared"));
  EXPECT_EQ(IStreamBase::lockTypeToString(IStreamBase::LockExclusive), String(u"exclusive"));
  EXPECT_EQ(IStreamBase::paramLockType(), String(u"lockType"));
  EXPECT_EQ(IIOStream::errParamLockConflict(), String(u"lockConflict"));
  EXPECT_EQ(static_cast<int>(IIOStream::AccessReadOnly), 1);
}

TEST(IStreamBaseTest, BothSidesOfAnIOStreamShareOneBaseAndOneCount) {
  P<CBufferStream> stream = qo::newP<CBufferStream>();
  IIOStream* io = stream.get();
  IInStream* in = io;
  IOutStream* out = io;
  EXPECT_EQ(static_cast<IStreamBase*>(in), static_cast<IStreamBase*>(out));
  EXPECT_EQ(static_cast<IBase*>(in), static_cast<IBase*>(out));
  int const before = stream->getRefCountForDebugging();
  {
    P<IInStream> a = P<IInStream>::share(in);
    P<IOutStream> b = P<IOutStream>::share(out);
    EXPECT_EQ(stream->getRefCountForDebugging(), before + 2);
  }
  EXPECT_EQ(stream->getRefCountForDebugging(), before);

  P<CEnforcingIOStreamWrapper> aligned = qo::newP<CEnforcingIOStreamWrapper>(stream.get(), 4, 8, 16);
  IAlignedIOStream* all = aligned.get();
  EXPECT_EQ(static_cast<IStreamBase*>(static_cast<IInStream*>(all)),
            static_cast<IStreamBase*>(static_cast<qo::IAlignedStreamBase*>(all)));
}
