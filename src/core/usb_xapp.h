#pragma once
// Control channel to the player application and its management bridge, over System V
// message queues, and the records and command ids shared with the player's processes.
//
//   init_snmp, send_snmp_command   one bridge request and its parsed reply
//   send_player_msg                upgrade progress to the player (key 1234)
//   send_usbcopy_msg               answers on the notification queue (key 1240)
//   get_mac_address, mac_address, dcm_server
//
// Keys: 1234 agent -> player (type 2); 1235 agent -> bridge (769 set, 770 get);
// 1236 bridge -> agent (772); 1240 player -> agent (31) and agent -> player (30).
//
// Shared with tools/player-sim, which stands in for the player and the bridge.
#include <cstddef>
#include <pthread.h>
#include <string_view>

constexpr int kPlayerQueueKey = 1234;
constexpr int kBridgeRequestKey = 1235;
constexpr int kBridgeReplyKey = 1236;
constexpr int kNotifyQueueKey = 1240;

constexpr long kPlayerMsgType = 2;
constexpr int kSnmpSetType = 769;
constexpr int kSnmpGetType = 770;
constexpr long kSnmpReplyType = 772;
constexpr long kUsbAnswerType = 30;
constexpr long kUsbNotifyType = 31;

constexpr int kSnmpTextSize = 2048;

// The playback stop control, set before media are deleted, by the display's off time,
// on a resolution change and when a layer's content goes.
constexpr const char* kStopOid = "1.3.6.1.4.1.58321.3.3.9.0";

// Text lengths on the wire. The player's processes read four bytes more than their
// records hold (8 for msgq_player, 64 for s_MSG_BUF); those bytes mean nothing and
// are sent as zeros. The agent reads a notification's command id and 52 bytes more.
constexpr int kPlayerMsgTextSize = 8;
constexpr int kUsbMsgTextSize = 64;
constexpr int kUsbNotifyReadSize = 56;

// A queue message as it travels: the message type, then N bytes of text. Outgoing
// records are copied into one of these, so the trailing bytes are zeros of our own
// and nothing is read past the record.
template <std::size_t N>
struct queue_wire {
    long type;
    char text[N];
};

// Command ids shared with the player application. Kept whole so the numbering stays
// the same as the player's; the agent itself uses only a few of them.
enum eKVR_CMMD_ID {
    START_IMAGE, START_STREAM, STOP_IMAGE, START_QUEUE, STOP_QUEUE, RESET_QUEUE,
    RESTART_REQUEST, IMAGE_DISPLAY_OPTION, PLAYER_SETTING, BROWSER_ITEM_START,
    BROWSER_ITEM_NEXT, BROWSER_STOP, FW_UPGRADE_PROGRESS, FW_UPGRADE_DONE,
    FW_UPGRADE_ERROR, STATUS_REQUEST, VIDEO_STREAM_STOP, VIDEO_STREAM_ACTIVE,
    VIDEO_PENDING_STREAM, IMAGE_DISPLAY_ACTIVE, PLAYER_IDLE_STATUS, NETWORK_ERROR,
    PLAYER_INIT_FAIL, PLAYER_FATAL_ERROR, PLAYER_GEN_ERROR, STREAM_NOT_SUPPORTED,
    CMMD_NOT_SUPPORTED, STOP_VIDEO, INTERLACE_CMMD, START_VIDEO_FILE_PLAY,
    START_PICTURE_FILE_PLAY, FILE_PLAY_DONE, FILE_ERROR, STOP_ALL_DISPLAY,
    PLAYER_CTL_CMMD, PLAYER_CHANGE_NOTICE, DISPLAY_MSG, DISPLAY_COLORBAR,
    HARD_DRIVE_READY, BROWSER_ITEM_ACTIVE, BROWSER_ITEM_DONE, PICTURE_PLAY_DONE,
    CFG_READY, CFG_UPDATE, CHANNEL_START, OSD_START, OSD_STOP, VIDEO_FILE_PLAY_NEXT,
    AUDIO_FILE_PLAY_NEXT, PIC_FILE_PLAY_NEXT, STREAM_PLAY_NEXT, AUDIO_FILE_START,
    AUDIO_FILE_STOP, VIDEO_STREAM_DONE, FRAME_CT_REQUEST, FRAME_CT_RESPONSE,
    PING_ACTION, TELNET_ACTION, REBOOT_ACTION, CLEAR_CONFIG_ACTION, KVRLOG_START,
    KVRLOG_STOP, USB_DEVICE_CONNECT, USB_DEVICE_DISCONNECT, BROWSER_LAYER_PARAM,
    VIDEO_LAYER_PARAM, RESERVE_1, RESERVE_2, RESERVE_3, BROWSER_RESTART, LAYERING_CTL,
    OPERATION_STATUS_REQ, OPERATION_STATUS_RES, DEVICE_REMOUNT_REQ, DEVICE_REMOUNT_RES,
    DEVICE_UMOUNT_REQ, DEVICE_UMOUNT_RES, STOP_XAPP_REQ, SYSTEM_REBOOT_REQ,
    SAPP_POLLING_STOP, SAPP_POLLING_START, COLOR_SETTING, STOP_MENU_DISPLAY,
    STOP_DISPLAY_CONTENT, RTSP_STREAM_PLAY, RTSP_STREAM_PLAY_NEXT, START_MENU_DISPLAY,
    SKIP_TO_PREV_ITEM, PLAY_INTERNAL_IMAGE, SIZE_ADJ_SETTING, STORAGE_STATUS_REQ,
    STORAGE_STATUS_RES, USB_CONF_UPDATE, USB_CONF_DONE, USB_COPY_START, USB_COPY_DONE,
    USB_FIRMWARE_CHECK, USB_CALL_NOW, CMMD_NONE
};
static_assert(USB_CONF_UPDATE == 92 && USB_CALL_NOW == 97 && CMMD_NONE == 98);

// Notification record on key 1240: the message type, then 60 bytes of text (sent as
// kUsbMsgTextSize bytes, see above).
struct s_MSG_BUF {
    long type;
    int cmmdId;
    char buf[56];
};

struct sMSG_CMMD {
    int cmmdId;
    int param[14];
};
struct sMSG_SSREQ {
    int cmmdId;
    int reqMsgQId;
    int reqMsgTypeId;
    int param[12];
};
struct sMSG_SSRES {
    int cmmdId;
    int usbStatus;
    int hdStatus;
    int param[12];
};
struct sMSG_USB_CONF {
    int cmmdId;
    int usbMediaStatus;  // 0: the stick carries no media to copy
    int param[13];
};

// The text of a notification (the bytes from cmmdId on) seen five ways.
struct s_MSG_TEXT {
    int cmmdId;
    char buf[56];
};
union sMSG_COMMON_FORMAT {
    s_MSG_TEXT msgBuf;
    sMSG_CMMD cmmd;
    sMSG_SSREQ ssReq;
    sMSG_SSRES ssRes;
    sMSG_USB_CONF usbCfg;
};
static_assert(sizeof(sMSG_COMMON_FORMAT) == 60);

struct sCMD_ONLY {
    int cmmdId;
};
union uMSG_FORMAT {
    sCMD_ONLY cmd_only;
};
// A message to the player on key 1234 (sent as kPlayerMsgTextSize bytes of text).
struct msgq_player {
    long msg_type;
    uMSG_FORMAT msg_data;
};

// The message type stays a `long`, since the kernel reads it as one: 4 bytes on the
// device, where these records are exactly the player's (s_MSG_BUF 64 bytes, msgq_player
// 8, the bridge record 2052). On a 64-bit host the type takes 8 bytes and the records
// are padded to a multiple of 8 (72, 16, 2056). Only the text after the type travels,
// and that is the same on both: 60 bytes of notification, a 4-byte command id.
static_assert(sizeof(int) == 4, "every record field is a 32-bit int");
static_assert(sizeof(s_MSG_BUF) == (sizeof(long) == 4 ? 64 : 72));
static_assert(sizeof(msgq_player) == (sizeof(long) == 4 ? 8 : 16));
static_assert(sizeof(queue_wire<kSnmpTextSize>) == sizeof(long) + kSnmpTextSize);
static_assert(offsetof(s_MSG_BUF, cmmdId) == sizeof(long) &&
              offsetof(s_MSG_BUF, buf) + sizeof(s_MSG_BUF::buf) == sizeof(long) + sizeof(sMSG_COMMON_FORMAT));
static_assert(offsetof(msgq_player, msg_data) == sizeof(long) && sizeof(uMSG_FORMAT) == 4);
// The text lengths sent are four bytes past each record's text: on the device, the
// records' own sizes.
static_assert(kUsbMsgTextSize == sizeof(sMSG_COMMON_FORMAT) + 4);
static_assert(kPlayerMsgTextSize == sizeof(uMSG_FORMAT) + 4);

// The player's MAC address, 12 hex digits; and the content server's base URL.
extern char macAddress[13];
extern char call_home_address[513];

// Makes one bridge request and its reply a single exchange. Usable from static
// initialisation on, since start-up asks for the MAC address before init_snmp runs.
extern pthread_mutex_t snmpMute;

int init_snmp(void);
// `reply` must hold kSnmpTextSize bytes; it receives the parsed value, or an empty
// text when the exchange failed or the reply held no value. Blocks until the bridge
// answers: there is no time limit.
char* send_snmp_command(int msg_type, const char* command, char* reply);
void send_player_msg(eKVR_CMMD_ID cmd_id);
void send_usbcopy_msg(eKVR_CMMD_ID cmd_id);
// `mac` must hold 13 bytes (macAddress): the value's non-blank characters, at most 12.
int get_mac_address(char* mac);
char* mac_address(void);
char* dcm_server(void);

// The value part of a bridge reply line "<oid> = <TYPE>: <value>": from two characters
// after the first ":" (three when a double quote stands there), cut at the first CR or
// LF, then one trailing blank and one trailing double quote dropped, in that order.
// Empty when the line holds no "=" or no ":". A view into `line`.
std::string_view snmp_reply_value(std::string_view line);
