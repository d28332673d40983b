// tests/stream/StreamTestSupport.h - helpers shared by the stream tests: an
// error catcher and a scriptable input stream.
#ifndef QO_TESTS_STREAM_STREAMTESTSUPPORT_H
#define QO_TESTS_STREAM_STREAMTESTSUPPORT_H

#include <gtest/gtest.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/CIOError.h"
#include "qo/core/P.h"
#include "qo/fs/CURI.h"
#include "qo/stream/IAlignedInStream.h"
#include "qo/stream/IStreamLock.h"

namespace qo::test {

/// Runs f and returns the E it throws; records a failure when it throws
/// nothing or something else.
template <class E, class F>
std::optional<E> catchError(F&& f) {
  try {
    f();
  } catch (E const& e) {
    return e;
  } catch (std::exception const& e) {
    ADD_FAILURE() << "unexpected exception: " << e.what();
    return std::nullopt;
  }
  ADD_FAILURE() << "no exception";
  return std::nullopt;
}

/// Runs f and expects a CIOError with the code and, when given, the message;
/// returns it for further checks.
template <class F>
std::optional<CIOError> ioError(F&& f, long long code, char16_t const* message = nullptr) {
  auto error = catchError<CIOError>(std::forward<F>(f));
  if (error) {
    EXPECT_EQ(error->getErrorCode(), code);
    if (message) {
      EXPECT_EQ(error->getMessage(), String(message));
    }
  }
  return error;
}

/// One lockRange call seen by a CScriptedInStream, and whether its lock was
/// released.
struct LockCall {
  long long start;
  long long length;
  IStreamBase::LockType type;
  bool released = false;
};

/// An input stream over fixed bytes with settable alignment, a length that
/// may lie, and a record of seeks and lock calls.
class CScriptedInStream : public CBase, public IAlignedInStream {
public:
  CScriptedInStream(std::string data, String const& uri, int positionAlign = 1, int bufferAlign = 1,
                    int bestAlign = 1)
      : m_reportedLength(static_cast<long long>(data.size())),
        m_data(std::move(data)),
        m_uri(uri),
        m_positionAlign(positionAlign),
        m_bufferAlign(bufferAlign),
        m_bestAlign(bestAlign),
        m_locks(std::make_shared<std::vector<LockCall>>()) {}

  long long m_reportedLength;   // what getLength says
  int m_seekCount = 0;
  bool m_closed = false;

  std::vector<LockCall> const& locks() const { return *m_locks; }

  long long getLength() const override { return m_reportedLength; }
  long long getPosition() const override { return m_position; }
  CURI getURI() override { return m_uri; }
  void seek(long long position) override {
    ++m_seekCount;
    if (position < 0 || position > static_cast<long long>(m_data.size())) throw CIOError(CIOError::kSeekFailed);
    m_position = position;
  }
  P<IStreamLock> lockRange(long long start, long long length, LockType type) override {
    m_locks->push_back(LockCall{start, length, type});
    return newP<CLock>(m_locks, m_locks->size() - 1);
  }
  void close() override { m_closed = true; }
  void read(void* buffer, int size) override {
    if (readLax(buffer, size) < size) throw CIOError(CIOError::kUnexpectedEOF);
  }
  int readLax(void* buffer, int size) override {
    if (m_closed) throw CIOError(CIOError::kStreamClosed);
    long long const left = static_cast<long long>(m_data.size()) - m_position;
    int const count = left < size ? static_cast<int>(left) : size;
    if (count > 0) std::copy_n(m_data.data() + m_position, count, static_cast<char*>(buffer));
    m_position += count;
    return count;
  }
  int readAvailable(void* buffer, int size) override { return readLax(buffer, size); }
  bool waitReadable(int) const override { return true; }
  bool isEndOfStream() const override { return m_position >= static_cast<long long>(m_data.size()); }
  int isEndOfStream_NonBlocking() const override { return isEndOfStream() ? 1 : 0; }
  int getPositionAlign() override { return m_positionAlign; }
  int getBufferAlign() override { return m_bufferAlign; }
  int getBestPerformancePositionAlign() override { return m_bestAlign; }

private:
  class CLock : public CBase, public IStreamLock {
  public:
    CLock(std::shared_ptr<std::vector<LockCall>> log, std::size_t index) : m_log(std::move(log)), m_index(index) {}
    ~CLock() override { (*m_log)[m_index].released = true; }

  private:
    std::shared_ptr<std::vector<LockCall>> m_log;
    std::size_t m_index;
  };

  std::string m_data;
  long long m_position = 0;
  CURI m_uri;
  int m_positionAlign;
  int m_bufferAlign;
  int m_bestAlign;
  std::shared_ptr<std::vector<LockCall>> m_locks;
};

}  // namespace qo::test

#endif  // QO_TESTS_STREAM_STREAMTESTSUPPORT_H
