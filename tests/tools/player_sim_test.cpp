// player-sim as the agent meets it: the test speaks the raw queue protocol to the running
// program and reads its log. (How its layers play the agent's lists is the content
// check's test and every scenario's.)
#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>

#include "core/usb_xapp.h"
#include "support/player_sim.h"
#include "support/queues.h"
#include "support/sandbox.h"

using ::testing::ElementsAre;
using ::testing::SizeIs;

namespace {

const std::string kOid = "1.3.6.1.4.1.58321.";

std::string padded(std::string text)
{
    text.resize(kSnmpTextSize, '\0');
    return text;
}

// The value the agent takes from player-sim's reply to `command` (below kOid), sent as
// the agent sends it: a set when it holds a blank, else a get.
std::string value(const std::string& command)
{
    long type = command.find(' ') == std::string::npos ? kSnmpGetType : kSnmpSetType;
    if (!queues::post(kBridgeRequestKey, type, padded(kOid + command))) return "<not sent>";
    auto reply = queues::take(kBridgeReplyKey, kSnmpReplyType, std::chrono::seconds(5));
    return reply ? std::string(snmp_reply_value(queues::c_text(reply->text))) : "<no reply>";
}

// (A firmware and an extension application upgrade, each ending well or badly, are the
// upgrade tables' of tests/actions and tests/agent, read back through the agent.)
TEST(PlayerSim, UpgradeProgressEndsInTheOutcomeChosenForItsKind)
{
    queues::drain_all();
    PlayerSim sim({"--upgrade-polls", "2", "--splash", "fail"});
    auto progress = [](const std::string& start) {
        value(start);
        std::vector<std::string> v;
        for (int i = 0; i < 4; ++i) v.push_back(value("3.4.15.0"));
        return v;
    };
    EXPECT_EQ(value("3.4.15.0"), "0");
    sandbox::write_file("/tmp/software.tar", "image");
    EXPECT_THAT(progress("3.5.22.0 s ide:///tmp/software.tar"), ElementsAre("241", "243", "240", "240"));
    // An image on the player's disk that is not there fails, whatever the outcome chosen.
    EXPECT_THAT(progress("3.5.22.0 s ide:///tmp/missing.tar"), ElementsAre("241", "243", "245", "245"));
    EXPECT_THAT(progress("3.5.80.0 s rivEnOaks7k2;downloadsplash;ide:///tmp/s.jpg"), ElementsAre("255", "255", "2", "2"));
    // A privileged command without the access code starts nothing.
    EXPECT_EQ(value("3.5.80.0 s wrong;downloadxapp;http://x/"), "");
    EXPECT_EQ(value("3.4.15.0"), "2");
    EXPECT_THAT(sim.lines("url=\"ide:///tmp/missing.tar\" file=missing"), SizeIs(1));
}

TEST(PlayerSim, GarbledMessagesAreLoggedAndIgnored)
{
    queues::drain_all();
    std::string out;
    EXPECT_EQ(PlayerSim::command("--notify copy-start", &out), 1) << "none runs yet";
    EXPECT_NE(out.find("no running player-sim"), std::string::npos) << out;
    PlayerSim sim;
    // A request too short, of a wrong type, or not text; a player message too short, or of
    // an unknown command; a message of another type on the notification queue, where the
    // agent's own (type 31) are left; lines of the control file it cannot read.
    auto bytes = [](int a) { return std::string(reinterpret_cast<const char*>(&a), 4) + std::string(4, '\0'); };
    for (const auto& [key, type, text] : {std::tuple{kBridgeRequestKey, long{kSnmpGetType}, kOid + "3.1.8.0"},
                                          {kBridgeRequestKey, 5L, padded(kOid + "3.1.8.0")},
                                          {kBridgeRequestKey, long{kSnmpGetType}, std::string(kSnmpTextSize, 'x')},
                                          {kBridgeRequestKey, long{kSnmpGetType}, padded(kOid + "3.1.8.0\x1b[2J")},
                                          {kPlayerQueueKey, long{kPlayerMsgType}, std::string("abc")},
                                          {kPlayerQueueKey, long{kPlayerMsgType}, bytes(500)},
                                          {kPlayerQueueKey, long{kPlayerMsgType}, bytes(FW_UPGRADE_DONE)},
                                          {kNotifyQueueKey, long{kUsbNotifyType}, bytes(USB_CALL_NOW).substr(0, 4)},
                                          {kNotifyQueueKey, 7L, std::string(64, '\0')}})
        ASSERT_TRUE(queues::post(key, type, text));
    sandbox::write_file("/tmp/player-sim.ctl", "hello\nnotify 99999999999 0\n");
    for (auto [line, count] : {std::pair{"drop key=control", 2}, {"drop key=1235", 4}, {"drop key=1234", 2},
                               {"recv key=1234 type=2 len=8 cmmd=13 name=FW_UPGRADE_DONE", 1}, {"drop key=1240 type=7 len=64", 1}})
        EXPECT_TRUE(sim.wait_for(line, count)) << line << "\n" << sandbox::read_file(PlayerSim::kLog);
    EXPECT_EQ(queues::count(kBridgeReplyKey), 0) << "nothing garbled is answered";
    auto left = queues::take(kNotifyQueueKey);
    ASSERT_TRUE(left);
    EXPECT_EQ(left->type, kUsbNotifyType);
    // And it carries on; a request it cannot serve is answered without a value.
    EXPECT_EQ(value("3.1.8.0 s 00 00 00 00 00 00"), "");
    EXPECT_EQ(value("3.1.8.0"), "00 1A 2B 3C 4D 5E");

    EXPECT_EQ(PlayerSim::command("--notify reboot-please"), 2);
    EXPECT_EQ(WEXITSTATUS(std::system("env -u SIGNAGE_SANDBOX " PLAYER_SIM " --notify 98 2>/dev/null")), 2)
        << "it refuses to run outside the sandbox";
    EXPECT_EQ(sim.stop(SIGTERM), 0);
    EXPECT_THAT(sim.lines(" stop signal=15"), SizeIs(1));
    EXPECT_FALSE(sandbox::exists("/tmp/player-sim.ctl"));
}

}  // namespace
