// qo-watchdog - the crash watchdog that CWatchdog starts beside a process.
//
//   qo-watchdog --endpoint <name> --pid <watched process id>
//
// All of its work is CWatchdogService::run: it writes the watched process's
// minidump from outside when it crashes and hang reports when it stops
// sending heartbeats. Exit codes: 0 done, 2 bad arguments, 3 the endpoint
// could not be opened.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "qo/core/CQoInit.h"
#include "qo/core/String.h"
#include "qo/ipc/CWatchdogService.h"

int main(int argc, char** argv) {
  std::string endpoint;
  long long processId = -1;
  for (int i = 1; i + 1 < argc; i += 2) {
    if (std::strcmp(argv[i], "--endpoint") == 0) endpoint = argv[i + 1];
    else if (std::strcmp(argv[i], "--pid") == 0) processId = std::atoll(argv[i + 1]);
  }
  if (endpoint.empty() || processId <= 0) {
    std::fprintf(stderr, "usage: qo-watchdog --endpoint <name> --pid <process id>\n");
    return 2;
  }
  qo::CQoInit init;
  return qo::CWatchdogService::run(qo::String::fromUTF8(endpoint), processId);
}
