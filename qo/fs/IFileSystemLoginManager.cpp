#include "qo/fs/IFileSystemLoginManager.h"

namespace qo {

IFileSystemLoginManager::~IFileSystemLoginManager() = default;

}  // namespace qo
