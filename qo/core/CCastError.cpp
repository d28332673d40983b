#include "qo/core/CCastError.h"

#include "qo/core/P.h"
#include "qo/core/TypeName.h"

namespace qo {

namespace {
String typeName(std::type_info const& type) { return String::wstringFromUTF8WithLatin1Fallback(typeNameOf(type)); }
}  // namespace

CCastError::CCastError(IBase const* object, std::type_info const* targetType) : CError(makeText(object, targetType)) {}

CCastError::CCastError(CCastError const& other) = default;
CCastError& CCastError::operator=(CCastError const& other) = default;
CCastError::~CCastError() = default;

P<CError> CCastError::clone() const { return P<CError>(new CCastError(*this)); }

void CCastError::throwClone() const { throw CCastError(*this); }

String CCastError::makeText(IBase const* object, std::type_info const* targetType) {
  String text = u"Error casting ";
  if (object) {
    text += u"object " + qo::toString(static_cast<void const*>(object)) + u" of type " + typeName(typeid(*object));
  } else {
    text += u"an unspecified object";
  }
  if (targetType) {
    text += u" to type " + typeName(*targetType) + u".";
  } else {
    text += u" to an unspecified type.";
  }
  return text;
}

namespace detail {
void throwCastError(IBase const* object, std::type_info const* targetType) { throw CCastError(object, targetType); }
}  // namespace detail

}  // namespace qo
