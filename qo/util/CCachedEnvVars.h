// qo/util/CCachedEnvVars.h - a process-wide snapshot of the environment
// variables.
//
// Reading the environment is slow on Windows and unsafe on POSIX while
// another thread calls setenv; the library therefore reads it once (CQoInit
// creates the singleton early) and answers lookups of "TEMP", "HOME" and
// the like from the copy. refresh() takes a new snapshot after the process
// changed its environment. Names compare as the OS compares them: without
// regard to case on Windows, exactly elsewhere. Where one name occurs
// twice, the first entry wins.
//
//   String temp = CCachedEnvVars::get()->getValue(u"TEMP", u"/tmp");
//   CCachedEnvVars::get()->refresh();   // after SetEnvironmentVariable/setenv
//
// Thread-safe: lookups and refresh() may run on any threads at once; a
// lookup sees either the old snapshot or the new one, never a mixture.
#ifndef QO_UTIL_CCACHEDENVVARS_H
#define QO_UTIL_CCACHEDENVVARS_H

#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/thread/CMutex.h"

namespace qo {

/// Snapshot of the environment. Thread-safe.
class QO_API CCachedEnvVars : public CBase {
public:
  /// Takes the first snapshot; when the OS refuses, the snapshot is empty
  /// until a refresh() succeeds.
  CCachedEnvVars();
  ~CCachedEnvVars() override;
  CCachedEnvVars(CCachedEnvVars const&) = delete;
  CCachedEnvVars& operator=(CCachedEnvVars const&) = delete;

  /// The process-wide instance. Thread-safe.
  static P<CCachedEnvVars> const& get();

  /// The value of name, or defaultValue when the snapshot lacks it.
  /// Thread-safe.
  String getValue(String const& name, String const& defaultValue = String()) const;
  /// True and value set when the snapshot has name; false and value
  /// untouched otherwise. Thread-safe.
  bool lookup(String const& name, String& value) const;
  /// Every variable as (name, value), ordered by name as the OS compares
  /// names. Thread-safe.
  std::vector<std::pair<String, String>> getAll() const;
  /// Replaces the snapshot with the current environment. Throws
  /// CSystemError ("api" "GetEnvironmentStringsW" on Windows, "environ"
  /// elsewhere) when the OS refuses; the old snapshot then stays.
  /// Thread-safe.
  void refresh();
  /// True where names compare without regard to case (Windows).
  /// Thread-safe.
  static bool namesIgnoreCase();

private:
  // Key: the name as compared (upper case where case is ignored).
  using Map = std::map<String, std::pair<String, String>>;
  std::shared_ptr<Map const> snapshot() const;
  static String keyOf(String const& name);
  mutable CMutex m_mutex;
  std::shared_ptr<Map const> m_vars;
};

}  // namespace qo

#endif  // QO_UTIL_CCACHEDENVVARS_H
