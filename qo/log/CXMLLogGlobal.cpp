// CXMLLog: the process-wide log that the free logging functions write to.
#include "qo/log/CXMLLog.h"

#include <exception>
#include <new>
#include <string>

#include "qo/core/CSafeGlobalSlot.h"
#include "qo/log/logFunctions.h"
#include "qo/platform/Debug.h"
#include "qo/thread/CMutexLock.h"

namespace qo {

namespace {

CSafeGlobalSlot g_globalLogSlot;

P<CXMLLog> makeGlobalInstance() noexcept {
  CXMLLog::CreateFunc createFunc = nullptr;
  {
    CMutexLock lock(getGlobalMutex());
    CXMLLog::CGlobalInstanceParams& params = CXMLLog::CGlobalInstanceParams::get();
    params.instanceCreated = true;
    createFunc = params.createFunc;
  }
  try {
    P<CXMLLog> log;
    if (createFunc != nullptr) {
      log = createFunc();
    } else {
      log = newP<CXMLLog>(u"log.xml", new CXMLLog::CDefaultSessionHeaderFactory(u"unnamedApp", String(), String()));
    }
    if (log) return log;
    platform::debugOutput("ERROR: The global log's creation function returned no log; logging is off.\n");
  } catch (std::exception const& e) {
    std::string const text = std::string("ERROR: Cannot create the global log; logging is off. ") + e.what() + "\n";
    platform::debugOutput(text.c_str());
  } catch (...) {
    platform::debugOutput("ERROR: Cannot create the global log; logging is off.\n");
  }
  try {
    return newP<CXMLLog>(String());
  } catch (...) {
    return P<CXMLLog>();
  }
}

void* createGlobalSlot() {
  // The slot must not see an exception (it would stay claimed for good).
  auto* holder = new (std::nothrow) P<CXMLLog>();
  if (holder == nullptr) return nullptr;
  {
    // A creation function that logs must not come back here: its reports
    // go to the debugger output.
    detail::CGlobalLogReentryGuard guard;
    *holder = makeGlobalInstance();
  }
  detail::installGlobalLogHook();
  return holder;
}

void disposeGlobalSlot(void* instance) {
  detail::removeGlobalLogHook();
  {
    CMutexLock lock(getGlobalMutex());
    CXMLLog::CGlobalInstanceParams::get().instanceCreated = false;
  }
  auto* holder = static_cast<P<CXMLLog>*>(instance);
  if (holder != nullptr) {
    holder->reset();
    delete holder;
  }
}

}  // namespace

CXMLLog::CGlobalInstanceParams& CXMLLog::CGlobalInstanceParams::get() {
  // Constant-initialised and never destroyed: usable at any time of the
  // process's life.
  static CGlobalInstanceParams g_params;
  return g_params;
}

CXMLLog::CGlobalLogCloser::~CGlobalLogCloser() {
  try {
    if (haveGlobalLogInstance()) getGlobal()->close();
  } catch (...) {
  }
  disposeGlobalInstance();
}

P<CXMLLog> CXMLLog::getGlobal() {
  void* instance = g_globalLogSlot.use(&createGlobalSlot, &disposeGlobalSlot);
  P<CXMLLog> log = instance != nullptr ? *static_cast<P<CXMLLog>*>(instance) : P<CXMLLog>();
  if (!log) log = newP<CXMLLog>(String());
  return log;
}

bool CXMLLog::haveGlobalLogInstance() { return g_globalLogSlot.peek() != nullptr; }

bool CXMLLog::haveGlobalCreateFunc() {
  CMutexLock lock(getGlobalMutex());
  return CGlobalInstanceParams::get().createFunc != nullptr;
}

void CXMLLog::setGlobalCreateFunc(CreateFunc createFunc) {
  {
    CMutexLock lock(getGlobalMutex());
    CGlobalInstanceParams& params = CGlobalInstanceParams::get();
    if (params.instanceCreated)
      throw CError(u"Cannot change global log creation function. Global log instance already created.");
    params.createFunc = createFunc;
  }
  // Reports made before the first log call already create the log; without
  // a function, the default log is not forced on a program that never logs.
  if (createFunc != nullptr)
    detail::installGlobalLogHook();
  else
    detail::removeGlobalLogHook();
}

void CXMLLog::disposeGlobalInstance() {
  detail::removeGlobalLogHook();
  g_globalLogSlot.dispose();
}

}  // namespace qo
