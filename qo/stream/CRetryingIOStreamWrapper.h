// qo/stream/CRetryingIOStreamWrapper.h - runs a failed read or write again
// when the failure looks passing (a network share that hiccups, a file that
// another program holds for a moment).
//
// read, readLax, readAvailable, write, writeKeepBuffer, seek, flush and
// setLength are tried up to maxAttempts times in all. Between tries the
// wrapper sleeps (CThread::sleep) firstDelayMs, then twice that, and so on,
// never more than maxDelayMs per pause (0: no pause at all).
// - Which failures are retried: only CIOErrors, and of those only the ones
//   the transient test accepts. The default test, isTransientByDefault,
//   accepts the kinds 0 (unknown), 2 (read), 3 (write) and 7 (seek) unless
//   the error names a lasting file-system problem in "fileSysProblem" (1 not
//   found, 2 already exists, 3 access denied, 4 a folder, 8 no space).
//   setTransientTest replaces that rule.
// - Reads and writes run again at the position where the first try began:
//   the wrapper seeks the inner stream back there first. A write is repeated
//   only when that seek succeeds (then writing the same bytes at the same
//   place is harmless); when the position cannot be read or restored, the
//   failure is thrown as it is. Streams that put every write at the end
//   (AccessAppend) must not be wrapped.
// - The error finally thrown is the last one, of its own class, with the
//   property "attempts" (the number of tries) when there was more than one.
// Everything else (lockRange, createWriteBarrier, close ...) is forwarded
// once.
//
//   P<IIOStream> patient = newP<CRetryingIOStreamWrapper>(share.get(), 5, 200, 5000);
//   patient->write(data, n);   // up to 5 tries, pausing 200, 400, 800, 1600 ms
//
// Not thread-safe.
#ifndef QO_STREAM_CRETRYINGIOSTREAMWRAPPER_H
#define QO_STREAM_CRETRYINGIOSTREAMWRAPPER_H

#include <functional>

#include "qo/core/CIOError.h"
#include "qo/core/Export.h"
#include "qo/stream/CDelegatingIOStream.h"

namespace qo {

/// Retries transient failures of an inner stream. Not thread-safe.
class QO_API CRetryingIOStreamWrapper : public CDelegatingIOStream {
public:
  /// Decides whether a failure is worth another try.
  using TransientTest = std::function<bool(CIOError const&)>;

  /// Shares inner (not null). maxAttempts counts all tries (1: no retry).
  /// Throws CInvalidArgError ("CRetryingIOStreamWrapper constructor") for
  /// maxAttempts below 1 or a negative delay.
  CRetryingIOStreamWrapper(IIOStream* inner, int maxAttempts = 3, int firstDelayMs = 100, int maxDelayMs = 2000);
  ~CRetryingIOStreamWrapper() override;

  /// Replaces the transient test; an empty function restores the default.
  void setTransientTest(TransientTest test);
  /// The rule described at the top. Thread-safe.
  static bool isTransientByDefault(CIOError const& error);
  /// The pause before try number attempt + 1 (attempt >= 1): firstDelayMs
  /// doubled attempt - 1 times, at most maxDelayMs. Thread-safe.
  static int delayBefore(int attempt, int firstDelayMs, int maxDelayMs);
  /// How many tries were repeated so far, over all operations.
  long long getRetryCount() const noexcept { return m_retryCount; }

  /// Each tries as described at the top; throws the last failure.
  void seek(long long position) override;
  void read(void* buffer, int size) override;
  int readLax(void* buffer, int size) override;
  int readAvailable(void* buffer, int size) override;
  void write(void const* data, int size, IWriteBarrier* barrier = nullptr) override;
  void writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier = nullptr) override;
  void flush() override;
  void setLength(long long length) override;

private:
  template <class F>
  auto attempt(bool positioned, F const& operation) -> decltype(operation());

  int m_maxAttempts;
  int m_firstDelayMs;
  int m_maxDelayMs;
  TransientTest m_test;
  long long m_retryCount = 0;
};

}  // namespace qo

#endif  // QO_STREAM_CRETRYINGIOSTREAMWRAPPER_H
