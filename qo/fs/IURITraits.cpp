#include "qo/fs/IURITraits.h"

namespace qo {

IURITraits::~IURITraits() = default;

}  // namespace qo
