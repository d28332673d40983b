// The proxy file system against the local file system it serves (the server
// runs in this process, on its IPC connection thread, so the bytes cross a
// real local IPC endpoint).
//
// - Reading a 256 MiB file through a proxy stream in 4 MiB reads, against
//   reading it through a CLocalFileStream directly (both from the page
//   cache after the first run). SetBytesProcessed gives MiB/s.
// - getFileInfo through the proxy, against a local getFileInfo followed by
//   a raw 16-byte IPC round trip (CIPCConnection::call to an echo server):
//   what a forwarded call costs at the least.
// A ratio below 1 means the first side is faster.
#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "BenchMain.h"
#include "qo/fs/CLocalFileSystem.h"
#include "qo/fs/CProxyFileSystem.h"
#include "qo/fs/CProxyFileSystemServer.h"
#include "qo/ipc/CIPCServer.h"

namespace {

namespace stdfs = std::filesystem;

constexpr long long kFileSize = 256LL * 1024 * 1024;
constexpr int kChunk = 4 * 1024 * 1024;

class CEcho : public qo::CBase, public qo::IIPCRequestHandler {
public:
  void handleRequest(qo::CIPCConnection&, std::vector<unsigned char> const& request,
                     std::vector<unsigned char>& answer) override {
    answer = request;
  }
};

struct State {
  stdfs::path dir;
  qo::CURI file;
  qo::P<qo::CLocalFileSystem> local;
  qo::P<qo::CProxyFileSystemServer> server;
  qo::P<qo::CIPCServer> echo;
  qo::P<qo::CProxyFileSystem> proxy;
  std::string name, echoName;
};

State& state() {
  static State s;
  return s;
}

void setUp() {
  State& s = state();
  std::string const stamp = std::to_string(std::chrono::steady_clock::now().time_since_epoch().count());
  s.dir = stdfs::temp_directory_path() / ("qo-bench-proxyfs-" + stamp);
  stdfs::create_directories(s.dir);
  s.local = qo::newP<qo::CLocalFileSystem>();
  s.file = qo::CLocalFileSystem::toURI(qo::String::fromUTF8((s.dir / "big.bin").u8string()), false);
  {
    qo::P<qo::IIOStream> out = s.local->createStream(s.file, qo::IIOStream::AccessWriteOnly,
                                                     {qo::IIOStream::FlagCreate, qo::IIOStream::FlagTruncate});
    std::vector<unsigned char> block(kChunk);
    for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<unsigned char>(i * 131);
    for (long long done = 0; done < kFileSize; done += kChunk) out->write(block.data(), kChunk);
    out->close();
  }
  s.name = "qo-bench-proxyfs-" + stamp;
  s.echoName = "qo-bench-proxyfs-echo-" + stamp;
  s.server = qo::newP<qo::CProxyFileSystemServer>(s.local);
  s.server->listen(qo::String::fromUTF8(s.name));
  s.echo = qo::newP<qo::CIPCServer>(qo::newP<CEcho>());
  s.echo->listen(qo::String::fromUTF8(s.echoName));
  s.proxy = qo::newP<qo::CProxyFileSystem>(qo::String::fromUTF8(s.name), 5000);
}

void tearDown() {
  State& s = state();
  s.proxy.reset();
  s.server->stop();
  s.echo->stop();
  s.server.reset();
  s.echo.reset();
  s.local.reset();
  std::error_code ignored;
  stdfs::remove_all(s.dir, ignored);
}

QO_BENCH_SETUP(setUp, tearDown);

void readAll(qo::IFileSystem& fs, benchmark::State& st) {
  std::vector<unsigned char> buffer(kChunk);
  for (auto _ : st) {
    qo::P<qo::IIOStream> in = fs.createStream(state().file, qo::IIOStream::AccessReadOnly, {qo::IIOStream::FlagShareRead});
    long long total = 0;
    for (;;) {
      int const n = in->readLax(buffer.data(), kChunk);
      if (n <= 0) break;
      total += n;
    }
    if (total != kFileSize) st.SkipWithError("short file");
    benchmark::DoNotOptimize(buffer.data());
  }
  st.SetBytesProcessed(st.iterations() * kFileSize);
}

void BM_ProxyRead256MiB(benchmark::State& st) { readAll(*state().proxy, st); }
void BM_LocalRead256MiB(benchmark::State& st) { readAll(*state().local, st); }

void BM_ProxyGetFileInfo(benchmark::State& st) {
  for (auto _ : st) benchmark::DoNotOptimize(state().proxy->getFileInfo(state().file, false));
}

void BM_LocalGetFileInfoPlusIPCPing(benchmark::State& st) {
  qo::P<qo::CIPCConnection> c = qo::CIPCConnection::connect(qo::String::fromUTF8(state().echoName), 5000);
  std::vector<unsigned char> const request(16, 7);
  for (auto _ : st) {
    benchmark::DoNotOptimize(state().local->getFileInfo(state().file, false));
    benchmark::DoNotOptimize(c->call(request));
  }
}

}  // namespace

BENCHMARK(BM_ProxyRead256MiB)->UseRealTime()->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_LocalRead256MiB)->UseRealTime()->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_ProxyGetFileInfo)->UseRealTime();
BENCHMARK(BM_LocalGetFileInfoPlusIPCPing)->UseRealTime();

QO_BENCH_RATIO("proxy read 256 MiB / local read 256 MiB (time)", "BM_ProxyRead256MiB/1", "BM_LocalRead256MiB/1");
QO_BENCH_RATIO("proxy getFileInfo / (local getFileInfo + IPC ping)", "BM_ProxyGetFileInfo/1",
               "BM_LocalGetFileInfoPlusIPCPing/1");
