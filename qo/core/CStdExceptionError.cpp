#include "qo/core/CStdExceptionError.h"

#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <typeinfo>
#include <variant>

namespace qo {

namespace {
template <class T>
bool is(std::exception const& e) {
  return dynamic_cast<T const*>(&e) != nullptr;
}

String messageOf(std::exception const& e) {
  char const* text = e.what();
  return text ? String::wstringFromUTF8WithLatin1Fallback(text) : String();
}
}  // namespace

CStdExceptionError::CStdExceptionError(std::exception const& e)
    : CError(messageOf(e), getDomain(), errorCodeFromException(e)) {}

CStdExceptionError::CStdExceptionError(CStdExceptionError const& other) = default;
CStdExceptionError& CStdExceptionError::operator=(CStdExceptionError const& other) = default;
CStdExceptionError::~CStdExceptionError() = default;

P<CError> CStdExceptionError::clone() const { return P<CError>(new CStdExceptionError(*this)); }

void CStdExceptionError::throwClone() const { throw CStdExceptionError(*this); }

long long CStdExceptionError::errorCodeFromException(std::exception const& e) noexcept {
  // Subclasses are tested before their bases.
  if (is<std::bad_alloc>(e)) return kBadAlloc;
  if (is<std::bad_cast>(e)) return kBadCast;
  if (is<std::bad_typeid>(e)) return kBadTypeid;
  if (is<std::bad_exception>(e)) return kBadException;
  if (is<std::bad_function_call>(e)) return kBadFunctionCall;
  if (is<std::bad_weak_ptr>(e)) return kBadWeakPtr;
  if (is<std::bad_optional_access>(e)) return kBadOptionalAccess;
  if (is<std::bad_variant_access>(e)) return kBadVariantAccess;
  if (is<std::domain_error>(e)) return kDomainError;
  if (is<std::invalid_argument>(e)) return kInvalidArgument;
  if (is<std::length_error>(e)) return kLengthError;
  if (is<std::out_of_range>(e)) return kOutOfRange;
  if (is<std::logic_error>(e)) return kLogicError;
  if (is<std::range_error>(e)) return kRangeError;
  if (is<std::overflow_error>(e)) return kOverflowError;
  if (is<std::underflow_error>(e)) return kUnderflowError;
  if (is<std::system_error>(e)) return kSystemError;
  if (is<std::runtime_error>(e)) return kRuntimeError;
  return kOther;
}

P<CError> CStdExceptionError::exceptionToError(std::exception const* e) {
  if (!e) return P<CError>();
  if (auto const* error = dynamic_cast<CError const*>(e)) return error->clone();
  return P<CError>(new CStdExceptionError(*e));
}

String CStdExceptionError::getDomain() { return u"STDEXC"; }

}  // namespace qo
