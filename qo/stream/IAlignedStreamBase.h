// qo/stream/IAlignedStreamBase.h - the alignment contract of unbuffered
// devices.
//
// A stream that implements this interface demands:
// - every position passed to seek, every position reached, every transfer
//   size and every length set is a multiple of getPositionAlign();
// - the address of every buffer passed to a read or write is a multiple of
//   getBufferAlign();
// - getBestPerformancePositionAlign() is the block size that the device
//   handles best (a multiple of getPositionAlign()).
// A stream without the interface behaves as if all three were 1. Wrappers
// and buffering streams ask their inner stream through getAlignInfo:
//
//   int posAlign, bufAlign, bestAlign;
//   IAlignedStreamBase::getAlignInfo(*inner, posAlign, bufAlign, bestAlign);
//
// Violations throw CIOError kind 11 (position or size) or 12 (buffer).
#ifndef QO_STREAM_IALIGNEDSTREAMBASE_H
#define QO_STREAM_IALIGNEDSTREAMBASE_H

#include "qo/core/Export.h"
#include "qo/stream/IStreamBase.h"

namespace qo {

/// The alignment a stream requires of its callers. Not thread-safe.
class QO_API IAlignedStreamBase : public virtual IStreamBase {
public:
  ~IAlignedStreamBase() override;

  /// Positions, transfer sizes and lengths must be multiples of this (>= 1).
  virtual int getPositionAlign() = 0;
  /// Buffer addresses must be multiples of this (>= 1).
  virtual int getBufferAlign() = 0;
  /// The best transfer granule, a multiple of getPositionAlign().
  virtual int getBestPerformancePositionAlign() = 0;

  /// The three values of stream when it implements IAlignedStreamBase (and
  /// allows the cast), otherwise 1, 1, 1. Throws what the stream's getters
  /// throw.
  static void getAlignInfo(IStreamBase& stream, int& positionAlign, int& bufferAlign,
                           int& bestPerformancePositionAlign);
  /// The single values of getAlignInfo, for wrappers that report their
  /// inner stream's alignment as their own.
  static int getPositionAlignOf(IStreamBase& stream);
  static int getBufferAlignOf(IStreamBase& stream);
  static int getBestPerformancePositionAlignOf(IStreamBase& stream);
};

}  // namespace qo

#endif  // QO_STREAM_IALIGNEDSTREAMBASE_H
