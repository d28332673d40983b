// qo/qo.h - the public header of the qo library: includes every public
// header. Programs may include this one or only the headers they use.
//
//   #include "qo/qo.h"
//   int main() {
//     qo::CQoInit init;  // first thing in, last thing out
//     ...
//   }
#ifndef QO_QO_H
#define QO_QO_H

#include "qo/core/Export.h"

#include "qo/core/CBadCollPositionError.h"
#include "qo/core/CBadPathError.h"
#include "qo/core/CBadStateError.h"
#include "qo/core/CBase.h"
#include "qo/core/CCastError.h"
#include "qo/core/CError.h"
#include "qo/core/CFileCorruptedError.h"
#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CNotImplementedError.h"
#include "qo/core/CParseError.h"
#include "qo/core/CPreserveLastSysError.h"
#include "qo/core/CProps.h"
#include "qo/core/CQoInit.h"
#include "qo/core/CSafeGlobalDisposer.h"
#include "qo/core/CSafeGlobalSlot.h"
#include "qo/core/CSocketError.h"
#include "qo/core/CStdExceptionError.h"
#include "qo/core/CSystemError.h"
#include "qo/core/CTestSafeGlobalHelper.h"
#include "qo/core/CTime.h"
#include "qo/core/CTimeSpan.h"
#include "qo/core/CUnencodableStringError.h"
#include "qo/core/ErrorLog.h"
#include "qo/core/IBase.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/core/TArray.h"
#include "qo/core/TBuffer.h"
#include "qo/core/TConstBufferSlice.h"
#include "qo/core/TConstOptRef.h"
#include "qo/core/TFlags.h"
#include "qo/core/TList.h"
#include "qo/core/TRequireNewAlloc.h"
#include "qo/core/TSimpleType.h"
#include "qo/core/TypeName.h"

#include "qo/fs/CMacPathTraits.h"
#include "qo/fs/CPathTraitsBase.h"
#include "qo/fs/CUnixPathTraits.h"
#include "qo/fs/CWindowsPathTraits.h"
#include "qo/fs/TPathImpl.h"

#include "qo/thread/CDummyThreadInitService.h"
#include "qo/thread/CMutex.h"
#include "qo/thread/CMutexLock.h"
#include "qo/thread/CMutexUnlock.h"
#include "qo/thread/CMutexWithStarveProtection.h"
#include "qo/thread/CSemaphore.h"
#include "qo/thread/CSemaphoreLock.h"
#include "qo/thread/CSemaphoreMutex.h"
#include "qo/thread/CSignal.h"
#include "qo/thread/CThread.h"
#include "qo/thread/CThreadList.h"
#include "qo/thread/CThreadLocalStorage.h"
#include "qo/thread/CThreadLocalStorageManager.h"
#include "qo/thread/CWindowsEvent.h"
#include "qo/thread/CWindowsSemaphore.h"
#include "qo/thread/IMutex.h"
#include "qo/thread/IRunnable.h"
#include "qo/thread/ISemaphore.h"
#include "qo/thread/IThreadInitService.h"
#include "qo/thread/threadYield.h"

#endif  // QO_QO_H
