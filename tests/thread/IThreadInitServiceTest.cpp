// IThreadInitService: the default service, installing and removing one.
#include "qo/thread/IThreadInitService.h"

#include <gtest/gtest.h>

#include "qo/thread/CDummyThreadInitService.h"

namespace qo {
namespace {

class CCountingInitService : public CBase, public IThreadInitService {
public:
  void initThread(String const& threadName) override { last = threadName; }
  String last;
};

TEST(IThreadInitServiceTest, DefaultIsTheDummyServiceAndDoesNothing) {
  P<IThreadInitService> service = IThreadInitService::get();
  ASSERT_FALSE(service.isNull());
  EXPECT_NE(dynamic_cast<CDummyThreadInitService*>(service.get()), nullptr);
  EXPECT_EQ(service, IThreadInitService::get());
  service->initThread(u"qo.any");
}

TEST(IThreadInitServiceTest, InstalledServiceIsReturnedUntilRemoved) {
  auto custom = newP<CCountingInitService>();
  IThreadInitService::getGlobalSlot()->set(custom);
  EXPECT_EQ(IThreadInitService::get(), custom);
  IThreadInitService::get()->initThread(u"qo.x");
  EXPECT_EQ(custom->last, String(u"qo.x"));
  IThreadInitService::getGlobalSlot()->set(nil);
  EXPECT_NE(dynamic_cast<CDummyThreadInitService*>(IThreadInitService::get().get()), nullptr);
}

TEST(IThreadInitServiceTest, DisposedSlotStartsAgainFromTheDefault) {
  IThreadInitService::getGlobalSlot()->set(newP<CCountingInitService>());
  IThreadInitService::disposeGlobalSlot();
  EXPECT_NE(dynamic_cast<CDummyThreadInitService*>(IThreadInitService::get().get()), nullptr);
}

}  // namespace
}  // namespace qo
