// End-to-end tests of the qo-backup example program: the built executable
// (QO_BACKUP_EXE, set by CMake) runs on generated folder trees, and the
// tests judge its exit codes, its summary, the target tree byte for byte and
// the session log.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "TempFolder.h"
#include "qo/fs/CLockFile.h"

#ifdef _WIN32
#  include <windows.h>
#else
#  include <fcntl.h>
#  include <spawn.h>
#  include <sys/stat.h>
#  include <sys/wait.h>
#  include <sys/xattr.h>
#  include <unistd.h>
extern char** environ;
#endif

namespace fs = std::filesystem;

namespace {

#ifdef QO_BACKUP_EXE
std::string backupExe() {
  std::string exe = QO_BACKUP_EXE;
#  ifdef _WIN32
  // Under Wine the build tree's POSIX path is on drive Z:.
  if (!exe.empty() && exe[0] == '/') exe = "Z:" + exe;
  for (char& c : exe) c = c == '/' ? '\\' : c;
#  endif
  return exe;
}
#endif

// Paths beyond the classic 260-character limit need the long-path prefix
// for the test's own file work on Windows.
fs::path longPath(fs::path const& p) {
#ifdef _WIN32
  // The prefix turns off the system's path clean-up: backslashes only.
  std::wstring const text = fs::path(p).make_preferred().wstring();
  if (text.rfind(L"\\\\?\\", 0) == 0) return p;
  return fs::path(L"\\\\?\\" + text);
#else
  return p;
#endif
}

std::string u8(fs::path const& p) { return p.u8string(); }

// Runs the program with args (UTF-8), its standard output and error going
// to the file output. Returns the exit code, -1 when it could not run.
int runProgram(std::string const& exe, std::vector<std::string> const& args, fs::path const& output) {
#ifdef _WIN32
  auto quote = [](std::wstring const& arg) {
    std::wstring out = L"\"";
    for (wchar_t c : arg) out += c == L'"' ? std::wstring(L"\\\"") : std::wstring(1, c);
    return out + L"\"";
  };
  std::wstring command = quote(fs::u8path(exe).wstring());
  for (std::string const& arg : args) command += L" " + quote(fs::u8path(arg).wstring());
  SECURITY_ATTRIBUTES inherit{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  HANDLE out = CreateFileW(output.wstring().c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit,
                           CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (out == INVALID_HANDLE_VALUE) return -1;
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  startup.hStdOutput = out;
  startup.hStdError = out;
  PROCESS_INFORMATION process{};
  std::vector<wchar_t> line(command.begin(), command.end());
  line.push_back(0);
  BOOL const started = CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process);
  CloseHandle(out);
  if (!started) return -1;
  WaitForSingleObject(process.hProcess, INFINITE);
  DWORD code = 0;
  GetExitCodeProcess(process.hProcess, &code);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return static_cast<int>(code);
#else
  std::vector<std::string> all{exe};
  all.insert(all.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& arg : all) argv.push_back(arg.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_adddup2(&actions, 1, 2);
  pid_t pid = 0;
  int const rc = posix_spawn(&pid, exe.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) return -1;
  int status = 0;
  if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
#endif
}

std::string readAll(fs::path const& file) {
  std::ifstream in(longPath(file), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeFile(fs::path const& file, std::string const& data) {
  std::ofstream out(longPath(file), std::ios::binary | std::ios::trunc);
  out.write(data.data(), static_cast<std::streamsize>(data.size()));
  ASSERT_TRUE(out.good()) << u8(file);
}

// Deterministic bytes that no two files share.
std::string pseudoRandom(std::size_t size, unsigned long long seed) {
  std::string data(size, '\0');
  unsigned long long x = seed * 0x9E3779B97F4A7C15ULL + 1;
  for (std::size_t i = 0; i < size; i += 8) {
    x ^= x << 13, x ^= x >> 7, x ^= x << 17;
    for (std::size_t k = 0; k < 8 && i + k < size; ++k) data[i + k] = static_cast<char>(x >> (8 * k));
  }
  return data;
}

struct Tree {
  long long files = 0;
  long long bytes = 0;
  std::string longFileRelative;  ///< The file whose path is over 260 characters.
};

// 1,000 small files in 50 folders, three large ones (95 MiB), non-ASCII
// names, an empty file and folder, and a path of more than 260 characters.
Tree makeTree(fs::path const& root) {
  Tree tree;
  auto add = [&](fs::path const& relative, std::size_t size) {
    fs::create_directories(longPath(root / relative.parent_path()));
    writeFile(root / relative, pseudoRandom(size, static_cast<unsigned long long>(tree.files) + 1));
    ++tree.files;
    tree.bytes += static_cast<long long>(size);
  };
  for (int d = 0; d < 10; ++d)
    for (int s = 0; s < 5; ++s)
      for (int f = 0; f < 20; ++f)
        add(fs::path("dir" + std::to_string(d)) / ("sub" + std::to_string(s)) / ("file" + std::to_string(f) + ".dat"),
            static_cast<std::size_t>((d * 7919 + s * 104729 + f * 1299709) % 20000));
  add(fs::path("large") / "big-0.bin", 40u << 20);
  add(fs::path("large") / "big-1.bin", 30u << 20);
  add(fs::path("large") / "big-2.bin", (25u << 20) + 12345);
  add(fs::u8path(u8"donn\u00e9es") / fs::u8path(u8"Gr\u00fc\u00dfe \u65e5\u672c\u8a9e \u00e9t\u00e9.txt"), 777);
  add(fs::path("empty-file"), 0);
  fs::path deep;
  for (int i = 0; i < 5; ++i) deep /= "level-" + std::to_string(i) + "-" + std::string(50, 'a' + i);
  add(deep / "deep-file.txt", 4096);
  tree.longFileRelative = deep.generic_u8string() + "/deep-file.txt";
  fs::create_directories(longPath(root / "empty-folder"));
  return tree;
}

struct Entry {
  bool folder = false;
  long long size = 0;
};

#ifdef _WIN32
// MinGW's directory iterator loses its way below 260 characters of path, so
// the walk asks the system itself.
void listFolder(std::wstring const& folder, std::string const& relative, std::map<std::string, Entry>& entries) {
  WIN32_FIND_DATAW data;
  HANDLE find = FindFirstFileW((folder + L"\\*").c_str(), &data);
  if (find == INVALID_HANDLE_VALUE) return;
  do {
    std::wstring const name = data.cFileName;
    if (name == L"." || name == L"..") continue;
    std::string const child = (relative.empty() ? "" : relative + "/") + fs::path(name).u8string();
    Entry entry;
    entry.folder = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    entry.size = entry.folder ? 0 : static_cast<long long>((static_cast<unsigned long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow);
    entries[child] = entry;
    if (entry.folder) listFolder(folder + L"\\" + name, child, entries);
  } while (FindNextFileW(find, &data));
  FindClose(find);
}
#endif

std::map<std::string, Entry> listTree(fs::path const& root) {
  std::map<std::string, Entry> entries;
#ifdef _WIN32
  listFolder(longPath(root).wstring(), std::string(), entries);
#else
  for (auto const& item : fs::recursive_directory_iterator(root)) {
    std::string const relative = item.path().lexically_relative(root).generic_u8string();
    Entry entry;
    entry.folder = item.is_directory();
    entry.size = entry.folder || item.is_symlink() ? 0 : static_cast<long long>(item.file_size());
    entries[relative] = entry;
  }
#endif
  return entries;
}

long long micros(fs::file_time_type time) {
  return std::chrono::floor<std::chrono::microseconds>(time.time_since_epoch()).count();
}

// Same names, kinds, bytes and modification times, except for the names in
// skip.
void expectSameTree(fs::path const& source, fs::path const& target, std::vector<std::string> const& skip = {}) {
  auto sourceEntries = listTree(source);
  auto targetEntries = listTree(target);
  for (std::string const& name : skip) {
    sourceEntries.erase(name);
    targetEntries.erase(name);
  }
  ASSERT_EQ(sourceEntries.size(), targetEntries.size());
  for (auto const& [relative, entry] : sourceEntries) {
    SCOPED_TRACE(relative);
    auto const found = targetEntries.find(relative);
    ASSERT_NE(found, targetEntries.end());
    ASSERT_EQ(entry.folder, found->second.folder);
    if (entry.folder) continue;
    ASSERT_EQ(entry.size, found->second.size);
    ASSERT_TRUE(readAll(source / fs::u8path(relative)) == readAll(target / fs::u8path(relative)));
    // The library keeps times in microseconds.
    EXPECT_EQ(micros(fs::last_write_time(longPath(source / fs::u8path(relative)))),
              micros(fs::last_write_time(longPath(target / fs::u8path(relative)))));
  }
}

struct Summary {
  long long files = -1, copied = -1, unchanged = -1, failed = -1;
};

Summary parseSummary(std::string const& output) {
  Summary s;
  std::size_t const at = output.find("Backup finished: ");
  if (at != std::string::npos)
    std::sscanf(output.c_str() + at, "Backup finished: %lld files, %lld copied, %lld unchanged, %lld failed", &s.files,
                &s.copied, &s.unchanged, &s.failed);
  return s;
}

class QoBackup : public ::testing::Test {
protected:
  void SetUp() override {
#ifndef QO_BACKUP_EXE
    GTEST_SKIP() << "qo-backup is not built (QO_BUILD_EXAMPLES=OFF)";
#else
    m_exe = backupExe();
#endif
  }
  int run(std::vector<std::string> const& args) {
    fs::path const output = m_temp.file("output-" + std::to_string(++m_runs) + ".txt");
    int const code = runProgram(m_exe, args, output);
    m_output = readAll(output);
    // Windows programs write text lines with CR LF.
    for (std::size_t at; (at = m_output.find("\r\n")) != std::string::npos;) m_output.erase(at, 1);
    return code;
  }

  qo::test::TempFolder m_temp{"qo-backup"};
  std::string m_exe;
  std::string m_output;
  int m_runs = 0;
};

TEST_F(QoBackup, BacksUpATreeThenSkipsItThenSurvivesAnUnreadableFile) {
  fs::path const source = m_temp.file("source");
  fs::path const target = m_temp.file("backup") / "target";
  fs::path const log = m_temp.file("session.xml");
  Tree const tree = makeTree(source);
  ASSERT_GE(tree.files, 1000);
  ASSERT_GE(tree.bytes, 100LL << 20);
  ASSERT_GT(u8(source / fs::u8path(tree.longFileRelative)).size(), 260u);
  std::vector<std::string> args{"--log", u8(log), u8(source), u8(target)};
#ifndef _WIN32
  // Root reads whatever the permissions say; what it cannot read is the
  // dangling link made below, followed.
  if (geteuid() == 0) args.insert(args.begin(), "--follow-links");
#endif

  ASSERT_EQ(0, run(args)) << m_output;
  Summary const first = parseSummary(m_output);
  EXPECT_EQ(tree.files, first.files) << m_output;
  EXPECT_EQ(tree.files, first.copied) << m_output;
  EXPECT_EQ(0, first.failed) << m_output;
  expectSameTree(source, target);  // also: no temporary file is left

  // What a killed run leaves behind goes; nothing else changes.
  writeFile(target / "dir1" / "sub1" / "~qo-0123456789abcdef.tmp", "partial");
  ASSERT_EQ(0, run(args)) << m_output;
  Summary second = parseSummary(m_output);
  EXPECT_EQ(0, second.copied) << m_output;
  EXPECT_EQ(tree.files, second.unchanged) << m_output;
  EXPECT_FALSE(fs::exists(target / "dir1" / "sub1" / "~qo-0123456789abcdef.tmp"));

  // One file changes (same size, later time); another changes too but
  // cannot be read (an unchanged one would not even be opened).
  std::string const changed = "dir3/sub2/file7.dat";
  std::string const unreadable = "dir5/sub1/file4.dat";
  std::string const changedData = pseudoRandom(readAll(source / changed).size(), 999);
  writeFile(source / changed, changedData);
  for (std::string const& name : {changed, unreadable})
    fs::last_write_time(source / name, fs::last_write_time(source / name) + std::chrono::seconds(10));
  std::string const keptData = readAll(target / unreadable);
#ifdef _WIN32
  // Held without sharing: the program's open fails with a sharing violation.
  HANDLE blocker = CreateFileW((source / unreadable).wstring().c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                               FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(INVALID_HANDLE_VALUE, blocker);
#else
  if (geteuid() == 0) {
    // Root reads any permission bits; a dangling link is a file that root
    // cannot open either.
    fs::remove(source / unreadable);
    fs::create_symlink("no-such-file", source / unreadable);
  } else {
    fs::permissions(source / unreadable, fs::perms::none);
  }
#endif
  int const code = run(args);
#ifdef _WIN32
  CloseHandle(blocker);
#else
  std::error_code ignored;
  fs::permissions(source / unreadable, fs::perms::owner_all, ignored);
#endif
  ASSERT_EQ(1, code) << m_output;
  Summary third = parseSummary(m_output);
  EXPECT_EQ(1, third.copied) << m_output;
  EXPECT_EQ(1, third.failed) << m_output;
  EXPECT_EQ(tree.files - 2, third.unchanged) << m_output;
#ifdef _WIN32
  std::string const reason = "Locking error [IO 15 (";  // the sharing violation
#else
  std::string const reason = "Error opening file or stream. [IO 1 (";
#endif
  EXPECT_NE(std::string::npos, m_output.find("error: " + unreadable + ": Cannot read the file: " + reason)) << m_output;
  EXPECT_EQ(std::string::npos, m_output.find("_trace")) << m_output;  // the library's own notes stay inside
  EXPECT_TRUE(readAll(target / unreadable) == keptData);  // the old copy survives
  EXPECT_TRUE(readAll(target / changed) == changedData);
  expectSameTree(source, target, {unreadable});

  ASSERT_EQ(0, run({"--show-log", u8(log)})) << m_output;
  EXPECT_NE(std::string::npos, m_output.find("ERROR    Cannot read the file: " + unreadable)) << m_output;
  EXPECT_NE(std::string::npos, m_output.find("\n3 sessions\n")) << m_output;
  EXPECT_EQ(std::string::npos, m_output.find("UNFINISHED")) << m_output;
}

TEST_F(QoBackup, DryRunChangesNothing) {
  fs::path const source = m_temp.file("source");
  fs::path const target = m_temp.file("target");
  fs::create_directories(source / "sub");
  writeFile(source / "a.txt", "alpha");
  writeFile(source / "sub" / "b.txt", "beta");
  for (bool const ownLog : {true, false}) {
    SCOPED_TRACE(ownLog);
    std::vector<std::string> args{"--dry-run", u8(source), u8(target)};
    if (ownLog) args.insert(args.begin() + 1, {"--log", u8(m_temp.file("log.xml"))});
    ASSERT_EQ(0, run(args)) << m_output;
    EXPECT_NE(std::string::npos, m_output.find("Dry run: 2 files, 2 to copy, 0 unchanged, 0 failed")) << m_output;
    EXPECT_EQ(std::string::npos, m_output.find("ERROR")) << m_output;
    // Nothing but the source and the runs' outputs: no target, log or lock.
    std::vector<std::string> names;
    for (auto const& item : fs::directory_iterator(m_temp.file(""))) names.push_back(u8(item.path().filename()));
    EXPECT_EQ(1 + m_runs, static_cast<int>(names.size())) << testing::PrintToString(names);
  }
}

TEST_F(QoBackup, ASecondRunOnATargetInUseRefusesAtOnce) {
  fs::path const source = m_temp.file("source");
  fs::path const target = m_temp.file("target");
  fs::create_directories(source);
  writeFile(source / "a.txt", "alpha");
  {
    // What a run holds while it works: the library's lock beside the target.
    qo::CLockFile held(m_temp.path("target.qo-backup.lock"));
    ASSERT_EQ(2, run({u8(source), u8(target)})) << m_output;
    EXPECT_NE(std::string::npos, m_output.find("is in use by another qo-backup run")) << m_output;
    EXPECT_FALSE(fs::exists(target / "a.txt"));
  }
  ASSERT_EQ(0, run({u8(source), u8(target)})) << m_output;
  EXPECT_EQ("alpha", readAll(target / "a.txt"));
  EXPECT_FALSE(fs::exists(m_temp.file("target.qo-backup.lock")));  // a finished run removes it
}

TEST_F(QoBackup, BadArgumentsExitWithTwo) {
  fs::path const source = m_temp.file("source");
  fs::create_directories(source / "sub");
  struct Case {
    std::vector<std::string> args;
    char const* message;
  };
  std::vector<Case> cases{
      {{}, "qo-backup: expected SOURCE_FOLDER and TARGET_FOLDER"},
      {{u8(source)}, "qo-backup: expected SOURCE_FOLDER and TARGET_FOLDER"},
      {{"--bogus", u8(source), u8(m_temp.file("t"))}, "qo-backup: unknown option --bogus"},
      {{"--max-log-size", "100", u8(source), u8(m_temp.file("t"))},
       "qo-backup: --max-log-size must be a number of bytes of at least 10240"},
      {{u8(source), "--log"}, "qo-backup: --log needs a value"},
      {{u8(m_temp.file("missing")), u8(m_temp.file("t"))}, "is not a folder"},
      {{u8(source), u8(source / "inside")}, "qo-backup: the source and the target folder must not contain each other"},
      {{u8(source / "sub"), u8(source)}, "qo-backup: the source and the target folder must not contain each other"},
  };
#ifndef _WIN32
  // Through a link the target is inside the source all the same.
  fs::create_directory_symlink(source, m_temp.file("link"));
  cases.push_back({{u8(source), u8(m_temp.file("link") / "t")},
                   "qo-backup: the source and the target folder must not contain each other"});
#endif
  for (Case const& c : cases) {
    SCOPED_TRACE(c.message);
    EXPECT_EQ(2, run(c.args)) << m_output;
    EXPECT_NE(std::string::npos, m_output.find(c.message)) << m_output;
    EXPECT_NE(std::string::npos, m_output.find("Usage: qo-backup")) << m_output;
  }
  EXPECT_FALSE(fs::exists(m_temp.file("t")));
  EXPECT_FALSE(fs::exists(source / "inside"));
  ASSERT_EQ(0, run({"--help"}));
  EXPECT_EQ(0u, m_output.find("Usage: qo-backup [options] SOURCE_FOLDER TARGET_FOLDER\n"));
  ASSERT_EQ(0, run({"--version"}));
  EXPECT_EQ("qo-backup 0.1.0\n", m_output);
}

TEST_F(QoBackup, ShowLogRefusesADeeplyNestedLog) {
  fs::path const log = m_temp.file("deep.xml");
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<log>";
  for (int i = 0; i < 50000; ++i) text += "<a>";
  writeFile(log, text);
  ASSERT_EQ(1, run({"--show-log", u8(log)})) << m_output;
  EXPECT_NE(std::string::npos, m_output.find("nested too deeply: the log is damaged")) << m_output;
}

#ifndef _WIN32
TEST_F(QoBackup, KeepsPermissionsAndFolderTimes) {
  fs::path const source = m_temp.file("source");
  fs::path const target = m_temp.file("target");
  struct Item {
    char const* name;
    int mode;
  };
  std::vector<Item> const items{{"private", 0700}, {"private/secret", 0600}, {"shared", 0644},
                                {"tool", 0755},    {"read-only", 0444},      {"group", 0640},
                                {"locked/file", 0644}, {"locked", 0555}};  // the folder last: it takes no files
  fs::create_directories(source / "private");
  fs::create_directories(source / "locked");
  for (Item const& item : items)
    if (std::string(item.name) != "private" && std::string(item.name) != "locked") writeFile(source / item.name, item.name);
  auto chmodAll = [&] {
    for (Item const& item : items) ASSERT_EQ(0, chmod((source / item.name).c_str(), static_cast<mode_t>(item.mode)));
  };
  chmodAll();
  auto const folderTime = fs::last_write_time(source / "private") - std::chrono::hours(5);
  fs::last_write_time(source / "private", folderTime);
  auto expectSame = [&] {
    for (Item const& item : items) {
      SCOPED_TRACE(item.name);
      struct stat st {};
      ASSERT_EQ(0, stat((target / item.name).c_str(), &st));
      EXPECT_EQ(item.mode, static_cast<int>(st.st_mode & 07777));
    }
    EXPECT_EQ(micros(folderTime), micros(fs::last_write_time(target / "private")));
    expectSameTree(source, target);
  };
  ASSERT_EQ(0, run({u8(source), u8(target)})) << m_output;
  expectSame();
  // Changed files replace read-only copies too.
  ASSERT_EQ(0, chmod((source / "locked").c_str(), 0755));
  for (char const* name : {"read-only", "private/secret", "locked/file"}) {
    ASSERT_EQ(0, chmod((source / name).c_str(), 0600));
    writeFile(source / name, std::string(name) + " v2");
  }
  chmodAll();
  fs::last_write_time(source / "private", folderTime);
  ASSERT_EQ(0, run({u8(source), u8(target)})) << m_output;
  EXPECT_NE(std::string::npos, m_output.find("3 copied")) << m_output;
  expectSame();
  for (fs::path const& root : {source, target}) chmod((root / "locked").c_str(), 0755);  // so that it can go
}

TEST_F(QoBackup, LinksAreCopiedAsLinks) {
  fs::path const source = m_temp.file("source");
  fs::path const target = m_temp.file("target");
  fs::create_directories(source / "sub");
  writeFile(source / "a.txt", "a");
  writeFile(source / "sub" / "b.txt", "b");
  struct Link {
    char const* name;
    char const* text;
  };
  std::vector<Link> const links{{"to-file", "a.txt"},
                                {"to-folder", "sub"},
                                {"sub/up", "../a.txt"},
                                {"dangling", "nowhere/x"},
                                {"absolute", "/proc/self/status"},
                                {"odd name %41", "with space & 100%"}};
  for (Link const& link : links) fs::create_symlink(link.text, source / link.name);
  auto expectLinks = [&] {
    for (Link const& link : links) {
      SCOPED_TRACE(link.name);
      ASSERT_TRUE(fs::is_symlink(target / link.name));
      EXPECT_EQ(link.text, fs::read_symlink(target / link.name).string());
    }
  };
  ASSERT_EQ(0, run({u8(source), u8(target)})) << m_output;
  expectLinks();
  EXPECT_EQ("a", readAll(target / "a.txt"));
  ASSERT_EQ(0, run({u8(source), u8(target)})) << m_output;
  EXPECT_NE(std::string::npos, m_output.find("0 copied, 8 unchanged")) << m_output;
  // A link that now says something else replaces the old one.
  fs::remove(source / "to-file");
  fs::create_symlink("sub/b.txt", source / "to-file");
  ASSERT_EQ(0, run({u8(source), u8(target)})) << m_output;
  EXPECT_NE(std::string::npos, m_output.find("1 copied, 7 unchanged")) << m_output;
  EXPECT_EQ("sub/b.txt", fs::read_symlink(target / "to-file").string());
  EXPECT_EQ(std::distance(fs::directory_iterator(source), fs::directory_iterator()),
            std::distance(fs::directory_iterator(target), fs::directory_iterator()));  // no temporary left
}

TEST_F(QoBackup, RootKeepsOwners) {
  if (geteuid() != 0) GTEST_SKIP() << "only root may give files away";
  fs::path const source = m_temp.file("source");
  fs::path const target = m_temp.file("target");
  fs::create_directories(source / "folder");
  writeFile(source / "folder" / "file", "owned");
  struct Item {
    char const* name;
    uid_t owner;
    gid_t group;
  };
  std::vector<Item> const items{{"folder", 1234, 5678}, {"folder/file", 4321, 8765}};
  for (Item const& item : items) ASSERT_EQ(0, chown((source / item.name).c_str(), item.owner, item.group));
  ASSERT_EQ(0, run({u8(source), u8(target)})) << m_output;
  for (Item const& item : items) {
    SCOPED_TRACE(item.name);
    struct stat st {};
    ASSERT_EQ(0, stat((target / item.name).c_str(), &st));
    EXPECT_EQ(item.owner, st.st_uid);
    EXPECT_EQ(item.group, st.st_gid);
  }
}

TEST_F(QoBackup, KeepsExtendedAttributes) {
  fs::path const source = m_temp.file("source");
  fs::path const target = m_temp.file("target");
  fs::create_directories(source / "folder");
  writeFile(source / "folder" / "file", "tagged");
  struct Item {
    char const* path;
    char const* name;
    std::string value;
  };
  std::vector<Item> const items{{"folder", "user.qo.colour", "blue"},
                                {"folder/file", "user.qo.origin", std::string("bytes\0\xFF", 7)},
                                {"folder/file", "user.qo.empty", ""}};
  for (Item const& item : items) {
    if (setxattr((source / item.path).c_str(), item.name, item.value.data(), item.value.size(), 0) != 0) {
      GTEST_SKIP() << "this file system keeps no user attributes";
    }
  }
  ASSERT_EQ(0, run({u8(source), u8(target)})) << m_output;
  for (Item const& item : items) {
    SCOPED_TRACE(std::string(item.path) + " " + item.name);
    std::string value(64, '\0');
    ssize_t const got = getxattr((target / item.path).c_str(), item.name, value.data(), value.size());
    ASSERT_GE(got, 0);
    value.resize(static_cast<std::size_t>(got));
    EXPECT_EQ(item.value, value);
  }
}

TEST_F(QoBackup, NamesThatAreNotUtf8AreCopiedByteForByte) {
  fs::path const source = m_temp.file("source");
  fs::path const target = m_temp.file("target");
  std::vector<std::string> const files{"caf\xE9.txt", "dossier-\xFF/inner-\xC3.bin", "dossier-\xFF/ok.txt"};
  fs::create_directories(source / "dossier-\xFF");
  for (std::string const& name : files) writeFile(source / name, name);
  ASSERT_EQ(0, run({"--verbose", u8(source), u8(target)})) << m_output;
  // Shown escaped, never as a lookalike character.
  EXPECT_NE(std::string::npos, m_output.find("copied: caf\\xE9.txt\n")) << m_output;
  EXPECT_NE(std::string::npos, m_output.find("copied: dossier-\\xFF/inner-\\xC3.bin\n")) << m_output;
  for (std::string const& name : files) {
    SCOPED_TRACE(name);
    EXPECT_EQ(name, readAll(target / name));
  }
  expectSameTree(source, target);  // and nothing else, such as a wrongly named folder
}

TEST_F(QoBackup, AFileThatChangesWhileCopiedIsReportedAndNotStored) {
  // The system reports a size of 0 for its /proc files, and reading gives
  // more: to the program the file (a link to one, followed) changed while it
  // was copied, every time.
  fs::path const source = m_temp.file("source");
  fs::path const target = m_temp.file("target");
  fs::create_directories(source);
  writeFile(source / "steady.txt", "steady");
  fs::create_symlink("/proc/self/status", source / "moving.txt");
  ASSERT_EQ(1, run({"--follow-links", u8(source), u8(target)})) << m_output;
  EXPECT_NE(std::string::npos,
            m_output.find("warning: moving.txt: Changed while it was copied (twice); the earlier copy is kept"))
      << m_output;
  EXPECT_EQ("steady", readAll(target / "steady.txt"));
  EXPECT_FALSE(fs::exists(target / "moving.txt"));
  EXPECT_EQ(2, std::distance(fs::directory_iterator(target), fs::directory_iterator()) + 1);  // no temporary left
}
#endif

TEST_F(QoBackup, ShowLogFlagsAnUnfinishedSession) {
  fs::path const log = m_temp.file("log.xml");
  // What a run killed after its first entry leaves, once the next run has
  // opened the log: the session closed by that run with "sessionUnfinished".
  writeFile(log,
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n\n<log>\n"
            "  <session time=\"2026-01-02T03:04:05\">\n"
            "    <sessionHeader><appInfo edition=\"x\" id=\"qo-backup\" version=\"0.1.0\"></appInfo></sessionHeader>\n"
            "    <entry level=\"info\" time=\"2026-01-02T03:04:06\">Backup of /a &amp; /b started.</entry>\n"
            "    <sessionUnfinished></sessionUnfinished>\n"
            "  </session>\n");
  writeFile(m_temp.file("log-suffix.xml"), "</log>\n");
  ASSERT_EQ(0, run({"--show-log", u8(log)})) << m_output;
  EXPECT_EQ("Session 1  started 2026-01-02T03:04:05  qo-backup 0.1.0\n"
            "  2026-01-02T03:04:06 info     Backup of /a & /b started.\n"
            "  UNFINISHED: the program ended without closing this session (crash or kill).\n"
            "\n"
            "1 session\n",
            m_output);
  EXPECT_EQ(1, run({"--show-log", u8(m_temp.file("none.xml"))}));
}

}  // namespace
