// Every place where a string from outside reaches the shell, fed the whole hostile corpus
// with the real shell, rm, cp and md5sum on the sandbox's partitions, player-sim as the
// player, and a wget that only records the words it was given. After each string: no
// injected command ran, nothing outside the media folders is gone, and where the string
// can arrive at all it arrived whole, as one word.
//
// A new place is one more row of `places`.
#include <cstring>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "actions/version.h"
#include "agent/action_file.h"
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
#include "support/queues.h"
#include "support/sandbox.h"

namespace {

using Texts = std::vector<std::string>;

constexpr const char* kKeep[] = {"/tmp/keep.mpg", "/mnt/hd4/keep.mpg"};
constexpr const char* kArgs = "/tmp/wget-args";
constexpr const char* kList = "/tmp/callhome.lst";

DRAVIK_CONTENT content;  // tens of kilobytes: never on the stack

// A name a folder can hold.
bool file_name(const std::string& s) { return s.find('/') == std::string::npos; }

// `s` up to the first of `stops`; whole: when it holds none of them.
std::string upto(const std::string& s, const char* stops) { return s.substr(0, s.find_first_of(stops)); }
bool whole(const std::string& s, const char* stops = "\r\n") { return upto(s, stops) == s; }

// What a line reader keeps of `s`: up to its first line end, trailing white space cut.
std::string first_line(const std::string& s)
{
    std::string line = upto(s, "\r\n");
    return line.substr(0, line.find_last_not_of(" \t\v\f") + 1);
}

std::string replaced(std::string s, char from, const std::string& to)
{
    for (std::size_t i = 0; (i = s.find(from, i)) != std::string::npos; i += to.size()) s.replace(i, 1, to);
    return s;
}

// Whether a marker file exists anywhere an injected command could have put one.
bool marker_anywhere()
{
    std::error_code e;
    for (const char* top : {"/tmp", "/mnt"})
        for (auto it = std::filesystem::recursive_directory_iterator(top, e);
             it != std::filesystem::recursive_directory_iterator(); it.increment(e))
            if (it->path().filename() == "pwned") return true;
    return false;
}

// The stand-in wget writes its arguments, each ended by a NUL, then fails at once.
Texts wget_args()
{
    Texts args;
    std::string all = sandbox::read_file(kArgs);
    for (std::size_t at = 0, end; (end = all.find('\0', at)) != std::string::npos; at = end + 1)
        args.push_back(all.substr(at, end - at));
    return args;
}

// wget was given exactly `url` and then `rest`; a URL that would read as an option is
// never handed to it.
void expect_wget(const std::string& url, Texts rest)
{
    if (url.starts_with('-')) {
        EXPECT_FALSE(sandbox::exists(kArgs));
        return;
    }
    rest.insert(rest.begin(), url);
    EXPECT_EQ(wget_args(), rest);
}

// Empties the media folders and the lists' folder, takes away a marker an earlier string
// left, and puts the files to keep back.
void reset_files()
{
    unlink("/tmp/pwned");
    std::filesystem::create_directories("/tmp/lists");
    sandbox::set_writable(4, true);
    for (const char* dir : {"/mnt/hd4/video", "/mnt/hd4/picture", "/mnt/hd4/html/browser", "/tmp/lists"})
        for (const auto& entry : std::filesystem::directory_iterator(dir)) std::filesystem::remove_all(entry);
    for (const char* keep : kKeep) sandbox::write_file(keep, "keep");
    sandbox::set_writable(4, false);
}

void put(const std::string& path, const std::string& body)
{
    sandbox::set_writable(4, true);
    sandbox::write_file(path, body);
    sandbox::set_writable(4, false);
}

void run_action_file(const std::string& text)
{
    sandbox::write_file(kList, text);
    initiate_call_home = 1;  // a command list is read while the call home is on
    parse_action_file(kList);
}

// The call-home address as a USB stick's configuration file gives it.
void call_home_at(const std::string& address)
{
    sandbox::write_file("/tmp/hostile.conf", "CallHomeAddress," + address + "\n");
    load_call_home_config("/tmp/hostile.conf", 0, 0);
}

struct Place {
    const char* what;
    std::function<void(const std::string&)> run;  // feeds one string; checks it arrived whole
};

const Place places[] = {
    {"DeleteFile line",
     [](const std::string& s) {
         std::string media = "/mnt/hd4/video/" + s + ".mpg";
         bool deliverable = file_name(s) && whole(s);
         if (deliverable) put(media, "m");
         run_action_file("DeleteFile," + s + ".mpg\n");
         if (deliverable) {
             EXPECT_FALSE(sandbox::exists(media));
         }
     }},
    {"call-home address from USB.CONF, then a configuration fetched from it",
     [](const std::string& s) {
         call_home_at(s);
         run_action_file("ConfigID,hostile-1\n");
         expect_wget(upto(s, "\r\n") + "/config.xml", {"-O", "/tmp/daconfig.xml"});
     }},
    {"call-home address from USB.CONF, then a content document fetched from it",
     [](const std::string& s) {
         call_home_at(s);
         run_action_file("ContentID,hostile-1\n");
         expect_wget(upto(s, "\r\n") + "/content.xml", {"-O", "/tmp/dacontent.xml"});
     }},
    {"CheckVersion address",
     [](const std::string& s) {
         run_action_file("CheckVersion,http://127.0.0.1:9/" + s + "\n");
         expect_wget(replaced("http://127.0.0.1:9/" + upto(first_line(s), ","), ' ', "%20"),
                     {"-O", "/tmp/pelk_version_info.inf"});
     }},
    {"firmware image named on the stick",
     [](const std::string& s) {
         bool deliverable = file_name(s) && whole(s, "\r\n,");
         if (deliverable) sandbox::write_file("/mnt/usb/" + s + ".bin", "image");
         sandbox::write_file("/mnt/usb/pelk_version_info.inf", "FW:0x211," + s + ".bin\n");
         std::size_t started = PlayerSim::lines("phase=start").size();
         check_inf_file();
         Texts starts = PlayerSim::lines("phase=start");
         ASSERT_EQ(starts.size(), started + 1);
         if (deliverable) {
             EXPECT_NE(starts.back().find("file=present"), std::string::npos);
         }
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
         expect_wget(replaced(address, ' ', "+"),
                     {"-O", "/mnt/hd4/video/tempfile.xxx", "--header", "Authorization: Basic " + s});
     }},
    {"cleanup of a media folder",
     [](const std::string& s) {
         if (!file_name(s)) return;  // a folder listing holds no such name
         std::string media = "/mnt/hd4/video/" + s + ".mpg";
         put(media, "m");
         CLEANUP_RESULTS r{};
         EXPECT_EQ(cleanup_disk(&content, content.id, 100, &r), 0);
         EXPECT_FALSE(sandbox::exists(media));
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
    queues::drain_all();
    PlayerSim sim({"--upgrade-polls", "0"});
    FakePlatform platform;
    platform.run_commands(true);
    platform.scale_sleeps(10);  // a poll of 2 s lasts 20 ms
    std::strcpy(macAddress, "001A2B3C4D5E");
    // Room taken outside the folders the cleanup reads, so that it has space to free.
    put("/mnt/hd4/audio/filler", std::string(16 << 20, 'f'));
    ASSERT_EQ(std::system("mkdir -p /tmp/hostile-bin && cat > /tmp/hostile-bin/wget <<'EOF'\n"
                          "#!/bin/sh\n"
                          "printf '%s\\0' \"$@\" > /tmp/wget-args.part && mv /tmp/wget-args.part /tmp/wget-args\n"
                          "echo 'ERROR: recorded, not fetched' > /tmp/wgetErr.txt\n"
                          "EOF\n"
                          "chmod 755 /tmp/hostile-bin/wget"),
              0);
    setenv("PATH", ("/tmp/hostile-bin:" + std::string(std::getenv("PATH"))).c_str(), 1);

    for (const Place& place : places) {
        for (const char* text : kHostileCorpus) {
            const std::string s = text;
            SCOPED_TRACE(std::string(place.what) + " <- " + ::testing::PrintToString(s));
            ASSERT_EQ(chdir("/tmp"), 0);
            unlink(kArgs);
            reset_files();

            place.run(s);

            EXPECT_FALSE(marker_anywhere());
            for (const char* keep : kKeep) EXPECT_TRUE(sandbox::exists(keep)) << keep;
        }
    }
}

}  // namespace
