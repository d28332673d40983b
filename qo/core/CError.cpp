#include "qo/core/CError.h"

#include <memory>
#include <utility>

namespace qo {

namespace {
char const kWhatFallback[] = "<exception during CError::what>";
}  // namespace

CError::CError(String const& message, String const& errorCodeDomain, long long errorCode, CProps const& props,
               CError const* cause)
    : m_message(message),
      m_errorCodeDomain(errorCodeDomain),
      m_errorCode(errorCode),
      m_params(props),
      m_pWhatText(nullptr) {
  if (cause) m_cause = cause->clone();
}

CError::CError(CError const& other)
    : IBase(other),
      std::exception(other),
      CBase(other),
      m_message(other.m_message),
      m_errorCodeDomain(other.m_errorCodeDomain),
      m_errorCode(other.m_errorCode),
      m_params(other.m_params),
      m_cause(other.m_cause),
      m_pWhatText(nullptr) {}

CError& CError::operator=(CError const& other) {
  if (this != &other) {
    // Copy into locals first: if a copy throws, *this stays as it was.
    String message = other.m_message;
    String domain = other.m_errorCodeDomain;
    CProps params = other.m_params;
    m_message = std::move(message);
    m_errorCodeDomain = std::move(domain);
    m_errorCode = other.m_errorCode;
    m_params = std::move(params);
    m_cause = other.m_cause;
    resetWhatText();
  }
  return *this;
}

CError::~CError() { resetWhatText(); }

void CError::resetWhatText() noexcept { delete m_pWhatText.exchange(nullptr, std::memory_order_acq_rel); }

void CError::setCause(CError const& cause) { m_cause = cause.clone(); }

String CError::paramTrace() { return u"_trace"; }

void CError::addTrace(String const& entry) {
  String const key = paramTrace();
  if (m_params.contains(key)) {
    m_params.add(key, m_params.lookup(key) + u"," + entry);
  } else {
    m_params.add(key, entry);
  }
  resetWhatText();
}

String CError::getTraceListString() const { return m_params.lookup(paramTrace()); }

String CError::getInternalDesc() const {
  String codePart;
  if (!m_errorCodeDomain.isEmpty()) codePart = m_errorCodeDomain + u" " + qo::toString(m_errorCode);
  String propertyPart;
  bool first = true;
  for (auto const& entry : m_params) {
    if (!first) propertyPart += u", ";
    first = false;
    propertyPart += entry.first;
    propertyPart += u"='";
    propertyPart += entry.second;
    propertyPart += u'\'';
  }
  if (propertyPart.isEmpty()) return codePart;
  if (codePart.isEmpty()) return propertyPart;
  return codePart + u" (" + propertyPart + u")";
}

String CError::getDesc() const {
  String desc = m_message;
  String internal = getInternalDesc();
  if (!internal.isEmpty()) {
    if (!desc.isEmpty()) desc += u' ';
    desc += u'[';
    desc += internal;
    desc += u']';
  }
  return desc;
}

char const* CError::what() const noexcept {
  if (std::string const* cached = m_pWhatText.load(std::memory_order_acquire)) return cached->c_str();
  try {
    auto fresh = std::make_unique<std::string>(getDesc().toUTF8Lossy());
    std::string* expected = nullptr;
    if (m_pWhatText.compare_exchange_strong(expected, fresh.get(), std::memory_order_acq_rel,
                                            std::memory_order_acquire)) {
      return fresh.release()->c_str();
    }
    return expected->c_str();  // another thread published first; use its text
  } catch (...) {
    return kWhatFallback;
  }
}

P<CError> CError::clone() const { return P<CError>(new CError(*this)); }

void CError::throwClone() const { throw CError(*this); }

}  // namespace qo
