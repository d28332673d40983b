#include "qo/ipc/CWatchdogCommand.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qo/core/CIOError.h"
#include "qo/core/CProps.h"

namespace qo {
namespace {

using Bytes = std::vector<unsigned char>;

TEST(CWatchdogCommand, EachKindHasItsExactBytesAndReadsBack) {
  CWatchdogCommand hello;
  hello.kind = CWatchdogCommand::kHello;
  hello.processId = 0x0102030405LL;
  hello.hangTimeoutMs = -1;
  hello.crashFolder = u"C:\\d";
  hello.logPath = u"\u00e9";
  CWatchdogCommand crash;
  crash.kind = CWatchdogCommand::kCrash;
  crash.threadId = 7;
  crash.crashTime = -2;
  crash.exceptionPointers = 0x1122334455667788ULL;
  crash.context = {0xAA, 0xBB};
  crash.dumpPath = u"/x\U0001F600";
  CWatchdogCommand beat;
  beat.kind = CWatchdogCommand::kHeartbeat;
  CWatchdogCommand stop;
  stop.kind = CWatchdogCommand::kStop;
  struct Case {
    char const* name;
    CWatchdogCommand const& command;
    Bytes bytes;
  } const cases[] = {
      {"hello", hello, {1, 0, 0, 0, 5, 4, 3, 2, 1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 4, 0, 0, 0, 'C', ':', '\\', 'd',
                        2, 0, 0, 0, 0xC3, 0xA9}},
      {"crash", crash, {3, 0, 0, 0, 7, 0, 0, 0, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x88, 0x77, 0x66, 0x55,
                        0x44, 0x33, 0x22, 0x11, 2, 0, 0, 0, 0xAA, 0xBB, 6, 0, 0, 0, '/', 'x', 0xF0, 0x9F, 0x98, 0x80}},
      {"heartbeat", beat, {2, 0, 0, 0}},
      {"stop", stop, {4, 0, 0, 0}},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.bytes, c.command.toBytes());
    CWatchdogCommand const back = CWatchdogCommand::fromBytes(c.bytes);
    EXPECT_EQ(c.command.kind, back.kind);
    EXPECT_EQ(c.bytes, back.toBytes());
  }
  CWatchdogCommand const back = CWatchdogCommand::fromBytes(cases[1].bytes);
  EXPECT_EQ(crash.dumpPath, back.dumpPath);
  EXPECT_EQ(crash.context, back.context);
  EXPECT_EQ(crash.exceptionPointers, back.exceptionPointers);
  EXPECT_EQ(hello.processId, CWatchdogCommand::fromBytes(cases[0].bytes).processId);

  // The crash path's encoder gives the same bytes, and -1 when short of room.
  std::wstring const path = sizeof(wchar_t) == 2 ? std::wstring(L"/x\xD83D\xDE00") : std::wstring(L"/x\U0001F600");
  unsigned char buffer[64];
  int const n = CWatchdogCommand::encodeCrash(buffer, sizeof buffer, 7, -2, crash.exceptionPointers,
                                              crash.context.data(), 2, path.c_str());
  EXPECT_EQ(cases[1].bytes, Bytes(buffer, buffer + (n < 0 ? 0 : n)));
  EXPECT_EQ(-1, CWatchdogCommand::encodeCrash(buffer, n - 1, 7, -2, 0, crash.context.data(), 2, path.c_str()));
}

TEST(CWatchdogCommand, GarbledCommandsAreRefusedWithTheirReason) {
  struct Case {
    char const* name;
    Bytes bytes;
    long long kind;
    char const* reason;
  } const cases[] = {
      {"unknown kind", {9, 0, 0, 0}, CIOError::kCorruptData, "unknown command"},
      {"left over", {2, 0, 0, 0, 0}, CIOError::kCorruptData, "bytes after the command"},
      {"cut short", {1, 0, 0}, CIOError::kUnexpectedEOF, nullptr},
      {"huge text", {1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0x7F}, CIOError::kCorruptData,
       "a text is longer than the command"},
      {"negative context", {3, 0, 0, 0, 7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF},
       CIOError::kCorruptData, "the crash context is longer than the command"},
      {"not UTF-8", {1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0xFF, 0, 0, 0, 0},
       CIOError::kCorruptData, "a text is not UTF-8"},
      {"NUL in text", {1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0},
       CIOError::kCorruptData, "a text holds a NUL character"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    try {
      (void)CWatchdogCommand::fromBytes(c.bytes);
      ADD_FAILURE() << "accepted";
    } catch (CIOError const& e) {
      EXPECT_EQ(c.kind, e.getErrorCode());
      if (c.reason) EXPECT_EQ(String::fromUTF8(c.reason), e.getParams().lookup(u"reason"));
    }
  }
}

}  // namespace
}  // namespace qo
