// IPC over the local transport against the same bytes over a raw socket
// pair served by a plain thread.
//
// - A small request/answer round trip: a 16-byte request frame and its
//   answer through CIPCConnection::call and a CIPCServer connection thread,
//   against writing the same 20 bytes and reading the same 21 on a
//   socketpair whose other end a thread answers with write/read.
// - 1 MiB request frames with a one-byte answer, against 1 MiB + 4 bytes
//   written and 5 read on the socket pair. SetBytesProcessed gives MiB/s.
// A ratio below 1 means the IPC side is faster.
#include <benchmark/benchmark.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

#include "BenchMain.h"
#include "qo/core/CBase.h"
#include "qo/ipc/CIPCServer.h"

namespace {

class CEchoHandler : public qo::CBase, public qo::IIPCRequestHandler {
public:
  void handleRequest(qo::CIPCConnection&, std::vector<unsigned char> const& request,
                     std::vector<unsigned char>& answer) override {
    if (request.size() <= 64) answer = request;  // bulk requests get an empty answer
  }
};

qo::P<qo::CIPCServer>& server() {
  static qo::P<qo::CIPCServer> s;
  return s;
}

// Named after the process, so that two benchmark runs at once do not
// compete for one name.
std::string const kName = "qo-bench-ipc-" + std::to_string(getpid());

void setUp() {
  server() = qo::newP<qo::CIPCServer>(qo::newP<CEchoHandler>());
  server()->listen(qo::String(kName.c_str()));
}

void tearDown() {
  server()->stop();
  server().reset();
}

QO_BENCH_SETUP(setUp, tearDown);

bool readAll(int fd, unsigned char* p, std::size_t n) {
  while (n > 0) {
    ssize_t got = ::read(fd, p, n);
    if (got <= 0) return false;
    p += got;
    n -= static_cast<std::size_t>(got);
  }
  return true;
}

bool writeAll(int fd, unsigned char const* p, std::size_t n) {
  while (n > 0) {
    ssize_t put = ::send(fd, p, n, MSG_NOSIGNAL);
    if (put <= 0) return false;
    p += put;
    n -= static_cast<std::size_t>(put);
  }
  return true;
}

// A socket pair whose far end reads requestSize bytes and answers
// answerSize bytes until the near end closes.
struct RawPeer {
  int fds[2] = {-1, -1};
  std::thread thread;
  RawPeer(std::size_t requestSize, std::size_t answerSize) {
    socketpair(AF_UNIX, SOCK_STREAM, 0, fds);
    thread = std::thread([this, requestSize, answerSize] {
      std::vector<unsigned char> request(requestSize), answer(answerSize, 1);
      while (readAll(fds[1], request.data(), requestSize) && writeAll(fds[1], answer.data(), answerSize)) {
      }
    });
  }
  ~RawPeer() {
    shutdown(fds[0], SHUT_RDWR);
    thread.join();
    close(fds[0]);
    close(fds[1]);
  }
};

void BM_IPCRoundTrip(benchmark::State& state) {
  qo::P<qo::CIPCConnection> c = qo::CIPCConnection::connect(qo::String(kName.c_str()), 5000);
  std::vector<unsigned char> const request(16, 7);
  for (auto _ : state) benchmark::DoNotOptimize(c->call(request));
}

void BM_RawSocketPairRoundTrip(benchmark::State& state) {
  RawPeer peer(20, 21);
  std::vector<unsigned char> request(20, 7), answer(21);
  for (auto _ : state) {
    writeAll(peer.fds[0], request.data(), request.size());
    readAll(peer.fds[0], answer.data(), answer.size());
  }
}

constexpr int kBulk = 1 << 20;

void BM_IPCBulk1MiB(benchmark::State& state) {
  qo::P<qo::CIPCConnection> c = qo::CIPCConnection::connect(qo::String(kName.c_str()), 5000);
  std::vector<unsigned char> const request(kBulk, 3);
  for (auto _ : state) benchmark::DoNotOptimize(c->call(request));
  state.SetBytesProcessed(state.iterations() * kBulk);
}

void BM_RawSocketPairBulk1MiB(benchmark::State& state) {
  RawPeer peer(kBulk + 4, 5);
  std::vector<unsigned char> request(kBulk + 4, 3), answer(5);
  for (auto _ : state) {
    writeAll(peer.fds[0], request.data(), request.size());
    readAll(peer.fds[0], answer.data(), answer.size());
  }
  state.SetBytesProcessed(state.iterations() * kBulk);
}

}  // namespace

BENCHMARK(BM_IPCRoundTrip)->UseRealTime();
BENCHMARK(BM_RawSocketPairRoundTrip)->UseRealTime();
BENCHMARK(BM_IPCBulk1MiB)->UseRealTime();
BENCHMARK(BM_RawSocketPairBulk1MiB)->UseRealTime();

QO_BENCH_RATIO("IPC round trip / raw socketpair round trip", "BM_IPCRoundTrip/1",
               "BM_RawSocketPairRoundTrip/1");
QO_BENCH_RATIO("IPC 1 MiB frame / raw socketpair 1 MiB", "BM_IPCBulk1MiB/1",
               "BM_RawSocketPairBulk1MiB/1");
