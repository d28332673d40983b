#include "qo/platform/Wmi.h"

#include <string>

#include <windows.h>
#include <objbase.h>
#include <oleauto.h>
#include <wbemcli.h>

namespace qo::platform {

namespace {

// Releases a COM interface when the scope ends.
template <class T>
struct ComPtr {
  T* p = nullptr;
  ~ComPtr() {
    if (p) p->Release();
  }
  T** out() { return &p; }
  T* operator->() const { return p; }
};

struct Bstr {
  BSTR b;
  explicit Bstr(std::u16string const& text)
      : b(SysAllocStringLen(reinterpret_cast<OLECHAR const*>(text.data()), static_cast<UINT>(text.size()))) {}
  ~Bstr() { SysFreeString(b); }
};

SysError fail(HRESULT hr, char const* api, char const*& failedApi) {
  failedApi = api;
  return sysErrorOf(static_cast<std::uint32_t>(hr));
}

std::u16string textOf(VARIANT& value) {
  if (value.vt == VT_BSTR)
    return std::u16string(reinterpret_cast<char16_t const*>(value.bstrVal), SysStringLen(value.bstrVal));
  if (value.vt == VT_EMPTY || value.vt == VT_NULL || (value.vt & VT_ARRAY)) return std::u16string();
  VARIANT text;
  VariantInit(&text);
  std::u16string out;
  if (SUCCEEDED(VariantChangeType(&text, &value, 0, VT_BSTR)) && text.vt == VT_BSTR)
    out.assign(reinterpret_cast<char16_t const*>(text.bstrVal), SysStringLen(text.bstrVal));
  VariantClear(&text);
  return out;
}

SysError readRow(IWbemClassObject* object, WmiRow& row, char const*& failedApi) {
  SAFEARRAY* names = nullptr;
  HRESULT hr = object->GetNames(nullptr, WBEM_FLAG_NONSYSTEM_ONLY, nullptr, &names);
  if (FAILED(hr)) return fail(hr, "GetNames", failedApi);
  LONG lower = 0, upper = -1;
  SafeArrayGetLBound(names, 1, &lower);
  SafeArrayGetUBound(names, 1, &upper);
  for (LONG i = lower; i <= upper; ++i) {
    BSTR name = nullptr;
    if (FAILED(SafeArrayGetElement(names, &i, &name)) || !name) continue;
    VARIANT value;
    VariantInit(&value);
    if (SUCCEEDED(object->Get(name, 0, &value, nullptr, nullptr))) {
      row.emplace_back(std::u16string(reinterpret_cast<char16_t const*>(name), SysStringLen(name)), textOf(value));
    }
    VariantClear(&value);
    SysFreeString(name);
  }
  SafeArrayDestroy(names);
  return SysError{};
}

}  // namespace

bool wmiAvailable() { return true; }

SysError wmiQuery(std::u16string const& nameSpace, std::u16string const& query, std::vector<WmiRow>& rows,
                  char const*& failedApi) {
  rows.clear();
  failedApi = nullptr;
  // A thread that has chosen its apartment already keeps it (RPC_E_CHANGED_MODE).
  HRESULT hr = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  bool const uninit = SUCCEEDED(hr);
  if (FAILED(hr) && hr != RPC_E_CHANGED_MODE) return fail(hr, "CoInitializeEx", failedApi);
  SysError result;
  {
    ComPtr<IWbemLocator> locator;
    ComPtr<IWbemServices> services;
    ComPtr<IEnumWbemClassObject> results;
    hr = CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                          reinterpret_cast<void**>(locator.out()));
    if (FAILED(hr)) {
      result = fail(hr, "CoCreateInstance", failedApi);
    } else if (FAILED(hr = locator->ConnectServer(Bstr(nameSpace).b, nullptr, nullptr, nullptr, 0, nullptr, nullptr,
                                                  services.out()))) {
      result = fail(hr, "ConnectServer", failedApi);
    } else if (FAILED(hr = CoSetProxyBlanket(services.p, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr,
                                             RPC_C_AUTHN_LEVEL_CALL, RPC_C_IMP_LEVEL_IMPERSONATE, nullptr,
                                             EOAC_NONE)) &&
               hr != E_NOINTERFACE) {
      result = fail(hr, "CoSetProxyBlanket", failedApi);
    } else if (FAILED(hr = services->ExecQuery(Bstr(u"WQL").b, Bstr(query).b,
                                               WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY, nullptr,
                                               results.out()))) {
      result = fail(hr, "ExecQuery", failedApi);
    } else {
      for (;;) {
        ComPtr<IWbemClassObject> object;
        ULONG got = 0;
        hr = results->Next(static_cast<LONG>(WBEM_INFINITE), 1, object.out(), &got);
        if (FAILED(hr)) {
          result = fail(hr, "IEnumWbemClassObject::Next", failedApi);
          break;
        }
        if (got == 0) break;
        WmiRow row;
        if ((result = readRow(object.p, row, failedApi))) break;
        rows.push_back(std::move(row));
      }
    }
  }
  if (uninit) CoUninitialize();
  return result;
}

}  // namespace qo::platform
