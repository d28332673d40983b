// libFuzzer target for opening a session log that something else left: the
// input is split (at its first NUL byte, if any) into the log file and its
// suffix file. Opening (which repairs, continues or replaces the pair) and
// closing must not crash or throw, and must leave main file + suffix file a
// well-formed document that ends with a closed session.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "qo/core/CError.h"
#include "qo/log/CQuickXMLChecker.h"
#include "qo/log/CXMLLog.h"
#include "qo/sys/CProcess.h"

namespace {

namespace fs = std::filesystem;

void check(bool condition) {
  if (!condition) __builtin_trap();
}

void writeFile(fs::path const& path, std::string const& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << bytes;
}

fs::path const& folder() {
  static fs::path const path = [] {
    fs::path p = fs::temp_directory_path() / ("qo-fuzz-xmllog-" + std::to_string(qo::CProcess::getCurrentID()));
    fs::create_directories(p);
    return p;
  }();
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string const input(reinterpret_cast<char const*>(data), size);
  std::size_t const split = input.find('\0');
  fs::path const main = folder() / "log.xml";
  fs::path const suffix = folder() / "log-suffix.xml";
  std::error_code ignored;
  fs::remove(suffix, ignored);
  writeFile(main, input.substr(0, split));
  if (split != std::string::npos) writeFile(suffix, input.substr(split + 1));

  qo::String const path = qo::String::fromUTF8(main.u8string());
  try {
    qo::P<qo::CXMLLog> log = qo::newP<qo::CXMLLog>(path, nullptr, false, -1LL, false);
    log->logInfo(u"after <repair> & reopen");
    log->close();
  } catch (qo::CError const&) {
    check(false);
  }
  std::string const doc = qo::CXMLLog::readLogRaw(path).toUTF8();
  check(qo::CQuickXMLChecker(qo::String::fromUTF8(doc)).doCheck());
  std::string const end = "\n  </session>\n</log>\n";
  check(doc.size() >= end.size() && doc.compare(doc.size() - end.size(), end.size(), end) == 0);
  return 0;
}
