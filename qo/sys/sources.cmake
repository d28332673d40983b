# System services (qo/sys): the classes, their platform services and the
# system libraries they need.
set(QO_SYS_CLASSES
  # processes and command lines
  CCommandLine
  CProcess
  # system information, settings, accounts, known paths, event log
  CEventLog
  CKnownPaths
  CSettingsFile
  CSystemAccountManager
  CSystemManager
  CSystemSettings
  CVistaFeatures
  # system signals, power state, COM initialisation
  CEventLogMirror
  CSystemSignalReceiver
  CWindowsThreadedGlobalMessageReceiver
  CWindowsComInit
  CWindowsComSecurityInit
  CPowerState
  CKeepAwakeRequest
)
list(APPEND QO_PLATFORM_SERVICES Process Accounts EventLog KnownPaths Registry)
# advapi32: tokens, account names, the registry and the event log;
# shell32: CommandLineToArgvW and known folders; netapi32: NetUserEnum.
list(APPEND QO_WIN32_LIBS advapi32 shell32 netapi32 userenv ole32)
# Volumes, disks, raw device streams and shell links.
list(APPEND QO_SYS_CLASSES CDeviceManager CVolumeStream CShellLink)
list(APPEND QO_PLATFORM_SERVICES Device ShellLink)
# ole32 and uuid: the shell's link objects (IShellLinkW).
list(APPEND QO_WIN32_LIBS ole32 uuid)
# usage and desktop state: WMI, notification state, the usage monitor, the
# stealth-operation controller, the visible-process monitor
list(APPEND QO_SYS_CLASSES
  CNotificationSettings
  CStealthController
  CUsageMonitor
  CVisibleProcessMonitor
  CWmiQuery
  IUsageSampler
)
list(APPEND QO_PLATFORM_SERVICES Desktop Usage Wmi)
# user32: windows and last input; ole32/oleaut32/wbemuuid: WMI over COM
list(APPEND QO_WIN32_LIBS user32 oleaut32 wbemuuid)
list(APPEND QO_PLATFORM_SERVICES SystemSignals Power Com)
# user32: the hidden window of system messages; wtsapi32: session lock
# notices; ole32: COM.
list(APPEND QO_WIN32_LIBS user32 wtsapi32 ole32)
