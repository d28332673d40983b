#include "qo/stream/IWriteBarrier.h"

namespace qo {

// Out of line, so that the vtable and type information live in the library.
IWriteBarrier::~IWriteBarrier() = default;

}  // namespace qo
