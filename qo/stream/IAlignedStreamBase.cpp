#include "qo/stream/IAlignedStreamBase.h"

#include <typeinfo>

namespace qo {

IAlignedStreamBase::~IAlignedStreamBase() = default;

void IAlignedStreamBase::getAlignInfo(IStreamBase& stream, int& positionAlign, int& bufferAlign,
                                      int& bestPerformancePositionAlign) {
  // The same check as P::cast, without its throw: a stream that vetoes the
  // cast counts as unaligned.
  IAlignedStreamBase* aligned = nullptr;
  if (static_cast<IBase const&>(stream).checkCastAllowed(typeid(IAlignedStreamBase))) {
    aligned = dynamic_cast<IAlignedStreamBase*>(&stream);
  }
  if (aligned == nullptr) {
    positionAlign = 1;
    bufferAlign = 1;
    bestPerformancePositionAlign = 1;
    return;
  }
  positionAlign = aligned->getPositionAlign();
  bufferAlign = aligned->getBufferAlign();
  bestPerformancePositionAlign = aligned->getBestPerformancePositionAlign();
}

int IAlignedStreamBase::getPositionAlignOf(IStreamBase& stream) {
  int position, buffer, best;
  getAlignInfo(stream, position, buffer, best);
  return position;
}

int IAlignedStreamBase::getBufferAlignOf(IStreamBase& stream) {
  int position, buffer, best;
  getAlignInfo(stream, position, buffer, best);
  return buffer;
}

int IAlignedStreamBase::getBestPerformancePositionAlignOf(IStreamBase& stream) {
  int position, buffer, best;
  getAlignInfo(stream, position, buffer, best);
  return best;
}

}  // namespace qo
