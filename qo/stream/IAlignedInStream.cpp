#include "qo/stream/IAlignedInStream.h"

namespace qo {

IAlignedInStream::~IAlignedInStream() = default;

}  // namespace qo
