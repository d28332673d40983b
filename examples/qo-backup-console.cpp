// examples/qo-backup-console.cpp - the progress display of qo-backup.
#include "qo-backup-console.h"

#include <algorithm>
#include <cstdio>

// The example is an application, not library code: the two console queries
// it needs come straight from the C runtime of each system.
#ifdef _WIN32
#  include <io.h>
#  include <windows.h>
#else
#  include <unistd.h>
#endif

namespace qobackup {

namespace {

constexpr int kBarWidth = 24;
// A terminal redraw costs little; a plain line every few seconds is what a
// log file of a scheduled run can take.
constexpr auto kTerminalInterval = std::chrono::milliseconds(200);
constexpr auto kPlainInterval = std::chrono::seconds(5);

}  // namespace

bool isStdoutTerminal() {
#ifdef _WIN32
  return _isatty(_fileno(stdout)) != 0;
#else
  return isatty(STDOUT_FILENO) != 0;
#endif
}

void prepareConsole() {
#ifdef _WIN32
  SetConsoleOutputCP(CP_UTF8);
#endif
}

CConsole::CConsole(bool terminal) : m_terminal(terminal) { start(); }

void CConsole::start() {
  m_start = std::chrono::steady_clock::now();
  m_lastShown = m_start;
}

double CConsole::elapsedSeconds() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
}

std::string CConsole::formatBytes(double bytes) {
  static char const* const kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB"};
  int unit = 0;
  while (bytes >= 1024 && unit < 4) {
    bytes /= 1024;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", bytes, kUnits[unit]);
  return text;
}

std::string CConsole::formatDuration(double seconds) {
  if (seconds < 0) return "--:--";
  long long const total = static_cast<long long>(seconds + 0.5);
  char text[32];
  std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", total / 3600, total / 60 % 60, total % 60);
  return text;
}

void CConsole::show(Progress const& progress, bool force) {
  auto const now = std::chrono::steady_clock::now();
  std::chrono::steady_clock::duration const interval =
      m_terminal ? std::chrono::steady_clock::duration(kTerminalInterval)
                 : std::chrono::steady_clock::duration(kPlainInterval);
  if (!force && now - m_lastShown < interval) return;
  m_lastShown = now;
  double const elapsed = elapsedSeconds();
  double const rate = elapsed > 0 ? static_cast<double>(progress.bytesCopied) / elapsed : 0;
  double const left = static_cast<double>(std::max(0LL, progress.bytesTotal - progress.bytesDone));
  double const eta = left == 0 ? 0 : rate > 0 ? left / rate : -1;
  double const fraction =
      progress.bytesTotal > 0 ? static_cast<double>(progress.bytesDone) / static_cast<double>(progress.bytesTotal)
      : progress.filesTotal > 0 ? static_cast<double>(progress.filesDone) / static_cast<double>(progress.filesTotal)
                                : 1.0;
  char text[256];
  std::snprintf(text, sizeof text, "%lld/%lld files  %s/%s  %s/s  ETA %s", progress.filesDone, progress.filesTotal,
                formatBytes(static_cast<double>(progress.bytesDone)).c_str(),
                formatBytes(static_cast<double>(progress.bytesTotal)).c_str(), formatBytes(rate).c_str(),
                formatDuration(eta).c_str());
  if (m_terminal) {
    int const filled = static_cast<int>(std::min(1.0, fraction) * kBarWidth);
    std::string bar(static_cast<std::size_t>(filled), '#');
    bar.append(static_cast<std::size_t>(kBarWidth - filled), '.');
    // "\033[K" clears what a longer earlier bar left at the end of the line.
    std::printf("\r[%s] %3d%%  %s\033[K", bar.c_str(), static_cast<int>(fraction * 100), text);
    m_barShown = true;
  } else {
    std::printf("progress: %3d%%  %s\n", static_cast<int>(fraction * 100), text);
  }
  std::fflush(stdout);
}

void CConsole::wipe() {
  if (!m_barShown) return;
  std::printf("\r\033[K");
  std::fflush(stdout);
  m_barShown = false;
}

void CConsole::line(std::string const& text, bool toError) {
  wipe();
  std::FILE* out = toError ? stderr : stdout;
  std::fprintf(out, "%s\n", text.c_str());
  std::fflush(out);
  // Redraw the bar soon, not at once: a burst of lines would otherwise
  // alternate with bars.
  m_lastShown = std::chrono::steady_clock::now() - kTerminalInterval / 2;
}

void CConsole::finish() { wipe(); }

}  // namespace qobackup
