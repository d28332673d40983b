# Codecs and utilities.
set(QO_UTIL_CLASSES
  # data cache
  CDataCache
  CCachingInStream
)
