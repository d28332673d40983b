#include "qo/log/CCrashInfo.h"

#include <cstdint>
#include <cstring>

#include "qo/log/CCrashFileAccess.h"
#include "qo/log/CCrashTools.h"
#include "qo/platform/Minidump.h"

namespace qo {

namespace {

void copyText(wchar_t* target, wchar_t const* source) {
  int n = 0;
  if (source != nullptr) {
    for (; source[n] != 0 && n < CCrashInfo::kTextCapacity - 1; ++n) target[n] = source[n];
  }
  target[n] = 0;
}

// Writes value with at least width digits (value >= 0).
char* putDigits(char* out, long long value, int width) {
  char digits[24];
  int n = 0;
  do {
    digits[n++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value > 0 && n < 20);
  while (n < width) digits[n++] = '0';
  while (n > 0) *out++ = digits[--n];
  return out;
}

// The attribute text of the log entry: level and, as every entry of the
// session log carries, the entry's local time in the log's form.
void entryAttributes(long long time, char (&out)[64]) {
  char* p = out;
  for (char const* s = "level=\"ERROR\""; *s != 0; ++s) *p++ = *s;
  platform::LocalTimeFields t;
  if (platform::crashLocalTime(time, t) && t.year >= 0 && t.year <= 9999) {
    for (char const* s = " time=\""; *s != 0; ++s) *p++ = *s;
    p = putDigits(p, t.year, 4);
    *p++ = '-';
    p = putDigits(p, t.month, 2);
    *p++ = '-';
    p = putDigits(p, t.day, 2);
    *p++ = 'T';
    p = putDigits(p, t.hour, 2);
    *p++ = ':';
    p = putDigits(p, t.minute, 2);
    *p++ = ':';
    p = putDigits(p, t.second, 2);
    *p++ = '"';
  }
  *p = 0;
}

bool contains(unsigned char const* data, int size, char const* needle) {
  int const n = static_cast<int>(std::strlen(needle));
  for (int i = 0; i + n <= size; ++i) {
    if (std::memcmp(data + i, needle, static_cast<std::size_t>(n)) == 0) return true;
  }
  return false;
}

}  // namespace

CCrashInfo::CCrashInfo() noexcept { clear(); }

CCrashInfo::~CCrashInfo() = default;

void CCrashInfo::clear() noexcept {
  m_isException = false;
  m_hasRecord = false;
  m_crtKind = kCRTTerminate;
  m_time = 0;
  m_threadId = 0;
  m_exceptionPointers = nullptr;
  m_line = 0;
  m_expression[0] = 0;
  m_function[0] = 0;
  m_file[0] = 0;
  m_module.name[0] = 0;
  m_module.baseAddress = 0;
  m_module.size = 0;
  m_codeModule = m_module;
  m_codeModuleSearched = false;
  m_codeModuleFound = false;
}

void CCrashInfo::init(platform::CrashContext const& exception, long long time) noexcept {
  clear();
  platform::crashRecordCapture(m_record, exception);
  m_exceptionPointers = exception.exceptionPointers;
  m_isException = true;
  m_hasRecord = true;
  m_time = time;
  m_threadId = platform::crashCurrentThreadId();
}

void CCrashInfo::init(CRTCrash kind, long long time) noexcept {
  clear();
  platform::crashRecordCaptureCurrent(m_record);
  m_hasRecord = true;
  m_crtKind = kind;
  m_time = time;
  m_threadId = platform::crashCurrentThreadId();
}

void CCrashInfo::initCRTInvalidParam(wchar_t const* expression, wchar_t const* function, wchar_t const* file,
                                     unsigned line, long long time) noexcept {
  init(kCRTInvalidParam, time);
  copyText(m_expression, expression);
  copyText(m_function, function);
  copyText(m_file, file);
  m_line = line;
}

char const* CCrashInfo::getTypeString() const noexcept {
  if (!m_isException) {
    switch (m_crtKind) {
      case kCRTUnexpected: return "crt unexpected";
      case kCRTPureCall: return "crt purecall";
      case kCRTTerminate: return "crt terminate";
      case kCRTInvalidParam: return "crt invalid param";
    }
    return "unknown";
  }
  switch (platform::crashRecordKind(m_record)) {
    case platform::CrashFaultKind::kAccessViolation: return "access violation";
    case platform::CrashFaultKind::kFloatDivideByZero: return "floating point divide by zero";
    case platform::CrashFaultKind::kFloatError: return "floating point error";
    case platform::CrashFaultKind::kIllegalInstruction: return "illegal instruction";
    case platform::CrashFaultKind::kIntDivideByZero: return "integer divide by zero";
    case platform::CrashFaultKind::kIntOverflow: return "integer overflow";
    case platform::CrashFaultKind::kStackOverflow: return "stack overflow";
    case platform::CrashFaultKind::kDataMisaligned: return "data misaligned";
    case platform::CrashFaultKind::kAbort: return "crt terminate";
    case platform::CrashFaultKind::kUnknown: break;
  }
  return "unknown";
}

bool CCrashInfo::getCodeAddress(unsigned long long& address) const noexcept {
  std::uint64_t value = 0;
  if (!m_isException || !platform::crashRecordCodeAddress(m_record, value)) return false;
  address = value;
  return true;
}

bool CCrashInfo::getMemoryAddress(unsigned long long& address) const noexcept {
  std::uint64_t value = 0;
  if (!m_isException || !platform::crashRecordMemoryAddress(m_record, value)) return false;
  address = value;
  return true;
}

bool CCrashInfo::findCodeModule() noexcept {
  if (m_codeModuleSearched) return m_codeModuleFound;
  m_codeModuleSearched = true;
  unsigned long long code = 0;
  if (!getCodeAddress(code)) return false;
  platform::CrashModuleIterator it;
  if (!platform::crashModulesBegin(it)) return false;
  while (platform::crashModulesNext(it, m_codeModule)) {
    if (code >= m_codeModule.baseAddress && code - m_codeModule.baseAddress < m_codeModule.size) {
      m_codeModuleFound = true;
      break;
    }
  }
  platform::crashModulesEnd(it);
  return m_codeModuleFound;
}

bool CCrashInfo::getModuleName(wchar_t const*& name) noexcept {
  if (!findCodeModule()) return false;
  name = m_codeModule.name;
  return true;
}

bool CCrashInfo::getModuleBaseAddress(unsigned long long& address) noexcept {
  if (!findCodeModule()) return false;
  address = m_codeModule.baseAddress;
  return true;
}

bool CCrashInfo::beginModuleIteration() noexcept {
  m_module.name[0] = 0;
  m_module.baseAddress = 0;
  m_module.size = 0;
  return platform::crashModulesBegin(m_iterator);
}

bool CCrashInfo::nextModule() noexcept { return platform::crashModulesNext(m_iterator, m_module); }

void CCrashInfo::endModuleIteration() noexcept { platform::crashModulesEnd(m_iterator); }

void CCrashInfo::writeXML(CCrashFileAccess& file, bool standalone) noexcept {
  if (standalone) {
    file.setDepth(0);
    file.writeXMLHeader();
  }
  file.writeTagStart("crash", !standalone);
  file.writeAttribute("type", getTypeString());
  file.writeInt64Attribute("timestamp", m_time);
  file.writeTagEnd(false);

  if (m_isException) {
    wchar_t const* moduleName = nullptr;
    if (getModuleName(moduleName)) file.writeStringElement("moduleName", moduleName);
    unsigned long long value = 0;
    if (getModuleBaseAddress(value)) file.writeAddressElement("moduleBaseAddress", value);
    if (getCodeAddress(value)) file.writeAddressElement("codeAddress", value);
    if (getMemoryAddress(value)) file.writeAddressElement("memoryAddress", value);
    // One format on every system: a POSIX signal appears as the nearest
    // Windows exception, with the signal's own facts after it.
    file.writeAddressElement("win32-code", platform::crashRecordCode(m_record));
    file.writeAddressElement("win32-address", platform::crashRecordAddress(m_record));
    file.writeInt64Element("win32-flags", platform::crashRecordFlags(m_record));
    file.writeOpeningTag("win32-parameters", true);
    int const count = platform::crashRecordParameterCount(m_record);
    for (int i = 0; i < count; ++i) {
      file.writeAddressElement("win32-parameter", platform::crashRecordParameter(m_record, i));
    }
    file.writeClosingTag("win32-parameters", count > 0);
    int signalNumber = 0;
    int signalCode = 0;
    std::uint64_t signalAddress = 0;
    if (platform::crashRecordSignal(m_record, signalNumber, signalCode, signalAddress)) {
      file.writeInt64Element("signal-number", signalNumber);
      // Negative for signals sent by a process (SI_USER, SI_TKILL).
      file.writeInt64Element("signal-code", signalCode);
      file.writeAddressElement("signal-address", signalAddress);
    }
  } else {
    if (m_expression[0] != 0) file.writeStringElement("crt-expression", m_expression);
    if (m_function[0] != 0) file.writeStringElement("crt-function", m_function);
    if (m_file[0] != 0) file.writeStringElement("crt-file", m_file);
    file.writeInt64Element("crt-line", m_line);
  }

  file.writeOpeningTag("modules", true);
  bool any = false;
  if (beginModuleIteration()) {
    while (nextModule()) {
      any = true;
      file.writeTagStart("module", true);
      file.writeAttribute("name", m_module.name);
      file.writeAddressAttribute("baseAddress", m_module.baseAddress);
      file.writeInt64Attribute("size", static_cast<long long>(m_module.size));
      file.writeTagEnd(true);
    }
    endModuleIteration();
  }
  file.writeClosingTag("modules", any);
  file.writeClosingTag("crash", true);
  if (standalone) file.writeChar('\n');
}

bool CCrashInfo::writeToXMLLog(CCrashTools& tools, wchar_t const* logPath, wchar_t const* suffixPath,
                               wchar_t const* summary) noexcept {
  CCrashFileAccess& file = tools.getFileAccessB();
  unsigned char* const text = tools.getTempBuffer();
  int const limit = CCrashTools::kTempBufferSize < 1000 ? CCrashTools::kTempBufferSize : 1000;

  // What the suffix still closes tells which elements are open in the log.
  int length = 0;
  if (file.open(suffixPath, CCrashFileAccess::kRead)) {
    while (length < limit) {
      int const n = file.read(text + length, limit - length);
      if (n <= 0) break;
      length += n;
    }
    file.close();
  }
  bool const logOpen = contains(text, length, "log>");
  bool const sessionOpen = contains(text, length, "session>");
  // With the log and a session open (the usual case) the entry is written
  // as the log writes long entries, so a kill in the middle leaves main file
  // + suffix file a complete document: the suffix first gets a leading
  // "?>", the entry goes out behind "<?q " in its indent, then the indent is
  // set back and the suffix loses its "?>" (two blanks stay at its end).
  bool const hidden = logOpen && sessionOpen && length < limit;
  if (hidden) {
    for (int i = length - 1; i >= 0; --i) text[i + 2] = text[i];
    text[0] = '?';
    text[1] = '>';
    if (!file.open(suffixPath, CCrashFileAccess::kUpdate) || !file.writeAt(0, text, length + 2) || !file.close())
      return false;
  }

  if (!file.open(logPath, CCrashFileAccess::kAppend)) return false;
  bool const empty = file.getPosition() == 0;
  if (empty) file.writeXMLHeader();
  file.setDepth(0);
  if (!logOpen) file.writeOpeningTag("log", !empty);
  file.setDepth(1);
  if (!sessionOpen) file.writeOpeningTag("session", true);
  file.setDepth(2);
  file.writeChar('\n');
  char attributes[64];
  entryAttributes(m_time, attributes);
  long long slot = -1;
  if (hidden) {
    // "<?q " must not straddle a page boundary: a kill could split it.
    long long const inPage = (file.getPosition() + 2) % 4096;
    for (long long i = inPage > 4092 ? 4096 - inPage : 0; i > 0; --i) file.writeChar(' ');
    file.writeChar('\n');
    slot = file.getPosition();
    file.writeStringRaw("<?q ");
    file.writeOpeningTag("centry", false, attributes);
  } else {
    file.writeOpeningTag("centry", true, attributes);
  }
  if (summary != nullptr && summary[0] != 0) file.writeStringElement("summary", summary);
  writeXML(file, false);
  file.writeClosingTag("centry", true);
  if (!sessionOpen) file.writeClosingTag("session", true);
  bool ok = file.close();

  if (hidden) {
    ok = ok && file.open(logPath, CCrashFileAccess::kUpdate) && file.writeAt(slot, "    ", 4) && file.close();
    text[length + 2] = ' ';
    text[length + 3] = ' ';
    ok = ok && file.open(suffixPath, CCrashFileAccess::kUpdate) && file.writeAt(0, text + 2, length + 2) &&
         file.close();
  }
  if (!logOpen) {
    if (file.open(suffixPath, CCrashFileAccess::kCreate)) {
      file.setDepth(1);
      file.writeClosingTag("log", true);
      file.writeChar('\n');
      ok = file.close() && ok;
    } else {
      ok = false;
    }
  }
  return ok;
}

bool CCrashInfo::writeWindowsMiniDumpUnsafe(CCrashFileAccess& file) noexcept {
  if (!m_hasRecord || !file.isOpen() || !file.flush()) return false;
  return platform::crashWriteMinidump(file.getHandle(), m_record, m_threadId, false, m_dumpScratch,
                                      static_cast<int>(sizeof m_dumpScratch));
}

bool CCrashInfo::writeWindowsMiniDumpRaw(void* process, void* file, std::uint32_t processId, void* exceptionPointers,
                                         std::uint32_t threadId, bool fullMemory) noexcept {
  return platform::crashWriteMinidumpOfProcess(process, file, processId, exceptionPointers, threadId, fullMemory);
}

}  // namespace qo
