#include "qo/stream/IStreamLock.h"

namespace qo {

// Out of line, so that the vtable and type information live in the library.
IStreamLock::~IStreamLock() = default;

}  // namespace qo
