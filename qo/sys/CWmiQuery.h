// qo/sys/CWmiQuery.h - asking Windows Management Instrumentation.
//
// A WQL query in one WMI namespace gives rows of named values, each value as
// text (numbers in decimal, dates in WMI's "yyyymmddHHMMSS.mmmmmmsUUU" form,
// arrays and nulls empty). COM is initialised on the calling thread for the
// call (apartment-threaded unless the thread has chosen already) and
// released after it. Outside Windows there is no WMI: exec() throws
// CNotImplementedError.
//
//   CWmiQuery wmi;   // ROOT\CIMV2
//   for (auto const& row : wmi.exec(u"SELECT Caption, Version FROM Win32_OperatingSystem"))
//     print(row.getValue(u"Caption"), row.getValue(u"Version"));
//
// Thread-safe: every call uses its own COM objects.
#ifndef QO_SYS_CWMIQUERY_H
#define QO_SYS_CWMIQUERY_H

#include <utility>
#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/String.h"

namespace qo {

/// WQL queries in one WMI namespace. Thread-safe.
class QO_API CWmiQuery : public CBase {
public:
  /// One result object: its properties' names and values, in the order WMI
  /// lists them.
  struct QO_API CRow {
    std::vector<std::pair<String, String>> values;
    /// The value of the property name (compared without regard to case, as
    /// WMI does); empty when there is none. Thread-safe.
    String getValue(String const& name) const;
    /// Whether the row has the property name. Thread-safe.
    bool hasValue(String const& name) const;
  };

  /// Queries in nameSpace ("ROOT\\CIMV2" by default).
  explicit CWmiQuery(String const& nameSpace = u"ROOT\\CIMV2");
  ~CWmiQuery() override;

  /// Whether this system has WMI (Windows). Thread-safe.
  static bool isAvailable();
  /// The namespace queried. Thread-safe.
  String const& getNameSpace() const { return m_nameSpace; }
  /// Runs query (WQL) and returns its rows. Throws CInvalidArgError
  /// (function "CWmiQuery::exec") for an empty query, CNotImplementedError
  /// outside Windows, CSystemError (function "CWmiQuery::exec", api the COM
  /// call that failed, e.g. "ConnectServer" or "ExecQuery", the HRESULT as
  /// code; properties "namespace" and "query") when WMI refuses.
  /// Thread-safe.
  std::vector<CRow> exec(String const& query) const;

private:
  String const m_nameSpace;
};

}  // namespace qo

#endif  // QO_SYS_CWMIQUERY_H
