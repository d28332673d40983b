// examples/qo-backup-console.h - what qo-backup shows on its standard output:
// a live progress bar on a terminal, plain progress lines otherwise.
//
// The bar is redrawn in place ("\r"), at most a few times a second; any other
// line (a failure, a verbose file line) first wipes the bar, so that the
// terminal never shows half a bar in front of a message. When standard output
// is a file or a pipe, a plain progress line goes out every few seconds
// instead, so logs of scheduled runs stay readable.
#ifndef QO_EXAMPLES_QO_BACKUP_CONSOLE_H
#define QO_EXAMPLES_QO_BACKUP_CONSOLE_H

#include <chrono>
#include <string>

namespace qobackup {

/// True when standard output is a terminal.
bool isStdoutTerminal();

/// Turns the process's console into a UTF-8 one where that needs doing
/// (Windows); nothing elsewhere.
void prepareConsole();

/// Files and bytes done so far, against the totals of the scan.
struct Progress {
  long long filesDone = 0;
  long long filesTotal = 0;
  long long bytesDone = 0;
  long long bytesTotal = 0;
  long long bytesCopied = 0;  ///< Only bytes really read and written (for the rate).
};

/// The progress display. Not thread-safe: the main thread owns it.
class CConsole {
public:
  explicit CConsole(bool terminal);
  CConsole(CConsole const&) = delete;
  CConsole& operator=(CConsole const&) = delete;

  /// Starts the clock of the rate and the ETA.
  void start();
  /// Redraws the bar (or prints a plain line) when it is due; force draws now.
  void show(Progress const& progress, bool force = false);
  /// A line on standard output (toError: standard error), below the bar.
  void line(std::string const& text, bool toError = false);
  /// Wipes the bar for good (before the summary).
  void finish();

  /// Seconds since start().
  double elapsedSeconds() const;

  /// "12.3 MiB", "512 B" ...
  static std::string formatBytes(double bytes);
  /// "0:01:05"; "--:--" when unknown (negative).
  static std::string formatDuration(double seconds);

private:
  void wipe();

  bool m_terminal;
  bool m_barShown = false;
  std::chrono::steady_clock::time_point m_start;
  std::chrono::steady_clock::time_point m_lastShown;
};

}  // namespace qobackup

#endif  // QO_EXAMPLES_QO_BACKUP_CONSOLE_H
