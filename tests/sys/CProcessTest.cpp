// CProcess with real child processes: this executable starts itself with
// only the child test selected and a mode argument; the child echoes what it
// got (arguments, folder, environment, stdin), pumps stdin to stdout,
// hangs, or lists the processes, and exits with the code it is told. The
// child's payload follows a marker line, since GoogleTest prints its own
// header first.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "TempFolder.h"
#include "qo/core/CBadStateError.h"
#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CSystemError.h"
#include "qo/core/TBuffer.h"
#include "qo/stream/CBufferStream.h"
#include "qo/sys/CProcess.h"
#include "qo/thread/CSignal.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <windows.h>
#else
#include <poll.h>
#include <unistd.h>
#endif

namespace qo {
namespace {

char const kChildFilter[] = "--gtest_filter=CProcess.ChildForTheParentProcess";
char const kModePrefix[] = "qo-child:";
std::string const kMarker = "\n=== qo child payload ===\n";

using Bytes = std::string;
using Buffer = TBuffer<unsigned char>;

Bytes hex(Bytes const& bytes) {
  static char const digits[] = "0123456789abcdef";
  Bytes out;
  for (unsigned char c : bytes) {
    out += digits[c >> 4];
    out += digits[c & 15];
  }
  return out;
}

Bytes unhex(Bytes const& text) {
  Bytes out;
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) out += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
  return out;
}

// An environment variable as UTF-8; "-" when it is not set.
Bytes environmentValue(char const* name) {
#ifdef _WIN32
  std::wstring const wide(name, name + std::char_traits<char>::length(name));
  wchar_t const* value = _wgetenv(wide.c_str());
  return value ? String(value).toUTF8() : "-";
#else
  char const* value = std::getenv(name);
  return value ? value : "-";
#endif
}

char const* const kEchoedVariables[] = {"QO_TEST_SET", "QO_TEST_GONE", "PATH"};

Bytes readAll(std::FILE* in) {
  Bytes all;
  char chunk[4096];
  while (std::size_t got = std::fread(chunk, 1, sizeof chunk, in)) all.append(chunk, got);
  return all;
}

void writeAll(std::FILE* out, Bytes const& bytes) { std::fwrite(bytes.data(), 1, bytes.size(), out); }

// The child's side. Skipped in an ordinary run.
TEST(CProcess, ChildForTheParentProcess) {
  std::vector<String> const args = CProcess::getCurrentArguments();
  if (args.size() < 3 || !args[2].StartsWith(String(kModePrefix))) {
    GTEST_SKIP() << "runs only as the child process of the other CProcess tests";
  }
#ifdef _WIN32
  _setmode(_fileno(stdin), _O_BINARY);
  _setmode(_fileno(stdout), _O_BINARY);
  _setmode(_fileno(stderr), _O_BINARY);
#endif
  std::string const mode = args[2].toUTF8().substr(sizeof kModePrefix - 1);
  writeAll(stdout, kMarker);
  if (mode == "echo") {
    for (std::size_t i = 3; i < args.size(); ++i) writeAll(stdout, "arg " + hex(args[i].toUTF8()) + "\n");
    writeAll(stdout, "cwd " + hex(std::filesystem::current_path().u8string()) + "\n");
    for (char const* name : kEchoedVariables) writeAll(stdout, std::string("env:") + name + " " + hex(environmentValue(name)) + "\n");
    writeAll(stdout, "stdin " + hex(readAll(stdin)) + "\n");
  } else if (mode == "pump") {
    // stdin to stdout as it comes, and each piece, xor 0x5A, to stderr.
    writeAll(stderr, kMarker);
    char chunk[7000];
    while (std::size_t got = std::fread(chunk, 1, sizeof chunk, stdin)) {
      std::fwrite(chunk, 1, got, stdout);
      for (std::size_t i = 0; i < got; ++i) chunk[i] = static_cast<char>(chunk[i] ^ 0x5A);
      std::fwrite(chunk, 1, got, stderr);
    }
  } else if (mode == "both") {
    for (std::FILE* f : {stdout, stderr, stdout}) {
      std::fflush(nullptr);
      writeAll(f, f == stdout ? "out\n" : "err\n");
    }
  } else if (mode == "hang") {
    std::fflush(nullptr);
    CSignal never;
    (void)never.wait(-1);
  } else if (mode == "list") {
    unsigned long long const self = CProcess::getCurrentID();
    for (CProcess::CInfo const& p : CProcess::listRunning()) {
      if (p.id != self) continue;
      writeAll(stdout, "parent " + hex(std::to_string(p.parentId)) + "\n");
      writeAll(stdout, "path " + hex(p.executablePath.toUTF8()) + "\n");
    }
  }
  std::fflush(nullptr);
  Bytes const code = environmentValue("QO_TEST_EXIT");
  std::_Exit(code == "-" ? 0 : std::atoi(code.c_str()));
}

P<CProcess> child(char const* mode, std::vector<String> const& extra = {}) {
  std::vector<String> args{String(kChildFilter), String(kModePrefix) + String(mode)};
  args.insert(args.end(), extra.begin(), extra.end());
  return newP<CProcess>(CProcess::getCurrentExecutablePath(), args);
}

// What follows the marker in the captured bytes.
Bytes payload(P<Buffer> const& captured) {
  Bytes const all(reinterpret_cast<char const*>(captured->getData()), static_cast<std::size_t>(captured->getSize()));
  std::size_t const at = all.find(kMarker);
  return at == Bytes::npos ? "<no marker in: " + all + ">" : all.substr(at + kMarker.size());
}

// The echo's "key hex" lines, decoded, in order.
std::vector<std::pair<Bytes, Bytes>> echoed(P<Buffer> const& captured) {
  std::vector<std::pair<Bytes, Bytes>> lines;
  Bytes const text = payload(captured);
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t const end = text.find('\n', start);
    Bytes const line = text.substr(start, end - start);
    std::size_t const blank = line.find(' ');
    lines.emplace_back(line.substr(0, blank), blank == Bytes::npos ? "" : unhex(line.substr(blank + 1)));
    if (end == Bytes::npos) break;
    start = end + 1;
  }
  return lines;
}

P<Buffer> bufferOf(Bytes const& bytes) {
  return newP<Buffer>(reinterpret_cast<unsigned char const*>(bytes.data()), static_cast<long long>(bytes.size()));
}

struct ChildRun {
  P<CProcess> process;
  P<Buffer> out = newP<Buffer>();
  P<Buffer> err = newP<Buffer>();
};

ChildRun startCaptured(P<CProcess> const& process, Bytes const& input = Bytes()) {
  ChildRun run;
  run.process = process;
  process->setStdin(newP<CBufferStream>(static_cast<Buffer const*>(bufferOf(input).get())));
  process->setStdout(newP<CBufferStream>(run.out.get()));
  process->setStderr(newP<CBufferStream>(run.err.get()));
  process->start();
  return run;
}

Bytes allBytes(std::size_t count) {
  Bytes bytes(count, '\0');
  for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<char>((i * 7 + i / 256) & 0xFF);
  return bytes;
}

TEST(CProcess, ChildGetsArgumentsFolderEnvironmentAndStdin) {
  std::vector<String> const args = {u"plain", u"", u"two words", u"tab\there", u"quote\"inside", u"trailing\\",
                                    u"back\\\\\"slash", u"\"", u"a\\\\ b\\", u"\u00FCn\u00EF \u2713 \U0001F600"};
  test::TempFolder folder("qo proc \u00E4");
  P<CProcess> process = child("echo", args);
  process->setWorkingFolder(folder.path());
  process->setEnvironmentVariable(u"QO_TEST_SET", u"v\u00E4lue=with=equals");
  process->setEnvironmentVariable(u"QO_TEST_GONE", u"x");
  process->unsetEnvironmentVariable(u"QO_TEST_GONE");
  process->setEnvironmentVariable(u"QO_TEST_EXIT", u"7");
  Bytes const input = allBytes(1000) + "\r\n\x1a";
  ChildRun run = startCaptured(process, input);
  ASSERT_TRUE(process->wait(-1));
  EXPECT_EQ(7, process->getExitCode());
  EXPECT_EQ(0, process->getTerminatingSignal());

  std::vector<std::pair<Bytes, Bytes>> expected;
  for (String const& a : args) expected.emplace_back("arg", a.toUTF8());
  expected.emplace_back("cwd", std::filesystem::canonical(folder.folder()).u8string());
  expected.emplace_back("env:QO_TEST_SET", "v\xC3\xA4lue=with=equals");
  expected.emplace_back("env:QO_TEST_GONE", "-");
  expected.emplace_back("env:PATH", environmentValue("PATH"));
  expected.emplace_back("stdin", input);
  EXPECT_EQ(expected, echoed(run.out));
}

TEST(CProcess, ClearedEnvironmentHoldsOnlyWhatIsSet) {
  P<CProcess> process = child("echo");
  process->setEnvironmentVariable(u"QO_TEST_GONE", u"dropped by the clear");
  process->clearEnvironment();
  process->setEnvironmentVariable(u"QO_TEST_SET", u"1");
  ChildRun run = startCaptured(process);
  ASSERT_TRUE(process->wait(-1));
  std::map<Bytes, Bytes> got;
  for (auto const& line : echoed(run.out)) got[line.first] = line.second;
  EXPECT_EQ("1", got["env:QO_TEST_SET"]);
  EXPECT_EQ("-", got["env:QO_TEST_GONE"]);
  EXPECT_EQ("-", got["env:PATH"]);
}

TEST(CProcess, ReportsExitCodes) {
  for (int code : {0, 42, 255}) {
    SCOPED_TRACE(code);
    P<CProcess> process = child("echo");
    process->setEnvironmentVariable(u"QO_TEST_EXIT", String(std::to_string(code).c_str()));
    ChildRun run = startCaptured(process);
    EXPECT_NE(0u, process->getID());
    ASSERT_TRUE(process->wait(-1));
    EXPECT_EQ(code, process->getExitCode());
    EXPECT_TRUE(process->wait(0));  // stays ended
  }
}

TEST(CProcess, PumpsLargeBinaryStreamsBothWaysWithoutDeadlock) {
  Bytes const input = allBytes(1024 * 1024 + 17);
  ChildRun run = startCaptured(child("pump"), input);
  ASSERT_TRUE(run.process->wait(-1));
  EXPECT_EQ(0, run.process->getExitCode());
  Bytes xored = input;
  for (char& c : xored) c = static_cast<char>(c ^ 0x5A);
  Bytes const out = payload(run.out), err = payload(run.err);
  EXPECT_EQ(input.size(), out.size());
  EXPECT_TRUE(out == input);
  EXPECT_EQ(xored.size(), err.size());
  EXPECT_TRUE(err == xored);
}

TEST(CProcess, OneStreamForStdoutAndStderrMergesThemInOrder) {
  P<CProcess> process = child("both");
  P<Buffer> merged = newP<Buffer>();
  P<CBufferStream> stream = newP<CBufferStream>(merged.get());
  process->setStdout(stream);
  process->setStderr(stream);
  process->start();
  ASSERT_TRUE(process->wait(-1));
  EXPECT_EQ("out\nerr\nout\n", payload(merged));
}

TEST(CProcess, WaitTimesOutThenTerminateEndsTheChild) {
  ChildRun run = startCaptured(child("hang"));
  EXPECT_FALSE(run.process->wait(0));
  EXPECT_FALSE(run.process->wait(30));
  EXPECT_THROW(run.process->getExitCode(), CBadStateError);
  run.process->terminate();
  ASSERT_TRUE(run.process->wait(-1));
  if (run.process->getTerminatingSignal() != 0) {
    EXPECT_EQ(9, run.process->getTerminatingSignal());  // SIGKILL
    EXPECT_EQ(-1, run.process->getExitCode());
  } else {
    EXPECT_EQ(CProcess::kTerminatedExitCode, run.process->getExitCode());
  }
  run.process->terminate();  // ended: nothing to do
}

TEST(CProcess, StartFailuresAreSystemErrorsFromStart) {
  test::TempFolder folder;
  String const self = CProcess::getCurrentExecutablePath();
  String const missingFolder = folder.path("no-such-folder");
  struct Case {
    String program;
    String folder;
  } const cases[] = {
      {folder.path("no-such-program.exe"), String()},
      {u"qo-no-such-program-on-the-path", String()},
      {self, missingFolder},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.program.toUTF8() + " in " + c.folder.toUTF8());
    P<CProcess> process = newP<CProcess>(c.program);
    process->setWorkingFolder(c.folder);
    try {
      process->start();
      ADD_FAILURE() << "started";
    } catch (CSystemError const& e) {
      EXPECT_EQ(CSystemError::getPlatformDomain(), e.getErrorCodeDomain());
      EXPECT_NE(0, e.getErrorCode());
#ifdef _WIN32
      EXPECT_EQ(String(u"CreateProcessW"), e.getParams().lookup(CSystemError::paramAPI()));
#else
      EXPECT_EQ(String(u"posix_spawn"), e.getParams().lookup(CSystemError::paramAPI()));
#endif
      EXPECT_EQ(String(u"CProcess::start"), e.getParams().lookup(CSystemError::paramFunction()));
      EXPECT_EQ(c.program, e.getParams().lookup(u"program"));
      EXPECT_EQ(c.folder, e.getParams().lookup(u"folder"));
    }
    EXPECT_THROW(process->getID(), CBadStateError);
  }
}

TEST(CProcess, RefusesBadArgumentsAndStates) {
  EXPECT_THROW(newP<CProcess>()->start(), CInvalidArgError);
  EXPECT_THROW(newP<CProcess>(u"x", std::vector<String>{String(u"a\0b", 3)})->start(), CInvalidArgError);
  EXPECT_THROW(newP<CProcess>(u"x")->setEnvironmentVariable(u"A=B", u"c"), CInvalidArgError);
  EXPECT_THROW(newP<CProcess>(u"x")->wait(0), CBadStateError);
  ChildRun run = startCaptured(child("echo"));
  EXPECT_THROW(run.process->start(), CBadStateError);
  EXPECT_TRUE(run.process->wait(-1));
}

TEST(CProcess, OutputStreamErrorComesBackFromWaitAndTheChildIsDrained) {
  P<CProcess> process = child("pump");
  P<Buffer> fixed = newP<Buffer>();
  process->setStdin(newP<CBufferStream>(static_cast<Buffer const*>(bufferOf(allBytes(200000)).get())));
  process->setStdout(newP<CBufferStream>(static_cast<Buffer const*>(fixed.get())));  // read-only: writes fail
  process->setStderr(newP<CBufferStream>());
  process->start();
  try {
    process->wait(-1);
    ADD_FAILURE() << "no error";
  } catch (CIOError const& e) {
    EXPECT_EQ(CIOError::kWriteFailed, e.getErrorCode());
  }
  EXPECT_TRUE(process->wait(-1));  // the error is reported once
  EXPECT_EQ(0, process->getExitCode());
}

TEST(CProcess, ChildThatIgnoresItsInputEndsNormally) {
  // The feeding runs into a closed pipe: neither an error nor a SIGPIPE.
  ChildRun run = startCaptured(child("exit"), allBytes(1024 * 1024));
  ASSERT_TRUE(run.process->wait(-1));
  EXPECT_EQ(0, run.process->getExitCode());
}

// The write end of a pipe that is open for inheritance: while only this
// process holds it, the reading end sees the end as soon as it is closed
// here; a child that got it too would keep the pipe open.
TEST(CProcess, ChildInheritsOnlyItsStandardHandles) {
#ifdef _WIN32
  SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  HANDLE readEnd = nullptr, writeEnd = nullptr;
  ASSERT_TRUE(CreatePipe(&readEnd, &writeEnd, &inheritable, 0));
#else
  int fds[2];
  ASSERT_EQ(0, ::pipe(fds));  // no close-on-exec
#endif
  ChildRun run = startCaptured(child("hang"));
  bool closedForAll = false;
#ifdef _WIN32
  CloseHandle(writeEnd);
  DWORD available = 0;
  closedForAll = !PeekNamedPipe(readEnd, nullptr, 0, nullptr, &available, nullptr) &&
                 GetLastError() == ERROR_BROKEN_PIPE;
  CloseHandle(readEnd);
#else
  ::close(fds[1]);
  pollfd p{fds[0], POLLIN, 0};
  closedForAll = ::poll(&p, 1, 0) == 1 && (p.revents & POLLHUP) != 0;
  ::close(fds[0]);
#endif
  run.process->terminate();
  EXPECT_TRUE(run.process->wait(-1));
  EXPECT_TRUE(closedForAll);
}

TEST(CProcess, ListingShowsTheChildWithItsParentAndPath) {
  String const self = CProcess::getCurrentExecutablePath();
  ChildRun run = startCaptured(child("list"));
  ASSERT_TRUE(run.process->wait(-1));
  std::map<Bytes, Bytes> got;
  for (auto const& line : echoed(run.out)) got[line.first] = line.second;
  ASSERT_EQ(1u, got.count("parent")) << payload(run.out);
  EXPECT_EQ(std::to_string(CProcess::getCurrentID()), got["parent"]);
  EXPECT_EQ(self, String::fromUTF8(got["path"]));

  bool foundSelf = false;
  for (CProcess::CInfo const& p : CProcess::listRunning()) {
    if (p.id != CProcess::getCurrentID()) continue;
    foundSelf = true;
    EXPECT_EQ(self, p.executablePath);
    EXPECT_FALSE(p.user.isEmpty());
  }
  EXPECT_TRUE(foundSelf);
}

}  // namespace
}  // namespace qo
