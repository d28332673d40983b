#include "qo/stream/StreamError.h"

#include <utility>

namespace qo {

CProps withStreamURI(CProps props, CURI const& uri) {
  if (!uri.isEmpty()) props.add(CIOError::paramURI(), uri.toString(true));
  return props;
}

CIOError makeStreamError(long long kind, char const* location, String const& message, CProps props,
                         CURI const& uri) {
  CIOError error(kind, message, withStreamURI(std::move(props), uri));
  if (location != nullptr && *location != '\0') error.addTrace(String(location));
  return error;
}

}  // namespace qo
