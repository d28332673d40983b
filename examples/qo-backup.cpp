// qo-backup: copies a folder tree into a target folder, incrementally, with a
// session log, crash reports and a progress bar.
//
//   qo-backup [options] SOURCE_FOLDER TARGET_FOLDER
//   qo-backup --show-log LOG_PATH
//
// Everything goes through the library: a CFileSystemHub with the local file
// system under "file" does the file work (folders with createFolder, files
// with backgroundStore on the "qo.bgOp" worker), the global CXMLLog keeps one
// session per run, and the crash hooks write a crash report next to the log.
// Exit codes: 0 success, 1 when anything failed (or changed while it was
// copied), 2 for bad arguments or a target that another run is using.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "qo-backup-console.h"
#include "qo-backup-run.h"
#include "qo-backup-showlog.h"
#include "qo/qo.h"

namespace {

using qo::CURI;
using qo::P;
using qo::String;

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

char const kUsage[] =
    "Usage: qo-backup [options] SOURCE_FOLDER TARGET_FOLDER\n"
    "       qo-backup --show-log LOG_PATH\n"
    "\n"
    "Copies the folder tree SOURCE_FOLDER into TARGET_FOLDER (created when\n"
    "missing). Files whose size and modification time match the target's copy\n"
    "are skipped; every other file is written under a temporary name and only\n"
    "replaces the old copy once it is complete.\n"
    "\n"
    "Options:\n"
    "  -n, --dry-run           show what would be copied; change nothing\n"
    "  -v, --verbose           list every folder and file\n"
    "  -L, --follow-links      copy what links to files lead to (default: the\n"
    "                          links themselves; links to folders never)\n"
    "      --full              copy every file, even unchanged ones\n"
    "      --log PATH          the session log (default: qo-backup-log.xml\n"
    "                          beside TARGET_FOLDER); crash reports go to its folder\n"
    "      --max-log-size N    keep the log below N bytes (at least 10240)\n"
    "      --workers N         store N files at once (1 to 16, default 4)\n"
    "      --via NAME          reach the files through the qo-fsd service NAME\n"
    "      --show-log PATH     print the session log PATH and exit\n"
    "  -h, --help              show this help and exit\n"
    "      --version           show the version and exit\n"
    "\n"
    "While it runs, the lock file TARGET_FOLDER.qo-backup.lock beside the target\n"
    "keeps a second run off the same target.\n"
    "\n"
    "Exit status: 0 success, 1 when a file or folder failed or changed while it\n"
    "was copied, 2 bad arguments or a target in use by another run.\n";

char const kVersion[] = "0.1.0";

// The global log is made by a plain function on first use, so its settings
// live here.
String g_logPath;
long long g_maxLogSize = -1;
qo::CProps g_backupInfo;

// The library's standard header (program and system), plus what this run
// backs up, so that --show-log can tell sessions apart.
class CBackupHeaderFactory : public qo::CBase, public virtual qo::CXMLLog::ISessionHeaderFactory {
public:
  CBackupHeaderFactory() : m_standard(new qo::CXMLLog::CDefaultSessionHeaderFactory(u"qo-backup", String::fromUTF8(kVersion), u"example")) {}
  qo::PC<qo::CXMLElement> createLogSessionHeader() override {
    P<qo::CXMLElement> header(new qo::CXMLElement(*m_standard->createLogSessionHeader()));
    header->add(qo::CXMLElement(u"backup", g_backupInfo));
    return header;
  }

private:
  P<qo::CXMLLog::CDefaultSessionHeaderFactory> m_standard;
};

P<qo::CXMLLog> createSessionLog() {
  // A dry run writes nothing, not even its log.
  if (g_logPath.isEmpty()) return qo::newP<qo::CXMLLog>(String());
  P<qo::CXMLLog::ISessionHeaderFactory> factory(new CBackupHeaderFactory());
  return qo::newP<qo::CXMLLog>(g_logPath, factory.get(), false, g_maxLogSize);
}

struct Arguments {
  std::vector<String> positional;
  String logPath;
  String showLogPath;
  String via;
  long long maxLogSize = -1;
  int workers = 4;
  bool dryRun = false;
  bool verbose = false;
  bool full = false;
  bool followLinks = false;
  bool help = false;
  bool version = false;
};

int usageError(std::string const& message) {
  std::fprintf(stderr, "qo-backup: %s\n\n%s", message.c_str(), kUsage);
  return kExitUsage;
}

bool parseSize(String const& text, long long& out) {
  std::string const digits = text.toUTF8Lossy();
  if (digits.empty() || digits.size() > 18 || digits.find_first_not_of("0123456789") != std::string::npos) return false;
  out = std::stoll(digits);
  return true;
}

// Returns -1 when the arguments are fine, else the exit code.
int parseArguments(std::vector<String> const& args, Arguments& out) {
  bool optionsEnded = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    String arg = args[i];
    if (optionsEnded || arg.isEmpty() || arg[0] != u'-' || arg == u"-") {
      out.positional.push_back(arg);
      continue;
    }
    String value;
    bool hasValue = false;
    std::size_t const eq = arg.str().find(u'=');
    if (arg.StartsWith(u"--") && eq != std::u16string::npos) {
      value = String(arg.str().substr(eq + 1));
      arg = String(arg.str().substr(0, eq));
      hasValue = true;
    }
    auto takeValue = [&]() -> bool {
      if (hasValue) return true;
      if (i + 1 >= args.size()) return false;
      value = args[++i];
      return true;
    };
    std::string const name = arg.toUTF8Lossy();
    if (name == "--") {
      optionsEnded = true;
    } else if (name == "-n" || name == "--dry-run") {
      out.dryRun = true;
    } else if (name == "-v" || name == "--verbose") {
      out.verbose = true;
    } else if (name == "-L" || name == "--follow-links") {
      out.followLinks = true;
    } else if (name == "--full") {
      out.full = true;
    } else if (name == "--incremental") {
      out.full = false;
    } else if (name == "-h" || name == "--help") {
      out.help = true;
    } else if (name == "--version") {
      out.version = true;
    } else if (name == "--workers") {
      long long workers = 0;
      if (!takeValue() || !parseSize(value, workers) || workers < 1 || workers > 16) {
        return usageError("--workers must be a number from 1 to 16");
      }
      out.workers = static_cast<int>(workers);
    } else if (name == "--via") {
      if (!takeValue() || value.isEmpty()) return usageError("--via needs a value");
      out.via = value;
    } else if (name == "--log" || name == "--show-log" || name == "--max-log-size") {
      if (!takeValue() || value.isEmpty()) return usageError(name + " needs a value");
      if (name == "--log") {
        out.logPath = value;
      } else if (name == "--show-log") {
        out.showLogPath = value;
      } else if (!parseSize(value, out.maxLogSize) || out.maxLogSize < qo::CXMLLog::kMinMaxSize) {
        return usageError("--max-log-size must be a number of bytes of at least " +
                          std::to_string(qo::CXMLLog::kMinMaxSize));
      }
    } else {
      return usageError("unknown option " + name);
    }
    if (hasValue && name != "--log" && name != "--show-log" && name != "--max-log-size" && name != "--workers" &&
        name != "--via") {
      return usageError(name + " takes no value");
    }
  }
  if (out.help || out.version) return -1;
  if (!out.showLogPath.isEmpty()) {
    if (!out.positional.empty()) return usageError("--show-log takes no folders");
    return -1;
  }
  if (out.positional.size() != 2) return usageError("expected SOURCE_FOLDER and TARGET_FOLDER");
  return -1;
}

String absoluteNative(String const& path) {
  std::filesystem::path const p = std::filesystem::absolute(std::filesystem::path(path.toWString())).lexically_normal();
  String text(p.wstring().c_str());
  // A trailing separator would make the last name empty.
  while (text.getLength() > 1 && (text.EndsWith(u"/") || text.EndsWith(u"\\")) && !text.EndsWith(u":\\")) {
    text = String(text.str().substr(0, text.length() - 1));
  }
  return text;
}

// The path with every link and ".." resolved, as far as it exists; the rest
// is appended as it is. Two folders contain each other only if their real
// paths do: a target reached through a link into the source is inside it.
std::filesystem::path realPath(String const& path) {
  std::error_code error;
  std::filesystem::path real = std::filesystem::weakly_canonical(std::filesystem::path(path.toWString()), error);
  if (error) real = std::filesystem::path(path.toWString());
  return real.lexically_normal();
}

bool isInsideOrSame(std::filesystem::path const& inner, std::filesystem::path const& outer) {
  bool const blindCase = qo::localPathsAreWindowsPaths();
  auto i = inner.begin();
  for (auto o = outer.begin(); o != outer.end(); ++o, ++i) {
    if (o->empty()) continue;  // what follows a trailing separator
    if (i == inner.end()) return false;
    String const a(i->wstring().c_str());
    String const b(o->wstring().c_str());
    if (blindCase ? a.CmpNoCase(b) != 0 : a != b) return false;
  }
  return true;
}

void printSummary(qobackup::Totals const& t, double seconds, bool dryRun) {
  using qobackup::CConsole;
  std::printf("%s: %lld files, %lld %s, %lld unchanged, %lld failed", dryRun ? "Dry run" : "Backup finished", t.filesSeen,
              t.filesCopied, dryRun ? "to copy" : "copied", t.filesUnchanged, t.filesFailed);
  if (t.filesVanished) std::printf(", %lld vanished", t.filesVanished);
  if (t.entriesSkipped) std::printf(", %lld other entries skipped", t.entriesSkipped);
  std::printf("\n");
  std::printf("Folders: %lld created, %lld failed\n", t.foldersCreated, t.foldersFailed);
  double const rate = seconds > 0 ? static_cast<double>(t.bytesCopied) / seconds : 0;
  std::printf("Data: %s copied of %s in %s (%s/s)\n", CConsole::formatBytes(static_cast<double>(t.bytesCopied)).c_str(),
              CConsole::formatBytes(static_cast<double>(t.bytesSeen)).c_str(), CConsole::formatDuration(seconds).c_str(),
              CConsole::formatBytes(rate).c_str());
  std::fflush(stdout);
}

int runBackup(Arguments const& args) {
  String const sourcePath = absoluteNative(args.positional[0]);
  String const targetPath = absoluteNative(args.positional[1]);
  CURI const source = qo::CLocalFileSystem::toURI(sourcePath, true);
  CURI const target = qo::CLocalFileSystem::toURI(targetPath, true);

  P<qo::CLocalFileSystem> local = qo::newP<qo::CLocalFileSystem>();
  // With --via every file operation goes through a qo-fsd service, one
  // connection per user of the file system.
  auto fileSystem = [&]() -> P<qo::IFileSystem> {
    if (args.via.isEmpty()) return local;
    return qo::newP<qo::CProxyFileSystem>(args.via, 5000);
  };
  P<qo::CFileSystemHub> hub = qo::newP<qo::CFileSystemHub>();
  try {
    hub->registerFileSystem(u"file", fileSystem().get());
  } catch (std::exception const& e) {
    std::fprintf(stderr, "qo-backup: cannot reach the file-system service: %s\n", qobackup::describe(e).c_str());
    return kExitFailed;
  }

  if (!hub->folderExists(source)) {
    return usageError("the source " + sourcePath.toUTF8Lossy() + " is not a folder");
  }
  std::filesystem::path const realSource = realPath(sourcePath);
  std::filesystem::path const realTarget = realPath(targetPath);
  if (source.isParentOfOrEqual(target) || target.isParentOfOrEqual(source) ||
      isInsideOrSame(realTarget, realSource) || isInsideOrSame(realSource, realTarget)) {
    return usageError("the source and the target folder must not contain each other");
  }

  // The log and crash reports live beside the target, never inside it: the
  // target must stay an exact copy of the source.
  std::filesystem::path const targetFs(targetPath.toWString());
  g_logPath = args.dryRun ? String()
              : args.logPath.isEmpty()
                  ? String((targetFs.parent_path() / L"qo-backup-log.xml").wstring().c_str())
                  : absoluteNative(args.logPath);
  g_maxLogSize = args.maxLogSize;
  g_backupInfo = qo::CProps()
                     .add(u"source", sourcePath)
                     .add(u"target", targetPath)
                     .add(u"mode", String(args.dryRun ? u"dry run, " : u"") + (args.full ? u"full" : u"incremental"));

  qobackup::CConsole console(qobackup::isStdoutTerminal());
  int exitCode = kExitOk;
  if (!args.dryRun) {
    try {
      hub->ensureFolderExists(target, qo::CLocalFileSystem::kCreateParents);
    } catch (std::exception const& e) {
      std::fprintf(stderr, "qo-backup: cannot create the target folder: %s\n", qobackup::describe(e).c_str());
      return kExitFailed;
    }
  }
  // One run per target: a second one would fight over the same files.
  std::unique_ptr<qo::CLockFile> targetLock;
  if (!args.dryRun) {
    String const lockPath = targetPath + u".qo-backup.lock";
    try {
      targetLock = std::make_unique<qo::CLockFile>(lockPath, qo::IStreamBase::LockExclusive, true);
    } catch (qo::CError const& e) {
      qo::PC<qo::CError> const cause = e.getCause();
      if (cause && qo::CFileSystemError::getProblem(cause->getParams()) == qo::CFileSystemError::kLockConflict) {
        std::fprintf(stderr, "qo-backup: the target %s is in use by another qo-backup run (lock file %s)\n",
                     qobackup::printable(targetPath).c_str(), qobackup::printable(lockPath).c_str());
        return kExitUsage;
      }
      std::fprintf(stderr, "qo-backup: cannot lock the target: %s\n", qobackup::describe(e).c_str());
      return kExitFailed;
    }
  }

  qo::CXMLLog::setGlobalCreateFunc(&createSessionLog);
  qo::CXMLLog::CGlobalLogCloser logCloser;
  P<qo::CCrashManager> const& crashManager = qo::CCrashManager::get();
  // Crash reports go beside the log; a dry run writes neither.
  if (!args.dryRun) {
    try {
      String const logFolder((std::filesystem::path(g_logPath.toWString()).parent_path()).wstring().c_str());
      crashManager->setGlobalHandler(
          P<qo::CCrashHandler>(new qo::CCrashHandler(qo::CCrashHandler::Path(logFolder), u"qo-backup",
                                                     qo::CCrashHandler::Path(g_logPath), true))
              .get());
      crashManager->initHook();
      qo::CCrashManager::hookCallingModuleRuntime();
    } catch (std::exception const& e) {
      // A backup without crash reports is still a backup.
      std::fprintf(stderr, "qo-backup: warning: crash reports are off: %s\n", qobackup::describe(e).c_str());
      qo::logWarning(e, u"Crash reports are off.", String());
    }
  }

  // A dry run has no log (see createSessionLog): nothing to tell it.
  if (!args.dryRun) qo::logInfo(String(u"Backup of ") + sourcePath + u" to " + targetPath + u" started.");
  qobackup::Options options;
  options.source = source;
  options.target = target;
  options.dryRun = args.dryRun;
  options.verbose = args.verbose;
  options.incremental = !args.full;
  options.followLinks = args.followLinks;
  // Each local file system stores on its own "qo.bgOp" worker, one job
  // after another; with several, one file's flush to the medium overlaps the
  // next file's copying.
  std::vector<P<qo::IFileSystem>> storeHubs;
  for (int i = 0; i < args.workers; ++i) {
    P<qo::CFileSystemHub> storeHub = qo::newP<qo::CFileSystemHub>();
    storeHub->registerFileSystem(
        u"file", args.via.isEmpty() ? P<qo::IFileSystem>(new qo::CLocalFileSystem()).get() : fileSystem().get());
    storeHubs.push_back(storeHub);
  }
  qobackup::CBackupRun run(options, hub, storeHubs, console);
  if (args.via.isEmpty()) run.keepOwnersAndAttributes(local);  // needs the local file system's extras
  try {
    run.run();
  } catch (std::exception const& e) {
    console.finish();
    std::fprintf(stderr, "qo-backup: %s\n", qobackup::describe(e).c_str());
    if (!args.dryRun) qo::logError(e, u"The backup failed.", sourcePath);
    exitCode = kExitFailed;
  }
  console.finish();
  double const seconds = console.elapsedSeconds();
  qobackup::Totals const& t = run.getTotals();
  if (run.hasFailures()) exitCode = kExitFailed;
  printSummary(t, seconds, args.dryRun);
  String const summary = String(u"Finished: ") + qo::toString(t.filesSeen) + u" files, " + qo::toString(t.filesCopied) +
                         u" copied, " + qo::toString(t.filesUnchanged) + u" unchanged, " +
                         qo::toString(t.filesFailed) + u" failed, " + qo::toString(t.filesVanished) + u" vanished; " +
                         qo::toString(t.bytesCopied) + u" bytes copied; exit code " + qo::toString(exitCode) + u".";
  if (!args.dryRun && exitCode == kExitOk) {
    qo::logInfo(summary);
  } else if (!args.dryRun) {
    qo::logWarning(summary);
  }
  crashManager->deinitHook();
  crashManager->setGlobalHandler(nullptr);
  return exitCode;
}

int qoBackupMain(std::vector<String> const& args) {
  qobackup::prepareConsole();
  qo::CQoInit init;
  Arguments parsed;
  if (int const code = parseArguments(args, parsed); code >= 0) return code;
  if (parsed.help) {
    std::fputs(kUsage, stdout);
    return kExitOk;
  }
  if (parsed.version) {
    std::printf("qo-backup %s\n", kVersion);
    return kExitOk;
  }
  if (!parsed.showLogPath.isEmpty()) return qobackup::showLog(absoluteNative(parsed.showLogPath));
  try {
    return runBackup(parsed);
  } catch (std::exception const& e) {
    std::fprintf(stderr, "qo-backup: %s\n", qobackup::describe(e).c_str());
    return kExitFailed;
  }
}

}  // namespace

#ifdef _WIN32
// Wide arguments: the ANSI ones cannot carry every file name.
int wmain(int argc, wchar_t** argv) {
  std::vector<String> args;
  for (int i = 1; i < argc; ++i) args.emplace_back(argv[i]);
  return qoBackupMain(args);
}
#else
int main(int argc, char** argv) {
  std::vector<String> args;
  for (int i = 1; i < argc; ++i) args.push_back(String::wstringFromUTF8WithLatin1Fallback(argv[i]));
  return qoBackupMain(args);
}
#endif
