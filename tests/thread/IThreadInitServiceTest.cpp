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

bool isDummy(P<IThreadInitService> const& service) {
  return dynamic_cast<CDummyThreadInitService*>(service.get()) != nullptr;
}

TEST(IThreadInitServiceTest, DefaultIsTheDummyUntilAServiceIsInstalledAndAfterRemovalOrDispose) {
  P<IThreadInitService> service = IThreadInitService::get();
  ASSERT_FALSE(service.isNull());
  EXPECT_TRUE(isDummy(service));
  EXPECT_EQ(service, IThreadInitService::get());
  service->initThread(u"qo.any");
  auto custom = newP<CCountingInitService>();
  IThreadInitService::getGlobalSlot()->set(custom);
  EXPECT_EQ(IThreadInitService::get(), custom);
  IThreadInitService::get()->initThread(u"qo.x");
  EXPECT_EQ(custom->last, String(u"qo.x"));
  IThreadInitService::getGlobalSlot()->set(nil);
  EXPECT_TRUE(isDummy(IThreadInitService::get()));
  IThreadInitService::getGlobalSlot()->set(custom);
  IThreadInitService::disposeGlobalSlot();
  EXPECT_TRUE(isDummy(IThreadInitService::get()));
}

}  // namespace
}  // namespace qo
