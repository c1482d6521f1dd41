// Every place where a string from outside reaches the shell, fed the whole hostile corpus
// with the real shell, rm, cp and md5sum on the sandbox's partitions, player-sim as the
// player, and a wget that only records the words it was given. After each string: no
// injected command ran, nothing outside the media folders is gone, and where the string
// can arrive at all it arrived whole, as one word.
//
// A new place is one more row of `places`.
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <unistd.h>
#include <vector>

#include "actions/version.h"
#include "agent/action_file.h"
#include "core/shell.h"
#include "core/text.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "download/download.h"
#include "download/wget.h"
#include "hostile/corpus.h"
#include "storage/cleanup.h"
#include "storage/pelk_file.h"
#include "support/fake_platform.h"
#include "support/player_sim.h"
#include "support/sandbox.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kKeep[] = {"/tmp/keep.mpg", "/mnt/hd4/keep.mpg"};
constexpr const char* kArgs = "/tmp/wget-args";

DRAVIK_CONTENT content;  // tens of kilobytes: never on the stack

// A name a folder can hold.
bool file_name(const std::string& s) { return s.find('/') == std::string::npos; }

// `s` up to the first of `stops`; whole: when it holds none of them.
std::string upto(const std::string& s, const char* stops) { return s.substr(0, s.find_first_of(stops)); }
bool whole(const std::string& s, const char* stops = "\r\n") { return upto(s, stops) == s; }

// Whether a marker file exists anywhere an injected command could have put one.
bool marker_anywhere()
{
    std::error_code e;
    for (const char* top : {"/tmp", "/mnt"})
        for (auto it = fs::recursive_directory_iterator(top, e); it != fs::recursive_directory_iterator(); it.increment(e))
            if (it->path().filename() == "pwned") return true;
    return false;
}

// wget was given exactly `url` and then `rest` (the stand-in writes its arguments, each
// ended by a NUL); a URL that would read as an option is never handed to it.
void expect_wget(const std::string& url, const std::vector<std::string>& rest)
{
    std::string words = url + '\0';
    for (const std::string& word : rest) words += word + '\0';
    EXPECT_EQ(sandbox::read_file(kArgs), url.starts_with('-') ? "" : words);
}

void put(const std::string& path, const std::string& body)
{
    sandbox::set_writable(4, true);
    sandbox::write_file(path, body);
    sandbox::set_writable(4, false);
}

// Empties the media folders and the lists' folder, takes away the marker and wget's
// arguments an earlier string left, and puts the files to keep back.
void reset_files()
{
    sandbox::set_writable(4, true);
    std::system("rm -rf /tmp/pwned /tmp/wget-args /tmp/lists /mnt/hd4/video/* /mnt/hd4/picture/* "
                "/mnt/hd4/html/browser/* && mkdir /tmp/lists");
    for (const char* keep : kKeep) sandbox::write_file(keep, "keep");
    sandbox::set_writable(4, false);
}

void run_action_file(const std::string& text)
{
    sandbox::write_file("/tmp/callhome.lst", text);
    initiate_call_home = 1;  // a command list is read while the call home is on
    parse_action_file("/tmp/callhome.lst");
}

// The call-home address as a USB stick's configuration file gives it, then a command list.
void call_home_at(const std::string& address, const std::string& list)
{
    sandbox::write_file("/tmp/hostile.conf", "CallHomeAddress," + address + "\n");
    load_call_home_config("/tmp/hostile.conf", 0, 0);
    run_action_file(list);
}

struct Place {
    const char* what;
    void (*run)(const std::string&);  // feeds one string; checks it arrived whole
};

const Place places[] = {
    {"the quoting helpers themselves, into printf's words",
     [](const std::string& s) {
         char quoted[256], escaped[256];
         ASSERT_TRUE(shell_quoted(quoted, s) && shell_escaped(escaped, s));
         for (const std::string& word : {"'" + std::string(quoted) + "'", std::string(escaped)}) {
             std::system(("printf '[%s]' " + word + " > /tmp/printed").c_str());
             EXPECT_EQ(sandbox::read_file("/tmp/printed"), "[" + s + "]");  // a split would show
         }
     }},
    {"DeleteFile line",
     [](const std::string& s) {
         std::string media = "/mnt/hd4/video/" + s + ".mpg";
         bool deliverable = file_name(s) && whole(s);
         if (deliverable) put(media, "m");
         run_action_file("DeleteFile," + s + ".mpg\n");
         EXPECT_TRUE(!deliverable || !sandbox::exists(media));
     }},
    {"call-home address from USB.CONF, then a configuration and a content document fetched from it",
     [](const std::string& s) {
         call_home_at(s, "ConfigID,hostile-1\n");
         expect_wget(upto(s, "\r\n") + "/config.xml", {"-O", "/tmp/daconfig.xml"});
         run_action_file("ContentID,hostile-1\n");
         expect_wget(upto(s, "\r\n") + "/content.xml", {"-O", "/tmp/dacontent.xml"});
     }},
    {"CheckVersion address",
     [](const std::string& s) {
         run_action_file("CheckVersion,http://127.0.0.1:9/" + s + "\n");
         std::string line = upto(s, "\r\n");  // as the line reader keeps it: trailing blanks cut
         line = upto(line.substr(0, line.find_last_not_of(" \t\v\f") + 1), ",");
         expect_wget(std::regex_replace("http://127.0.0.1:9/" + line, std::regex(" "), "%20"), {"-O", "/tmp/pelk_version_info.inf"});
     }},
    {"firmware image named on the stick",
     [](const std::string& s) {
         bool deliverable = file_name(s) && whole(s, "\r\n,");
         if (deliverable) sandbox::write_file("/mnt/usb/" + s + ".bin", "image");
         sandbox::write_file("/mnt/usb/pelk_version_info.inf", "FW:0x211," + s + ".bin\n");
         std::size_t started = PlayerSim::lines("phase=start").size();
         check_inf_file();
         auto starts = PlayerSim::lines("phase=start");
         ASSERT_EQ(starts.size(), started + 1);
         EXPECT_TRUE(!deliverable || starts.back().find("file=present") != std::string::npos);
     }},
    {"media download, the name and the credentials",
     [](const std::string& s) {
         // The download thread, run in place, as the manager prepares it.
         std::string address = "http://127.0.0.1:9/m/" + s;
         fix_spaces(status.url, address.c_str(), sizeof status.url);
         copy_text(status.fname, s);
         copy_text(status.auth, s);
         status.media_index = 0;
         ftp_file_to_hd(nullptr);
         expect_wget(std::regex_replace(address, std::regex(" "), "+"),
                     {"-O", "/mnt/hd4/video/tempfile.xxx", "--header", "Authorization: Basic " + s});
     }},
    {"cleanup of a media folder",
     [](const std::string& s) {
         if (!file_name(s)) return;  // a folder listing holds no such name
         put("/mnt/hd4/video/" + s + ".mpg", "m");
         CLEANUP_RESULTS r{};
         EXPECT_EQ(cleanup_disk(&content, content.id, 100, &r), 0);
         EXPECT_FALSE(sandbox::exists("/mnt/hd4/video/" + s + ".mpg"));
     }},
    {"MD5 of a web page",
     [](const std::string& s) {
         if (file_name(s)) put("/mnt/hd4/html/browser/" + s + ".html", "hostile\n");
         char digest[34] = "";
         int got = get_md5sum(digest, (s + ".html").c_str(), 2);
         if (file_name(s)) {
             EXPECT_EQ(got, 1);
             EXPECT_STREQ(digest, "28db04e51e029767fb0633b83890a11e");  // md5 of "hostile\n"
         }
     }},
    {"listing of a folder into a file",
     [](const std::string& s) {
         std::string media = "/mnt/hd4/video/" + s + ".mpg", list = "/tmp/lists/" + s + ".lst";
         if (file_name(s)) put(media, "m");
         write_file_list(media.c_str(), list.c_str(), nullptr);
         if (file_name(s)) {
             EXPECT_EQ(sandbox::read_file(list), media + "\n");
         }
     }},
};

TEST(Hostile, NoStringFromOutsideRunsACommandOrDeletesOutsideTheMediaFolders)
{
    PlayerSim sim({"--upgrade-polls", "0"});
    FakePlatform platform;
    platform.run_commands(true);
    platform.scale_sleeps(10);  // a poll of 2 s lasts 20 ms
    std::strcpy(macAddress, "001A2B3C4D5E");
    // Room taken outside the folders the cleanup reads, so that it has space to free.
    put("/mnt/hd4/audio/filler", std::string(16 << 20, 'f'));
    // A wget that writes its arguments, each ended by a NUL, then fails at once.
    fs::create_directories("/tmp/hostile-bin");
    sandbox::write_file("/tmp/hostile-bin/wget", "#!/bin/sh\nprintf '%s\\0' \"$@\" > /tmp/wget-args.part && "
                        "mv /tmp/wget-args.part /tmp/wget-args\necho 'ERROR: recorded, not fetched' > /tmp/wgetErr.txt\n");
    fs::permissions("/tmp/hostile-bin/wget", fs::perms::owner_all);
    setenv("PATH", ("/tmp/hostile-bin:" + std::string(std::getenv("PATH"))).c_str(), 1);

    for (const Place& place : places)
        for (const char* text : kHostileCorpus) {
            const std::string s = text;
            SCOPED_TRACE(std::string(place.what) + " <- " + ::testing::PrintToString(s));
            ASSERT_EQ(chdir("/tmp"), 0);
            reset_files();

            place.run(s);

            EXPECT_FALSE(marker_anywhere());
            for (const char* keep : kKeep) EXPECT_TRUE(sandbox::exists(keep)) << keep;
        }
}

}  // namespace
