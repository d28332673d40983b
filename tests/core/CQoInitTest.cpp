// Library start: the locale rule and the helper singleton.
#include "qo/core/CQoInit.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>

#include "qo/core/CPreserveLastSysError.h"
#include "qo/core/CSafeGlobalSlot.h"
#include "qo/core/TypeName.h"

namespace qo {
namespace {

std::string currentLocale() {
  char const* name = std::setlocale(LC_ALL, nullptr);
  return name ? name : "";
}

// Runs the helper's construction again: it is created on first use after
// every disposeAll().
void restartHelper() {
  CSafeGlobalSlot::disposeAll();
  (void)CQoInit::CQoInitHelper::get();
}

class CQoInitTest : public ::testing::Test {
protected:
  void SetUp() override { m_saved = currentLocale(); }
  void TearDown() override { std::setlocale(LC_ALL, m_saved.c_str()); }
  std::string m_saved;
};

TEST_F(CQoInitTest, LocaleCIsReplacedByEnvironmentDefault) {
  std::setlocale(LC_ALL, "");
  std::string environmentDefault = currentLocale();
  std::setlocale(LC_ALL, "C");
  restartHelper();
  EXPECT_EQ(currentLocale(), environmentDefault);
}

TEST_F(CQoInitTest, LocaleChosenByApplicationSurvives) {
  char const* candidates[] = {"C.UTF-8", "en_US.UTF-8", "English_United States.1252", "POSIX.UTF-8"};
  std::string chosen;
  for (char const* name : candidates) {
    if (std::setlocale(LC_ALL, name) != nullptr && currentLocale() != "C") {
      chosen = currentLocale();
      break;
    }
  }
  if (chosen.empty()) GTEST_SKIP() << "no locale other than C on this machine";
  restartHelper();
  EXPECT_EQ(currentLocale(), chosen);
}

TEST_F(CQoInitTest, HelperIsOneInstanceUntilDisposed) {
  P<CQoInit::CQoInitHelper> first = CQoInit::CQoInitHelper::get();
  EXPECT_EQ(first, CQoInit::CQoInitHelper::get());
  CQoInit::CQoInitHelper const& helper = *first;
  EXPECT_EQ(typeNameOf(typeid(helper)), "qo::CQoInit::CQoInitHelper");
  restartHelper();
  EXPECT_NE(first, CQoInit::CQoInitHelper::get());
  EXPECT_EQ(first->getRefCountForDebugging(), 1);  // only this test holds the old one
}

TEST(CPreserveLastSysErrorTest, RestoresTheCodeAfterCleanUp) {
  setLastSysError(42);
  {
    CPreserveLastSysError keep;
    EXPECT_EQ(keep.getSavedError(), 42u);
    setLastSysError(7);
    CPreserveLastSysError copy = keep;
    EXPECT_EQ(copy.getSavedError(), 42u);
  }
  EXPECT_EQ(getLastSysError(), 42u);
}

}  // namespace
}  // namespace qo
