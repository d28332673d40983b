#include "qo/stream/CRetryingIOStreamWrapper.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>

#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/TBuffer.h"
#include "qo/stream/CBufferStream.h"
#include "stream/StreamTestSupport.h"

using qo::CIOError;
using qo::CRetryingIOStreamWrapper;
using qo::P;
using Bytes = qo::TBuffer<unsigned char>;

namespace {

/// A memory stream whose chosen calls of one operation fail, after doing
/// half of their work (so a repeat must start at the same position again).
class CFlakyStream : public qo::CDelegatingIOStream {
public:
  CFlakyStream(std::string operation, std::set<int> failingCalls, long long kind, long long problem, P<Bytes> const& bytes)
      : CDelegatingIOStream(qo::newP<qo::CBufferStream>(bytes.get()).get()),
        m_operation(std::move(operation)),
        m_failing(std::move(failingCalls)),
        m_kind(kind),
        m_problem(problem) {}
  bool refuseSeek = false;

  void write(void const* data, int size, qo::IWriteBarrier* barrier) override {
    if (shouldFail("write")) {
      CDelegatingIOStream::write(data, size / 2, barrier);
      fail();
    }
    CDelegatingIOStream::write(data, size, barrier);
  }
  int readLax(void* buffer, int size) override {
    if (shouldFail("read")) {
      (void)CDelegatingIOStream::readLax(buffer, size / 2);
      fail();
    }
    return CDelegatingIOStream::readLax(buffer, size);
  }
  void read(void* buffer, int size) override {
    if (readLax(buffer, size) < size) throw CIOError(CIOError::kUnexpectedEOF);
  }
  void seek(long long position) override {
    if (refuseSeek) throw CIOError(CIOError::kUnsupported);
    if (shouldFail("seek")) fail();
    CDelegatingIOStream::seek(position);
  }
  void flush() override {
    if (shouldFail("flush")) fail();
  }
  void setLength(long long length) override {
    if (shouldFail("setLength")) fail();
    CDelegatingIOStream::setLength(length);
  }

private:
  bool shouldFail(char const* operation) {
    return m_operation == operation && m_failing.count(++m_calls) > 0;
  }
  [[noreturn]] void fail() {
    qo::CProps props;
    if (m_problem) props.addLong(u"fileSysProblem", m_problem);
    throw CIOError(m_kind, u"flaky", props.addLong(u"call", m_calls));
  }
  std::string m_operation;
  std::set<int> m_failing;
  long long m_kind;
  long long m_problem;
  int m_calls = 0;
};

}  // namespace

TEST(CRetryingIOStreamWrapperTest, RetriesTransientFailuresAtTheSamePosition) {
  struct Case {
    char const* operation;
    std::set<int> failing;
    long long kind = CIOError::kWriteFailed;
    long long problem = 0;
    bool refuseSeek = false;
    bool anyKindTransient = false;
    long long thrown = -1;    // -1: succeeds
    long long attempts = -1;  // "attempts" of the thrown error; -1: absent
    long long retries = 0;
  } const cases[] = {
      {"write", {1, 2}, CIOError::kWriteFailed, 0, false, false, -1, -1, 2},
      {"write", {1, 2, 3}, CIOError::kWriteFailed, 0, false, false, CIOError::kWriteFailed, 3, 2},
      {"write", {1}, CIOError::kWriteFailed, 5, false, false, -1, -1, 1},  // lock conflict: passing
      {"write", {1}, CIOError::kWriteFailed, 8, false, false, CIOError::kWriteFailed, -1, 0},  // disk full
      {"write", {1}, CIOError::kCorruptData, 0, false, false, CIOError::kCorruptData, -1, 0},
      {"write", {1}, CIOError::kCorruptData, 0, false, true, -1, -1, 1},  // the caller's test decides
      {"write", {1}, CIOError::kWriteFailed, 0, true, false, CIOError::kWriteFailed, -1, 0},  // cannot go back
      {"read", {1, 2}, CIOError::kReadFailed, 0, false, false, -1, -1, 2},
      {"read", {1}, CIOError::kReadFailed, 3, false, false, CIOError::kReadFailed, -1, 0},  // access denied
      {"seek", {2}, CIOError::kSeekFailed, 0, false, false, -1, -1, 1},
      {"flush", {1, 2}, CIOError::kWriteFailed, 0, false, false, -1, -1, 2},
      {"setLength", {1}, CIOError::kUnknown, 0, false, false, -1, -1, 1},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(testing::Message() << c.operation << " failing " << c.failing.size() << " kind " << c.kind
                                    << " problem " << c.problem);
    P<Bytes> bytes = qo::newP<Bytes>(reinterpret_cast<unsigned char const*>("0123456789"), 10);
    P<CFlakyStream> flaky = qo::newP<CFlakyStream>(c.operation, c.failing, c.kind, c.problem, bytes);
    P<CRetryingIOStreamWrapper> retrying = qo::newP<CRetryingIOStreamWrapper>(flaky.get(), 3, 0, 0);
    if (c.anyKindTransient) retrying->setTransientTest([](CIOError const&) { return true; });
    flaky->seek(2);  // the first seek call
    flaky->refuseSeek = c.refuseSeek;
    char got[4] = {};
    std::function<void()> const run = [&] {
      std::string const op = c.operation;
      if (op == "write") retrying->write("abcd", 4);
      if (op == "read") retrying->read(got, 4);
      if (op == "seek") retrying->seek(6);
      if (op == "flush") retrying->flush();
      if (op == "setLength") retrying->setLength(4);
    };
    if (c.thrown < 0) {
      run();
      std::string const op = c.operation;
      std::string const content(reinterpret_cast<char const*>(bytes->getData()), static_cast<std::size_t>(bytes->getSize()));
      if (op == "write") EXPECT_EQ(content, "01abcd6789");
      if (op == "read") EXPECT_EQ(std::string(got, 4), "2345");
      if (op == "read" || op == "write") EXPECT_EQ(retrying->getPosition(), 6);
      if (op == "seek") EXPECT_EQ(retrying->getPosition(), 6);
      if (op == "setLength") EXPECT_EQ(content, "0123");
    } else {
      auto error = qo::test::ioError(run, c.thrown, u"flaky");
      if (error) EXPECT_EQ(error->getParams().lookupLong(u"attempts", -1), c.attempts);
    }
    EXPECT_EQ(retrying->getRetryCount(), c.retries);
  }
}

TEST(CRetryingIOStreamWrapperTest, BackoffDoublesUpToTheLimitAndSettingsAreChecked) {
  struct Case {
    int attempt, first, max, delay;
  } const cases[] = {{1, 100, 2000, 100}, {2, 100, 2000, 200}, {5, 100, 2000, 1600}, {6, 100, 2000, 2000},
                     {40, 100, 2000, 2000}, {3, 0, 2000, 0},    {1, 500, 200, 200}};
  for (auto const& c : cases) {
    SCOPED_TRACE(c.attempt);
    EXPECT_EQ(CRetryingIOStreamWrapper::delayBefore(c.attempt, c.first, c.max), c.delay);
  }
  P<qo::CBufferStream> inner = qo::newP<qo::CBufferStream>();
  qo::test::catchError<qo::CInvalidArgError>([&] { (void)qo::newP<CRetryingIOStreamWrapper>(inner.get(), 0, 0, 0); });
  qo::test::catchError<qo::CInvalidArgError>([&] { (void)qo::newP<CRetryingIOStreamWrapper>(inner.get(), 2, -1, 0); });
}
