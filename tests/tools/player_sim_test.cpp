// player-sim as the agent meets it: the test speaks the raw queue protocol to the
// running program and reads its log.
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
using ::testing::HasSubstr;
using ::testing::SizeIs;

namespace {

const std::string kOid = "1.3.6.1.4.1.58321.";

// The value the agent takes from player-sim's reply to `command` (below kOid), sent as
// the agent sends it (2048 bytes, NUL-padded): a set when it holds a blank, else a get.
std::string value(const std::string& command)
{
    std::string text = kOid + command;
    text.resize(kSnmpTextSize, '\0');
    long type = command.find(' ') == std::string::npos ? kSnmpGetType : kSnmpSetType;
    if (!queues::post(kBridgeRequestKey, type, text)) return "<not sent>";
    auto reply = queues::take(kBridgeReplyKey, kSnmpReplyType, std::chrono::seconds(5));
    return reply ? std::string(snmp_reply_value(queues::c_text(reply->text))) : "<no reply>";
}

std::string bytes_of(int value)
{
    std::string s(sizeof value, '\0');
    std::memcpy(s.data(), &value, sizeof value);
    return s;
}

class PlayerSimTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        queues::drain_all();
    }
};

TEST_F(PlayerSimTest, LayersReportThePlaylistsTheyWereToldToPlay)
{
    sandbox::write_file("/tmp/playlists/r1",
                        "[Control]\r\nPlaylistVersion = 2.0\r\nLayerType = Video\r\n"
                        "Name = 3f2a*2\r\n[List]\r\nENTRY1 = VIDEO, a.mpg\r\n"
                        "ENTRY2 = PICTURE, b.jpg,duration=10\r\nENTRY3 = LOOP\r\n");
    sandbox::write_file("/tmp/playlists/r2",
                        "[Control]\r\nPlaylistVersion = 2.0\r\nLayerType = Browser\r\n"
                        "Name = 3f2a*0\r\n[List]\r\n"
                        "ENTRY1 = BROWSER, http://cms.example/menu,xleft=0, yupper=0, "
                        "xsize=100, ysize=100\r\n");
    sandbox::write_file("/tmp/playlists/r4", std::string("\x7f" "ELF\x02\x01\x01\0\0\0\n\x05", 12));
    PlayerSim sim;
    auto play = [](int layer, const std::string& playlist) {
        value("3.3.30.0 i " + std::to_string(layer));
        value("3.3.32.0 s ram::playlist://" + playlist);
    };
    const std::string r1 = "r1,3f2a*2,Playing,a.mpg,1";
    const std::string r2 = "r2,3f2a*0,Playing,http://cms.example/menu,1";

    EXPECT_EQ(value("3.3.1.0"), "Idle,,0%Idle,,0");
    play(0, "r1");
    EXPECT_EQ(value("3.3.1.0"), r1 + "%Idle,,0");
    play(1, "r2");
    EXPECT_EQ(value("3.3.1.0"), r1 + "%" + r2);
    // 17 stops the video layer, 33 the browser layer, 7 both.
    value("3.3.9.0 i 17");
    EXPECT_EQ(value("3.3.1.0"), "Idle,,0%" + r2);
    value("3.3.9.0 i 33");
    EXPECT_EQ(value("3.3.1.0"), "Idle,,0%Idle,,0");
    play(0, "r1");
    play(1, "r2");
    value("3.3.9.0 i 7");
    EXPECT_EQ(value("3.3.1.0"), "Idle,,0%Idle,,0");

    // Files it cannot play show as the layer's error state.
    play(0, "r9");
    EXPECT_EQ(value("3.3.1.0"), "r9,,Error,cannot open /tmp/playlists/r9,0%Idle,,0");
    play(0, "r4");
    EXPECT_EQ(value("3.3.1.0"), "r4,,Error,unreadable line 1,0%Idle,,0");
    EXPECT_EQ(value("3.3.32.0 s http://elsewhere/r1"), "");
    EXPECT_EQ(value("3.3.30.0 i 2"), "");

    // A list plays only on its own layer.
    play(1, "r1");
    EXPECT_EQ(value("3.3.1.0"), "r4,,Error,unreadable line 1,0%r1,,Error,Video list on the browser layer,0");
    // Each start takes the area set before it; a coordinate mode holds for one start.
    for (const char* set : {"3.3.23.0 i 1", "3.3.26.0 i 853", "3.3.27.0 i 480", "3.3.24.0 i 10", "3.3.25.0 i 20"})
        value(set);
    play(0, "r1");
    play(1, "r2");
    auto states = PlayerSim::lines(" state layer=");
    ASSERT_GE(states.size(), 2u);
    EXPECT_THAT(states[states.size() - 2], ::testing::AllOf(HasSubstr("layer=0 report=\"r1,3f2a*2,Playing"),
                                                            ::testing::EndsWith("area=853x480+10+20 units=pixels")));
    EXPECT_THAT(states.back(), ::testing::EndsWith("area=853x480+10+20 units=percent"));
    EXPECT_EQ(value("3.3.23.0 i 2"), "");
    // The player's own start-up list, after a resolution change.
    sandbox::write_file("/tmp/h0", "[Control]\r\nLayerType = Video\r\nName = startup\r\n[List]\r\n"
                                   "ENTRY1 = PICTURE, logo.png,duration=5\r\n");
    value("3.3.5.0 s h0");
    EXPECT_EQ(value("3.3.1.0"), "h0,startup,Playing,logo.png,1%r2,3f2a*0,Playing,http://cms.example/menu,1");
    EXPECT_EQ(value("3.3.5.0 s r0"), "");
}

TEST_F(PlayerSimTest, UpgradeProgressEndsInTheOutcomeChosenForItsKind)
{
    PlayerSim sim({"--upgrade-polls", "2", "--firmware", "fail", "--splash", "fail"});
    auto progress = [] {
        std::vector<std::string> v;
        for (int i = 0; i < 4; ++i) v.push_back(value("3.4.15.0"));
        return v;
    };
    EXPECT_EQ(value("3.4.15.0"), "0");

    value("3.5.8.0 s http://updates.example/fw.bin");
    EXPECT_THAT(progress(), ElementsAre("241", "243", "245", "245"));
    sandbox::write_file("/tmp/software.tar", "image");
    value("3.5.22.0 s ide:///tmp/software.tar");
    EXPECT_THAT(progress(), ElementsAre("241", "243", "240", "240"));
    // An image on the player's disk that is not there fails, whatever the outcome chosen.
    value("3.5.22.0 s ide:///tmp/missing.tar");
    EXPECT_THAT(progress(), ElementsAre("241", "243", "245", "245"));
    value("3.5.80.0 s rivEnOaks7k2;downloadxapp;http://updates.example/x.tgz");
    EXPECT_THAT(progress(), ElementsAre("145", "145", "144", "144"));
    value("3.5.80.0 s rivEnOaks7k2;downloadsplash;ide:///tmp/newsplash.jpg");
    EXPECT_THAT(progress(), ElementsAre("255", "255", "2", "2"));

    // A privileged command without the access code starts nothing.
    EXPECT_EQ(value("3.5.80.0 s wrong;downloadxapp;http://x/"), "");
    EXPECT_EQ(value("3.4.15.0"), "2");

    EXPECT_THAT(sim.lines("upgrade kind=firmware phase=end outcome=fail value=245"), SizeIs(1));
    EXPECT_THAT(sim.lines("url=\"ide:///tmp/software.tar\" file=present"), SizeIs(1));
    EXPECT_THAT(sim.lines("url=\"ide:///tmp/missing.tar\" file=missing"), SizeIs(1));
}

TEST_F(PlayerSimTest, GarbledMessagesAreLoggedAndIgnored)
{
    PlayerSim sim;
    auto padded = [](std::string text) {
        text.resize(kSnmpTextSize, '\0');
        return text;
    };
    ASSERT_TRUE(queues::post(kBridgeRequestKey, kSnmpGetType, kOid + "3.1.8.0"));  // short
    ASSERT_TRUE(queues::post(kBridgeRequestKey, 5, padded(kOid + "3.1.8.0")));     // wrong type
    ASSERT_TRUE(queues::post(kBridgeRequestKey, kSnmpGetType, std::string(kSnmpTextSize, 'x')));
    ASSERT_TRUE(queues::post(kBridgeRequestKey, kSnmpGetType, padded(kOid + "3.1.8.0\x1b[2J")));
    ASSERT_TRUE(queues::post(kPlayerQueueKey, kPlayerMsgType, "abc"));
    ASSERT_TRUE(queues::post(kPlayerQueueKey, kPlayerMsgType, bytes_of(500) + bytes_of(0)));
    ASSERT_TRUE(queues::post(kPlayerQueueKey, kPlayerMsgType, bytes_of(FW_UPGRADE_DONE) + bytes_of(0)));
    // The agent's notifications (type 31) are left where they are.
    ASSERT_TRUE(queues::post(kNotifyQueueKey, kUsbNotifyType, bytes_of(USB_CALL_NOW)));
    ASSERT_TRUE(queues::post(kNotifyQueueKey, kUsbAnswerType, bytes_of(USB_CONF_DONE)));
    ASSERT_TRUE(queues::post(kNotifyQueueKey, 7, std::string(64, '\0')));
    sandbox::write_file("/tmp/player-sim.ctl", "hello\nnotify 99999999999 0\n");

    ASSERT_TRUE(sim.wait_for(" drop ", 10)) << sandbox::read_file(PlayerSim::kLog);
    EXPECT_THAT(sim.lines("drop key=1235"), SizeIs(4));
    EXPECT_THAT(sim.lines("drop key=1234"), SizeIs(2));
    EXPECT_TRUE(sim.wait_for("recv key=1234 type=2 len=8 cmmd=13 name=FW_UPGRADE_DONE"));
    EXPECT_THAT(sim.lines("drop key=1240 type=30 len=4"), SizeIs(1));
    EXPECT_THAT(sim.lines("drop key=1240 type=7 len=64"), SizeIs(1));
    EXPECT_THAT(sim.lines("drop key=control"), SizeIs(2));
    EXPECT_EQ(queues::count(kBridgeReplyKey), 0) << "nothing garbled is answered";
    auto left = queues::take(kNotifyQueueKey);
    ASSERT_TRUE(left);
    EXPECT_EQ(left->type, kUsbNotifyType);

    // And it carries on; a request it cannot serve is answered without a value.
    EXPECT_EQ(value("3.1.8.0 s 00 00 00 00 00 00"), "");
    EXPECT_EQ(value("3.1.8.0"), "00 1A 2B 3C 4D 5E");
}

TEST_F(PlayerSimTest, SecondInvocationHasTheRunningOneSendNotifications)
{
    std::string out;
    EXPECT_EQ(PlayerSim::command("--notify copy-start", &out), 1) << "none runs yet";
    EXPECT_THAT(out, HasSubstr("no running player-sim"));

    PlayerSim sim;
    EXPECT_EQ(PlayerSim::command("--notify conf-update --media 1"), 0);
    EXPECT_EQ(PlayerSim::command("--notify copy-start"), 0);
    EXPECT_EQ(PlayerSim::command("--notify USB_FIRMWARE_CHECK"), 0);
    EXPECT_EQ(PlayerSim::command("--notify 98"), 0);
    EXPECT_EQ(PlayerSim::command("--notify reboot-please"), 2);

    using Sent = std::pair<int, int>;  // command id, usbMediaStatus
    std::vector<Sent> sent;
    for (int i = 0; i < 4; ++i) {
        auto m = queues::take(kNotifyQueueKey, kUsbNotifyType, std::chrono::seconds(5));
        ASSERT_TRUE(m);
        ASSERT_EQ(m->text.size(), static_cast<std::size_t>(kUsbMsgTextSize));
        sMSG_USB_CONF conf;
        std::memcpy(&conf, m->text.data(), sizeof conf);
        sent.emplace_back(conf.cmmdId, conf.usbMediaStatus);
    }
    EXPECT_THAT(sent, ElementsAre(Sent(USB_CONF_UPDATE, 1), Sent(USB_COPY_START, 0),
                                  Sent(USB_FIRMWARE_CHECK, 0), Sent(CMMD_NONE, 0)));
    EXPECT_TRUE(sim.wait_for("send key=1240 type=31 len=64 cmmd=92 name=USB_CONF_UPDATE media=1"));

    int outside = std::system("env -u SIGNAGE_SANDBOX " PLAYER_SIM " --notify 98 2>/dev/null");
    EXPECT_EQ(WEXITSTATUS(outside), 2) << "it refuses to run outside the sandbox";

    EXPECT_EQ(sim.stop(SIGTERM), 0);
    EXPECT_THAT(sim.lines(" stop signal=15"), SizeIs(1));
    EXPECT_FALSE(sandbox::exists("/tmp/player-sim.ctl"));
}

}  // namespace
