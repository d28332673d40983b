#include "qo/sys/CSystemSettings.h"

#include "qo/sys/CSettingsFile.h"

#include "qo/core/CError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CLockFileError.h"
#include "qo/core/CProps.h"
#include "qo/core/CSafeGlobalSlot.h"
#include "qo/core/CSystemError.h"
#include "qo/core/CTime.h"
#include "qo/fs/CLockFile.h"
#include "qo/fs/LocalFile.h"
#include "qo/platform/FileSystem.h"
#include "qo/platform/KnownPaths.h"
#include "qo/platform/Registry.h"
#include "qo/thread/CMutexLock.h"
#include "qo/thread/threadYield.h"
#include "qo/util/CCachedEnvVars.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>

namespace qo {

namespace {

using CValue = CSystemSettings::CValue;

char16_t const kFileName[] = u"qo-settings.conf";

String scopeName(CSystemSettings::Scope scope) { return scope == CSystemSettings::Machine ? u"machine" : u"user"; }

// The key's parts; "/" and "\" both separate them.
std::vector<String> splitKey(char const* place, String const& key) {
  std::vector<String> parts;
  String part;
  for (std::size_t i = 0; i <= key.length(); ++i) {
    if (i == key.length() || key[i] == u'/' || key[i] == u'\\') {
      if (part.isEmpty())
        throw CInvalidArgError(String::fromUTF8(place), u"the key or one of its parts is empty",
                               CProps().add(u"key", key));
      parts.push_back(part);
      part.clear();
    } else {
      part += key[i];
    }
  }
  return parts;
}

String joinKey(std::vector<String> const& parts, char16_t separator) {
  String joined;
  for (auto const& part : parts) {
    if (!joined.isEmpty()) joined += separator;
    joined += part;
  }
  return joined;
}

CProps where(CSystemSettings::Scope scope, String const& key, String const& name) {
  return CProps().add(u"scope", scopeName(scope)).add(u"key", key).add(u"name", name);
}

[[noreturn]] void throwNotFound(CSystemSettings::Scope scope, String const& key, String const& name) {
  throw CError(u"Setting not found.", String(), -1, where(scope, key, name));
}

void checkType(CSystemSettings::Scope scope, String const& key, String const& name, CValue const& value,
               CSystemSettings::ValueType expected) {
  if (value.type != expected)
    throw CError(u"Setting has another type.", String(), -1,
                 where(scope, key, name)
                     .add(u"expected", CSystemSettings::getTypeName(expected))
                     .add(u"actual", CSystemSettings::getTypeName(value.type)));
}

[[noreturn]] void throwRegistryError(char const* place, char16_t const* api, platform::SysError const& e,
                                     CSystemSettings::Scope scope, String const& key, String const& name) {
  throw CSystemError(u"Error accessing the registry.", String::fromUTF8(place), api, e,
                     where(scope, key, name));
}

// --- the registry's own bytes ------------------------------------------------

void putUnits(std::vector<unsigned char>& out, String const& text) {
  for (char16_t c : text.str()) {
    out.push_back(static_cast<unsigned char>(c & 0xFF));
    out.push_back(static_cast<unsigned char>(c >> 8));
  }
  out.push_back(0);
  out.push_back(0);
}

void putLittleEndian(std::vector<unsigned char>& out, std::uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out.push_back(static_cast<unsigned char>(value >> (8 * i)));
}

platform::RegType toRegistry(CValue const& value, std::vector<unsigned char>& data) {
  data.clear();
  switch (value.type) {
    case CSystemSettings::TypeString:
      putUnits(data, value.text);
      return platform::RegType::String;
    case CSystemSettings::TypeInt32:
      putLittleEndian(data, static_cast<std::uint32_t>(value.number), 4);
      return platform::RegType::Dword;
    case CSystemSettings::TypeInt64:
      putLittleEndian(data, static_cast<std::uint64_t>(value.number), 8);
      return platform::RegType::Qword;
    case CSystemSettings::TypeBinary:
      data = value.bytes;
      return platform::RegType::Binary;
    case CSystemSettings::TypeStringList:
      for (auto const& item : value.list) putUnits(data, item);
      data.push_back(0);
      data.push_back(0);
      return platform::RegType::MultiString;
    case CSystemSettings::TypeOther:
      break;
  }
  return platform::RegType::None;
}

// UTF-16 units of data, split at NULs; a missing final NUL is tolerated.
std::vector<String> unitStrings(std::vector<unsigned char> const& data) {
  std::vector<String> strings;
  String current;
  bool open = false;
  for (std::size_t i = 0; i + 1 < data.size(); i += 2) {
    char16_t c = static_cast<char16_t>(data[i] | (data[i + 1] << 8));
    if (c == 0) {
      strings.push_back(current);
      current.clear();
      open = false;
    } else {
      current += c;
      open = true;
    }
  }
  if (open) strings.push_back(current);
  return strings;
}

std::uint64_t readLittleEndian(std::vector<unsigned char> const& data, std::size_t bytes) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < bytes && i < data.size(); ++i) value |= static_cast<std::uint64_t>(data[i]) << (8 * i);
  return value;
}

CValue fromRegistry(platform::RegType type, std::vector<unsigned char> const& data) {
  CValue value;
  switch (type) {
    case platform::RegType::String:
    case platform::RegType::ExpandString: {
      value.type = CSystemSettings::TypeString;
      std::vector<String> parts = unitStrings(data);
      if (!parts.empty()) value.text = parts.front();
      break;
    }
    case platform::RegType::Dword:
      value.type = CSystemSettings::TypeInt32;
      value.number = static_cast<std::int32_t>(static_cast<std::uint32_t>(readLittleEndian(data, 4)));
      break;
    case platform::RegType::Qword:
      value.type = CSystemSettings::TypeInt64;
      value.number = static_cast<std::int64_t>(readLittleEndian(data, 8));
      break;
    case platform::RegType::Binary:
      value.type = CSystemSettings::TypeBinary;
      value.bytes = data;
      break;
    case platform::RegType::MultiString:
      value.type = CSystemSettings::TypeStringList;
      for (auto const& item : unitStrings(data))
        if (!item.isEmpty()) value.list.push_back(item);  // the empty string ends the list
      break;
    default:
      value.type = CSystemSettings::TypeOther;
      value.bytes = data;
      break;
  }
  return value;
}

platform::RegRoot rootOf(CSystemSettings::Scope scope) {
  return scope == CSystemSettings::Machine ? platform::RegRoot::LocalMachine : platform::RegRoot::CurrentUser;
}

CSettingsFile readModel(String const& path) {
  if (!localFileExists(path)) return CSettingsFile();
  return CSettingsFile::parse(readLocalFile(path), path);
}

// Creates the folder and its missing parents; failures show when the file
// is written.
void createFolders(String const& folder) {
  for (std::size_t i = 1; i <= folder.length(); ++i) {
    if (i < folder.length() && folder[i] != u'/' && folder[i] != u'\\') continue;
    String prefix = folder.Left(i);
    if (prefix.length() == 2 && prefix[1] == u':') continue;  // "C:"
    platform::fsCreateFolder(prefix.str());
  }
}

// Holds the scope's lock file, waiting while another writer has it.
P<CLockFile> lockStore(String const& lockPath, int timeoutMs) {
  CTime deadline = CTime::now() + CTimeSpan::fromMillis(timeoutMs < 0 ? 0 : timeoutMs);
  for (;;) {
    try {
      return P<CLockFile>(new CLockFile(lockPath));
    } catch (CLockFileError const& e) {
      if (!e.getParams().lookupBool(u"lockConflict", false) || (timeoutMs >= 0 && CTime::now() >= deadline)) throw;
    }
    threadYield(true);
  }
}

}  // namespace

// --- CSystemSettings -----------------------------------------------------------

P<CSystemSettings> const& CSystemSettings::get() {
  static CSafeGlobalSlot g_pInstanceSlot;
  return TSafeGlobal<CSystemSettings>::get(g_pInstanceSlot);
}

CSystemSettings::CSystemSettings() = default;
CSystemSettings::~CSystemSettings() = default;

void CSystemSettings::setRootFolder(String const& folder) {
  CMutexLock lock(m_mutex);
  m_rootFolder = folder;
}

String CSystemSettings::getRootFolder() const {
  CMutexLock lock(m_mutex);
  return m_rootFolder;
}

bool CSystemSettings::usesRegistry() const { return getRootFolder().isEmpty() && platform::registryAvailable(); }

String CSystemSettings::getFilePath(Scope scope) const {
  String root = getRootFolder();
  if (root.isEmpty() && platform::registryAvailable()) return String();
  String separator = localPathsAreWindowsPaths() ? u"\\" : u"/";
  String folder;
  if (!root.isEmpty()) {
    folder = root;
    if (!folder.EndsWith(separator)) folder += separator;
    folder += scope == Machine ? u"machine" : u"user";
  } else if (scope == Machine) {
    folder = u"/etc";
  } else {
    String config;
    if (CCachedEnvVars::get()->lookup(u"XDG_CONFIG_HOME", config) && config.StartsWith(u"/")) {
      folder = config;
    } else {
      std::u16string home;
      if (platform::SysError e = platform::knownPath(platform::KnownFolder::Home, home))
        throw CSystemError(u"Error finding the home folder.", u"CSystemSettings::getFilePath", u"getpwuid_r", e);
      folder = String(home) + u"/.config";
    }
  }
  return folder + separator + kFileName;
}

void CSystemSettings::setLockTimeout(int timeoutMs) {
  CMutexLock lock(m_mutex);
  m_lockTimeoutMs = timeoutMs;
}

String CSystemSettings::getTypeName(ValueType type) {
  switch (type) {
    case TypeString:
      return u"string";
    case TypeInt32:
      return u"int32";
    case TypeInt64:
      return u"int64";
    case TypeBinary:
      return u"binary";
    case TypeStringList:
      return u"stringList";
    case TypeOther:
      break;
  }
  return u"other";
}

namespace {

// Runs change on the scope's file under its lock; writes only when change
// says it changed something. Returns what change returned.
bool changeFile(String const& path, int lockTimeoutMs, std::function<bool(CSettingsFile&)> const& change) {
  std::size_t cut = path.FindLast(localPathsAreWindowsPaths() ? u'\\' : u'/');
  if (cut != String::npos && cut > 0) createFolders(path.Left(cut));
  P<CLockFile> lock = lockStore(path + u".lock", lockTimeoutMs);
  CSettingsFile model = readModel(path);
  if (!change(model)) return false;
  std::string bytes = model.serialize();
  String temp = path + u".tmp";
  writeLocalFile(temp, bytes.data(), bytes.size());
  replaceLocalFile(temp, path);
  return true;
}

}  // namespace

void CSystemSettings::store(Scope scope, String const& key, String const& name, CValue const& value,
                            char const* place) {
  std::vector<String> parts = splitKey(place, key);
  if (value.type == TypeString && value.text.Find(u'\0') != String::npos)
    throw CInvalidArgError(String::fromUTF8(place), u"the string holds a NUL character", where(scope, key, name));
  if (name.Find(u'\0') != String::npos)
    throw CInvalidArgError(String::fromUTF8(place), u"the name holds a NUL character", where(scope, key, name));
  for (auto const& item : value.list)
    if (item.isEmpty() || item.Find(u'\0') != String::npos)
      throw CInvalidArgError(String::fromUTF8(place), u"a list item is empty or holds a NUL character",
                             where(scope, key, name));
  CMutexLock lock(m_mutex);
  if (usesRegistry()) {
    std::vector<unsigned char> data;
    platform::RegType type = toRegistry(value, data);
    if (platform::SysError e =
            platform::regSetValue(rootOf(scope), joinKey(parts, u'\\').str(), name.str(), type, data))
      throwRegistryError(place, u"RegSetValueExW", e, scope, key, name);
    return;
  }
  String fileKey = joinKey(parts, u'/');
  changeFile(getFilePath(scope), m_lockTimeoutMs, [&](CSettingsFile& model) {
    model.getSection(fileKey).setValue(name, value);
    return true;
  });
}

bool CSystemSettings::load(Scope scope, String const& key, String const& name, CValue& value, char const* place) const {
  std::vector<String> parts = splitKey(place, key);
  CMutexLock lock(m_mutex);
  if (usesRegistry()) {
    bool found = false;
    platform::RegType type = platform::RegType::None;
    std::vector<unsigned char> data;
    if (platform::SysError e =
            platform::regGetValue(rootOf(scope), joinKey(parts, u'\\').str(), name.str(), found, type, data))
      throwRegistryError(place, u"RegGetValueW", e, scope, key, name);
    if (found) value = fromRegistry(type, data);
    return found;
  }
  CSettingsFile model = readModel(getFilePath(scope));
  CSettingsFile::CSection* section = model.findSection(joinKey(parts, u'/'));
  CValue* found = section ? section->findValue(name) : nullptr;
  if (found) value = *found;
  return found != nullptr;
}

void CSystemSettings::setString(Scope scope, String const& key, String const& name, String const& value) {
  CValue v;
  v.type = TypeString;
  v.text = value;
  store(scope, key, name, v, "CSystemSettings::setString");
}

void CSystemSettings::setInt32(Scope scope, String const& key, String const& name, std::int32_t value) {
  CValue v;
  v.type = TypeInt32;
  v.number = value;
  store(scope, key, name, v, "CSystemSettings::setInt32");
}

void CSystemSettings::setInt64(Scope scope, String const& key, String const& name, std::int64_t value) {
  CValue v;
  v.type = TypeInt64;
  v.number = value;
  store(scope, key, name, v, "CSystemSettings::setInt64");
}

void CSystemSettings::setBinary(Scope scope, String const& key, String const& name,
                                std::vector<unsigned char> const& value) {
  CValue v;
  v.type = TypeBinary;
  v.bytes = value;
  store(scope, key, name, v, "CSystemSettings::setBinary");
}

void CSystemSettings::setStringList(Scope scope, String const& key, String const& name,
                                    std::vector<String> const& value) {
  CValue v;
  v.type = TypeStringList;
  v.list = value;
  store(scope, key, name, v, "CSystemSettings::setStringList");
}

#define QO_SETTINGS_GET(type, place)                                          \
  CValue value;                                                               \
  if (!load(scope, key, name, value, place)) throwNotFound(scope, key, name); \
  checkType(scope, key, name, value, type)

String CSystemSettings::getString(Scope scope, String const& key, String const& name) const {
  QO_SETTINGS_GET(TypeString, "CSystemSettings::getString");
  return value.text;
}

std::int32_t CSystemSettings::getInt32(Scope scope, String const& key, String const& name) const {
  QO_SETTINGS_GET(TypeInt32, "CSystemSettings::getInt32");
  return static_cast<std::int32_t>(value.number);
}

std::int64_t CSystemSettings::getInt64(Scope scope, String const& key, String const& name) const {
  QO_SETTINGS_GET(TypeInt64, "CSystemSettings::getInt64");
  return value.number;
}

std::vector<unsigned char> CSystemSettings::getBinary(Scope scope, String const& key, String const& name) const {
  QO_SETTINGS_GET(TypeBinary, "CSystemSettings::getBinary");
  return value.bytes;
}

std::vector<String> CSystemSettings::getStringList(Scope scope, String const& key, String const& name) const {
  QO_SETTINGS_GET(TypeStringList, "CSystemSettings::getStringList");
  return value.list;
}

#undef QO_SETTINGS_GET

bool CSystemSettings::hasValue(Scope scope, String const& key, String const& name) const {
  CValue value;
  return load(scope, key, name, value, "CSystemSettings::hasValue");
}

CSystemSettings::ValueType CSystemSettings::getValueType(Scope scope, String const& key, String const& name) const {
  CValue value;
  if (!load(scope, key, name, value, "CSystemSettings::getValueType")) throwNotFound(scope, key, name);
  return value.type;
}

std::vector<String> CSystemSettings::listValueNames(Scope scope, String const& key) const {
  char const place[] = "CSystemSettings::listValueNames";
  std::vector<String> parts = splitKey(place, key);
  CMutexLock lock(m_mutex);
  std::vector<String> names;
  if (usesRegistry()) {
    bool found = false;
    std::vector<std::u16string> raw;
    if (platform::SysError e = platform::regListValues(rootOf(scope), joinKey(parts, u'\\').str(), found, raw))
      throwRegistryError(place, u"RegEnumValueW", e, scope, key, String());
    if (!found) throwNotFound(scope, key, String());
    return std::vector<String>(raw.begin(), raw.end());
  }
  CSettingsFile model = readModel(getFilePath(scope));
  CSettingsFile::CSection* section = model.findSection(joinKey(parts, u'/'));
  if (!section) throwNotFound(scope, key, String());
  for (auto const& entry : section->values) names.push_back(entry.first);
  return names;
}

bool CSystemSettings::deleteValue(Scope scope, String const& key, String const& name) {
  char const place[] = "CSystemSettings::deleteValue";
  std::vector<String> parts = splitKey(place, key);
  CMutexLock lock(m_mutex);
  if (usesRegistry()) {
    bool found = false;
    if (platform::SysError e = platform::regDeleteValue(rootOf(scope), joinKey(parts, u'\\').str(), name.str(), found))
      throwRegistryError(place, u"RegDeleteValueW", e, scope, key, name);
    return found;
  }
  String fileKey = joinKey(parts, u'/');
  return changeFile(getFilePath(scope), m_lockTimeoutMs, [&](CSettingsFile& model) {
    CSettingsFile::CSection* section = model.findSection(fileKey);
    return section && section->removeValue(name);
  });
}

bool CSystemSettings::deleteKey(Scope scope, String const& key) {
  char const place[] = "CSystemSettings::deleteKey";
  std::vector<String> parts = splitKey(place, key);
  CMutexLock lock(m_mutex);
  if (usesRegistry()) {
    bool found = false;
    if (platform::SysError e = platform::regDeleteKey(rootOf(scope), joinKey(parts, u'\\').str(), found))
      throwRegistryError(place, u"RegDeleteTreeW", e, scope, key, String());
    return found;
  }
  String fileKey = joinKey(parts, u'/');
  return changeFile(getFilePath(scope), m_lockTimeoutMs,
                    [&](CSettingsFile& model) { return model.removeKey(fileKey); });
}

}  // namespace qo
