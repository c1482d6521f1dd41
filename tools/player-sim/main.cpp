// player-sim: stands in for the player application and its management bridge, speaking
// only their message-queue protocol with the agent, so that the agent runs end to end
// in the sandbox. See --help.
#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <getopt.h>
#include <memory>
#include <poll.h>
#include <signal.h>
#include <string>
#include <string_view>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "bridge.h"
#include "cmmd_names.h"
#include "core/usb_xapp.h"
#include "sim_log.h"

namespace {

constexpr const char* kUsage = R"(Usage: player-sim [OPTION]...
  or:  player-sim --notify WHAT [--media N] [--control PATH]
  or:  player-sim --help

The first form runs until SIGTERM or SIGINT; --notify has the running player-sim send
a notification. Stands in for the player application and its management bridge on the queues the
agent uses: it answers every bridge request on key 1235 with one reply of type 772 on
key 1236, takes the agent's player messages on key 1234 and its answers (type 30) on
key 1240, and sends notifications (type 31) on key 1240 when asked to. It runs only
inside tools/sandbox.

Start values of the bridge's objects:
  --mac HEX               MAC address, 12 hex digits, ":" "-" or blanks between octets
                          allowed (default 00:1A:2B:3C:4D:5E); reported as a Hex-STRING
  --resolution N          resolution code, 3.2.9.0 (default 8)
  --firmware-version N    installed firmware version, 3.5.13.0 (default 528, 0x210)
  --time-server1 TEXT     primary time server, 3.5.15.0 (default pool.ntp.org)
  --time-server2 TEXT     secondary time server, 3.5.16.0 (default none); a set of
                          either to a lone blank (" ") clears it
  --timezone N            time zone, 3.5.17.0 (default 0)
  --logging 0|1           logging, 3.5.35.0 (default 0)
  --value OID=INTEGER:N | OID=STRING:TEXT | OID=Hex-STRING:HEX
                          any object (OID in full or below 1.3.6.1.4.1.58321)

Playback: a set of 3.3.30.0 selects layer 0 (video) or 1 (browser); a set of 3.3.32.0
to "ram::playlist://rN" makes that layer play --playlists DIR/rN (default
/tmp/playlists/rN) in the area set before it: width 3.3.26.0, height 3.3.27.0, x
3.3.24.0, y 3.3.25.0, in pixels when 3.3.23.0 was set to 1 for this start, else in
percent of the screen (a coordinate mode holds for the one start that follows it). A
list plays only on its own layer: "LayerType = Video" on layer 0, "Browser" (a layout)
on layer 1. A set of 3.3.5.0 to "hN" plays the player's own start-up list
--startup-dir DIR/hN (default /tmp/hN) full screen on layer 0, as a player does after
a resolution change. A get of 3.3.1.0 reports "<layer 0>%<layer 1>", each either
"rN,<Name line>,Playing,<first item>,1" or, idle, "Idle,,0"; a file that cannot be
read, lacks its [Control], Name or [List], or belongs on the other layer shows
"rN,<name>,Error,<why>,0". A set of 3.3.9.0 to 7 (or 1) stops both layers, 17 layer 0,
33 layer 1: a stopped layer reports "Idle,,0", so it names no slot any more.

Upgrades: after a set of 3.5.8.0 (firmware), 3.5.22.0 (software) or 3.5.80.0
("<code>;downloadxapp;URL" or "<code>;downloadsplash;URL"), reads of 3.4.15.0 report
the upgrade under way (241-244; 145; 255) and then its end: success 240, 144, 1;
failure 245, 146, 2. An "ide:///PATH" address is a file the player reads when the
command arrives: without it the upgrade fails whatever the outcome chosen.
  --firmware ok|fail  --software ok|fail  --xapp ok|fail  --splash ok|fail
                          outcome of each kind (default ok)
  --upgrade-polls N       reads of 3.4.15.0 under way before the end (default 3)

Other options:
  --never-answer          take bridge requests and log them, but never reply (the
                          agent then waits for ever, as it does with a silent bridge)
  --log PATH              the log, one line per message ("-": standard output;
                          default /tmp/player-sim.log)
  --control PATH          the FIFO through which --notify reaches the running
                          player-sim (default /tmp/player-sim.ctl)

--notify WHAT sends one type-31 notification with the command id WHAT: call-now (97),
conf-update (92), copy-start (94), copy-done (95), firmware-check (96), an id's name
(USB_CONF_UPDATE ...) or any number. --media N sets its usbMediaStatus (default 0, a
stick without media).

Log lines: "<seconds.millis> <event> <field>=<value> ...", texts quoted with C escapes.
  start   pid= answer=yes|never
  recv    key=1235 type=769|770 len=2048 text="..."       a bridge request
  send    key=1236 type=772 len=N text="..."              its reply
  recv    key=1234 type=2 len=8 cmmd=N name=NAME          a player message
  recv    key=1240 type=30 len=64 cmmd=N name=NAME        the agent's answer
  send    key=1240 type=31 len=64 cmmd=N name=NAME media=N
  drop    key=K type=T len=N why="..." text="..."         wrong size, type or text: ignored
  state   layer=N report="..." [area=WxH+X+Y units=pixels|percent]
                                                          a layer started (with its
                                                          area) or stopped
  upgrade kind=K phase=start url="..." [file=present|missing]
                                                          (file= for "ide://" addresses)
          | phase=end outcome=ok|fail value=N
  stop    signal=N
)";

constexpr std::size_t kMaxText = 65536;  // larger than any message the kernel passes

struct Options {
    std::string log = "/tmp/player-sim.log";
    std::string control = "/tmp/player-sim.ctl";
    std::string playlists = "/tmp/playlists";
    std::string startup = "/tmp";
    bool never_answer = false;
    sim::UpgradeOutcomes outcomes;
    std::string notify;  // set: this invocation only asks the running one to notify
    int media = 0;
};

[[noreturn]] void usage_error(const std::string& why)
{
    std::fprintf(stderr, "player-sim: %s (see --help)\n", why.c_str());
    std::exit(2);
}

bool parse_int(const char* text, long& out)
{
    errno = 0;
    char* end = nullptr;
    out = std::strtol(text, &end, 0);
    return errno == 0 && end != text && *end == '\0';
}

long int_option(const char* name, const char* text)
{
    long v;
    if (!parse_int(text, v)) usage_error(std::string(name) + " needs a number, not '" + text + "'");
    return v;
}

bool outcome_option(const char* name, const char* text)
{
    if (std::strcmp(text, "ok") == 0) return true;
    if (std::strcmp(text, "fail") == 0) return false;
    usage_error(std::string(name) + " is ok or fail");
}

// "00:1A:2B:3C:4D:5E", "001a2b3c4d5e" ... as the bridge's "00 1A 2B 3C 4D 5E".
std::string mac_octets(std::string_view text)
{
    std::string digits;
    for (char c : text) {
        if (c == ':' || c == '-' || c == ' ') continue;
        if (!std::isxdigit(static_cast<unsigned char>(c))) return {};
        digits += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    if (digits.size() != 12) return {};
    std::string octets;
    for (std::size_t i = 0; i < 12; i += 2) {
        if (i) octets += ' ';
        octets += digits.substr(i, 2);
    }
    return octets;
}

// --value OID=KIND:TEXT
void value_option(sim::Bridge& bridge, std::string_view text)
{
    std::size_t eq = text.find('=');
    std::size_t colon = eq == std::string_view::npos ? eq : text.find(':', eq);
    if (colon == std::string_view::npos) usage_error("--value is OID=KIND:VALUE");
    std::string_view oid = text.substr(0, eq);
    std::string_view kind = text.substr(eq + 1, colon - eq - 1);
    std::string value(text.substr(colon + 1));
    sim::Value v;
    long n;
    if (kind == "INTEGER" && parse_int(value.c_str(), n)) v = {sim::Kind::Integer, std::to_string(n)};
    else if (kind == "STRING") v = {sim::Kind::String, value};
    else if (kind == "Hex-STRING" && !mac_octets(value).empty()) v = {sim::Kind::HexString, mac_octets(value)};
    else if (kind == "Hex-STRING") v = {sim::Kind::HexString, value};
    else usage_error("--value kind is INTEGER (with a number), STRING or Hex-STRING");
    if (!bridge.set_value(oid, v)) usage_error("--value needs an object identifier");
}

int notify_id(const std::string& what)
{
    static const std::pair<const char*, int> kShort[] = {
        {"call-now", USB_CALL_NOW},     {"conf-update", USB_CONF_UPDATE},
        {"copy-start", USB_COPY_START}, {"copy-done", USB_COPY_DONE},
        {"firmware-check", USB_FIRMWARE_CHECK}};
    for (const auto& [name, id] : kShort)
        if (what == name) return id;
    for (int id = 0; id <= CMMD_NONE; ++id)
        if (sim::cmmd_name(id) == what) return id;
    long n;
    if (parse_int(what.c_str(), n) && n >= INT32_MIN && n <= INT32_MAX) return static_cast<int>(n);
    usage_error("--notify needs a notification name or a command id, not '" + what + "'");
}

// The second invocation: hand the request to the running player-sim through its FIFO.
int request_notification(const Options& o)
{
    int id = notify_id(o.notify);
    int fd = open(o.control.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        std::fprintf(stderr, "player-sim: no running player-sim reads %s (%s)\n", o.control.c_str(),
                     std::strerror(errno));
        return 1;
    }
    char line[64];
    int n = std::snprintf(line, sizeof line, "notify %d %d\n", id, o.media);
    // One short write to a pipe arrives whole, never mixed with another invocation's.
    bool ok = write(fd, line, static_cast<std::size_t>(n)) == n;
    close(fd);
    if (!ok) {
        std::fprintf(stderr, "player-sim: could not write to %s\n", o.control.c_str());
        return 1;
    }
    return 0;
}

// Everything the running simulator shares between its threads.
struct Sim {
    Options options;
    sim::Log log;
    sim::Bridge bridge;
    // A receiving thread opens its queue again when it was removed, while the main
    // thread may be sending on the notification queue.
    std::atomic<int> player_queue, request_queue, reply_queue, notify_queue;
};

std::string head(int key, long type, std::size_t len)
{
    return "key=" + std::to_string(key) + " type=" + std::to_string(type) +
           " len=" + std::to_string(len);
}

void drop(Sim& s, int key, long type, std::string_view text, const char* why)
{
    s.log.write("drop", head(key, type, text.size()) + " why=" + sim::quoted(why) +
                            " text=" + sim::quoted(text, 200));
}

int command_id_of(std::string_view text)
{
    int id;
    std::memcpy(&id, text.data(), sizeof id);
    return id;
}

// Takes messages from one queue for ever and hands each to `handle`.
template <typename Handle>
void receive_loop(Sim& s, int key, std::atomic<int>& queue, long type, int flags, Handle handle)
{
    auto msg = std::make_unique<queue_wire<kMaxText>>();
    for (;;) {
        ssize_t n = msgrcv(queue, msg.get(), kMaxText, type, flags | MSG_NOERROR);
        if (n < 0) {
            if (errno == EINTR) continue;
            // The queue was removed under us: open it again, as the agent would.
            s.log.write("drop", "key=" + std::to_string(key) + " why=" +
                                    sim::quoted(std::string("receive failed: ") + std::strerror(errno)));
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            queue = msgget(key, IPC_CREAT | 0666);
            continue;
        }
        handle(msg->type, std::string_view(msg->text, static_cast<std::size_t>(n)));
    }
}

void serve_bridge(Sim& s)
{
    receive_loop(s, kBridgeRequestKey, s.request_queue, 0, 0, [&s](long type, std::string_view text) {
        if (type != kSnmpSetType && type != kSnmpGetType)
            return drop(s, kBridgeRequestKey, type, text, "not a set (769) or a get (770)");
        if (text.size() != static_cast<std::size_t>(kSnmpTextSize))
            return drop(s, kBridgeRequestKey, type, text, "a request is 2048 bytes");
        std::size_t end = text.find('\0');
        if (end == std::string_view::npos)
            return drop(s, kBridgeRequestKey, type, text, "command not terminated");
        std::string_view command = text.substr(0, end);
        for (char c : command)
            if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
                return drop(s, kBridgeRequestKey, type, text, "control character in command");
        s.log.write("recv", head(kBridgeRequestKey, type, text.size()) + " text=" + sim::quoted(command));
        if (s.options.never_answer) return;

        std::string reply = type == kSnmpGetType ? s.bridge.get(command) : s.bridge.set(command);
        for (const std::string& e : s.bridge.take_events()) {
            std::size_t blank = e.find(' ');
            s.log.write(std::string_view(e).substr(0, blank), std::string_view(e).substr(blank + 1));
        }
        queue_wire<kSnmpTextSize> out{};
        out.type = kSnmpReplyType;
        std::size_t len = std::min(reply.size(), sizeof out.text - 1);
        std::memcpy(out.text, reply.data(), len);
        // The reply goes with its terminating NUL. A reply queue the agent no longer reads
        // must not stall the bridge: a full queue loses the reply, and says so.
        if (msgsnd(s.reply_queue, &out, len + 1, IPC_NOWAIT) != 0)
            return drop(s, kBridgeReplyKey, kSnmpReplyType, reply, "reply queue full");
        s.log.write("send", head(kBridgeReplyKey, kSnmpReplyType, len + 1) +
                                " text=" + sim::quoted(std::string_view(reply).substr(0, len)));
    });
}

void serve_player(Sim& s)
{
    receive_loop(s, kPlayerQueueKey, s.player_queue, 0, 0, [&s](long type, std::string_view text) {
        if (type != kPlayerMsgType) return drop(s, kPlayerQueueKey, type, text, "not type 2");
        if (text.size() != static_cast<std::size_t>(kPlayerMsgTextSize))
            return drop(s, kPlayerQueueKey, type, text, "a player message is 8 bytes");
        int id = command_id_of(text);
        if (sim::cmmd_name(id) == "?") return drop(s, kPlayerQueueKey, type, text, "unknown command id");
        s.log.write("recv", head(kPlayerQueueKey, type, text.size()) + " cmmd=" + std::to_string(id) +
                                " name=" + std::string(sim::cmmd_name(id)));
    });
}

// Everything on the notification queue except type 31, which is the agent's to take.
void serve_answers(Sim& s)
{
    receive_loop(s, kNotifyQueueKey, s.notify_queue, kUsbNotifyType, MSG_EXCEPT,
                 [&s](long type, std::string_view text) {
                     if (type != kUsbAnswerType) return drop(s, kNotifyQueueKey, type, text, "not type 30");
                     if (text.size() != static_cast<std::size_t>(kUsbMsgTextSize))
                         return drop(s, kNotifyQueueKey, type, text, "an answer is 64 bytes");
                     int id = command_id_of(text);
                     s.log.write("recv", head(kNotifyQueueKey, type, text.size()) +
                                             " cmmd=" + std::to_string(id) +
                                             " name=" + std::string(sim::cmmd_name(id)));
                 });
}

void send_notification(Sim& s, int id, int media)
{
    // The agent reads the command id and usbMediaStatus (sMSG_USB_CONF) from the text.
    queue_wire<kUsbMsgTextSize> out{};
    out.type = kUsbNotifyType;
    sMSG_USB_CONF conf{};
    conf.cmmdId = id;
    conf.usbMediaStatus = media;
    static_assert(sizeof conf <= sizeof out.text);
    std::memcpy(out.text, &conf, sizeof conf);
    std::string fields = head(kNotifyQueueKey, kUsbNotifyType, sizeof out.text) + " cmmd=" +
                         std::to_string(id) + " name=" + std::string(sim::cmmd_name(id)) +
                         " media=" + std::to_string(media);
    if (msgsnd(s.notify_queue, &out, sizeof out.text, IPC_NOWAIT) != 0)
        return s.log.write("drop", fields + " why=" + sim::quoted(std::strerror(errno)));
    s.log.write("send", fields);
}

// "notify <id> <media>", as request_notification writes it.
void control_request(Sim& s, std::string_view line)
{
    std::string text(line);
    std::vector<long> numbers;
    bool ok = text.rfind("notify ", 0) == 0;
    for (std::size_t at = 7; ok && at <= text.size();) {
        std::size_t blank = text.find(' ', at);
        std::string word = text.substr(at, blank == std::string::npos ? blank : blank - at);
        long n = 0;
        ok = parse_int(word.c_str(), n) && n >= INT32_MIN && n <= INT32_MAX;
        numbers.push_back(n);
        at = blank == std::string::npos ? text.size() + 1 : blank + 1;
    }
    if (ok && numbers.size() == 2)
        return send_notification(s, static_cast<int>(numbers[0]), static_cast<int>(numbers[1]));
    s.log.write("drop", "key=control why=\"unknown request\" text=" + sim::quoted(line, 200));
}

int run(Sim& s)
{
    s.player_queue = msgget(kPlayerQueueKey, IPC_CREAT | 0666);
    s.request_queue = msgget(kBridgeRequestKey, IPC_CREAT | 0666);
    s.reply_queue = msgget(kBridgeReplyKey, IPC_CREAT | 0666);
    s.notify_queue = msgget(kNotifyQueueKey, IPC_CREAT | 0666);
    if (s.player_queue < 0 || s.request_queue < 0 || s.reply_queue < 0 || s.notify_queue < 0) {
        std::perror("player-sim: msgget");
        return 1;
    }

    const char* fifo = s.options.control.c_str();
    unlink(fifo);
    if (mkfifo(fifo, 0600) != 0) {
        std::perror("player-sim: mkfifo");
        return 1;
    }
    // Read and write: the FIFO never reports an end while this process holds it.
    int control = open(fifo, O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (control < 0) {
        std::perror("player-sim: open control FIFO");
        return 1;
    }

    // Termination arrives as a readable descriptor; the receiving threads never see it.
    sigset_t stop_signals;
    sigemptyset(&stop_signals);
    sigaddset(&stop_signals, SIGTERM);
    sigaddset(&stop_signals, SIGINT);
    sigaddset(&stop_signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);
    int signals = signalfd(-1, &stop_signals, SFD_CLOEXEC);
    if (signals < 0) {
        std::perror("player-sim: signalfd");
        return 1;
    }

    std::thread(serve_bridge, std::ref(s)).detach();
    std::thread(serve_player, std::ref(s)).detach();
    std::thread(serve_answers, std::ref(s)).detach();
    s.log.write("start", "pid=" + std::to_string(getpid()) +
                             " answer=" + (s.options.never_answer ? "never" : "yes"));

    std::string pending;
    for (;;) {
        pollfd fds[2] = {{control, POLLIN, 0}, {signals, POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            std::perror("player-sim: poll");
            return 1;
        }
        if (fds[1].revents & POLLIN) {
            signalfd_siginfo info{};
            if (read(signals, &info, sizeof info) != sizeof info) continue;
            s.log.write("stop", "signal=" + std::to_string(info.ssi_signo));
            unlink(fifo);
            // The receiving threads sit in msgrcv; end the process without unwinding them.
            _exit(0);
        }
        if (fds[0].revents & POLLIN) {
            char buf[512];
            ssize_t n = read(control, buf, sizeof buf);
            if (n <= 0) continue;
            pending.append(buf, static_cast<std::size_t>(n));
            for (std::size_t nl; (nl = pending.find('\n')) != std::string::npos;) {
                control_request(s, std::string_view(pending).substr(0, nl));
                pending.erase(0, nl + 1);
            }
            if (pending.size() > 4096) pending.clear();  // no line end in sight: garbage
        }
    }
}

}  // namespace

int main(int argc, char** argv)
{
    enum {
        kMac = 256, kResolution, kFirmwareVersion, kTimeServer1, kTimeServer2, kTimezone,
        kLogging, kValue, kFirmware, kSoftware, kXapp, kSplash, kUpgradePolls, kNeverAnswer,
        kLog, kControl, kPlaylists, kStartup, kNotify, kMedia, kHelp
    };
    static const option kOptions[] = {
        {"mac", required_argument, nullptr, kMac},
        {"resolution", required_argument, nullptr, kResolution},
        {"firmware-version", required_argument, nullptr, kFirmwareVersion},
        {"time-server1", required_argument, nullptr, kTimeServer1},
        {"time-server2", required_argument, nullptr, kTimeServer2},
        {"timezone", required_argument, nullptr, kTimezone},
        {"logging", required_argument, nullptr, kLogging},
        {"value", required_argument, nullptr, kValue},
        {"firmware", required_argument, nullptr, kFirmware},
        {"software", required_argument, nullptr, kSoftware},
        {"xapp", required_argument, nullptr, kXapp},
        {"splash", required_argument, nullptr, kSplash},
        {"upgrade-polls", required_argument, nullptr, kUpgradePolls},
        {"never-answer", no_argument, nullptr, kNeverAnswer},
        {"log", required_argument, nullptr, kLog},
        {"control", required_argument, nullptr, kControl},
        {"playlists", required_argument, nullptr, kPlaylists},
        {"startup-dir", required_argument, nullptr, kStartup},
        {"notify", required_argument, nullptr, kNotify},
        {"media", required_argument, nullptr, kMedia},
        {"help", no_argument, nullptr, kHelp},
        {nullptr, 0, nullptr, 0},
    };

    Options o;
    // Start values as a freshly installed player reports them; options override them.
    std::string mac = "00 1A 2B 3C 4D 5E";
    long resolution = 8, firmware_version = 0x210, time_zone = 0, logging = 0;
    std::string time_server1 = "pool.ntp.org", time_server2;
    std::vector<std::string> values;

    int c;
    while ((c = getopt_long(argc, argv, "h", kOptions, nullptr)) != -1) {
        switch (c) {
        case kMac:
            mac = mac_octets(optarg);
            if (mac.empty()) usage_error("--mac needs 12 hex digits");
            break;
        case kResolution: resolution = int_option("--resolution", optarg); break;
        case kFirmwareVersion: firmware_version = int_option("--firmware-version", optarg); break;
        case kTimeServer1: time_server1 = optarg; break;
        case kTimeServer2: time_server2 = optarg; break;
        case kTimezone: time_zone = int_option("--timezone", optarg); break;
        case kLogging: logging = int_option("--logging", optarg); break;
        case kValue: values.emplace_back(optarg); break;
        case kFirmware: o.outcomes.firmware_ok = outcome_option("--firmware", optarg); break;
        case kSoftware: o.outcomes.software_ok = outcome_option("--software", optarg); break;
        case kXapp: o.outcomes.xapp_ok = outcome_option("--xapp", optarg); break;
        case kSplash: o.outcomes.splash_ok = outcome_option("--splash", optarg); break;
        case kUpgradePolls: {
            long n = int_option("--upgrade-polls", optarg);
            if (n < 0 || n > 100000) usage_error("--upgrade-polls is 0 or more");
            o.outcomes.polls = static_cast<int>(n);
            break;
        }
        case kNeverAnswer: o.never_answer = true; break;
        case kLog: o.log = optarg; break;
        case kControl: o.control = optarg; break;
        case kPlaylists: o.playlists = optarg; break;
        case kStartup: o.startup = optarg; break;
        case kNotify: o.notify = optarg; break;
        case kMedia: o.media = static_cast<int>(int_option("--media", optarg)); break;
        case 'h':
        case kHelp: std::fputs(kUsage, stdout); return 0;
        default: usage_error("unknown option");
        }
    }
    if (optind < argc) usage_error(std::string("unexpected argument '") + argv[optind] + "'");

    // Like the agent and its tests, this program touches the device's fixed queue keys
    // and paths, so it runs only in the sandbox.
    if (std::getenv("SIGNAGE_SANDBOX") == nullptr) {
        std::fprintf(stderr, "player-sim: runs only inside the sandbox: tools/sandbox (installed as signage-sandbox) -- %s ...\n",
                     argv[0]);
        return 2;
    }
    if (!o.notify.empty()) return request_notification(o);

    static Sim s{o, {}, sim::Bridge(o.playlists, o.startup, o.outcomes), -1, -1, -1, -1};
    sim::Bridge& b = s.bridge;
    b.set_value("3.1.8.0", {sim::Kind::HexString, mac});
    b.set_value("3.2.9.0", {sim::Kind::Integer, std::to_string(resolution)});
    b.set_value("3.5.13.0", {sim::Kind::Integer, std::to_string(firmware_version)});
    b.set_value("3.5.15.0", {sim::Kind::String, time_server1});
    b.set_value("3.5.16.0", {sim::Kind::String, time_server2});
    b.set_value("3.5.17.0", {sim::Kind::Integer, std::to_string(time_zone)});
    b.set_value("3.5.35.0", {sim::Kind::Integer, std::to_string(logging)});
    for (const auto& v : values) value_option(b, v);

    if (!s.log.open(o.log)) {
        std::fprintf(stderr, "player-sim: cannot open the log %s: %s\n", o.log.c_str(),
                     std::strerror(errno));
        return 1;
    }
    return run(s);
}
