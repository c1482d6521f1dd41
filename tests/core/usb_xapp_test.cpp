// The control channel over the sandbox's real message queues, with the test playing
// the bridge and the player. (Against player-sim: tests/agent/agent_player_sim_test.)
#include "core/usb_xapp.h"

#include <cstring>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/ipc.h>
#include <sys/msg.h>

#include "support/queues.h"

using ::testing::HasSubstr;

namespace {

// Writes a kernel limit of this sandbox's IPC namespace and puts it back afterwards.
class IpcLimit {
public:
    IpcLimit(const char* name, long value) : path_(std::string("/proc/sys/kernel/") + name)
    {
        std::ifstream(path_) >> old_;
        std::ofstream(path_) << value;
    }
    ~IpcLimit() { std::ofstream(path_) << old_; }

private:
    std::string path_;
    long old_ = 0;
};

class ControlChannel : public ::testing::Test {
protected:
    void SetUp() override
    {
        queues::drain_all();
    }
    char reply[kSnmpTextSize] = "stale";
};

TEST(SnmpReply, ValueIsTakenFromTheLineAsTheBridgeWritesIt)
{
    const std::pair<const char*, const char*> cases[] = {
        {"X = STRING: \"abc\"", "abc"},
        {"X = INTEGER: 5", "5"},
        {"X = Hex-STRING: 00 1A 2B 3C 4D 5E ", "00 1A 2B 3C 4D 5E"},
        {"X = STRING: \"http://cms.example:8080/x\"", "http://cms.example:8080/x"},
        {"X: INTEGER: 5", ""},  // no "=": nothing, even with a ":"
        {"X = No Such Object available on this agent at this OID", ""},
        // The value ends at the first CR or LF.
        {"X = STRING: \"abc\"\r\n", "abc"},
        {"X = INTEGER: 5\n\r", "5"},
        // One blank, then one quote, and no more.
        {"X = STRING: \"abc\" ", "abc"},
        {"X = STRING: \"abc \"", "abc "},
        {"X = INTEGER: 5  ", "5 "},
        {"X = STRING: \"", ""},
        {"X = STRING:", ""},
        {"a:b = INTEGER: 5", " = INTEGER: 5"},  // the first ":" of the whole line counts
        {"X = INTEGER:5", ""},  // two characters after the colon, whatever they are
    };
    for (const auto& [line, value] : cases)
        EXPECT_EQ(snmp_reply_value(line), value) << "reply line: " << line;
}

TEST_F(ControlChannel, ExchangeSendsTheCommandAndParsesTheReply)
{
    // A reply of another type on the reply queue is not the bridge's and stays there.
    ASSERT_TRUE(queues::post(kBridgeReplyKey, 771, "X = INTEGER: 9"));
    ASSERT_TRUE(queues::post_bridge_reply("X = STRING: \"ntp.example\"\r\n"));
    send_snmp_command(kSnmpSetType, "1.3.6.1.4.1.58321.3.5.15.0 s \"ntp.example\"", reply);
    EXPECT_STREQ(reply, "ntp.example");
    auto request = queues::take(kBridgeRequestKey);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->type, kSnmpSetType);
    ASSERT_EQ(request->text.size(), static_cast<std::size_t>(kSnmpTextSize));
    EXPECT_EQ(queues::c_text(request->text), "1.3.6.1.4.1.58321.3.5.15.0 s \"ntp.example\"");
    EXPECT_EQ(request->text.find_first_not_of('\0', 43), std::string::npos)
        << "the command is NUL-padded";
    EXPECT_EQ(queues::count(kBridgeReplyKey), 1);
    queues::drain(kBridgeReplyKey);

    // A short reply sent without its NUL: the rest of the shared record still holds the
    // longer request and must not leak into the value.
    ASSERT_TRUE(queues::post(kBridgeReplyKey, kSnmpReplyType, "X = INTEGER: 7"));
    send_snmp_command(kSnmpGetType, "1.3.6.1.4.1.58321.3.5.17.0", reply);
    EXPECT_STREQ(reply, "7");

    // A reply longer than the record is cut, never written past the buffer.
    std::string long_reply = "X = STRING: \"" + std::string(3000, 'v') + "\"";
    ASSERT_TRUE(queues::post(kBridgeReplyKey, kSnmpReplyType, long_reply));
    send_snmp_command(kSnmpGetType, "X", reply);
    EXPECT_EQ(std::strlen(reply), static_cast<std::size_t>(kSnmpTextSize - 1 - 13));

    // A command too long for the record keeps its end: the bridge sees a terminated text.
    queues::drain(kBridgeRequestKey);
    ASSERT_TRUE(queues::post_bridge_reply("X = INTEGER: 1"));
    send_snmp_command(kSnmpSetType, std::string(5000, 'c').c_str(), reply);
    request = queues::take(kBridgeRequestKey);
    ASSERT_TRUE(request);
    EXPECT_EQ(queues::c_text(request->text).size(), static_cast<std::size_t>(kSnmpTextSize - 1));
}

TEST_F(ControlChannel, MacAddressKeepsTheHexDigitsOfTheReply)
{
    const std::pair<const char*, const char*> cases[] = {
        {"X = Hex-STRING: 00 1A 2B 3C 4D 5E ", "001A2B3C4D5E"},
        {"X = No Such Object available on this agent at this OID", ""},
        // More octets than an address has: cut to what the 13-byte buffer holds.
        {"X = Hex-STRING: 00 11 22 33 44 55 66 77 88 99 ", "001122334455"},
    };
    for (const auto& [line, mac] : cases) {
        ASSERT_TRUE(queues::post_bridge_reply(line));
        char got[13];
        EXPECT_EQ(get_mac_address(got), 1);
        EXPECT_STREQ(got, mac);
    }
}

TEST_F(ControlChannel, ThePlayerHearsOnlyUpgradeProgress)
{
    for (int id = START_IMAGE; id <= CMMD_NONE; ++id)
        send_player_msg(static_cast<eKVR_CMMD_ID>(id));

    std::vector<int> ids;
    while (auto m = queues::take(kPlayerQueueKey)) {
        EXPECT_EQ(m->type, kPlayerMsgType);
        ASSERT_EQ(m->text.size(), static_cast<std::size_t>(kPlayerMsgTextSize));
        EXPECT_EQ(m->text.substr(4), std::string(4, '\0')) << "the four extra bytes are zero";
        int id;
        std::memcpy(&id, m->text.data(), sizeof id);
        ids.push_back(id);
    }
    EXPECT_EQ(ids, (std::vector<int>{FW_UPGRADE_PROGRESS, FW_UPGRADE_DONE, FW_UPGRADE_ERROR}));
}

TEST_F(ControlChannel, RefusedSendGivesAnEmptyReplyWithoutWaiting)
{
    {
        IpcLimit small_messages("msgmax", 1024);  // the 2048-byte request is refused
        testing::internal::CaptureStderr();
        send_snmp_command(kSnmpGetType, "1.3.6.1.4.1.58321.3.5.13.0", reply);
        EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("msgsnd in snmplc failed"));
    }
    EXPECT_STREQ(reply, "");
    EXPECT_EQ(queues::count(kBridgeRequestKey), 0);
}

}  // namespace
