// qo/stream/CEnforcingIOStreamWrapper.h - makes any stream demand an
// alignment, so that code written for unbuffered devices can be checked
// against an ordinary stream.
//
// Construction checks the settings: positionAlign >= 1, bufferAlign >= 1,
// bestPerformancePositionAlign >= positionAlign and a multiple of it; other
// values throw CInvalidArgError from "CEnforcingIOStreamWrapper::construct".
// Then, before forwarding:
// - seek positions, setLength lengths, transfer sizes and the position at
//   which a transfer starts must be multiples of positionAlign, else
//   CIOError kind 11 "The specified stream position or size {value} does not
//   conform to the alignment requirement of {positionAlign}";
// - buffer addresses must be multiples of bufferAlign, else CIOError kind 12
//   "The specified buffer for a stream operation does not conform to the
//   buffer alignment requirement of {bufferAlign}".
// A refused call does not reach the inner stream. The wrapper reports the
// three given values as its own alignment.
//
//   P<IIOStream> strict = newP<CEnforcingIOStreamWrapper>(memory.get(), 512, 512, 4096);
//   strict->seek(100);   // throws kind 11
//
// Not thread-safe.
#ifndef QO_STREAM_CENFORCINGIOSTREAMWRAPPER_H
#define QO_STREAM_CENFORCINGIOSTREAMWRAPPER_H

#include "qo/core/Export.h"
#include "qo/stream/CDelegatingIOStream.h"

namespace qo {

/// A wrapper that enforces an alignment contract. Not thread-safe.
class QO_API CEnforcingIOStreamWrapper : public CDelegatingIOStream {
public:
  /// Shares inner (not null). Throws CInvalidArgError for settings that
  /// break the rules at the top (checked in the order listed there).
  CEnforcingIOStreamWrapper(IIOStream* inner, int positionAlign, int bufferAlign, int bestPerformancePositionAlign);
  ~CEnforcingIOStreamWrapper() override;

  /// Each throws CIOError kind 11 or 12 as described at the top, then
  /// forwards.
  void seek(long long position) override;
  void read(void* buffer, int size) override;
  int readLax(void* buffer, int size) override;
  int readAvailable(void* buffer, int size) override;
  void write(void const* data, int size, IWriteBarrier* barrier = nullptr) override;
  void writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier = nullptr) override;
  void setLength(long long length) override;

  /// The values given at construction.
  int getPositionAlign() override;
  int getBufferAlign() override;
  int getBestPerformancePositionAlign() override;

private:
  void checkPositionOrSize(long long value, char const* place);
  void checkBuffer(void const* buffer, char const* place);
  void checkTransfer(void const* buffer, long long size, char const* place);

  int m_positionAlign;
  int m_bufferAlign;
  int m_bestPerformancePositionAlign;
};

}  // namespace qo

#endif  // QO_STREAM_CENFORCINGIOSTREAMWRAPPER_H
