// CLocalFileStream range locks against another process: this executable runs
// again with only the probe test, which tries one lock on the file named in its
// environment and exits with the verdict, so the OS judges, not our bookkeeping.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "LocalFileTestSupport.h"
#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/fs/CLocalFileStream.h"

#ifdef _WIN32
#include <process.h>
#else
#include <sys/wait.h>
#include <unistd.h>
extern char** environ;
#endif

namespace qo {
namespace {

using localfiletest::problemOf;
using localfiletest::TempFolder;
using Flags = TFlags<IIOStream::Flags>;

char const kPathVar[] = "QO_TEST_LOCK_PROBE_PATH";
char const kRangeVar[] = "QO_TEST_LOCK_PROBE_RANGE";  // "<start> <length> <shared|exclusive>"
char const kProbeFilter[] = "--gtest_filter=CrossProcessLock.ProbeForTheParentProcess";

// The probe's exit codes; none of them is one GoogleTest or a crash gives.
constexpr int kGotLock = 40;
constexpr int kConflict = 41;
constexpr int kOtherFailure = 42;

Flags const kShareAll{IIOStream::FlagShareRead, IIOStream::FlagShareWrite};

bool readEnvironment(char const* name, String& value) {
#ifdef _WIN32
  std::wstring const wide(name, name + std::char_traits<char>::length(name));
  wchar_t const* text = _wgetenv(wide.c_str());
  if (!text) return false;
  value = String(text);
#else
  char const* text = std::getenv(name);
  if (!text) return false;
  value = String::fromUTF8(text);
#endif
  return true;
}

// Runs the probe once in a new process of this executable; its exit code,
// or -1 when it could not be run or did not exit normally.
int runProbeOnce(std::string const& path, std::string const& range) {
#ifdef _WIN32
  std::wstring exe(32768, L'\0');
  exe.resize(GetModuleFileNameW(nullptr, exe.data(), static_cast<DWORD>(exe.size())));
  String const widePath = String::fromUTF8(path), wideRange = String::fromUTF8(range);
  _wputenv_s(L"QO_TEST_LOCK_PROBE_PATH", reinterpret_cast<wchar_t const*>(widePath.c_str()));
  _wputenv_s(L"QO_TEST_LOCK_PROBE_RANGE", reinterpret_cast<wchar_t const*>(wideRange.c_str()));
  std::wstring const quoted = L"\"" + exe + L"\"";
  std::wstring const filter(kProbeFilter, kProbeFilter + sizeof kProbeFilter - 1);
  intptr_t const status = _wspawnl(_P_WAIT, exe.c_str(), quoted.c_str(), filter.c_str(), nullptr);
  _wputenv_s(L"QO_TEST_LOCK_PROBE_PATH", L"");
  _wputenv_s(L"QO_TEST_LOCK_PROBE_RANGE", L"");
  return static_cast<int>(status);
#else
  // Everything the child needs is built before fork(): after it, in a
  // process with threads, only async-signal-safe calls are allowed.
  std::string exe = std::filesystem::read_symlink("/proc/self/exe").string();
  std::string filter = kProbeFilter;
  std::vector<std::string> env;
  for (char** e = environ; *e; ++e) env.emplace_back(*e);
  env.push_back(std::string(kPathVar) + "=" + path);
  env.push_back(std::string(kRangeVar) + "=" + range);
  std::vector<char*> argv{exe.data(), filter.data(), nullptr};
  std::vector<char*> envp;
  for (std::string& e : env) envp.push_back(e.data());
  envp.push_back(nullptr);
  pid_t const pid = fork();
  if (pid < 0) return -1;
  if (pid == 0) {
    execve(exe.c_str(), argv.data(), envp.data());
    _exit(127);
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#endif
}

// The probe's verdict on locking range of the file at path. Wine now and
// then fails to start a process at all, so a run without a verdict is tried
// again (a probe that fails by itself fails the same way every time).
int probe(String const& path, long long start, long long length, IStreamBase::LockType type) {
  std::string const range = std::to_string(start) + " " + std::to_string(length) + " " +
                            (type == IStreamBase::LockShared ? "shared" : "exclusive");
  int status = -1;
  for (int attempt = 0; attempt < 3 && status != kGotLock && status != kConflict && status != kOtherFailure;
       ++attempt) {
    status = runProbeOnce(path.toUTF8(), range);
  }
  return status;
}

// The child's side. Skipped in an ordinary run.
TEST(CrossProcessLock, ProbeForTheParentProcess) {
  String path, range;
  if (!readEnvironment(kPathVar, path) || !readEnvironment(kRangeVar, range)) {
    GTEST_SKIP() << "runs only as the child process of CrossProcessLock.RangeLocksHoldAgainstAnotherProcess";
  }
  int verdict = kOtherFailure;
  {
    long long start = -1, length = -1;
    std::string type;
    std::istringstream(range.toUTF8()) >> start >> length >> type;
    try {
      P<CLocalFileStream> stream = newP<CLocalFileStream>(path, IIOStream::AccessReadWrite, kShareAll);
      P<IStreamLock> lock =
          stream->lockRange(start, length, type == "shared" ? IStreamBase::LockShared : IStreamBase::LockExclusive);
      verdict = kGotLock;
    } catch (CIOError const& e) {
      if (e.getErrorCode() == CIOError::kLockFailed && problemOf(e) == CFileSystemError::kLockConflict) {
        verdict = kConflict;
      } else {
        std::fprintf(stderr, "probe: %s\n", e.what());
      }
    } catch (std::exception const& e) {
      std::fprintf(stderr, "probe: %s\n", e.what());
    }
  }
  std::fflush(nullptr);
  // The verdict is the exit code; nothing after the test may change it.
  std::_Exit(verdict);
}

TEST(CrossProcessLock, RangeLocksHoldAgainstAnotherProcess) {
  TempFolder dir;
  String const path = dir.path("locked.bin");
  P<CLocalFileStream> stream =
      newP<CLocalFileStream>(path, IIOStream::AccessReadWrite, Flags{IIOStream::FlagCreate} | kShareAll);
  stream->write(std::string(300, 'x').data(), 300);
  P<IStreamLock> held = stream->lockRange(100, 100, IStreamBase::LockExclusive);
  struct Case {
    long long start, length;
    IStreamBase::LockType type;
    int verdict;
  } const whileExclusive[] = {
      {150, 10, IStreamBase::LockExclusive, kConflict},  // inside
      {99, 2, IStreamBase::LockShared, kConflict},       // across the start
      {199, 50, IStreamBase::LockExclusive, kConflict},  // across the end
      {0, 100, IStreamBase::LockExclusive, kGotLock},    // touching below
      {200, 50, IStreamBase::LockExclusive, kGotLock},   // touching above
  };
  for (Case const& c : whileExclusive) {
    SCOPED_TRACE(std::to_string(c.start) + "+" + std::to_string(c.length));
    EXPECT_EQ(c.verdict, probe(path, c.start, c.length, c.type));
  }
  held = nil;
  EXPECT_EQ(kGotLock, probe(path, 100, 100, IStreamBase::LockExclusive));
  held = stream->lockRange(100, 100, IStreamBase::LockShared);
  EXPECT_EQ(kGotLock, probe(path, 150, 10, IStreamBase::LockShared));
  EXPECT_EQ(kConflict, probe(path, 150, 10, IStreamBase::LockExclusive));
}

}  // namespace
}  // namespace qo
