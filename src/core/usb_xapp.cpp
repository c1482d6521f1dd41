#include "core/usb_xapp.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/ipc.h>
#include <sys/msg.h>

#include "core/text.h"

char macAddress[13];
char call_home_address[513];

// Statically initialised: start-up reads the MAC address through the bridge before
// init_snmp runs.
pthread_mutex_t snmpMute = PTHREAD_MUTEX_INITIALIZER;

namespace {

constexpr const char* kMacAddressOid = "1.3.6.1.4.1.58321.3.1.8.0";

// The one bridge record of the process: it carries the request out and the reply back.
queue_wire<kSnmpTextSize> snmp_msg;

// Holds snmpMute for one exchange. (The control channel is a leaf: it does not borrow
// the timer's MutexLock.)
class ExchangeLock {
public:
    ExchangeLock() { pthread_mutex_lock(&snmpMute); }
    ~ExchangeLock() { pthread_mutex_unlock(&snmpMute); }
    ExchangeLock(const ExchangeLock&) = delete;
    ExchangeLock& operator=(const ExchangeLock&) = delete;
};

}  // namespace

int init_snmp(void) { return pthread_mutex_init(&snmpMute, nullptr); }

std::string_view snmp_reply_value(std::string_view line)
{
    if (line.find('=') == std::string_view::npos) return {};
    // The first ":" of the whole line, even one before the "=".
    std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) return {};
    std::size_t start = colon + 2;  // past ": "
    if (start >= line.size()) return {};
    if (line[start] == '"') ++start;
    std::string_view value = line.substr(start);
    value = value.substr(0, value.find_first_of("\r\n"));
    // A Hex-STRING ends in a blank, a STRING in a quote: at most one of each goes.
    if (!value.empty() && value.back() == ' ') value.remove_suffix(1);
    if (!value.empty() && value.back() == '"') value.remove_suffix(1);
    return value;
}

char* send_snmp_command(int msg_type, const char* command, char* reply)
{
    int request_queue = msgget(kBridgeRequestKey, IPC_CREAT | 0666);
    int reply_queue = msgget(kBridgeReplyKey, IPC_CREAT | 0666);
    if (request_queue == -1 || reply_queue == -1) {
        // Without its bridge the agent cannot drive the player at all.
        std::perror("msgget in snmplc failed");
        std::exit(-1);
    }

    // Copied before the lock is taken: only the main thread sends commands. The text is
    // NUL-padded to its full size and always terminated, so the bridge never reads a
    // command without its end (a command of 2048 characters or more loses its tail).
    std::memset(snmp_msg.text, 0, sizeof snmp_msg.text);
    copy_text(snmp_msg.text, command);

    {
        ExchangeLock lock;
        snmp_msg.type = msg_type;
        if (msgsnd(request_queue, &snmp_msg, kSnmpTextSize, 0) == -1) {
            std::perror("msgsnd in snmplc failed");
            reply[0] = '\0';
            return reply;
        }
        // No time limit: a bridge that never answers holds the agent here.
        ssize_t n = msgrcv(reply_queue, &snmp_msg, kSnmpTextSize, kSnmpReplyType, MSG_NOERROR);
        if (n == -1) {
            std::perror("msgrcv in snmplc failed");
            reply[0] = '\0';
            return reply;
        }
        // Only the bytes that arrived: the rest of the record still holds the request.
        std::size_t received = static_cast<std::size_t>(n);
        copy_text(reply, kSnmpTextSize,
                  std::string_view(snmp_msg.text, strnlen(snmp_msg.text, received)));
    }

    std::string_view value = snmp_reply_value(std::string_view(reply));
    if (!value.empty()) std::memmove(reply, value.data(), value.size());
    reply[value.size()] = '\0';
    return reply;
}

void send_player_msg(eKVR_CMMD_ID cmd_id)
{
    // Upgrade progress is all the agent ever tells the player on this queue.
    if (cmd_id != FW_UPGRADE_PROGRESS && cmd_id != FW_UPGRADE_DONE && cmd_id != FW_UPGRADE_ERROR)
        return;
    msgq_player msg{};
    msg.msg_type = kPlayerMsgType;
    msg.msg_data.cmd_only.cmmdId = cmd_id;

    queue_wire<kPlayerMsgTextSize> wire{};
    wire.type = msg.msg_type;
    static_assert(sizeof msg.msg_data <= sizeof wire.text);
    std::memcpy(wire.text, &msg.msg_data, sizeof msg.msg_data);
    // Fire and forget: a full queue loses the message.
    int queue = msgget(kPlayerQueueKey, IPC_CREAT | 0666);
    msgsnd(queue, &wire, sizeof wire.text, IPC_NOWAIT);
}

void send_usbcopy_msg(eKVR_CMMD_ID cmd_id)
{
    s_MSG_BUF msg;
    std::memset(&msg, 0, sizeof msg);
    msg.type = kUsbAnswerType;
    msg.cmmdId = cmd_id;

    queue_wire<kUsbMsgTextSize> wire{};
    wire.type = msg.type;
    static_assert(sizeof msg.cmmdId + sizeof msg.buf <= sizeof wire.text);
    std::memcpy(wire.text, &msg.cmmdId, sizeof msg.cmmdId);
    std::memcpy(wire.text + sizeof msg.cmmdId, msg.buf, sizeof msg.buf);
    int queue = msgget(kNotifyQueueKey, IPC_CREAT | 0666);
    msgsnd(queue, &wire, sizeof wire.text, IPC_NOWAIT);
}

int get_mac_address(char* mac)
{
    char data[kSnmpTextSize];
    send_snmp_command(kSnmpGetType, kMacAddressOid, data);
    // The bridge gives the octets as hex pairs between blanks; keep the digits. A reply
    // longer than an address is cut to the 12 characters macAddress holds.
    std::size_t n = 0;
    for (const char* p = data; *p != '\0' && n < sizeof macAddress - 1; ++p)
        if (*p != ' ') mac[n++] = *p;
    mac[n] = '\0';
    return 1;
}

char* mac_address(void) { return macAddress; }

char* dcm_server(void) { return call_home_address; }
