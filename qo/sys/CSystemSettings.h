// qo/sys/CSystemSettings.h - typed settings under hierarchical keys, per
// user or for the whole machine.
//
// A setting is a named value of one type (string, 32- or 64-bit integer,
// binary, list of strings) under a key such as "Software/Acme/Backup" ("/"
// and "\" both separate key parts; keys and value names compare without
// regard to ASCII case, as in the registry). Two scopes: the user's own and
// the machine's.
// - Windows keeps them in the registry (HKEY_CURRENT_USER /
//   HKEY_LOCAL_MACHINE, 64-bit view) with its own types: REG_SZ, REG_DWORD,
//   REG_QWORD, REG_BINARY, REG_MULTI_SZ (REG_EXPAND_SZ reads as a string,
//   not expanded).
// - Elsewhere, and on any system once a root folder is set, each scope is
//   one text file: "$XDG_CONFIG_HOME/qo-settings.conf" (else
//   "~/.config/qo-settings.conf") and "/etc/qo-settings.conf"; with a root
//   folder R, "R/user/qo-settings.conf" and "R/machine/qo-settings.conf".
//   $XDG_CONFIG_HOME is read through CCachedEnvVars (refresh() it after
//   changing the environment).
//   A change rereads the file under the lock file "<file>.lock" (so two
//   processes never lose each other's changes), writes the new content to
//   "<file>.tmp", flushes it and renames it over the file: a reader sees the
//   old content or the new one, never a mix.
// Strings must not contain U+0000 and string lists no empty strings (the
// registry cannot keep them): CInvalidArgError. Reading a value that does
// not exist throws CError "Setting not found."; reading one of another type
// CError "Setting has another type." (properties "scope", "key", "name" and,
// for the type, "expected" and "actual"). OS failures are CSystemErrors
// ("api" the registry call), file failures CIOErrors, a garbled file
// CFileCorruptedError.
//
//   P<CSystemSettings> const& s = CSystemSettings::get();
//   s->setInt32(CSystemSettings::User, u"Software/Acme/Backup", u"threads", 4);
//   int threads = s->getInt32(CSystemSettings::User, u"Software/Acme/Backup", u"threads");
//
// Thread-safe.
#ifndef QO_SYS_CSYSTEMSETTINGS_H
#define QO_SYS_CSYSTEMSETTINGS_H

#include <cstdint>
#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/thread/CMutex.h"

namespace qo {

/// Typed settings in the registry or in per-scope files. Thread-safe.
class QO_API CSystemSettings : public CBase {
public:
  enum Scope { User, Machine };
  enum ValueType { TypeString, TypeInt32, TypeInt64, TypeBinary, TypeStringList, TypeOther };

  /// The process-wide instance, created on first use. Thread-safe.
  static P<CSystemSettings> const& get();

  /// A store at the system's place (see above). Never throws.
  CSystemSettings();
  ~CSystemSettings() override;

  /// Keeps the settings in files under folder from now on ("" = back to the
  /// system's place). Thread-safe.
  void setRootFolder(String const& folder);
  /// The folder given to setRootFolder(); "" when none. Thread-safe.
  String getRootFolder() const;
  /// True when the registry holds the settings (Windows without a root
  /// folder). Thread-safe.
  bool usesRegistry() const;
  /// The file of the scope; "" when usesRegistry(). Thread-safe.
  String getFilePath(Scope scope) const;
  /// How long a change waits in milliseconds for another writer's lock file
  /// (-1 = no limit; default 10000) before it throws that writer's
  /// CLockFileError ("lockConflict" = "true"). Thread-safe.
  void setLockTimeout(int timeoutMs);

  /// Sets the value, creating the key when missing. All setters throw
  /// CInvalidArgError for an empty key or key part or a bad value, and the
  /// errors of writing. Thread-safe.
  void setString(Scope scope, String const& key, String const& name, String const& value);
  /// As setString(). Thread-safe.
  void setInt32(Scope scope, String const& key, String const& name, std::int32_t value);
  /// As setString(). Thread-safe.
  void setInt64(Scope scope, String const& key, String const& name, std::int64_t value);
  /// As setString(). Thread-safe.
  void setBinary(Scope scope, String const& key, String const& name, std::vector<unsigned char> const& value);
  /// As setString(). Thread-safe.
  void setStringList(Scope scope, String const& key, String const& name, std::vector<String> const& value);

  /// The value. All getters throw CError "Setting not found." or "Setting
  /// has another type." as described above, and the errors of reading.
  /// Thread-safe.
  String getString(Scope scope, String const& key, String const& name) const;
  /// As getString(). Thread-safe.
  std::int32_t getInt32(Scope scope, String const& key, String const& name) const;
  /// As getString(). Thread-safe.
  std::int64_t getInt64(Scope scope, String const& key, String const& name) const;
  /// As getString(). Thread-safe.
  std::vector<unsigned char> getBinary(Scope scope, String const& key, String const& name) const;
  /// As getString(). Thread-safe.
  std::vector<String> getStringList(Scope scope, String const& key, String const& name) const;

  /// Whether the value exists. Throws the errors of reading. Thread-safe.
  bool hasValue(Scope scope, String const& key, String const& name) const;
  /// The value's type (TypeOther for registry types without a setter here).
  /// Throws CError "Setting not found.". Thread-safe.
  ValueType getValueType(Scope scope, String const& key, String const& name) const;
  /// The names of the key's values (file store: in the order first set).
  /// Throws CError "Setting not found." ("name" empty) when the key is
  /// missing. Thread-safe.
  std::vector<String> listValueNames(Scope scope, String const& key) const;
  /// Deletes the value; false when it was not there. Thread-safe.
  bool deleteValue(Scope scope, String const& key, String const& name);
  /// Deletes the key with its values and every key below it; false when it
  /// was not there. Thread-safe.
  bool deleteKey(Scope scope, String const& key);

  /// "string", "int32", "int64", "binary", "stringList", "other".
  /// Thread-safe.
  static String getTypeName(ValueType type);

  /// One stored value; internal to the stores.
  struct CValue {
    ValueType type = TypeOther;
    String text;
    std::int64_t number = 0;
    std::vector<unsigned char> bytes;
    std::vector<String> list;
  };

private:
  void store(Scope scope, String const& key, String const& name, CValue const& value, char const* place);
  bool load(Scope scope, String const& key, String const& name, CValue& value, char const* place) const;

  mutable CMutex m_mutex;
  String m_rootFolder;
  int m_lockTimeoutMs = 10000;
};

}  // namespace qo

#endif  // QO_SYS_CSYSTEMSETTINGS_H
