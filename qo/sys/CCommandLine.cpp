#include "qo/sys/CCommandLine.h"

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CNotImplementedError.h"
#include "qo/core/CSystemError.h"
#include "qo/platform/Process.h"

#include <string>

namespace qo {

namespace {

bool isBlank(char16_t c) { return c == u' ' || c == u'\t'; }

// The general rules from position i to the end of line, appending to out.
// The quote counter follows the system parser exactly: a run of quotes
// counts up, every third quote of a run is a literal one, and a run that
// leaves the counter at 2 ends the quoting.
void splitGeneral(std::u16string const& line, std::size_t i, std::vector<String>& out) {
  std::u16string current;
  bool inArgument = false;
  int quotes = 0;
  std::size_t backslashes = 0;
  std::size_t const n = line.size();
  while (i < n) {
    char16_t const c = line[i];
    if (isBlank(c) && quotes == 0) {
      if (inArgument) out.emplace_back(std::move(current));
      current.clear();
      inArgument = false;
      backslashes = 0;
      ++i;
      continue;
    }
    inArgument = true;
    if (c == u'\\') {
      current += c;
      ++backslashes;
      ++i;
    } else if (c == u'"') {
      if (backslashes % 2 == 0) {
        current.resize(current.size() - backslashes / 2);
        ++quotes;
      } else {
        current.resize(current.size() - backslashes / 2 - 1);
        current += u'"';
      }
      backslashes = 0;
      ++i;
      for (; i < n && line[i] == u'"'; ++i) {
        if (++quotes == 3) {
          current += u'"';
          quotes = 0;
        }
      }
      if (quotes == 2) quotes = 0;
    } else {
      current += c;
      backslashes = 0;
      ++i;
    }
  }
  if (inArgument) out.emplace_back(std::move(current));
}

bool needsQuotes(std::u16string const& text) {
  return text.empty() || text.find_first_of(u" \t\n\v\"") != std::u16string::npos;
}

}  // namespace

String CCommandLine::quoteArgument(String const& argument) {
  std::u16string const& text = argument.str();
  if (!needsQuotes(text)) return argument;
  std::u16string out;
  out.reserve(text.size() + 2);
  out += u'"';
  std::size_t backslashes = 0;
  for (char16_t const c : text) {
    if (c == u'\\') {
      ++backslashes;
      continue;
    }
    // Backslashes before a quote are doubled and the quote escaped; others
    // stay as they are.
    if (c == u'"') {
      out.append(backslashes * 2 + 1, u'\\');
    } else {
      out.append(backslashes, u'\\');
    }
    backslashes = 0;
    out += c;
  }
  // The closing quote follows: its backslashes are doubled as well.
  out.append(backslashes * 2, u'\\');
  out += u'"';
  return String(std::move(out));
}

String CCommandLine::quoteArguments(std::vector<String> const& arguments) {
  std::u16string out;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (i > 0) out += u' ';
    out += quoteArgument(arguments[i]).str();
  }
  return String(std::move(out));
}

std::vector<String> CCommandLine::parseArguments(String const& line) {
  std::vector<String> out;
  splitGeneral(line.str(), 0, out);
  return out;
}

String CCommandLine::quoteProgram(String const& program) {
  std::u16string const& text = program.str();
  if (text.find(u'"') != std::u16string::npos) {
    throw CInvalidArgError(u"CCommandLine::quoteProgram", u"a program name cannot contain '\"'",
                           CProps().add(u"program", program));
  }
  if (!text.empty() && text.find_first_of(u" \t") == std::u16string::npos) return program;
  return String(u"\"" + text + u"\"");
}

String CCommandLine::quote(std::vector<String> const& argv) {
  if (argv.empty()) return String();
  std::u16string out = quoteProgram(argv[0]).str();
  for (std::size_t i = 1; i < argv.size(); ++i) {
    out += u' ';
    out += quoteArgument(argv[i]).str();
  }
  return String(std::move(out));
}

std::vector<String> CCommandLine::parse(String const& line) {
  std::vector<String> out;
  std::u16string const& text = line.str();
  std::size_t const n = text.size();
  if (n == 0) return out;
  std::size_t i = 0;
  if (text[0] == u'"') {
    // Quoted: to the next quote, no escapes.
    std::size_t const end = text.find(u'"', 1);
    std::size_t const stop = end == std::u16string::npos ? n : end;
    out.emplace_back(text.substr(1, stop - 1));
    i = end == std::u16string::npos ? n : end + 1;
  } else {
    while (i < n && !isBlank(text[i])) ++i;
    out.emplace_back(text.substr(0, i));
  }
  while (i < n && isBlank(text[i])) ++i;
  splitGeneral(text, i, out);
  return out;
}

bool CCommandLine::hasSystemParser() { return platform::systemCommandLineParserAvailable(); }

std::vector<String> CCommandLine::parseWithSystem(String const& line) {
  if (!platform::systemCommandLineParserAvailable()) {
    CNotImplementedError error(u"CCommandLine::parseWithSystem");
    error.getParams().add(u"reason", u"this system has no command-line parser of its own (CommandLineToArgvW is Windows only)");
    throw error;
  }
  std::vector<std::u16string> parts;
  if (platform::SysError e = platform::systemParseCommandLine(line.str(), parts)) {
    throw CSystemError(u"Error splitting a command line.", u"CCommandLine::parseWithSystem", u"CommandLineToArgvW",
                       e.code, String(std::string_view(e.text)));
  }
  std::vector<String> out;
  out.reserve(parts.size());
  for (auto& p : parts) out.emplace_back(std::move(p));
  return out;
}

}  // namespace qo
