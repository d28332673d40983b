#include "qo/fs/IFileMetaModifier.h"

namespace qo {

IFileMetaModifier::~IFileMetaModifier() = default;

}  // namespace qo
