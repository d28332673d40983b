// qo-ipc-echo: a server and a client of the library's IPC in a few lines.
//   qo-ipc-echo serve <name>         answers every request in upper case
//                                    until a request "stop" arrives
//   qo-ipc-echo send <name> <text>   prints the server's answer
#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>

#include "qo/qo.h"

namespace {

class CUpper : public qo::CBase, public qo::IIPCRequestHandler {
public:
  qo::CSignal stop;
  void handleRequest(qo::CIPCConnection&, std::vector<unsigned char> const& in,
                     std::vector<unsigned char>& out) override {
    for (unsigned char c : in) out.push_back(static_cast<unsigned char>(std::toupper(c)));
    if (std::string(in.begin(), in.end()) == "stop") stop.set();
  }
};

}  // namespace

int main(int argc, char** argv) {
  qo::CQoInit init;
  try {
    if (argc == 3 && std::strcmp(argv[1], "serve") == 0) {
      qo::P<CUpper> handler = qo::newP<CUpper>();
      qo::P<qo::CIPCServer> server = qo::newP<qo::CIPCServer>(handler);
      server->listen(qo::String::fromUTF8(argv[2]));
      (void)handler->stop.wait(-1);
      server->stop();
      return 0;
    }
    if (argc == 4 && std::strcmp(argv[1], "send") == 0) {
      qo::P<qo::CIPCConnection> c = qo::CIPCConnection::connect(qo::String::fromUTF8(argv[2]), 5000);
      std::vector<unsigned char> answer = c->call(std::vector<unsigned char>(argv[3], argv[3] + std::strlen(argv[3])));
      std::printf("%s\n", std::string(answer.begin(), answer.end()).c_str());
      return 0;
    }
  } catch (qo::CError const& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
  }
  std::fprintf(stderr, "usage: qo-ipc-echo serve <name> | send <name> <text>\n");
  return 2;
}
