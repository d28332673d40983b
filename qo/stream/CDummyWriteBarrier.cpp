#include "qo/stream/CDummyWriteBarrier.h"

namespace qo {

CDummyWriteBarrier::~CDummyWriteBarrier() = default;

}  // namespace qo
