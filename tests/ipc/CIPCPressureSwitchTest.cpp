// CIPCPressureSwitch driven through both switches by real clients of a
// server whose requests wait until the test lets them go.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

#include "IPCTestSupport.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CSocketError.h"
#include "qo/ipc/CIPCPressureSwitch.h"
#include "qo/ipc/CIPCServer.h"
#include "qo/thread/CThread.h"

namespace qo {
namespace {

// Holds every request until released, one release per request.
class CGateHandler : public CBase, public IIPCRequestHandler {
public:
  void handleRequest(CIPCConnection&, std::vector<unsigned char> const& request,
                     std::vector<unsigned char>& answer) override {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_released.wait(lock, [this] { return m_tickets > 0; });
    --m_tickets;
    answer = request;
  }
  void release(int count) {
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_tickets += count;
    }
    m_released.notify_all();
  }

private:
  std::mutex m_mutex;
  std::condition_variable m_released;
  int m_tickets = 0;
};

class CSwitchRecorder : public CBase, public IIPCPressureListener {
public:
  void onPressureChanged(bool underPressure, int inFlight) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_events.emplace_back(underPressure, inFlight);
  }
  std::vector<std::pair<bool, int>> events() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_events;
  }

private:
  std::mutex m_mutex;
  std::vector<std::pair<bool, int>> m_events;
};

TEST(CIPCPressureSwitch, RejectsMarksOutOfOrder) {
  for (auto marks : {std::pair<int, int>{1, 1}, {2, 3}, {4, -1}}) {
    SCOPED_TRACE(marks.first);
    EXPECT_THROW(CIPCPressureSwitch(marks.first, marks.second), CInvalidArgError);
  }
}

TEST(CIPCPressureSwitch, RealClientsDriveItThroughBothSwitches) {
  std::string const name = ipctest::uniqueName("pressure");
  P<CGateHandler> handler = newP<CGateHandler>();
  P<CIPCPressureSwitch> gate = newP<CIPCPressureSwitch>(3, 1);
  P<CSwitchRecorder> recorder = newP<CSwitchRecorder>();
  gate->addListener(recorder);
  P<CIPCServer> server = newP<CIPCServer>(handler);
  server->setPressureSwitch(gate, 0);
  server->listen(String::fromUTF8(name));

  std::vector<std::thread> clients;
  for (int i = 0; i < 3; ++i) {
    clients.emplace_back([&name, i] {
      P<CIPCConnection> c = CIPCConnection::connect(String::fromUTF8(name), 5000);
      std::vector<unsigned char> const request{static_cast<unsigned char>(i)};
      EXPECT_EQ(c->call(request), request);
    });
  }
  while (gate->getInFlight() < 3) CThread::yield(true);
  EXPECT_TRUE(gate->isUnderPressure());
  P<CIPCConnection> late = CIPCConnection::connect(String::fromUTF8(name), 5000);
  try {
    (void)late->call({9});
    FAIL() << "under pressure a request with no wait is busy";
  } catch (CSocketError const& e) {
    EXPECT_EQ(e.getMessage(), u"The IPC server is busy.");
  }
  handler->release(2);
  while (gate->isUnderPressure()) CThread::yield(true);
  handler->release(2);  // the last held client and the late one
  EXPECT_EQ(late->call({7}), std::vector<unsigned char>{7});
  for (std::thread& t : clients) t.join();
  server->stop();
  EXPECT_EQ(gate->getInFlight(), 0);
  EXPECT_EQ(recorder->events(), (std::vector<std::pair<bool, int>>{{true, 3}, {false, 1}}));
}

}  // namespace
}  // namespace qo
