# Connections between processes: local endpoints and TCP, the request
# server, its pressure switch and process-shared semaphores.
set(QO_IPC_CLASSES
  CIPCConnection
  CIPCPressureSwitch
  CIPCSemaphore
  CIPCServer
  CWinSockInit
  IIPCPressureListener
  IIPCRequestHandler
)
list(APPEND QO_PLATFORM_SERVICES IPCChannel IPCSemaphore)
list(APPEND QO_WIN32_LIBS ws2_32 advapi32)
list(APPEND QO_IPC_CLASSES CWatchdog CWatchdogCommand CWatchdogService)
list(APPEND QO_PLATFORM_SERVICES Watchdog)
