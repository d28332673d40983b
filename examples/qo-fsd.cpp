// qo-fsd: serves this machine's file system to other processes of the same
// user (or, with --all-users, of every user) on a local IPC name, for
// CProxyFileSystem clients such as qo-backup --via NAME.
//   qo-fsd NAME [--root FOLDER] [--all-users]
// --root confines the clients to FOLDER. The service runs until it is ended
// (Ctrl+C, kill); a client that goes away loses its open files and locks.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "qo/qo.h"

int main(int argc, char** argv) {
  qo::CQoInit init;
  if (argc < 2 || argv[1][0] == '-') {
    std::fprintf(stderr, "usage: qo-fsd NAME [--root FOLDER] [--all-users]\n");
    return 2;
  }
  try {
    qo::P<qo::CProxyFileSystemServer> server =
        qo::newP<qo::CProxyFileSystemServer>(qo::newP<qo::CLocalFileSystem>());
    for (int i = 2; i < argc; ++i) {
      if (std::strcmp(argv[i], "--root") == 0 && i + 1 < argc) {
        std::filesystem::path const root = std::filesystem::absolute(std::filesystem::u8path(argv[++i]));
        server->setRoot(qo::CLocalFileSystem::toURI(qo::String::fromUTF8(root.lexically_normal().u8string()), true));
      } else if (std::strcmp(argv[i], "--all-users") == 0) {
        server->getIPCServer()->setAdmitAllUsers(true);
      } else {
        std::fprintf(stderr, "qo-fsd: unknown option %s\n", argv[i]);
        return 2;
      }
    }
    server->listen(qo::String::fromUTF8(argv[1]));
    std::printf("qo-fsd: serving the file system on \"%s\"\n", argv[1]);
    std::fflush(stdout);
    qo::CSignal never;
    (void)never.wait(-1);
  } catch (qo::CError const& e) {
    std::fprintf(stderr, "qo-fsd: %s\n", e.what());
    return 1;
  }
  return 0;
}
