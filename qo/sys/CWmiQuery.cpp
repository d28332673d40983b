#include "qo/sys/CWmiQuery.h"

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CNotImplementedError.h"
#include "qo/core/CProps.h"
#include "qo/core/CSystemError.h"
#include "qo/platform/Wmi.h"

namespace qo {

String CWmiQuery::CRow::getValue(String const& name) const {
  for (auto const& entry : values) {
    if (entry.first.CmpNoCase(name) == 0) return entry.second;
  }
  return String();
}

bool CWmiQuery::CRow::hasValue(String const& name) const {
  for (auto const& entry : values) {
    if (entry.first.CmpNoCase(name) == 0) return true;
  }
  return false;
}

CWmiQuery::CWmiQuery(String const& nameSpace) : m_nameSpace(nameSpace) {}
CWmiQuery::~CWmiQuery() = default;

bool CWmiQuery::isAvailable() { return platform::wmiAvailable(); }

std::vector<CWmiQuery::CRow> CWmiQuery::exec(String const& query) const {
  if (query.isEmpty()) throw CInvalidArgError(u"CWmiQuery::exec", u"the query is empty");
  if (!platform::wmiAvailable()) {
    CNotImplementedError error(u"CWmiQuery::exec");
    error.getParams().add(u"reason", u"WMI (Windows Management Instrumentation) exists only on Windows");
    throw error;
  }
  std::vector<platform::WmiRow> rows;
  char const* failedApi = nullptr;
  if (platform::SysError e = platform::wmiQuery(m_nameSpace.str(), query.str(), rows, failedApi)) {
    CProps props;
    props.add(u"namespace", m_nameSpace);
    props.add(u"query", query);
    throw CSystemError(u"Error querying WMI.", u"CWmiQuery::exec",
                       String::fromUTF8(failedApi ? failedApi : "ExecQuery"), e.code, String::fromUTF8(e.text),
                       props);
  }
  std::vector<CRow> out;
  out.reserve(rows.size());
  for (auto& row : rows) {
    CRow r;
    r.values.reserve(row.size());
    for (auto& value : row) r.values.emplace_back(String(std::move(value.first)), String(std::move(value.second)));
    out.push_back(std::move(r));
  }
  return out;
}

}  // namespace qo
