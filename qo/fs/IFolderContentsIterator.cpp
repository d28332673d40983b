#include "qo/fs/IFolderContentsIterator.h"

namespace qo {

IFolderContentsIterator::~IFolderContentsIterator() = default;

}  // namespace qo
