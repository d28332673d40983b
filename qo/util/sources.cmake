# Codecs and utilities.
list(APPEND QO_PLATFORM_SERVICES Random Environment)
list(APPEND QO_WIN32_LIBS bcrypt)
set(QO_UTIL_CLASSES
  CBase64
  CBase64InStream
  CBase64OutStream
  CMTRand
  CUUID
  CCachedEnvVars
  CIniContent
  CMargins
  CNullCompressor
  CTempPathBufferPool
  ICompressor
  # data cache
  CDataCache
  CCachingInStream
)
