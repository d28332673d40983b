// tests/log/XMLLogTestSupport.h - temporary folders, file access and the
// outside XML checker for the XML writer and session log tests.
#ifndef QO_TESTS_LOG_XMLLOGTESTSUPPORT_H
#define QO_TESTS_LOG_XMLLOGTESTSUPPORT_H

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>

#include "qo/core/String.h"
#include "TempFolder.h"

namespace qo::xmltest {

namespace fs = std::filesystem;

using TempFolder = qo::test::TempFolder;

inline std::string readBytes(fs::path const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeBytes(fs::path const& path, std::string const& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << bytes;
}

/// Every time="..." value replaced by time="T", so that layouts compare.
inline std::string maskTimes(std::string const& text) {
  static std::regex const time("time=\"\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\"");
  return std::regex_replace(text, time, "time=\"T\"");
}

/// How often needle occurs in text.
inline int countOf(std::string const& text, std::string const& needle) {
  int count = 0;
  for (std::size_t pos = text.find(needle); pos != std::string::npos; pos = text.find(needle, pos + 1)) ++count;
  return count;
}

/// True when xmllint (libxml2-utils) can be run here.
inline bool haveXmllint() {
#ifdef _WIN32
  return false;  // a Linux tool: not reachable from the Windows build
#else
  static bool const have = std::system("xmllint --version >/dev/null 2>&1") == 0;
  return have;
#endif
}

/// xmllint's verdict on the document in path: "" when well formed,
/// otherwise its messages.
inline std::string xmllintErrors(fs::path const& path) {
#ifdef _WIN32
  (void)path;
  return std::string();
#else
  fs::path const report = path.string() + ".xmllint.txt";
  std::string const command = "xmllint --noout '" + path.string() + "' >'" + report.string() + "' 2>&1";
  int const status = std::system(command.c_str());
  std::string messages = readBytes(report);
  std::error_code ignored;
  fs::remove(report, ignored);
  if (status == 0) return std::string();
  return messages.empty() ? std::string("xmllint failed") : messages;
#endif
}

}  // namespace qo::xmltest

#endif  // QO_TESTS_LOG_XMLLOGTESTSUPPORT_H
