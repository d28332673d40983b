// Durable session-log entries: each logInfo formats the entry, takes the
// log's mutex and appends the entry to the file in one write before it
// returns (the suffix file is left alone while the open elements do not
// change). On one thread and on eight threads sharing the log.
//
// The counterpart appends an equally long line to a std::FILE and flushes
// it after every line under a std::mutex: the same one write() per entry,
// without XML, time stamps or the suffix check.
//
// Kill-safe entry of 124 bytes: logInfo of a text that makes the entry 124
// bytes on disk, against a raw write() of those 124 bytes to a file opened
// with O_APPEND (the least any kill-safe appender must do).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

#include "BenchMain.h"
#include "qo/core/CTime.h"
#include "qo/log/CXMLLog.h"
#include "qo/sys/CProcess.h"

namespace {

namespace fs = std::filesystem;

fs::path g_folder;
qo::P<qo::CXMLLog> g_log;
std::FILE* g_file = nullptr;
int g_rawFile = -1;
std::mutex g_fileMutex;

char16_t const kText[] = u"copied C:\\Users\\someone\\Documents\\report-2026.docx (48213 bytes)";

void setUp() {
  g_folder = fs::temp_directory_path() / ("qo-bench-log-" + std::to_string(qo::CProcess::getCurrentID()));
  fs::create_directories(g_folder);
  g_log = qo::newP<qo::CXMLLog>(qo::String::fromUTF8((g_folder / "log.xml").u8string()), nullptr, false, -1LL);
  g_file = std::fopen((g_folder / "plain.log").string().c_str(), "ab");
#ifdef _WIN32
  g_rawFile = _open((g_folder / "raw.log").string().c_str(), _O_WRONLY | _O_CREAT | _O_APPEND | _O_BINARY, 0600);
#else
  g_rawFile = open((g_folder / "raw.log").string().c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
#endif
}

void tearDown() {
  g_log->close();
  g_log = qo::nil;
  if (g_file != nullptr) std::fclose(g_file);
  g_file = nullptr;
#ifdef _WIN32
  if (g_rawFile >= 0) _close(g_rawFile);
#else
  if (g_rawFile >= 0) close(g_rawFile);
#endif
  g_rawFile = -1;
  std::error_code ignored;
  fs::remove_all(g_folder, ignored);
}

QO_BENCH_SETUP(setUp, tearDown);

void BM_XMLLogDurableEntry(benchmark::State& state) {
  qo::String const text(kText);
  for (auto _ : state) g_log->logInfo(text);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_XMLLogDurableEntry)->Threads(1)->Threads(8)->UseRealTime();

void BM_FlushedLine(benchmark::State& state) {
  // The entry as the log writes it, give or take the time stamp.
  std::string const line =
      "\n    <entry level=\"info\" time=\"2026-11-23T18:00:00\">" + qo::String(kText).toUTF8() + "</entry>";
  for (auto _ : state) {
    std::lock_guard<std::mutex> lock(g_fileMutex);
    std::fwrite(line.data(), 1, line.size(), g_file);
    std::fflush(g_file);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FlushedLine)->Threads(1)->Threads(8)->UseRealTime();

// The entry line as the log writes it, with a text that makes it 124 bytes.
std::string entryLine124(qo::String& text) {
  std::string const head =
      "\n    <entry level=\"info\" time=\"" + qo::CXMLLog::formatTime(qo::CTime::now().getSeconds()).toUTF8() + "\">";
  std::string const tail = "</entry>";
  text = qo::String(std::u16string(124 - head.size() - tail.size(), u'e'));
  return head + text.toUTF8() + tail;
}

void BM_XMLLogEntry124(benchmark::State& state) {
  qo::String text;
  (void)entryLine124(text);
  for (auto _ : state) g_log->logInfo(text);
  state.SetBytesProcessed(state.iterations() * 124);
}
BENCHMARK(BM_XMLLogEntry124);

void BM_RawAppendWrite124(benchmark::State& state) {
  qo::String text;
  std::string const line = entryLine124(text);
  for (auto _ : state) {
#ifdef _WIN32
    if (_write(g_rawFile, line.data(), static_cast<unsigned>(line.size())) != 124) state.SkipWithError("write failed");
#else
    if (write(g_rawFile, line.data(), line.size()) != 124) state.SkipWithError("write failed");
#endif
  }
  state.SetBytesProcessed(state.iterations() * 124);
}
BENCHMARK(BM_RawAppendWrite124);

QO_BENCH_RATIO("kill-safe log entry of 124 bytes / raw O_APPEND write()", "BM_XMLLogEntry124/1",
               "BM_RawAppendWrite124/1");
QO_BENCH_RATIO("durable log entry / flushed line (1 thread)", "BM_XMLLogDurableEntry/1", "BM_FlushedLine/1");
QO_BENCH_RATIO("durable log entry / flushed line (8 threads)", "BM_XMLLogDurableEntry/8", "BM_FlushedLine/8");

}  // namespace
