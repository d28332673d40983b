// CNotificationSettings: the state the system reports and its names.
#include <gtest/gtest.h>

#include "qo/core/CSystemError.h"
#include "qo/sys/CNotificationSettings.h"

namespace qo {
namespace {

using N = CNotificationSettings;

TEST(CNotificationSettings, NamesEveryState) {
  struct Case {
    N::EState state;
    char16_t const* name;
  };
  Case const cases[] = {
      {N::StateUnknown, u"unknown"},       {N::StateNotPresent, u"not present"},
      {N::StateBusy, u"busy"},             {N::StateFullScreen3D, u"full-screen 3D"},
      {N::StatePresentation, u"presentation"}, {N::StateAcceptsNotifications, u"accepts notifications"},
      {N::StateQuietTime, u"quiet time"},  {N::StateApp, u"app"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.name).toUTF8());
    EXPECT_EQ(String(c.name), N::toString(c.state));
  }
}

TEST(CNotificationSettings, AnswersForTheCurrentUser) {
  N::EState state;
  try {
    state = N::getState();
  } catch (CSystemError const& e) {
    GTEST_SKIP() << "the system does not answer (Wine may lack SHQueryUserNotificationState): "
                 << e.getMessage().toUTF8();
  }
  EXPECT_GE(state, N::StateUnknown);
  EXPECT_LE(state, N::StateApp);
  // Only Windows tells; elsewhere the answer is unknown and holds nothing back.
#ifndef _WIN32
  EXPECT_EQ(N::StateUnknown, state);
#endif
  EXPECT_EQ(state != N::StateUnknown && state != N::StateAcceptsNotifications, N::shouldHoldBackPopups());
}

}  // namespace
}  // namespace qo
