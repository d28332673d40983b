// qo/sys/CSettingsFile.h - the text form of one scope's settings file, as
// CSystemSettings keeps it where there is no registry.
//
// UTF-8 lines: "# comment", "[key/parts]" opening a section, and
// "name=type:value" with the types "string", "int32", "int64" (decimal),
// "binary" (lower-case hex, two digits a byte) and "stringList" (items
// separated by ","). In keys, names, strings and items "\" escapes: "\\" for
// itself, "\xHH" for control characters, DEL, "=", ",", "[", "]" and "#",
// "\uHHHH" for lone surrogates; so any UTF-16 text survives a round trip.
// Keys and names compare without regard to ASCII case; a later line for the
// same name replaces an earlier one.
//
//   CSettingsFile file = CSettingsFile::parse(bytes, path);
//   file.getSection(u"Software/Acme").setValue(u"n", value);
//   std::string out = file.serialize();
//
// Not thread-safe.
#ifndef QO_SYS_CSETTINGSFILE_H
#define QO_SYS_CSETTINGSFILE_H

#include <string>
#include <utility>
#include <vector>

#include "qo/core/Export.h"
#include "qo/core/String.h"
#include "qo/sys/CSystemSettings.h"

namespace qo {

/// The sections and values of one settings file. Not thread-safe.
class QO_API CSettingsFile {
public:
  /// One "[key]" with its values in file order. Not thread-safe.
  struct QO_API CSection {
    String key;
    std::vector<std::pair<String, CSystemSettings::CValue>> values;

    /// The value of that name, or null. Not thread-safe.
    CSystemSettings::CValue* findValue(String const& name);
    /// Replaces the value of that name or appends it. Not thread-safe.
    void setValue(String const& name, CSystemSettings::CValue const& value);
    /// Removes the value; false when there was none. Not thread-safe.
    bool removeValue(String const& name);
  };

  std::vector<CSection> sections;

  /// The section of that key, or null. Not thread-safe.
  CSection* findSection(String const& key);
  /// The section of that key, appended when missing. Not thread-safe.
  CSection& getSection(String const& key);
  /// Removes the key's section and those of every key below it; false when
  /// there were none. Not thread-safe.
  bool removeKey(String const& key);

  /// Reads a file's bytes. Throws CFileCorruptedError(path) for bytes that
  /// are not such a file (bad UTF-8, line, escape, type or number).
  /// Thread-safe.
  static CSettingsFile parse(std::string const& bytes, String const& path);
  /// The file's bytes, starting with a comment line. Never throws. Not
  /// thread-safe.
  std::string serialize() const;
  /// The escaped form of text. Thread-safe.
  static String escape(String const& text);
  /// Undoes escape(); false (out undefined) on a bad escape. Thread-safe.
  static bool unescape(String const& text, String& out);
};

}  // namespace qo

#endif  // QO_SYS_CSETTINGSFILE_H
