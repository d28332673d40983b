#include "qo/core/CTestSafeGlobalHelper.h"

#include <atomic>

namespace qo {

namespace {

std::atomic<int> g_liveCount{0};

CSafeGlobalSlot g_headerButNotInlineSlot;

CSafeGlobalSlot& notHeaderSlot() {
  static CSafeGlobalSlot g_pInstanceSlot;
  return g_pInstanceSlot;
}

// The library's own copy of the inline accessor's slot.
P<CTestSafeGlobalHelper> inlineFromLibrary() { return CTestSafeGlobalHelper::getInline(); }

}  // namespace

CTestSafeGlobalHelper::CTestSafeGlobalHelper() { ++g_liveCount; }
CTestSafeGlobalHelper::~CTestSafeGlobalHelper() { --g_liveCount; }

P<CTestSafeGlobalHelper> CTestSafeGlobalHelper::getInlineProxy() { return inlineFromLibrary(); }

P<CTestSafeGlobalHelper> CTestSafeGlobalHelper::getHeaderButNotInline() {
  return TSafeGlobal<CTestSafeGlobalHelper>::get(g_headerButNotInlineSlot);
}
P<CTestSafeGlobalHelper> CTestSafeGlobalHelper::getHeaderButNotInlineProxy() { return getHeaderButNotInline(); }

P<CTestSafeGlobalHelper> CTestSafeGlobalHelper::getNotHeader() {
  return TSafeGlobal<CTestSafeGlobalHelper>::get(notHeaderSlot());
}
P<CTestSafeGlobalHelper> CTestSafeGlobalHelper::getNotHeaderProxy() { return getNotHeader(); }

void CTestSafeGlobalHelper::disposeGlobal() {
  g_headerButNotInlineSlot.dispose();
  notHeaderSlot().dispose();
  inlineSlot().dispose();
}

int CTestSafeGlobalHelper::getLiveCount() { return g_liveCount.load(); }

}  // namespace qo
