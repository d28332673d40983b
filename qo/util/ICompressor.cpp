#include "qo/util/ICompressor.h"

namespace qo {

// Out of line, so that the vtable and type information live in the library.
ICompressor::~ICompressor() = default;

}  // namespace qo
