// Uses the installed qo: objects, P, an error and its description.
#include <cstdio>
#include <cstring>

#include <qo/qo.h>

int main() {
  qo::CQoInit init;
  qo::P<qo::CProps> props(new qo::CProps);
  props->add(u"uri", u"file:///c:/a").add(u"action", u"write");
  qo::CIOError error(3, qo::String(), *props);
  char const* expected = "Error writing data. [IO 3 (action='write', uri='file:///c:/a')]";
  if (std::strcmp(error.what(), expected) != 0) {
    std::printf("unexpected: %s\n", error.what());
    return 1;
  }
  std::printf("consumer ok: %s\n", error.what());
  return 0;
}
