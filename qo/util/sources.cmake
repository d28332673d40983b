# Codecs and utilities.
set(QO_UTIL_CLASSES
  CBase64
  CBase64InStream
  CBase64OutStream
)
