// qo/platform/Wmi.h - Windows Management Instrumentation queries
// (internal, OS-free).
//
// Windows: CoInitializeEx on the calling thread (apartment-threaded unless
// the thread has chosen already), CoCreateInstance(CLSID_WbemLocator),
// IWbemLocator::ConnectServer, CoSetProxyBlanket, IWbemServices::ExecQuery
// ("WQL", forward-only) and IWbemClassObject::GetNames/Get per row; values
// become text through VariantChangeType(VT_BSTR), arrays and nulls empty.
// POSIX has no WMI: wmiAvailable() is false and wmiQuery answers ENOSYS.
//
// Never throws; thread-safe (each call uses its own COM objects).
#ifndef QO_PLATFORM_WMI_H
#define QO_PLATFORM_WMI_H

#include <string>
#include <utility>
#include <vector>

#include "qo/platform/LastError.h"

namespace qo::platform {

/// One result object: its properties' names and values as text.
using WmiRow = std::vector<std::pair<std::u16string, std::u16string>>;

/// Whether this system has WMI.
bool wmiAvailable();
/// Runs query (WQL) in the namespace (e.g. u"ROOT\\CIMV2"); rows get the
/// result objects in the order delivered. On failure failedApi names the
/// call that failed ("CoCreateInstance", "ConnectServer", "ExecQuery",
/// ...) and the error's code is its HRESULT.
SysError wmiQuery(std::u16string const& nameSpace, std::u16string const& query, std::vector<WmiRow>& rows,
                  char const*& failedApi);

}  // namespace qo::platform

#endif  // QO_PLATFORM_WMI_H
