// CErrorBackgroundOp: finished from birth, keeps the error's class, tells
// its listener once.
#include "qo/thread/CErrorBackgroundOp.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <typeinfo>

#include "qo/core/CIOError.h"
#include "qo/core/CStdExceptionError.h"

namespace qo {
namespace {

class CCountingListener : public CBase, public IDoneListener {
public:
  void onBackgroundOpDone(IBackgroundOp* op, CError const* error) override {
    ++calls;
    lastOp = op;
    lastError = error ? error->clone() : P<CError>();
  }
  int calls = 0;
  IBackgroundOp* lastOp = nullptr;
  P<CError> lastError;
};

TEST(CErrorBackgroundOpTest, IsFinishedFromBirthRethrowsWithItsOwnClassAndTellsTheListenerOnce) {
  P<CCountingListener> listener = newP<CCountingListener>();
  CIOError const cause(CIOError::kUnexpectedEOF, String(), CProps().add(u"uri", u"file:///x"));
  P<CErrorBackgroundOp> op = newP<CErrorBackgroundOp>(cause, listener.get());
  EXPECT_EQ(1, listener->calls);
  EXPECT_EQ(static_cast<IBackgroundOp*>(op.get()), listener->lastOp);
  ASSERT_TRUE(listener->lastError);
  EXPECT_EQ(CIOError::kUnexpectedEOF, listener->lastError->getErrorCode());
  EXPECT_TRUE(op->hasFinished());
  EXPECT_TRUE(op->waitFinished(0));
  EXPECT_TRUE(op->waitFinished(-1));
  for (int round = 0; round < 2; ++round) {
    try {
      op->throwErrorIfFailed();
      FAIL() << "nothing thrown";
    } catch (CIOError const& e) {
      EXPECT_EQ(typeid(CIOError), typeid(e));
      EXPECT_EQ(CIOError::kUnexpectedEOF, e.getErrorCode());
      EXPECT_EQ("file:///x", e.getParams().lookup(u"uri").toUTF8());
    }
  }
  PC<CError> const kept = op->getError();
  CError const& keptRef = *kept;
  EXPECT_EQ(typeid(CIOError), typeid(keptRef));
  EXPECT_EQ(1, listener->calls);
  EXPECT_EQ(1, listener->getRefCountForDebugging());  // not kept
}

TEST(CErrorBackgroundOpTest, AStandardExceptionBecomesAStdExceptionError) {
  P<CErrorBackgroundOp> op = newP<CErrorBackgroundOp>(std::invalid_argument("bad"), nullptr);
  try {
    op->throwErrorIfFailed();
    FAIL() << "nothing thrown";
  } catch (CStdExceptionError const& e) {
    EXPECT_EQ("bad", e.getMessage().toUTF8());
  }
}

}  // namespace
}  // namespace qo
