#include "qo/ipc/CIPCServer.h"

#include <cstring>
#include <exception>

#include "qo/core/CBadStateError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CSocketError.h"
#include "qo/core/CStdExceptionError.h"
#include "qo/ipc/CWinSockInit.h"
#include "qo/platform/IPCChannel.h"
#include "qo/thread/CMutexLock.h"
#include "qo/thread/CThread.h"

namespace qo {

class CIPCServer::CAcceptThread : public CThread {
public:
  explicit CAcceptThread(CIPCServer* server) : m_server(server) { setThreadName(u"qo.ipc.accept"); }
  void signalStop() override {
    CThread::signalStop();
    platform::ipcStopListener(m_server->m_listener);
  }

protected:
  void runImpl() override { m_server->acceptLoop(); }

private:
  CIPCServer* m_server;  // outlives the thread: stop() joins it
};

class CIPCServer::CConnectionThread : public CThread {
public:
  CConnectionThread(CIPCServer* server, P<CIPCConnection> connection)
      : m_server(server), m_connection(std::move(connection)) {
    setThreadName(u"qo.ipc.conn");
  }
  void signalStop() override {
    CThread::signalStop();
    m_connection->close();
  }

protected:
  void runImpl() override { m_server->serve(m_connection); }

private:
  CIPCServer* m_server;  // outlives the thread: stop() joins it
  P<CIPCConnection> m_connection;
};

CIPCServer::CIPCServer(P<IIPCRequestHandler> const& handler) : m_handler(handler) {
  if (!handler) throw CInvalidArgError(u"CIPCServer", u"the handler is null");
}

CIPCServer::~CIPCServer() { stop(); }

void CIPCServer::setMaxConnections(int count) { m_maxConnections = count < 1 ? 1 : count; }
void CIPCServer::setMaxFrameSize(int size) { m_maxFrameSize = size < 0 ? 0 : size; }
void CIPCServer::setProtocolVersion(int version) { m_protocolVersion = version; }
void CIPCServer::setHelloTimeout(int timeoutMs) { m_helloTimeoutMs = timeoutMs; }
void CIPCServer::setAdmitAllUsers(bool admitAll) { m_admitAllUsers = admitAll; }

void CIPCServer::setPressureSwitch(P<CIPCPressureSwitch> const& gate, int waitMs) {
  m_gate = gate;
  m_gateWaitMs = waitMs;
}

static CProps sysErrorProps(platform::SysError const& e, char const* api) {
  return CProps()
      .add(u"api", String::fromUTF8(api ? api : ""))
      .addLong(u"code", e.code)
      .add(u"sysErrorText", String::fromUTF8(e.text));
}

void CIPCServer::listen(String const& name) {
  if (m_listener) throw CBadStateError(u"the IPC server is listening already");
  platform::IPCListener* listener = nullptr;
  char const* api = nullptr;
  if (platform::SysError e = platform::ipcListenLocal(name.toUTF8(), m_admitAllUsers, listener, api)) {
    throw CSocketError(u"Error listening on IPC endpoint.", CProps().add(u"name", name).addAll(sysErrorProps(e, api)));
  }
  startAccepting(listener, CURI(u"ipc:" + name));
}

int CIPCServer::listenTCP(String const& host, int port) {
  if (m_listener) throw CBadStateError(u"the IPC server is listening already");
  CWinSockInit::get();
  platform::IPCListener* listener = nullptr;
  char const* api = nullptr;
  int bound = 0;
  if (platform::SysError e = platform::ipcListenTCP(host.toUTF8(), port, listener, bound, api)) {
    throw CSocketError(u"Error listening on IPC endpoint.",
                       CProps().add(u"host", host).addLong(u"port", port).addAll(sysErrorProps(e, api)));
  }
  String const uriHost = host.Contains(u":") ? u"[" + host + u"]" : host;
  startAccepting(listener, CURI(u"tcp://" + uriHost + u":" + String::fromUTF8(std::to_string(bound))));
  return bound;
}

void CIPCServer::startAccepting(platform::IPCListener* listener, CURI const& uri) {
  m_listener = listener;
  m_uri = uri;
  {
    CMutexLock lock(m_mutex);
    m_stopping = false;
  }
  m_acceptThread = newP<CAcceptThread>(this);
  try {
    m_acceptThread->start();
  } catch (...) {
    m_acceptThread.reset();
    platform::ipcFreeListener(m_listener);
    m_listener = nullptr;
    throw;
  }
}

void CIPCServer::acceptLoop() {
  while (m_acceptThread->checkContinue()) {
    platform::IPCChannel* channel = nullptr;
    bool cancelled = false;
    char const* api = nullptr;
    platform::SysError e = platform::ipcAccept(m_listener, -1, channel, cancelled, api);
    if (cancelled) return;
    if (e || !channel) {
      // A failed accept (a client gone before it was taken, no descriptors
      // left) must not end the server; remember it for the owner.
      if (e) {
        CMutexLock lock(m_mutex);
        m_lastError = newP<CSocketError>(u"Error accepting IPC connection.", sysErrorProps(e, api));
        ++m_failed;
      }
      continue;
    }
    reapFinished();
    P<CIPCConnection> connection = newP<CIPCConnection>(channel, m_uri);
    CMutexLock lock(m_mutex);
    if (m_stopping) return;  // the connection closes as it goes
    P<CConnectionThread> thread = newP<CConnectionThread>(this, connection);
    thread->start();
    m_connections.push_back(thread);
  }
}

void CIPCServer::serve(P<CIPCConnection> const& connection) {
  // Counts this connection while it is served. A refused one stops counting
  // before its answer leaves, so a client that saw the refusal can be sure
  // its place is free again.
  struct Counted {
    std::atomic<int>& count;
    bool active = true;
    void end() {
      if (active) --count;
      active = false;
    }
    ~Counted() { end(); }
  } counted{m_active};
  int const now = ++m_active;
  try {
    bool const versionOK = connection->readHello(m_protocolVersion, m_helloTimeoutMs);
    String refusal;
    if (!versionOK) {
      refusal = u"version mismatch";
    } else if (now > m_maxConnections) {
      refusal = u"too many connections";
    } else if (!m_admitAllUsers && !connection->isPeerUserAdmitted()) {
      refusal = u"user not admitted";
    }
    if (!refusal.isEmpty()) {
      counted.end();
      connection->answerHello(m_protocolVersion, refusal);
      connection->close();
      return;
    }
    connection->answerHello(m_protocolVersion, String());
    // Tells the handler once, however the loop below ends.
    struct Ended {
      IIPCRequestHandler& handler;
      CIPCConnection& connection;
      ~Ended() { handler.connectionEnded(connection); }
    } ended{*m_handler, *connection};
    // Kept across requests: a vector of the same size is not filled again.
    std::vector<unsigned char> request, answer;
    for (;;) {
      if (connection->isEndOfStream()) break;  // the client ended cleanly
      CIPCConnection::readFrameFrom(*connection, m_maxFrameSize, request);
      answer.assign(1, static_cast<unsigned char>(CIPCConnection::AnswerOK));
      if (m_gate && !m_gate->enter(m_gateWaitMs)) {
        answer[0] = static_cast<unsigned char>(CIPCConnection::AnswerBusy);
      } else {
        std::vector<unsigned char> payload;
        try {
          m_handler->handleRequest(*connection, request, payload);
          answer.insert(answer.end(), payload.begin(), payload.end());
        } catch (CError const& e) {
          answer[0] = static_cast<unsigned char>(CIPCConnection::AnswerFailed);
          std::string const text = e.getMessage().toUTF8Lossy();
          answer.insert(answer.end(), text.begin(), text.end());
        } catch (std::exception const& e) {
          answer[0] = static_cast<unsigned char>(CIPCConnection::AnswerFailed);
          answer.insert(answer.end(), e.what(), e.what() + std::strlen(e.what()));
        }
        if (m_gate) m_gate->leave();
      }
      connection->writeFrame(answer.data(), static_cast<int>(answer.size()));
    }
  } catch (CError const& e) {
    CMutexLock lock(m_mutex);
    if (!m_stopping) {
      m_lastError = e.clone();
      ++m_failed;
    }
  }
  counted.end();
  connection->close();
}

void CIPCServer::reapFinished() {
  std::vector<P<CConnectionThread>> finished;
  {
    CMutexLock lock(m_mutex);
    for (auto it = m_connections.begin(); it != m_connections.end();) {
      if ((*it)->isAlive()) {
        ++it;
      } else {
        finished.push_back(*it);
        it = m_connections.erase(it);
      }
    }
  }
  for (P<CConnectionThread> const& t : finished) t->join(false);
}

void CIPCServer::stop() {
  {
    CMutexLock lock(m_mutex);
    m_stopping = true;
  }
  if (m_acceptThread) {
    m_acceptThread->stop(false);
    m_acceptThread.reset();
  }
  std::vector<P<CConnectionThread>> threads;
  {
    CMutexLock lock(m_mutex);
    threads.swap(m_connections);
  }
  for (P<CConnectionThread> const& t : threads) t->signalStop();
  for (P<CConnectionThread> const& t : threads) t->join(false);
  platform::ipcFreeListener(m_listener);
  m_listener = nullptr;
}

int CIPCServer::getConnectionCount() const { return m_active.load(); }

int CIPCServer::getFailedConnectionCount() const {
  CMutexLock lock(m_mutex);
  return m_failed;
}

P<CError> CIPCServer::getLastConnectionError() const {
  CMutexLock lock(m_mutex);
  return m_lastError;
}

}  // namespace qo
