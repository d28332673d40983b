#include "qo/stream/IOutStream.h"

namespace qo {

IOutStream::~IOutStream() = default;

}  // namespace qo
