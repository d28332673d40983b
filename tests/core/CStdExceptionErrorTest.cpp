#include "qo/core/CStdExceptionError.h"

#include <gtest/gtest.h>

#include <any>
#include <functional>
#include <future>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <typeinfo>
#include <variant>

#include "qo/core/CIOError.h"
#include "qo/core/TypeName.h"

using qo::CError;
using qo::CIOError;
using qo::CStdExceptionError;
using qo::P;
using qo::String;

namespace {
struct CustomException : std::exception {
  char const* what() const noexcept override { return "custom"; }
};

struct NullWhatException : std::exception {
  char const* what() const noexcept override { return nullptr; }
};

void expectKind(std::exception const& e, long long kind) {
  SCOPED_TRACE(qo::typeNameOf(typeid(e)));
  EXPECT_EQ(CStdExceptionError::errorCodeFromException(e), kind);
  CStdExceptionError error(e);
  EXPECT_TRUE(error.isError(u"STDEXC", kind));
}
}  // namespace

TEST(CStdExceptionErrorTest, KindOfEveryStandardException) {
  expectKind(std::bad_alloc(), 1);
  expectKind(std::bad_array_new_length(), 1);
  expectKind(std::bad_cast(), 2);
  expectKind(std::bad_any_cast(), 2);
  expectKind(std::bad_typeid(), 3);
  expectKind(std::bad_exception(), 4);
  expectKind(std::logic_error("x"), 5);
  try {
    std::promise<int> promise;
    (void)promise.get_future();
    (void)promise.get_future();  // the second call throws a std::future_error
    ADD_FAILURE() << "no future_error";
  } catch (std::future_error const& e) {
    expectKind(e, 5);
  }
  expectKind(std::domain_error("x"), 6);
  expectKind(std::invalid_argument("x"), 7);
  expectKind(std::length_error("x"), 8);
  expectKind(std::out_of_range("x"), 9);
  expectKind(std::runtime_error("x"), 10);
  expectKind(std::range_error("x"), 11);
  expectKind(std::overflow_error("x"), 12);
  expectKind(std::underflow_error("x"), 13);
  expectKind(std::system_error(std::make_error_code(std::errc::io_error)), 14);
  expectKind(std::bad_function_call(), 15);
  expectKind(std::bad_weak_ptr(), 16);
  expectKind(std::bad_optional_access(), 17);
  expectKind(std::bad_variant_access(), 18);
  expectKind(CustomException(), 0);
  expectKind(CIOError(4), 0);
  EXPECT_EQ(CStdExceptionError::kOther, 0);
  EXPECT_EQ(CStdExceptionError::kBadAlloc, 1);
  EXPECT_EQ(CStdExceptionError::kRuntimeError, 10);
  EXPECT_EQ(CStdExceptionError::kSystemError, 14);
  EXPECT_EQ(CStdExceptionError::kBadVariantAccess, 18);
}

TEST(CStdExceptionErrorTest, MessageIsWhatReadAsUTF8WithLatin1Fallback) {
  struct Case {
    char const* what;
    char16_t const* message;
  };
  Case const cases[] = {
      {"plain", u"plain"},
      {"caf\xc3\xa9", u"caf\u00e9"},      // valid UTF-8
      {"caf\xe9", u"caf\u00e9"},          // Latin-1 byte
      {"\xff\xc3\xa9", u"\u00ff\u00e9"},  // both in one text
      {"", u""},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.what);
    CStdExceptionError e(std::runtime_error(c.what));
    EXPECT_EQ(e.getMessage(), String(c.message));
  }
  EXPECT_EQ(CStdExceptionError(NullWhatException()).getMessage(), String());
  EXPECT_EQ(CStdExceptionError(std::runtime_error("boom")).getDesc(), String(u"boom [STDEXC 10]"));
}

TEST(CStdExceptionErrorTest, ExceptionToErrorWrapsStandardExceptionsAndClonesErrors) {
  EXPECT_TRUE(CStdExceptionError::exceptionToError(nullptr).isNull());
  std::out_of_range e("index 7");
  P<CError> error = CStdExceptionError::exceptionToError(&e);
  ASSERT_FALSE(error.isNull());
  CError const& wrapped = *error;
  EXPECT_EQ(typeid(wrapped), typeid(CStdExceptionError));
  EXPECT_EQ(error->getDesc(), String(u"index 7 [STDEXC 9]"));
  EXPECT_EQ(error->getRefCountForDebugging(), 1);
  CIOError io(CIOError::kReadFailed);
  std::exception const* asStd = &io;
  P<CError> clone = CStdExceptionError::exceptionToError(asStd);
  ASSERT_FALSE(clone.isNull());
  CError const& cloned = *clone;
  EXPECT_EQ(typeid(cloned), typeid(CIOError));
  EXPECT_NE(clone.get(), static_cast<CError*>(&io));
  EXPECT_EQ(clone->getDesc(), io.getDesc());
}
