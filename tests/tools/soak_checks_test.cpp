// The soak's invariants catch what they are for: each row plants one fault in what the
// checks are fed (a call home too soon, USB.CONF without the server, a partial medium,
// a temporary file left behind, a descriptor more, a start with its files missing) and
// expects a violation of the invariant named; the first row is a device that does all
// right and must pass. The documents are the soak's own, read with the agent's parsers.
#include <ctime>
#include <functional>
#include <gtest/gtest.h>

#include "checks.h"
#include "world.h"

namespace {

using namespace soak;

constexpr std::time_t kStart = 1774414800;  // 2026-03-25 06:00:00 in Central Europe
const std::string kUsbConf = "CallHomeAddress,http://127.0.0.1:8080\r\nCallHomeInterval,600\r\n";

Sample footprint(int descriptors) { return {true, 3500, descriptors, 2, 0}; }

TEST(SoakChecks, EachInvariantFlagsItsFault)
{
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    World world(7);
    world.publish_config(0, false);
    world.publish_content(0, kStart, false);
    world.publish_list(0, ListForm::AddressAndInterval, 600);
    const Served& list = *world.latest("/command.txt");
    const Served& content = *world.latest("/content.xml");
    const Medium& medium = world.media().front();
    auto call = [&](Checks& c, double at) { c.request({at, "/command.txt", 200, static_cast<long long>(list.size), "-"}); };
    auto clean = [&](Checks& c, double at) {
        Disk d;
        d.usb_conf = kUsbConf;
        d.usb_conf_present = true;
        c.scan(at, d);
    };

    const struct {
        const char* fault;
        const char* invariant;  // nullptr: no violation at all
        std::function<void(Checks&)> feed;
    } rows[] = {
        {"none", nullptr,
         [&](Checks& c) {
             call(c, 12);
             clean(c, 60);
             call(c, 613);
             clean(c, 660);
             for (double t = 0; t <= 700; t += 30) c.sample(t, footprint(8));
         }},
        {"a call home a minute after the last, at an interval of ten", "calls home at the interval",
         [&](Checks& c) {
             call(c, 12);
             call(c, 75);
         }},
        {"USB.CONF left without the server", "USB.CONF keeps the server",
         [&](Checks& c) {
             call(c, 12);
             Disk d;
             d.usb_conf = "CallHomeInterval,600\r\n";
             d.usb_conf_present = true;
             c.scan(60, d);
         }},
        {"a medium under its name at half its size", "no partial media",
         [&](Checks& c) {
             Disk d;
             d.media[medium.name] = medium.size / 2;
             c.scan(60, d);
         }},
        {"tempfile.xxx left with no transfer running", "no temporary file outlives its transfer",
         [&](Checks& c) {
             Disk d;
             d.temporary = {"/mnt/hd4/video/tempfile.xxx"};
             for (double t = 100; t <= 200; t += 10) c.scan(t, d);
         }},
        {"a descriptor more in the last window", "footprint flat",
         [&](Checks& c) {
             for (double t = 0; t <= 700; t += 30) c.sample(t, footprint(t < 500 ? 8 : 9));
         }},
        {"a playlist started with its files missing", "started lists are whole",
         [&](Checks& c) {
             c.request({20, "/content.xml", 200, static_cast<long long>(content.size), "-"});
             c.player_state(40, 0, "r0," + std::string(content.content->id) + "*0,Playing,a,1%Idle,,0", true);
         }},
    };
    for (const auto& row : rows) {
        Checks c(world);
        c.clock_set(0, kStart);
        Disk boot;
        boot.usb_conf = kUsbConf;
        boot.usb_conf_present = true;
        c.rebooted(0, boot);
        row.feed(c);
        c.finish(700);
        if (row.invariant == nullptr) {
            EXPECT_EQ(c.violations(), 0) << row.fault;
            continue;
        }
        bool flagged = false;
        for (const Invariant& i : c.invariants()) flagged = flagged || (i.name == row.invariant && !i.violations.empty());
        EXPECT_TRUE(flagged) << row.fault;
    }
}

}  // namespace
