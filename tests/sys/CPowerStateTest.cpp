// CPowerState and CKeepAwakeRequest: on Linux the power supplies read from
// folders laid out as /sys/class/power_supply lays them out, the machine's
// own answer compared with /sys, and the keep-awake request as the system
// grants or refuses it; on Windows (Wine) the system's answers.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "TempFolder.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CNotImplementedError.h"
#include "qo/core/CSystemError.h"
#include "qo/stream/CBufferStream.h"
#include "qo/sys/CKeepAwakeRequest.h"
#include "qo/sys/CProcess.h"
#include "qo/sys/CPowerState.h"

namespace qo {
namespace {

#ifndef _WIN32
using Supply = std::map<std::string, std::string>;  // attribute -> first line

TEST(CPowerState, ReadsThePowerSuppliesOfAFolder) {
  struct Case {
    char const* name;
    std::map<std::string, Supply> supplies;
    CPowerState::Source source;
    bool hasBattery;
    int percent;
    bool charging;
    char16_t const* text;
  } const cases[] = {
      {"laptop charging",
       {{"AC", {{"type", "Mains"}, {"online", "1"}}},
        {"BAT0", {{"type", "Battery"}, {"capacity", "80"}, {"status", "Charging"}, {"scope", "System"}}}},
       CPowerState::AC, true, 80, true, u"AC, battery 80% charging"},
      {"laptop unplugged",
       {{"ADP1", {{"type", "Mains"}, {"online", "0"}}},
        {"BAT0", {{"type", "Battery"}, {"capacity", "35"}, {"status", "Discharging"}}}},
       CPowerState::Battery, true, 35, false, u"battery, battery 35%"},
      {"two batteries, USB-C power",
       {{"ucsi", {{"type", "USB"}, {"online", "1"}}},
        {"BAT0", {{"type", "Battery"}, {"capacity", "50"}, {"status", "Full"}}},
        {"BAT1", {{"type", "Battery"}, {"capacity", "71"}, {"status", "Not charging"}}}},
       CPowerState::AC, true, 61, false, u"AC, battery 61%"},
      {"no line supply, discharging",
       {{"BAT0", {{"type", "Battery"}, {"capacity", "9"}, {"status", "Discharging"}}}},
       CPowerState::Battery, true, 9, false, u"battery, battery 9%"},
      {"only a mouse's battery",
       {{"hid-mouse", {{"type", "Battery"}, {"capacity", "40"}, {"scope", "Device"}, {"status", "Discharging"}}}},
       CPowerState::Unknown, false, -1, false, u"unknown, no battery"},
      {"battery without capacity",
       {{"BAT0", {{"type", "Battery"}, {"capacity", "n/a"}, {"status", "Charging"}}}},
       CPowerState::AC, true, -1, true, u"AC, battery charging"},
      {"nothing", {}, CPowerState::Unknown, false, -1, false, u"unknown, no battery"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    test::TempFolder folder("qo-power");
    for (auto const& [name, attributes] : c.supplies) {
      std::filesystem::create_directories(folder.file(name));
      for (auto const& [attribute, value] : attributes) std::ofstream(folder.file(name) / attribute) << value << "\n";
    }
    CPowerState state = CPowerState::query(folder.path());
    EXPECT_EQ(state.getSource(), c.source);
    EXPECT_EQ(state.isOnBattery(), c.source == CPowerState::Battery);
    EXPECT_EQ(state.hasBattery(), c.hasBattery);
    EXPECT_EQ(state.getBatteryPercent(), c.percent);
    EXPECT_EQ(state.isCharging(), c.charging);
    EXPECT_EQ(state.toString(), String(c.text));
  }
  CPowerState none = CPowerState::query(u"/nonexistent/qo-power");
  EXPECT_EQ(none.getSource(), CPowerState::Unknown);
  EXPECT_FALSE(none.hasBattery());
}

// The machine's answer agrees with its system batteries as /sys lists them.
TEST(CPowerState, TheMachineAgreesWithSys) {
  CPowerState state = CPowerState::query();
  bool sysBattery = false;
  std::error_code ignored;
  for (auto const& entry : std::filesystem::directory_iterator("/sys/class/power_supply", ignored)) {
    std::string type, scope;
    std::ifstream(entry.path() / "type") >> type;
    std::ifstream(entry.path() / "scope") >> scope;
    if (type == "Battery" && scope != "Device") sysBattery = true;
  }
  EXPECT_EQ(state.hasBattery(), sysBattery);
  if (!state.hasBattery()) EXPECT_EQ(state.getBatteryPercent(), -1);
}
#else
TEST(CPowerState, TheSystemAnswers) {
  CPowerState state = CPowerState::query();
  EXPECT_GE(state.getBatteryPercent(), -1);
  EXPECT_LE(state.getBatteryPercent(), 100);
  if (!state.hasBattery()) {
    EXPECT_EQ(state.getBatteryPercent(), -1);
    EXPECT_FALSE(state.isCharging());
  }
}
#endif

TEST(CKeepAwakeRequest, IsGrantedOrRefusedClearly) {
  EXPECT_THROW(CKeepAwakeRequest(u"", u"why"), CInvalidArgError);
  try {
    // Nested requests: the inner one's end leaves the outer one in force.
    CKeepAwakeRequest outer(u"qo-test", u"keep-awake test");
    { CKeepAwakeRequest inner(u"qo-test", u"nested keep-awake test"); }
#ifndef _WIN32
    // logind lists the outer inhibitor, not the ended inner one.
    P<CProcess> list = newP<CProcess>(u"systemd-inhibit", std::vector<String>{u"--list", u"--no-pager"});
    P<CBufferStream> out = newP<CBufferStream>();
    list->setStdout(out);
    list->start();
    ASSERT_TRUE(list->wait(30000));
    std::string const text = out->getDataAsString().toUTF8Lossy();
    EXPECT_NE(text.find("keep-awake test"), std::string::npos) << text;
    EXPECT_EQ(text.find("nested keep-awake test"), std::string::npos) << text;
#endif
  } catch (CNotImplementedError const& e) {
    String reason = e.getParams().lookup(u"reason");
    EXPECT_TRUE(reason.StartsWith(u"Keeping the system awake is not available here: ")) << reason.toUTF8();
    EXPECT_GT(reason.getLength(), String(u"Keeping the system awake is not available here: ").getLength());
    GTEST_SKIP() << "the system offers no keep-awake request: " << reason.toUTF8();
  }
}

}  // namespace
}  // namespace qo
