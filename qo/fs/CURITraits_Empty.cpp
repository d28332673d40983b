#include "qo/fs/CURITraits_Empty.h"

namespace qo {

CURITraits_Empty::CURITraits_Empty() = default;
CURITraits_Empty::~CURITraits_Empty() = default;

}  // namespace qo
