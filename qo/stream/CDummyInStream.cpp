#include "qo/stream/CDummyInStream.h"

namespace qo {

CDummyInStream::CDummyInStream() : CZeroInStream(0, CURI()) {}

CDummyInStream::~CDummyInStream() = default;

}  // namespace qo
