#include "qo/platform/Process.h"

#include <algorithm>
#include <new>
#include <string>
#include <vector>

#include <windows.h>

#include <shellapi.h>
#include <tlhelp32.h>

namespace qo::platform {

struct NativeProcess {
  HANDLE handle = nullptr;
  DWORD id = 0;
  bool ended = false;
  DWORD exitCode = 0;
};

struct NativePipe {
  HANDLE handle = nullptr;
};

namespace {

static_assert(sizeof(wchar_t) == sizeof(char16_t), "Windows wide characters are UTF-16 units");

SysError errorOf(DWORD code) { return SysError{code, sysErrorText(code)}; }

std::wstring wide(std::u16string const& text) { return std::wstring(text.begin(), text.end()); }
std::u16string narrowToU16(wchar_t const* text, std::size_t length) {
  return std::u16string(reinterpret_cast<char16_t const*>(text), length);
}

void closeHandle(HANDLE& h) {
  if (h) CloseHandle(h);
  h = nullptr;
}

// The user owning a process as "DOMAIN\name"; empty when it cannot be read.
std::u16string processUser(HANDLE process) {
  HANDLE token = nullptr;
  if (!OpenProcessToken(process, TOKEN_QUERY, &token)) return std::u16string();
  std::u16string result;
  DWORD size = 0;
  GetTokenInformation(token, TokenUser, nullptr, 0, &size);
  std::vector<unsigned char> buffer(size ? size : 1);
  if (size && GetTokenInformation(token, TokenUser, buffer.data(), size, &size)) {
    PSID sid = reinterpret_cast<TOKEN_USER*>(buffer.data())->User.Sid;
    wchar_t name[256];
    wchar_t domain[256];
    DWORD nameLength = 256, domainLength = 256;
    SID_NAME_USE use;
    if (LookupAccountSidW(nullptr, sid, name, &nameLength, domain, &domainLength, &use)) {
      result = narrowToU16(domain, domainLength);
      if (!result.empty()) result += u'\\';
      result += narrowToU16(name, nameLength);
    }
  }
  CloseHandle(token);
  return result;
}

}  // namespace

SysError processStart(ProcessStartInfo const& info, ProcessHandle& process, PipeHandle& stdinWrite,
                      PipeHandle& stdoutRead, PipeHandle& stderrRead) {
  process = nullptr;
  stdinWrite = stdoutRead = stderrRead = nullptr;
  if (info.argv.empty() || info.argv[0].empty()) return errorOf(ERROR_FILE_NOT_FOUND);

  // [0] the child's end (made inheritable), [1] ours (never inheritable).
  HANDLE pipes[3][2] = {{nullptr, nullptr}, {nullptr, nullptr}, {nullptr, nullptr}};
  HANDLE inherited[3] = {nullptr, nullptr, nullptr};  // duplicates of our own std handles
  bool const merge = info.redirectStdout && info.stderrToStdout;
  bool const redirect[3] = {info.redirectStdin, info.redirectStdout, info.redirectStderr && !merge};
  auto closeAll = [&] {
    for (auto& p : pipes) {
      closeHandle(p[0]);
      closeHandle(p[1]);
    }
    for (auto& h : inherited) closeHandle(h);
  };
  bool const anyRedirect = redirect[0] || redirect[1] || redirect[2];
  // The child's stderr is its stdout pipe's end when merged.
  DWORD const stdIds[3] = {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE};
  HANDLE childStd[3] = {nullptr, nullptr, nullptr};
  std::vector<HANDLE> handleList;
  if (anyRedirect) {
    for (int i = 0; i < 3; ++i) {
      if (redirect[i]) {
        HANDLE read = nullptr, write = nullptr;
        if (!CreatePipe(&read, &write, nullptr, 0)) {
          SysError e = lastSysError();
          closeAll();
          return e;
        }
        pipes[i][0] = i == 0 ? read : write;
        pipes[i][1] = i == 0 ? write : read;
        if (!SetHandleInformation(pipes[i][0], HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT)) {
          SysError e = lastSysError();
          closeAll();
          return e;
        }
        childStd[i] = pipes[i][0];
      } else if (i == 2 && merge) {
        childStd[i] = childStd[1];
      } else {
        // With explicit std handles the child gets ours only through an
        // inheritable duplicate; a process without one passes none.
        HANDLE own = GetStdHandle(stdIds[i]);
        if (own && own != INVALID_HANDLE_VALUE &&
            DuplicateHandle(GetCurrentProcess(), own, GetCurrentProcess(), &inherited[i], 0, TRUE,
                            DUPLICATE_SAME_ACCESS)) {
          childStd[i] = inherited[i];
        }
      }
      if (childStd[i] && std::find(handleList.begin(), handleList.end(), childStd[i]) == handleList.end()) {
        handleList.push_back(childStd[i]);
      }
    }
  }

  std::vector<wchar_t> attrBuffer;
  LPPROC_THREAD_ATTRIBUTE_LIST attrList = nullptr;
  if (!handleList.empty()) {
    SIZE_T size = 0;
    InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
    attrBuffer.resize(size / sizeof(wchar_t) + 1);
    attrList = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(attrBuffer.data());
    if (!InitializeProcThreadAttributeList(attrList, 1, 0, &size)) {
      SysError e = lastSysError();
      closeAll();
      return e;
    }
    if (!UpdateProcThreadAttribute(attrList, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handleList.data(),
                                   handleList.size() * sizeof(HANDLE), nullptr, nullptr)) {
      SysError e = lastSysError();
      DeleteProcThreadAttributeList(attrList);
      closeAll();
      return e;
    }
  }

  STARTUPINFOEXW startup;
  ZeroMemory(&startup, sizeof startup);
  startup.StartupInfo.cb = sizeof startup;
  if (anyRedirect) {
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    startup.StartupInfo.hStdInput = childStd[0];
    startup.StartupInfo.hStdOutput = childStd[1];
    startup.StartupInfo.hStdError = childStd[2];
  }
  startup.lpAttributeList = attrList;

  std::wstring const program = wide(info.argv[0]);
  // A bare name is searched for the way CreateProcessW searches a command
  // line's first token; a path is taken as it is.
  bool const search = program.find_first_of(L"\\/:") == std::wstring::npos;
  std::wstring commandLine = wide(info.commandLine);
  commandLine.push_back(L'\0');
  std::wstring const folder = wide(info.workingFolder);
  std::wstring environment;
  if (!info.inheritEnvironment) {
    // Windows expects the block sorted by name, without regard to case.
    std::vector<std::u16string> sorted = info.environment;
    std::stable_sort(sorted.begin(), sorted.end(), [](std::u16string const& a, std::u16string const& b) {
      std::wstring const na = wide(a.substr(0, a.find(u'=', 1))), nb = wide(b.substr(0, b.find(u'=', 1)));
      return CompareStringOrdinal(na.c_str(), static_cast<int>(na.size()), nb.c_str(), static_cast<int>(nb.size()),
                                  TRUE) == CSTR_LESS_THAN;
    });
    for (auto const& e : sorted) {
      environment += wide(e);
      environment.push_back(L'\0');
    }
    if (info.environment.empty()) environment.push_back(L'\0');
    environment.push_back(L'\0');
  }
  DWORD flags = CREATE_UNICODE_ENVIRONMENT;
  if (attrList) flags |= EXTENDED_STARTUPINFO_PRESENT;
  PROCESS_INFORMATION pi;
  ZeroMemory(&pi, sizeof pi);
  BOOL const created = CreateProcessW(search ? nullptr : program.c_str(), commandLine.data(), nullptr, nullptr,
                                      handleList.empty() ? FALSE : TRUE, flags,
                                      info.inheritEnvironment ? nullptr : environment.data(),
                                      folder.empty() ? nullptr : folder.c_str(), &startup.StartupInfo, &pi);
  SysError const createError = created ? SysError{} : lastSysError();
  if (attrList) DeleteProcThreadAttributeList(attrList);
  for (auto& p : pipes) closeHandle(p[0]);
  for (auto& h : inherited) closeHandle(h);
  if (!created) {
    closeAll();
    return createError;
  }
  CloseHandle(pi.hThread);

  auto* child = new (std::nothrow) NativeProcess;
  NativePipe* ends[3] = {nullptr, nullptr, nullptr};
  bool ok = child != nullptr;
  for (int i = 0; i < 3 && ok; ++i) {
    if (!redirect[i]) continue;
    ends[i] = new (std::nothrow) NativePipe;
    ok = ends[i] != nullptr;
    if (ok) ends[i]->handle = pipes[i][1];
  }
  if (!ok) {
    TerminateProcess(pi.hProcess, 1);
    CloseHandle(pi.hProcess);
    for (auto* e : ends) delete e;
    delete child;
    closeAll();
    return errorOf(ERROR_NOT_ENOUGH_MEMORY);
  }
  child->handle = pi.hProcess;
  child->id = pi.dwProcessId;
  process = child;
  stdinWrite = ends[0];
  stdoutRead = ends[1];
  stderrRead = ends[2];
  return SysError{};
}

SysError processWait(ProcessHandle process, int timeoutMillis, bool& ended) {
  ended = process->ended;
  if (ended) return SysError{};
  DWORD const rc = WaitForSingleObject(process->handle, timeoutMillis < 0 ? INFINITE : static_cast<DWORD>(timeoutMillis));
  if (rc == WAIT_TIMEOUT) return SysError{};
  if (rc != WAIT_OBJECT_0) return lastSysError();
  DWORD code = 0;
  if (!GetExitCodeProcess(process->handle, &code)) return lastSysError();
  process->exitCode = code;
  process->ended = true;
  ended = true;
  return SysError{};
}

void processExitStatus(ProcessHandle process, int& exitCode, int& signal) {
  exitCode = process->ended ? static_cast<int>(process->exitCode) : -1;
  signal = 0;
}

SysError processTerminate(ProcessHandle process, int exitCode) {
  if (process->ended) return SysError{};
  if (TerminateProcess(process->handle, static_cast<UINT>(exitCode))) return SysError{};
  SysError e = lastSysError();
  // Access is denied to a process that has ended meanwhile.
  if (WaitForSingleObject(process->handle, 0) == WAIT_OBJECT_0) return SysError{};
  return e;
}

std::uint64_t processId(ProcessHandle process) { return process->id; }

void processClose(ProcessHandle process) {
  if (!process) return;
  closeHandle(process->handle);
  delete process;
}

SysError pipeRead(PipeHandle pipe, void* buffer, std::size_t size, std::size_t& done) {
  done = 0;
  DWORD const chunk = size > 0x40000000u ? 0x40000000u : static_cast<DWORD>(size);
  DWORD got = 0;
  if (!ReadFile(pipe->handle, buffer, chunk, &got, nullptr)) {
    DWORD const code = GetLastError();
    if (code == ERROR_BROKEN_PIPE || code == ERROR_HANDLE_EOF) return SysError{};
    return errorOf(code);
  }
  done = got;
  return SysError{};
}

SysError pipeWrite(PipeHandle pipe, void const* data, std::size_t size, bool& broken) {
  broken = false;
  auto const* bytes = static_cast<char const*>(data);
  std::size_t done = 0;
  while (done < size) {
    DWORD const chunk = size - done > 0x40000000u ? 0x40000000u : static_cast<DWORD>(size - done);
    DWORD put = 0;
    if (!WriteFile(pipe->handle, bytes + done, chunk, &put, nullptr)) {
      DWORD const code = GetLastError();
      if (code == ERROR_BROKEN_PIPE || code == ERROR_NO_DATA) {
        broken = true;
        return SysError{};
      }
      return errorOf(code);
    }
    done += put;
  }
  return SysError{};
}

void pipeClose(PipeHandle pipe) {
  if (!pipe) return;
  closeHandle(pipe->handle);
  delete pipe;
}

std::uint64_t processCurrentId() { return GetCurrentProcessId(); }

SysError processCurrentExecutable(std::u16string& path) {
  std::vector<wchar_t> buffer(MAX_PATH);
  for (;;) {
    DWORD const n = GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
    if (n == 0) return lastSysError();
    if (n < buffer.size()) {
      path = narrowToU16(buffer.data(), n);
      return SysError{};
    }
    buffer.resize(buffer.size() * 2);
  }
}

SysError processCurrentCommandLine(std::vector<std::u16string>& argv, std::u16string& commandLine) {
  argv.clear();
  wchar_t const* line = GetCommandLineW();
  commandLine = line ? narrowToU16(line, wcslen(line)) : std::u16string();
  return SysError{};
}

SysError processCurrentEnvironment(std::vector<std::u16string>& entries) {
  entries.clear();
  wchar_t* block = GetEnvironmentStringsW();
  if (!block) return lastSysError();
  for (wchar_t const* e = block; *e; e += wcslen(e) + 1) entries.push_back(narrowToU16(e, wcslen(e)));
  FreeEnvironmentStringsW(block);
  return SysError{};
}

bool processUsesCommandLine() { return true; }

bool processEnvironmentIgnoresCase() { return true; }

SysError processList(std::vector<ProcessEntry>& entries) {
  entries.clear();
  HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
  if (snapshot == INVALID_HANDLE_VALUE) return lastSysError();
  PROCESSENTRY32W pe;
  pe.dwSize = sizeof pe;
  for (BOOL more = Process32FirstW(snapshot, &pe); more; more = Process32NextW(snapshot, &pe)) {
    ProcessEntry entry;
    entry.id = pe.th32ProcessID;
    entry.parentId = pe.th32ParentProcessID;
    if (HANDLE h = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pe.th32ProcessID)) {
      std::vector<wchar_t> path(32768);
      DWORD length = static_cast<DWORD>(path.size());
      if (QueryFullProcessImageNameW(h, 0, path.data(), &length)) entry.executablePath = narrowToU16(path.data(), length);
      entry.user = processUser(h);
      CloseHandle(h);
    }
    entries.push_back(std::move(entry));
  }
  CloseHandle(snapshot);
  return SysError{};
}

bool systemCommandLineParserAvailable() { return true; }

SysError systemParseCommandLine(std::u16string const& line, std::vector<std::u16string>& argv) {
  argv.clear();
  std::wstring const text = wide(line);
  int count = 0;
  LPWSTR* list = CommandLineToArgvW(text.c_str(), &count);
  if (!list) return lastSysError();
  for (int i = 0; i < count; ++i) argv.push_back(narrowToU16(list[i], wcslen(list[i])));
  LocalFree(list);
  return SysError{};
}

}  // namespace qo::platform
