// Behaviour every error class shares (clone, throwClone, copy), and the
// messages of the classes too small for a file of their own.
#include <gtest/gtest.h>

#include <stdexcept>
#include <typeinfo>
#include <vector>

#include "qo/core/CBadCollPositionError.h"
#include "qo/core/CBadPathError.h"
#include "qo/core/CBadStateError.h"
#include "qo/core/CCastError.h"
#include "qo/core/CError.h"
#include "qo/core/CFileCorruptedError.h"
#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CNotImplementedError.h"
#include "qo/core/CParseError.h"
#include "qo/core/CSocketError.h"
#include "qo/core/CStdExceptionError.h"
#include "qo/core/CUnencodableStringError.h"
#include "qo/core/TypeName.h"

using namespace qo;

namespace {

// Clones and rethrows through a CError reference, as a background operation
// does, and checks that the class and every field survive.
template <class T>
void expectClassSurvives(T const& original) {
  SCOPED_TRACE(typeNameOf(typeid(T)));
  CError const& asBase = original;
  ASSERT_EQ(typeid(asBase), typeid(T));

  P<CError> clone = asBase.clone();
  ASSERT_FALSE(clone.isNull());
  CError const& cloned = *clone;
  EXPECT_EQ(typeid(cloned), typeid(T));
  EXPECT_NE(clone.get(), &asBase);
  EXPECT_EQ(clone->getDesc(), original.getDesc());
  EXPECT_EQ(clone->getParams(), original.getParams());
  EXPECT_EQ(clone->getCause(), original.getCause());
  EXPECT_EQ(clone->getRefCountForDebugging(), 1);

  for (CError const* source : {&asBase, static_cast<CError const*>(clone.get())}) {
    try {
      source->throwClone();
    } catch (T const& thrown) {
      EXPECT_EQ(typeid(thrown), typeid(T));
      EXPECT_NE(&thrown, source);
      EXPECT_EQ(thrown.getDesc(), original.getDesc());
      EXPECT_STREQ(thrown.what(), original.what());
    } catch (...) {
      ADD_FAILURE() << "threw another class";
    }
  }

  T copy(original);
  EXPECT_EQ(copy.getDesc(), original.getDesc());
  EXPECT_EQ(copy.getRefCountForDebugging(), 1);
}

// Adds a trace entry so that the copied properties are not trivially empty.
template <class T>
T traced(T error) {
  error.addTrace(u"here");
  return error;
}

}  // namespace

TEST(ErrorClassesTest, CloneAndThrowCloneKeepTheDynamicClass) {
  CIOError cause(CIOError::kReadFailed);
  expectClassSurvives(traced(CError(u"m", u"D", 1, CProps(), &cause)));
  expectClassSurvives(traced(CBadCollPositionError()));
  expectClassSurvives(traced(CBadPathError(u"a/b")));
  expectClassSurvives(traced(CBadStateError(u"closed")));
  expectClassSurvives(traced(CCastError(nullptr, &typeid(int))));
  expectClassSurvives(traced(CFileCorruptedError(u"f.dat")));
  expectClassSurvives(traced(CFileSystemError(CFileSystemError::kNotFound, &cause)));
  expectClassSurvives(traced(CIOError(CIOError::kWriteFailed, u"", CProps().add(u"uri", u"x:"), &cause)));
  expectClassSurvives(traced(CInvalidArgError(u"f", u"bad", CProps().add(u"n", u"1"))));
  expectClassSurvives(traced(CNotImplementedError(u"g")));
  expectClassSurvives(traced(CParseError(u"p", CProps().add(u"offset", u"3"))));
  expectClassSurvives(traced(CSocketError(u"s", CProps().add(u"host", u"h"))));
  expectClassSurvives(traced(CStdExceptionError(std::runtime_error("r"))));
  expectClassSurvives(traced(CUnencodableStringError()));
}

TEST(ErrorClassesTest, MessagesOfTheSimpleClasses) {
  struct Case {
    P<CError> error;
    char16_t const* desc;
  };
  Case const cases[] = {
      {newP<CBadCollPositionError>(), u"Bad collection position."},
      {newP<CBadPathError>(u"c:\\a|b"), u"Invalid path: c:\\a|b"},
      {newP<CBadStateError>(u"the stream is closed"), u"Bad state: the stream is closed"},
      {newP<CFileCorruptedError>(), u"The file is corrupted."},
      {newP<CFileCorruptedError>(u"/tmp/x.bin"), u"The file '/tmp/x.bin' is corrupted."},
      {newP<CFileCorruptedError>(u"%FILE%.bin"), u"The file '%FILE%.bin' is corrupted."},
      {newP<CNotImplementedError>(u"CFoo::bar"), u"The function 'CFoo::bar' is not implemented."},
      {newP<CParseError>(u"Bad text.", CProps().addLong(u"offset", 4)), u"Bad text. [offset='4']"},
      {newP<CSocketError>(u"Refused.", CProps()), u"Refused."},
      {newP<CUnencodableStringError>(), u"The text cannot be represented in the requested encoding."},
      {newP<CInvalidArgError>(u"CMemoryStream::setLength", u"the length is negative", CProps().addLong(u"length", -1)),
       u"Invalid argument passed to 'CMemoryStream::setLength': the length is negative. [length='-1']"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.desc).toUTF8());
    EXPECT_EQ(c.error->getDesc(), String(c.desc));
    EXPECT_EQ(c.error->getErrorCodeDomain(), String());
    EXPECT_EQ(c.error->getErrorCode(), -1);
  }
}

TEST(CInvalidArgErrorTest, MakeTextAddsTheClosingPeriodOnce) {
  struct Case {
    char16_t const* place;
    char16_t const* description;
    char16_t const* text;
  };
  Case const cases[] = {
      {u"f", u"bad length", u"Invalid argument passed to 'f': bad length."},
      {u"f", u"bad length.", u"Invalid argument passed to 'f': bad length."},
      {u"f", u"etc..", u"Invalid argument passed to 'f': etc.."},
      {u"", u"", u"Invalid argument passed to '': ."},
      {u"C::g", u"x", u"Invalid argument passed to 'C::g': x."},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.text).toUTF8());
    EXPECT_EQ(CInvalidArgError::makeText(c.place, c.description), String(c.text));
  }
}

