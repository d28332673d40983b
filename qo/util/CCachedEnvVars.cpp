#include "qo/util/CCachedEnvVars.h"

#include "qo/core/CSafeGlobalSlot.h"
#include "qo/core/CSystemError.h"
#include "qo/platform/Environment.h"
#include "qo/thread/CMutexLock.h"

namespace qo {

namespace {

// Reads the environment into a fresh map; false when the OS refused.
bool readSnapshot(std::shared_ptr<std::map<String, std::pair<String, String>> const>& result,
                  platform::SysError& error, String (*keyOf)(String const&)) {
  std::vector<platform::EnvVar> vars;
  error = platform::readEnvironment(vars);
  if (error) return false;
  auto map = std::make_shared<std::map<String, std::pair<String, String>>>();
  for (auto& v : vars) {
    String name(std::move(v.name));
    map->emplace(keyOf(name), std::make_pair(name, String(std::move(v.value))));
  }
  result = std::move(map);
  return true;
}

}  // namespace

CCachedEnvVars::CCachedEnvVars() {
  platform::SysError ignored;
  if (!readSnapshot(m_vars, ignored, &keyOf)) m_vars = std::make_shared<Map const>();
}

CCachedEnvVars::~CCachedEnvVars() = default;

P<CCachedEnvVars> const& CCachedEnvVars::get() {
  static CSafeGlobalSlot g_pInstanceSlot;
  return TSafeGlobal<CCachedEnvVars>::get(g_pInstanceSlot);
}

bool CCachedEnvVars::namesIgnoreCase() { return platform::environmentNamesIgnoreCase(); }

String CCachedEnvVars::keyOf(String const& name) { return namesIgnoreCase() ? name.Upper() : name; }

std::shared_ptr<CCachedEnvVars::Map const> CCachedEnvVars::snapshot() const {
  CMutexLock lock(m_mutex);
  return m_vars;
}

bool CCachedEnvVars::lookup(String const& name, String& value) const {
  auto vars = snapshot();
  auto it = vars->find(keyOf(name));
  if (it == vars->end()) return false;
  value = it->second.second;
  return true;
}

String CCachedEnvVars::getValue(String const& name, String const& defaultValue) const {
  String value;
  return lookup(name, value) ? value : defaultValue;
}

std::vector<std::pair<String, String>> CCachedEnvVars::getAll() const {
  auto vars = snapshot();
  std::vector<std::pair<String, String>> all;
  all.reserve(vars->size());
  for (auto const& entry : *vars) all.push_back(entry.second);
  return all;
}

void CCachedEnvVars::refresh() {
  std::shared_ptr<Map const> fresh;
  platform::SysError error;
  if (!readSnapshot(fresh, error, &keyOf)) {
    throw CSystemError(u"Error reading the environment variables.", u"CCachedEnvVars::refresh",
                       String(platform::environmentApiName()), error.code,
                       String::wstringFromUTF8WithLatin1Fallback(error.text));
  }
  CMutexLock lock(m_mutex);
  m_vars = std::move(fresh);
}

}  // namespace qo
