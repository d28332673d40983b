#include "qo/log/CCrashInfo.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <regex>
#include <string>

#include "log/CrashTestSupport.h"
#include "qo/log/CCrashFileAccess.h"
#include "qo/log/CCrashHandler.h"
#include "qo/log/CCrashTools.h"
#include "qo/log/CXMLLog.h"

#ifdef _WIN32
#  include <windows.h>
#else
#  include <csignal>
#  include <ucontext.h>
#endif

namespace qo {
namespace {

using crashtest::TempFolder;

// A fault as the OS would hand it to the hook.
struct Fault {
#ifdef _WIN32
  EXCEPTION_RECORD record{};
  CONTEXT context{};
  EXCEPTION_POINTERS pointers{};
#else
  siginfo_t info{};
  ucontext_t context{};
#endif
  platform::CrashContext crash;
};

// A parameter that stands for an address just below the stack pointer.
constexpr std::uint64_t kBelowStackPointer = ~0ull;

// Windows: code is the exception code and the parameters follow it.
// POSIX: code is the signal, detail its si_code, parameter its si_addr.
void makeFault(Fault& f, unsigned code, int detail, std::uint64_t ip, std::uint64_t parameter, int parameterCount) {
  int onStack = 0;
  auto const sp = reinterpret_cast<std::uintptr_t>(&onStack);
  if (parameter == kBelowStackPointer) parameter = sp - 4096;
#ifdef _WIN32
  (void)detail;
  f.record.ExceptionCode = code;
  f.record.ExceptionAddress = reinterpret_cast<void*>(ip);
  f.record.NumberParameters = static_cast<DWORD>(parameterCount);
  f.record.ExceptionInformation[0] = 1;
  f.record.ExceptionInformation[parameterCount > 1 ? 1 : 0] = parameter;
  f.context.Rip = ip;
  f.context.Rsp = sp;
  f.pointers.ExceptionRecord = &f.record;
  f.pointers.ContextRecord = &f.context;
  f.crash.exceptionPointers = &f.pointers;
#else
  (void)parameterCount;
  f.info.si_signo = static_cast<int>(code);
  f.info.si_code = detail;
  f.info.si_addr = reinterpret_cast<void*>(parameter);
#  if defined(__x86_64__)
  f.context.uc_mcontext.gregs[REG_RIP] = static_cast<greg_t>(ip);
  f.context.uc_mcontext.gregs[REG_RSP] = static_cast<greg_t>(sp);
  f.context.uc_mcontext.fpregs = nullptr;
#  endif
  f.crash.signalNumber = static_cast<int>(code);
  f.crash.signalInfo = &f.info;
  f.crash.userContext = &f.context;
#endif
}

void marker() {}

std::string infoXml(TempFolder const& folder, CCrashInfo& info) {
  std::filesystem::create_directories(folder.path());
  CCrashTools tools;
  CCrashTools::fsStringCopy(tools.getPathBuffer(), CCrashTools::kPathCapacity, folder.qoPath("info.xml").toString());
  CCrashFileAccess& file = tools.getFileAccessA();
  EXPECT_TRUE(file.open(tools.getPathBuffer(), CCrashFileAccess::kCreate));
  info.writeXML(file, true);
  EXPECT_TRUE(file.close());
  return crashtest::readFile(folder.file("info.xml"));
}

// Splits the file at its module list, checks every module line and returns
// the part before it.
std::string headOfInfo(std::string const& xml) {
  std::string::size_type const at = xml.find("\n  <modules>");
  EXPECT_NE(std::string::npos, at) << xml;
  if (at == std::string::npos) return xml;
  std::regex const line(R"(    <module name="[^"<>&]+" baseAddress="0x[0-9a-f]{16}" size="[1-9][0-9]*" />)");
  std::string::size_type pos = at + 12;
  int modules = 0;
  while (xml.compare(pos, 5, "\n    ") == 0) {
    std::string::size_type const end = xml.find('\n', pos + 1);
    EXPECT_TRUE(std::regex_match(xml.substr(pos + 1, end - pos - 1), line)) << xml.substr(pos + 1, end - pos - 1);
    pos = end;
    ++modules;
  }
  EXPECT_GT(modules, 1);
  EXPECT_EQ("\n  </modules>\n</crash>\n", xml.substr(pos));
  return xml.substr(0, at);
}

TEST(CCrashInfoTest, NamesTheRuntimeKinds) {
  struct Case {
    CCrashInfo::CRTCrash kind;
    char const* text;
  } const cases[] = {{CCrashInfo::kCRTUnexpected, "crt unexpected"}, {CCrashInfo::kCRTPureCall, "crt purecall"},
                     {CCrashInfo::kCRTTerminate, "crt terminate"}, {CCrashInfo::kCRTInvalidParam, "crt invalid param"}};
  CCrashInfo info;
  for (Case const& c : cases) {
    SCOPED_TRACE(c.text);
    info.init(c.kind, 1);
    EXPECT_FALSE(info.isException());
    EXPECT_STREQ(c.text, info.getTypeString());
    unsigned long long address = 0;
    EXPECT_FALSE(info.getCodeAddress(address));
    EXPECT_FALSE(info.getMemoryAddress(address));
  }
}

TEST(CCrashInfoTest, NamesTheFaultKinds) {
  TempFolder folder("info-kinds");
  // exception: the code written as win32-code (on Windows the code itself).
  struct Case {
    unsigned code;
    int detail;
    char const* text;
    unsigned exception;
  };
#ifdef _WIN32
  Case const cases[] = {
      {EXCEPTION_ACCESS_VIOLATION, 0, "access violation", EXCEPTION_ACCESS_VIOLATION},
      {EXCEPTION_FLT_DIVIDE_BY_ZERO, 0, "floating point divide by zero", EXCEPTION_FLT_DIVIDE_BY_ZERO},
      {EXCEPTION_FLT_INVALID_OPERATION, 0, "floating point error", EXCEPTION_FLT_INVALID_OPERATION},
      {EXCEPTION_FLT_OVERFLOW, 0, "floating point error", EXCEPTION_FLT_OVERFLOW},
      {EXCEPTION_ILLEGAL_INSTRUCTION, 0, "illegal instruction", EXCEPTION_ILLEGAL_INSTRUCTION},
      {EXCEPTION_INT_DIVIDE_BY_ZERO, 0, "integer divide by zero", EXCEPTION_INT_DIVIDE_BY_ZERO},
      {EXCEPTION_INT_OVERFLOW, 0, "integer overflow", EXCEPTION_INT_OVERFLOW},
      {EXCEPTION_STACK_OVERFLOW, 0, "stack overflow", EXCEPTION_STACK_OVERFLOW},
      {EXCEPTION_DATATYPE_MISALIGNMENT, 0, "data misaligned", EXCEPTION_DATATYPE_MISALIGNMENT},
      {EXCEPTION_BREAKPOINT, 0, "unknown", EXCEPTION_BREAKPOINT},
  };
#elif defined(__x86_64__)
  // Each signal as the nearest Windows exception.
  Case const cases[] = {
      {SIGSEGV, SEGV_MAPERR, "access violation", 0xC0000005},
      {SIGBUS, BUS_ADRERR, "access violation", 0xC0000006},
      {SIGBUS, BUS_ADRALN, "data misaligned", 0x80000002},
      {SIGFPE, FPE_INTDIV, "integer divide by zero", 0xC0000094},
      {SIGFPE, FPE_INTOVF, "integer overflow", 0xC0000095},
      {SIGFPE, FPE_FLTDIV, "floating point divide by zero", 0xC000008E},
      {SIGFPE, FPE_FLTINV, "floating point error", 0xC0000090},
      {SIGILL, ILL_ILLOPN, "illegal instruction", 0xC000001D},
      {SIGABRT, SI_TKILL, "crt terminate", 0x40000015},
      {SIGTRAP, TRAP_BRKPT, "unknown", 0x80000003},
  };
#else
  GTEST_SKIP() << "the fault records are built for x86-64 only";
  Case const cases[] = {{0, 0, "", 0}};
#endif
  CCrashInfo info;
  for (Case const& c : cases) {
    SCOPED_TRACE(c.text);
    Fault fault;
    makeFault(fault, c.code, c.detail, 0x1234, 0x10, 2);
    info.init(fault.crash, 5);
    EXPECT_TRUE(info.isException());
    EXPECT_STREQ(c.text, info.getTypeString());
    char code[64];
    std::snprintf(code, sizeof code, "<win32-code>0x%016llx</win32-code>", static_cast<unsigned long long>(c.exception));
    EXPECT_NE(std::string::npos, infoXml(folder, info).find(code)) << code;
  }
}

#if !defined(_WIN32)
TEST(CCrashInfoTest, TellsAStackOverflowByTheFaultNearTheStackPointer) {
#  if !defined(__x86_64__)
  GTEST_SKIP() << "the fault records are built for x86-64 only";
#  endif
  Fault fault;
  makeFault(fault, SIGSEGV, SEGV_ACCERR, 0x1234, kBelowStackPointer, 1);
  CCrashInfo info;
  info.init(fault.crash, 5);
  EXPECT_STREQ("stack overflow", info.getTypeString());
  unsigned long long address = 0;
  ASSERT_TRUE(info.getMemoryAddress(address));
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(fault.info.si_addr), address);
}
#endif

TEST(CCrashInfoTest, WritesTheInfoFileOfAnInvalidParameterExactly) {
  TempFolder folder("info-invalid-param");
  CCrashInfo info;
  info.initCRTInvalidParam(L"a<b && c>\"d\" 'e' \u00E9\U0001F600", L"f()", L"C:\\src\\x.cpp", 42, 12345);
  EXPECT_EQ("<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n"
            "<crash type=\"crt invalid param\" timestamp=\"12345\">\n"
            "  <crt-expression>a&lt;b &amp;&amp; c&gt;&quot;d&quot; 'e' \xC3\xA9\xF0\x9F\x98\x80</crt-expression>\n"
            "  <crt-function>f()</crt-function>\n"
            "  <crt-file>C:\\src\\x.cpp</crt-file>\n"
            "  <crt-line>42</crt-line>",
            headOfInfo(infoXml(folder, info)));
  // Empty texts are left out.
  info.initCRTInvalidParam(nullptr, L"", nullptr, 0, -5);
  EXPECT_EQ("<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n"
            "<crash type=\"crt invalid param\" timestamp=\"-5\">\n"
            "  <crt-line>0</crt-line>",
            headOfInfo(infoXml(folder, info)));
}

TEST(CCrashInfoTest, WritesTheInfoFileOfAFaultExactly) {
#if !defined(_WIN32) && !defined(__x86_64__)
  GTEST_SKIP() << "the fault records are built for x86-64 only";
#endif
  TempFolder folder("info-fault");
  Fault fault;
#ifdef _WIN32
  makeFault(fault, EXCEPTION_INT_DIVIDE_BY_ZERO, 0, 0x1234, 0, 0);
  char const* const details =
      "  <win32-code>0x00000000c0000094</win32-code>\n"
      "  <win32-address>0x0000000000001234</win32-address>\n"
      "  <win32-flags>0</win32-flags>\n"
      "  <win32-parameters></win32-parameters>";
#else
  makeFault(fault, SIGFPE, FPE_INTDIV, 0x1234, 0x1234, 1);
  // The same elements as on Windows, then the signal's own facts.
  char const* const details =
      "  <win32-code>0x00000000c0000094</win32-code>\n"
      "  <win32-address>0x0000000000001234</win32-address>\n"
      "  <win32-flags>0</win32-flags>\n"
      "  <win32-parameters></win32-parameters>\n"
      "  <signal-number>8</signal-number>\n"
      "  <signal-code>1</signal-code>\n"
      "  <signal-address>0x0000000000001234</signal-address>";
#endif
  CCrashInfo info;
  info.init(fault.crash, 77);
  EXPECT_EQ(std::string("<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n"
                        "<crash type=\"integer divide by zero\" timestamp=\"77\">\n"
                        "  <codeAddress>0x0000000000001234</codeAddress>\n") +
                details,
            headOfInfo(infoXml(folder, info)));
}

TEST(CCrashInfoTest, NamesTheModuleOfTheFaultingCode) {
#if !defined(_WIN32) && !defined(__x86_64__)
  GTEST_SKIP() << "the fault records are built for x86-64 only";
#endif
  TempFolder folder("info-module");
  auto const code = reinterpret_cast<std::uintptr_t>(&marker);
  Fault fault;
#ifdef _WIN32
  makeFault(fault, EXCEPTION_ACCESS_VIOLATION, 0, code, 0x10, 2);
#else
  makeFault(fault, SIGSEGV, SEGV_MAPERR, code, 0x10, 1);
#endif
  CCrashInfo info;
  info.init(fault.crash, 9);
  wchar_t const* name = nullptr;
  ASSERT_TRUE(info.getModuleName(name));
  EXPECT_NE(std::string::npos, crashtest::utf8(name).find("qo_tests")) << crashtest::utf8(name);
  unsigned long long base = 0;
  ASSERT_TRUE(info.getModuleBaseAddress(base));
  EXPECT_LE(base, code);
  std::string const head = headOfInfo(infoXml(folder, info));
  std::regex const expected(
      "<\\?xml version=\"1.0\" encoding=\"utf-8\" \\?>\n"
      "<crash type=\"access violation\" timestamp=\"9\">\n"
      "  <moduleName>[^<]*qo_tests[^<]*</moduleName>\n"
      "  <moduleBaseAddress>0x[0-9a-f]{16}</moduleBaseAddress>\n"
      "  <codeAddress>0x[0-9a-f]{16}</codeAddress>\n"
      "  <memoryAddress>0x0000000000000010</memoryAddress>\n"
      "[\\s\\S]*");
  EXPECT_TRUE(std::regex_match(head, expected)) << head;
}

TEST(CCrashInfoTest, ListsTheLoadedModules) {
  CCrashInfo info;
  ASSERT_TRUE(info.beginModuleIteration());
  int count = 0;
  bool library = false;
  while (info.nextModule()) {
    ++count;
    EXPECT_GT(info.getCurrModuleSize(), 0u);
    EXPECT_NE(0u, info.getCurrModuleBaseAddress());
    std::string const name = crashtest::utf8(info.getCurrModuleName());
    library = library || name.find("qo.dll") != std::string::npos || name.find("libqo") != std::string::npos;
  }
  info.endModuleIteration();
  EXPECT_GT(count, 2);
  EXPECT_TRUE(library);
}

// --- the session log ---------------------------------------------------------

class CCrashInfoLogTest : public ::testing::Test {
protected:
  void SetUp() override { std::filesystem::create_directories(m_folder.path()); }

  bool append(std::string const& folder = std::string()) {
    CCrashTools::fsStringCopy(m_log, CCrashTools::kPathCapacity, m_folder.qoPath(folder + "log.xml").toString());
    CCrashTools::fsStringCopy(m_suffix, CCrashTools::kPathCapacity,
                              m_folder.qoPath(folder + "log-suffix.xml").toString());
    m_info.init(CCrashInfo::kCRTTerminate, 12345);
    return m_info.writeToXMLLog(m_tools, m_log, m_suffix, L"App & co crashed.");
  }
  std::string main() const { return crashtest::readFile(m_folder.file("log.xml")); }
  std::string suffix() const { return crashtest::readFile(m_folder.file("log-suffix.xml")); }

  // What writeToXMLLog adds for the entry at the session's depth; the entry
  // carries its time as every log entry does.
  static std::string entryStart() {
    return "\n\n    <centry level=\"ERROR\" time=\"" + CXMLLog::formatTime(12345).toUTF8() + "\">\n"
           "      <summary>App &amp; co crashed.</summary>\n"
           "      <crash type=\"crt terminate\" timestamp=\"12345\">\n"
           "        <crt-line>0</crt-line>\n"
           "        <modules>\n"
           "          <module name=\"";
  }
  static constexpr char const* kEntryEndText = "\n        </modules>\n      </crash>\n    </centry>";

  std::string const kEntryEnd = kEntryEndText;
  TempFolder m_folder{::testing::UnitTest::GetInstance()->current_test_info()->name()};
  CCrashInfo m_info;
  CCrashTools m_tools;
  wchar_t m_log[CCrashTools::kPathCapacity];
  wchar_t m_suffix[CCrashTools::kPathCapacity];
};

TEST_F(CCrashInfoLogTest, AppendsTheEntryAndOpensWhatTheSuffixDoesNotClose) {
  std::string const running =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<log>\n  <session time=\"2024-01-02T03:04:05\">\n"
      "    <entry level=\"info\" time=\"2024-01-02T03:04:05\">it&apos;s running</entry>";
  std::string const closedSession = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<log>\n  <session time=\"x\" />";
  struct Case {
    char const* name;
    std::string main;
    char const* suffix;  // null: neither file exists
    std::string head;    // what comes before the entry
    std::string tail;    // what follows the entry
    char const* suffixAfter;
  } const cases[] = {
      // Written hidden first (kill-safe); the suffix keeps two blanks of the
      // "?>" it had meanwhile.
      {"suffix closes session and log", running, "\n  </session>\n</log>\n", running, "",
       "\n  </session>\n</log>\n  "},
      {"no suffix", "", nullptr, "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<log>\n  <session>", "\n  </session>",
       "\n</log>\n"},
      {"suffix closes only the log", closedSession, "\n</log>\n", closedSession + "\n  <session>", "\n  </session>",
       "\n</log>\n"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    std::filesystem::remove(m_folder.file("log.xml"));
    std::filesystem::remove(m_folder.file("log-suffix.xml"));
    if (c.suffix != nullptr) {
      crashtest::writeFile(m_folder.file("log.xml"), c.main);
      crashtest::writeFile(m_folder.file("log-suffix.xml"), c.suffix);
    }
    ASSERT_TRUE(append());
    std::string const after = main();
    ASSERT_EQ(c.head, after.substr(0, c.head.size()));
    EXPECT_EQ(entryStart(), after.substr(c.head.size(), entryStart().size()));
    std::string const tail = kEntryEnd + c.tail;
    EXPECT_EQ(tail, after.substr(after.size() - tail.size()));
    EXPECT_EQ(std::string::npos, after.find("<session>", c.head.size()));
    EXPECT_EQ(c.suffixAfter, suffix());
    QO_EXPECT_WELL_FORMED(m_folder.path(), after + suffix());
  }
}

TEST_F(CCrashInfoLogTest, SkipsTheEntryWhenTheLogCannotBeOpened) {
  EXPECT_FALSE(append("missing\\"));
  EXPECT_TRUE(m_folder.names().empty());
}

}  // namespace
}  // namespace qo
