// The control channel over the sandbox's real message queues, with the test playing
// the bridge and the player.
#include "core/usb_xapp.h"

#include <atomic>
#include <cstring>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <thread>

#include "support/queues.h"
#include "support/sandbox.h"

using ::testing::ElementsAre;

namespace {

void drain_all()
{
    for (int key : {kPlayerQueueKey, kBridgeRequestKey, kBridgeReplyKey, kNotifyQueueKey})
        queues::drain(key);
}

int command_id(const std::string& text)
{
    int id;
    std::memcpy(&id, text.data(), sizeof id);
    return id;
}

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

TEST(SnmpReply, ValueIsTakenFromTheLineAsTheBridgeWritesIt)
{
    const std::pair<const char*, const char*> cases[] = {
        {"X = STRING: \"abc\"", "abc"},
        {"X = INTEGER: 5", "5"},
        {"X = Hex-STRING: 00 1A 2B 3C 4D 5E ", "00 1A 2B 3C 4D 5E"},
        {"X = STRING: \"http://cms.example:8080/x\"", "http://cms.example:8080/x"},
        // No "=": nothing, even with a ":" in the line.
        {"X: INTEGER: 5", ""},
        {"X = No Such Object available on this agent at this OID", ""},
        // The value ends at the first CR or LF.
        {"X = STRING: \"abc\"\r\n", "abc"},
        {"X = INTEGER: 5\n\r", "5"},
        {"X = STRING: \"a\rb\"", "a"},
        // One blank, then one quote, and no more.
        {"X = STRING: \"abc\" ", "abc"},
        {"X = STRING: \"abc \"", "abc "},
        {"X = INTEGER: 5  ", "5 "},
        {"X = STRING: \"\"", ""},
        {"X = STRING: \"", ""},
        {"X = STRING:", ""},
        // The first ":" of the whole line counts, even before the "=".
        {"a:b = INTEGER: 5", " = INTEGER: 5"},
        // Two characters after the colon, whatever they are.
        {"X = INTEGER:5", ""},
    };
    for (const auto& [line, value] : cases)
        EXPECT_EQ(snmp_reply_value(line), value) << "reply line: " << line;
}

TEST(ControlChannel, ExchangeSendsTheCommandAndParsesTheReply)
{
    drain_all();
    // A reply of another type on the reply queue is not the bridge's and stays there.
    ASSERT_TRUE(queues::post(kBridgeReplyKey, 771, "X = INTEGER: 9"));
    ASSERT_TRUE(queues::post_bridge_reply(
        "1.3.6.1.4.1.58321.3.5.15.0 = STRING: \"ntp.example\"\r\n"));
    char reply[kSnmpTextSize];
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
    request = queues::take(kBridgeRequestKey);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->type, kSnmpGetType);
    EXPECT_EQ(queues::c_text(request->text), "1.3.6.1.4.1.58321.3.5.17.0");

    // A reply longer than the record is cut, never written past the buffer.
    std::string long_reply = "X = STRING: \"" + std::string(3000, 'v') + "\"";
    ASSERT_TRUE(queues::post(kBridgeReplyKey, kSnmpReplyType, long_reply));
    send_snmp_command(kSnmpGetType, "X", reply);
    EXPECT_EQ(std::strlen(reply), static_cast<std::size_t>(kSnmpTextSize - 1 - 13));
    queues::drain(kBridgeRequestKey);

    // A command too long for the record keeps its end: the bridge sees a terminated text.
    ASSERT_TRUE(queues::post_bridge_reply("X = INTEGER: 1"));
    std::string long_command(5000, 'c');
    send_snmp_command(kSnmpSetType, long_command.c_str(), reply);
    request = queues::take(kBridgeRequestKey);
    ASSERT_TRUE(request);
    EXPECT_EQ(queues::c_text(request->text).size(), static_cast<std::size_t>(kSnmpTextSize - 1));
}

TEST(ControlChannel, MacAddressKeepsTheHexDigitsOfTheReply)
{
    drain_all();
    char mac[13];
    ASSERT_TRUE(queues::post_bridge_reply(
        "1.3.6.1.4.1.58321.3.1.8.0 = Hex-STRING: 00 1A 2B 3C 4D 5E "));
    EXPECT_EQ(get_mac_address(mac), 1);
    EXPECT_STREQ(mac, "001A2B3C4D5E");
    auto request = queues::take(kBridgeRequestKey);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->type, kSnmpGetType);
    EXPECT_EQ(queues::c_text(request->text), "1.3.6.1.4.1.58321.3.1.8.0");

    // No value: an empty address, and still 1.
    ASSERT_TRUE(queues::post_bridge_reply(
        "1.3.6.1.4.1.58321.3.1.8.0 = No Such Object available on this agent at this OID"));
    EXPECT_EQ(get_mac_address(mac), 1);
    EXPECT_STREQ(mac, "");

    // More octets than an address has: cut to what the 13-byte buffer holds.
    ASSERT_TRUE(queues::post_bridge_reply(
        "1.3.6.1.4.1.58321.3.1.8.0 = Hex-STRING: 00 11 22 33 44 55 66 77 88 99 "));
    EXPECT_EQ(get_mac_address(mac), 1);
    EXPECT_STREQ(mac, "001122334455");
}

TEST(ControlChannel, ThePlayerHearsOnlyUpgradeProgress)
{
    drain_all();
    for (int id = START_IMAGE; id <= CMMD_NONE; ++id)
        send_player_msg(static_cast<eKVR_CMMD_ID>(id));

    std::vector<int> ids;
    while (auto m = queues::take(kPlayerQueueKey)) {
        EXPECT_EQ(m->type, kPlayerMsgType);
        ASSERT_EQ(m->text.size(), static_cast<std::size_t>(kPlayerMsgTextSize));
        EXPECT_EQ(m->text.substr(4), std::string(4, '\0')) << "the four extra bytes are zero";
        ids.push_back(command_id(m->text));
    }
    EXPECT_THAT(ids, ElementsAre(FW_UPGRADE_PROGRESS, FW_UPGRADE_DONE, FW_UPGRADE_ERROR));
}

TEST(ControlChannel, UsbAnswerIsATypeThirtyMessageOfSixtyFourBytes)
{
    drain_all();
    send_usbcopy_msg(USB_CONF_DONE);
    auto m = queues::take(kNotifyQueueKey);
    ASSERT_TRUE(m);
    EXPECT_EQ(m->type, kUsbAnswerType);
    ASSERT_EQ(m->text.size(), static_cast<std::size_t>(kUsbMsgTextSize));
    EXPECT_EQ(command_id(m->text), USB_CONF_DONE);
    EXPECT_EQ(m->text.substr(4), std::string(60, '\0'));
    EXPECT_EQ(queues::count(kNotifyQueueKey), 0);
}

TEST(ControlChannel, SilentBridgeBlocksUntilTheExchangeEnds)
{
    drain_all();
    std::atomic<bool> returned{false};
    char reply[kSnmpTextSize] = "stale";
    testing::internal::CaptureStderr();
    std::thread caller([&] {
        send_snmp_command(kSnmpGetType, "1.3.6.1.4.1.58321.3.5.13.0", reply);
        returned = true;
    });
    // The request goes out and nobody answers: the caller waits, with no time limit.
    auto request = queues::wait_take(kBridgeRequestKey, kSnmpGetType);
    ASSERT_TRUE(request);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_FALSE(returned);

    // Only the end of the reply queue itself ends the wait, with an empty reply.
    int reply_queue = msgget(kBridgeReplyKey, 0);
    ASSERT_EQ(msgctl(reply_queue, IPC_RMID, nullptr), 0);
    caller.join();
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                ::testing::HasSubstr("msgrcv in snmplc failed"));
    EXPECT_STREQ(reply, "");
}

TEST(ControlChannel, RefusedSendGivesAnEmptyReplyWithoutWaiting)
{
    drain_all();
    char reply[kSnmpTextSize] = "stale";
    {
        IpcLimit small_messages("msgmax", 1024);  // the 2048-byte request is refused
        testing::internal::CaptureStderr();
        send_snmp_command(kSnmpGetType, "1.3.6.1.4.1.58321.3.5.13.0", reply);
        EXPECT_THAT(testing::internal::GetCapturedStderr(),
                    ::testing::HasSubstr("msgsnd in snmplc failed"));
    }
    EXPECT_STREQ(reply, "");
    EXPECT_EQ(queues::count(kBridgeRequestKey), 0);
}

TEST(ControlChannelDeathTest, NoBridgeQueueEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (int key : {kBridgeRequestKey, kBridgeReplyKey})
        msgctl(msgget(key, IPC_CREAT | 0666), IPC_RMID, nullptr);
    // No room for another queue in this namespace: the bridge's cannot be opened.
    IpcLimit no_queues("msgmni", 0);
    char reply[kSnmpTextSize];
    EXPECT_EXIT(send_snmp_command(kSnmpGetType, "1.3.6.1.4.1.58321.3.1.8.0", reply),
                ::testing::ExitedWithCode(255), "msgget in snmplc failed");
}

}  // namespace
