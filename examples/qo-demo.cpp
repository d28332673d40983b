// qo-demo: starts the library, shares objects through P, and raises and
// prints a few errors the way an application sees them.
#include <cstdio>
#include <string>

#include "qo/qo.h"

namespace {

// A reference-counted object that can only live on the heap.
class CJob : public qo::TRequireNewAlloc<qo::CBase, CJob> {
public:
  explicit CJob(qo::String name) : m_name(std::move(name)) {}
  qo::String const& getName() const { return m_name; }

private:
  qo::String m_name;
};

void print(char const* label, std::exception const& e) { std::printf("%-24s %s\n", label, e.what()); }

}  // namespace

int main() {
  qo::CQoInit init;

  qo::P<CJob> job(new CJob(u"backup \u00e9t\u00e9 \U0001F4BE"));
  qo::P<CJob> shared = job;
  std::printf("job '%s' has %d owners\n", job->getName().toUTF8().c_str(), job->getRefCountForDebugging());
  shared = qo::nil;
  std::printf("after one let go: %d owner\n", job->getRefCountForDebugging());

  try {
    throw qo::CIOError(qo::CIOError::kUnexpectedEOF, qo::String(),
                       qo::CProps().add(u"uri", u"file:///backup/set1.dat").addLong(u"bytesRead", 4096));
  } catch (qo::CError const& e) {
    print("I/O error:", e);
  }

  try {
    CJob onStack(u"not allowed");
  } catch (qo::CError const& e) {
    print("heap-only object:", e);
  }

  try {
    qo::P<qo::IBase> base = job;
    (void)base.cast<qo::CError>();
  } catch (qo::CCastError const& e) {
    print("checked cast:", e);
  }

  try {
    qo::String(u"\xD800").toUTF8();
  } catch (qo::CError const& e) {
    print("lone surrogate:", e);
  }

  qo::CInvalidArgError invalid(u"CBackupSet::addFolder", u"the folder is empty", qo::CProps().add(u"path", u""));
  qo::CError wrapped(u"Could not plan the backup.", qo::String(), -1, qo::CProps(), &invalid);
  print("error with a cause:", wrapped);
  print("  its cause:", *wrapped.getCause());
  return 0;
}
