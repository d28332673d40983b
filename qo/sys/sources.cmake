# System services: classes of qo/sys and the platform services they use.
set(QO_SYS_CLASSES
  # system information, settings, accounts, known paths, event log
  CEventLog
  CKnownPaths
  CSettingsFile
  CSystemAccountManager
  CSystemManager
  CSystemSettings
  CVistaFeatures
)
list(APPEND QO_PLATFORM_SERVICES Accounts EventLog KnownPaths Registry)
list(APPEND QO_WIN32_LIBS advapi32 netapi32 userenv shell32 ole32)
