// qo/sys/CCommandLine.h - Windows command lines: quoting a list of
// arguments into one line and splitting a line back into arguments.
//
// A Windows program receives one text and splits it itself. The splitting
// rules are those of CommandLineToArgvW (and, for every line quote() makes,
// of the C runtime):
// - Arguments are separated by blanks and tabs outside quotes.
// - 2n backslashes before '"' give n backslashes and the '"' opens or closes
//   quoting; 2n+1 backslashes before '"' give n backslashes and a literal
//   '"'; backslashes not before '"' are literal.
// - Inside quotes, '""' gives a literal '"' and ends the quoting (the C
//   runtime since 2008 keeps quoting on, so quote() never writes '""').
// - The first argument, the program, follows its own rule: quoted, it runs
//   to the next '"' whatever comes between; unquoted, to the next blank or
//   tab; backslashes are always literal. A program name therefore cannot
//   hold a '"'.
//
// quoteArguments()/parseArguments() treat every argument by the general
// rules: parseArguments(quoteArguments(list)) == list for ANY list of
// strings. quote()/parse() handle a whole command line, program first:
// parse(quote(list)) == list for any list whose first string has no '"'.
//
//   String line = CCommandLine::quote({u"C:\\Program Files\\x.exe", u"a b", u"q\"", u"end\\"});
//   // "C:\Program Files\x.exe" "a b" "q\"" end\      (the line as the OS sees it)
//   std::vector<String> back = CCommandLine::parse(line);   // the four strings again
//
// Thread-safe (only static functions).
#ifndef QO_SYS_CCOMMANDLINE_H
#define QO_SYS_CCOMMANDLINE_H

#include <vector>

#include "qo/core/Export.h"
#include "qo/core/String.h"

namespace qo {

/// Quoting and splitting of Windows command lines. Thread-safe.
class QO_API CCommandLine {
public:
  CCommandLine() = delete;

  /// One argument in the form parseArguments() reads back unchanged: as it
  /// is when it is not empty and holds no blank, tab, newline, vertical tab
  /// or '"'; otherwise in quotes with '"' and the backslashes before it, or
  /// before the closing quote, escaped. Never throws (except for memory).
  static String quoteArgument(String const& argument);
  /// The arguments quoted one by one and joined with single blanks; "" for
  /// an empty list. Never throws (except for memory).
  static String quoteArguments(std::vector<String> const& arguments);
  /// Splits by the general rules only (no program first). An empty or blank
  /// line gives no arguments. Never throws (except for memory).
  static std::vector<String> parseArguments(String const& line);

  /// A program name in the form the first-argument rule reads back: in
  /// quotes when it is empty or holds a blank or tab. Throws
  /// CInvalidArgError (place "CCommandLine::quoteProgram") when it holds a
  /// '"', which no command line can carry in that position.
  static String quoteProgram(String const& program);
  /// A whole command line: quoteProgram of the first string, then the
  /// others by quoteArgument, joined with single blanks; "" for an empty
  /// list. Throws CInvalidArgError as quoteProgram.
  static String quote(std::vector<String> const& argv);
  /// Splits a whole command line as CommandLineToArgvW does: the first
  /// argument by the program rule (a line starting with a blank gives an
  /// empty program name), the rest by the general rules. Unlike the system
  /// function, an empty line gives an empty list (the system answers with
  /// the calling program's path). Never throws (except for memory).
  static std::vector<String> parse(String const& line);

  /// Whether parseWithSystem() is available (Windows only).
  static bool hasSystemParser();
  /// Splits a line with the system's own CommandLineToArgvW. Throws
  /// CNotImplementedError on systems without it (property "reason"),
  /// CSystemError (function "CCommandLine::parseWithSystem", api
  /// "CommandLineToArgvW") when the call fails.
  static std::vector<String> parseWithSystem(String const& line);
};

}  // namespace qo

#endif  // QO_SYS_CCOMMANDLINE_H
