#pragma once
// dravikAPI: the records that the server's documents are parsed into, one global
// instance of each with its validity flag, and the parsers that fill them.
//
//   dA_Initialize                       zero every record, clear every flag
//   dA_Parse{Content,ConfigurationCH,Configuration,Player,DLRequest}(path)
//                                       0 on success, -1 on failure
//   dA_Is...Valid, dA_Content(), dA_ConfigurationCH() ...  flags and the records
//
// Records hold no pointers: fixed character arrays (N bytes hold N-1 characters and
// a terminator) and fixed arrays with a count beside them. A document with more
// entries than an array holds is cut at the capacity.
#include <cstdint>

constexpr int kMaxAooItems = 30;
constexpr int kMaxPlaylists = 10;
constexpr int kMaxPlaylistItems = 100;
constexpr int kMaxFiles = 200;
constexpr int kMaxDayItems = 28;
constexpr int kMaxScheduleItems = 10;
constexpr int kMaxServers = 4;
constexpr int kMaxLayouts = 10;
constexpr int kMaxLayoutFiles = 20;
constexpr int kMaxLayoutPlItems = 4;

// One auto on/off switching point.
struct AOO_ITEM {
    int day;          // 0 Sunday .. 6 Saturday; -1 unrecognised
    int mode;         // 1 on from this point, 0 off
    int time_of_day;  // seconds after local midnight
};

struct DRAVIK_DLREQUEST {
    int allow;  // nonzero: a download may start now
};

// The channel configuration.
struct DRAVIK_CONFIGURATION_CH {
    char id[39];
    int autoOnOffEnable;
    int aooItemCount;
    AOO_ITEM aooItems[kMaxAooItems];
    char primaryTS[128];
    char secondaryTS[128];
    int loggingEnable;
    int logInterval;  // hours
    int logOffset;    // seconds
    int logAutoOffset;
    char loggingServer[128];
    int timezone;
    int rebootEnable;
    int rebootTime;  // seconds after local midnight
};

struct DRAVIK_PLAYLIST_ITEM {
    int type;    // media type code: 0 video, 1 picture, 2 web page, -1 unknown
    int findex;  // index into the content's files
    int duration;
};

struct DRAVIK_PLAYLIST {
    int pindex;
    char name[65];
    int itemCount;
    DRAVIK_PLAYLIST_ITEM PlItems[kMaxPlaylistItems];
};

struct DRAVIK_FILE_ITEM {
    int findex;
    int type;
    int server_id;
    char fname[129];
    std::uint32_t fsize;  // bytes
    char path[65];
    // Only the first four characters of the MD5 digest: the download check compares
    // just these four.
    char md5[5];
};

struct DAY_ITEM {
    int day;          // 0 Sunday .. 6 Saturday; -1 never matches
    int mode;         // 1 playlist on from this time, 0 off
    int time_of_day;  // seconds after local midnight
};

struct SCHEDULE_ITEM {
    int pindex;
    int lindex;
    char stime[20];
    char etime[20];
    int dayItemCount;
    DAY_ITEM dayItems[kMaxDayItems];
};

struct DRAVIK_SCHEDULE {
    int defaultpl_index;
    int defaultlo_index;
    int itemCount;
    SCHEDULE_ITEM schedItems[kMaxScheduleItems];
};

struct DRAVIK_SERVER_ITEM {
    int id;
    char address[256];
};

struct LAYOUT_FILE {
    int type;
    int findex;
};

struct LAYOUT_PL_ITEM {
    char url[256];
    int dur;
};

struct LAYOUT_VID_AREA {
    int x;
    int y;
    int width;
    int height;
};

struct DRAVIK_LAYOUT {
    int lindex;
    char name[33];
    int fileCount;
    int plItemCount;
    LAYOUT_VID_AREA va1080p;
    LAYOUT_VID_AREA va720p;
    LAYOUT_VID_AREA vaPct;
    LAYOUT_FILE layoutFiles[kMaxLayoutFiles];
    LAYOUT_PL_ITEM layoutPLItems[kMaxLayoutPlItems];
};

// The content document. Tens of kilobytes: static storage only, never the stack.
struct DRAVIK_CONTENT {
    char id[39];
    char name[65];
    int plcount;
    int filecount;
    int servercount;
    int layoutcount;
    DRAVIK_PLAYLIST playlists[kMaxPlaylists];
    DRAVIK_FILE_ITEM files[kMaxFiles];
    DRAVIK_SCHEDULE schedule;
    DRAVIK_SERVER_ITEM servers[kMaxServers];
    DRAVIK_LAYOUT layouts[kMaxLayouts];
};

// The player document.
struct DRAVIK_PLAYER {
    char current_playlist_id[39];
    char next_playlist_id[39];
    char next_playlist_start_time[20];
    char content_id[39];
    char configuration_id[39];
    int dl_permitted;
    char mode[9];
};

// The plain configuration document: just its id.
struct DRAVIK_CONFIGURATION {
    char id[39];
};

// A name/data pair handed to the callbacks of the player and plain configuration
// parsers (a `command` or a `cfg_item`).
struct DRAVIK_NAME_DATA {
    char name[33];
    char data[256];
};
using dA_ItemCallback = void (*)(DRAVIK_NAME_DATA* item);

extern DRAVIK_PLAYER Player;
extern DRAVIK_CONTENT Content;
extern DRAVIK_DLREQUEST DLRequest;
extern DRAVIK_CONFIGURATION Configuration;
extern DRAVIK_CONFIGURATION_CH ConfigurationCH;
// The id of the content document saved on the disk (/mnt/hd3/contentdata.txt), set at
// start-up and when the content check saves a new document. Kept here, beside the
// records, because the disk cleanup below the content check compares it too.
extern char g_saved_content_id[39];
extern int g_PlayerValid;
extern int g_ContentValid;
extern int g_DLRequestValid;
extern int g_ConfigurationValid;
extern int g_ConfigurationCHValid;

void dA_Initialize(void);
int dA_IsPlayerValid(void);
int dA_IsDLRequestValid(void);
int dA_IsContentValid(void);
int dA_IsConfigurationValid(void);
int dA_IsConfigurationCHValid(void);
DRAVIK_PLAYER* dA_Player(void);
DRAVIK_CONTENT* dA_Content(void);
DRAVIK_DLREQUEST* dA_DLRequest(void);
DRAVIK_CONFIGURATION* dA_Configuration(void);
DRAVIK_CONFIGURATION_CH* dA_ConfigurationCH(void);

int dA_ParseContent(const char* path);
int dA_ParseConfigurationCH(const char* path);
int dA_ParseConfiguration(const char* path, dA_ItemCallback callback);
int dA_ParsePlayer(const char* path, dA_ItemCallback callback);
int dA_ParseDLRequest(const char* path);
