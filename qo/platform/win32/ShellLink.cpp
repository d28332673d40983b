#include "qo/platform/ShellLink.h"

#include <string>

#include <windows.h>
#include <objbase.h>
#include <objidl.h>
#include <shlobj.h>
#include <shobjidl.h>

namespace qo::platform {

namespace {

static_assert(sizeof(wchar_t) == sizeof(char16_t), "Windows wide characters are UTF-16 units");

wchar_t const* wide(std::u16string const& s) { return reinterpret_cast<wchar_t const*>(s.c_str()); }

SysError hresultError(HRESULT hr, char const* call, char const*& api) {
  api = call;
  // An HRESULT that wraps a Win32 code reports that code.
  DWORD code = HRESULT_FACILITY(hr) == FACILITY_WIN32 ? HRESULT_CODE(hr) : static_cast<DWORD>(hr);
  if (code == 0) code = ERROR_GEN_FAILURE;
  return sysErrorOf(code, call);
}

// COM for the calling thread for one call; undone only when this call did it.
class ComScope {
public:
  ComScope() : m_hr(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE)) {}
  ~ComScope() {
    if (SUCCEEDED(m_hr)) CoUninitialize();
  }
  ComScope(ComScope const&) = delete;
  ComScope& operator=(ComScope const&) = delete;

private:
  HRESULT m_hr;  // RPC_E_CHANGED_MODE: the thread already has another model, which serves as well
};

template <class T>
struct Releaser {
  T* p = nullptr;
  ~Releaser() {
    if (p) p->Release();
  }
};

}  // namespace

bool shellLinkSupported() { return true; }

SysError shellLinkCreate(std::u16string const& linkPath, std::u16string const& target,
                         std::u16string const& arguments, std::u16string const& workingDir,
                         std::u16string const& description, char const*& api) {
  ComScope com;
  Releaser<IShellLinkW> link;
  HRESULT hr = CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW,
                                reinterpret_cast<void**>(&link.p));
  if (FAILED(hr)) return hresultError(hr, "CoCreateInstance", api);
  if (FAILED(hr = link.p->SetPath(wide(target)))) return hresultError(hr, "IShellLinkW::SetPath", api);
  if (!arguments.empty() && FAILED(hr = link.p->SetArguments(wide(arguments))))
    return hresultError(hr, "IShellLinkW::SetArguments", api);
  if (!workingDir.empty() && FAILED(hr = link.p->SetWorkingDirectory(wide(workingDir))))
    return hresultError(hr, "IShellLinkW::SetWorkingDirectory", api);
  if (!description.empty() && FAILED(hr = link.p->SetDescription(wide(description))))
    return hresultError(hr, "IShellLinkW::SetDescription", api);
  Releaser<IPersistFile> file;
  if (FAILED(hr = link.p->QueryInterface(IID_IPersistFile, reinterpret_cast<void**>(&file.p))))
    return hresultError(hr, "QueryInterface(IPersistFile)", api);
  if (FAILED(hr = file.p->Save(wide(linkPath), TRUE))) return hresultError(hr, "IPersistFile::Save", api);
  return SysError{};
}

SysError shellLinkGetPath(std::u16string const& linkPath, std::u16string& target, char const*& api) {
  target.clear();
  ComScope com;
  Releaser<IShellLinkW> link;
  HRESULT hr = CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW,
                                reinterpret_cast<void**>(&link.p));
  if (FAILED(hr)) return hresultError(hr, "CoCreateInstance", api);
  Releaser<IPersistFile> file;
  if (FAILED(hr = link.p->QueryInterface(IID_IPersistFile, reinterpret_cast<void**>(&file.p))))
    return hresultError(hr, "QueryInterface(IPersistFile)", api);
  if (FAILED(hr = file.p->Load(wide(linkPath), STGM_READ))) return hresultError(hr, "IPersistFile::Load", api);
  std::wstring path(32768, L'\0');
  if (FAILED(hr = link.p->GetPath(&path[0], 32768, nullptr, SLGP_RAWPATH)))
    return hresultError(hr, "IShellLinkW::GetPath", api);
  target.assign(reinterpret_cast<char16_t const*>(path.c_str()));
  return SysError{};
}

}  // namespace qo::platform
