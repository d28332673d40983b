# System services (qo/sys): the classes, their platform services and the
# system libraries they need.
set(QO_SYS_CLASSES
  # processes and command lines
  CCommandLine
  CProcess
)
list(APPEND QO_PLATFORM_SERVICES Process)
# advapi32: process tokens and account names; shell32: CommandLineToArgvW.
list(APPEND QO_WIN32_LIBS advapi32 shell32)
