#include "plan.h"

#include <algorithm>
#include <random>

namespace soak {
namespace {

constexpr double kHour = 3600, kDay = 86400;

// How often each kind comes, per device day (every kind also comes once in any run).
struct Rate {
    Kind kind;
    double per_day;
};
constexpr Rate kRates[] = {
    {Kind::NewContent, 5},   {Kind::CorruptContent, 0.4}, {Kind::NewConfig, 1},     {Kind::CorruptConfig, 0.3},
    {Kind::CommandList, 4},  {Kind::ServerDown, 0.7},     {Kind::DocumentFault, 2}, {Kind::MediaFault, 2},
    {Kind::CallNow, 1.5},    {Kind::UsbStick, 0.5},       {Kind::PowerCut, 0.7},    {Kind::ClockForward, 0.4},
    {Kind::ClockBack, 0.25}, {Kind::DiskFull, 0.4},
};

// The shapes of command list, with their weights: the everyday forms most often.
constexpr struct {
    ListForm form;
    int weight;
} kForms[] = {
    {ListForm::AddressAndInterval, 25}, {ListForm::IntervalOnly, 15},       {ListForm::AddressOnly, 2},
    {ListForm::NewServer, 15},          {ListForm::DeleteFile, 10},         {ListForm::DeleteVideoMedia, 3},
    {ListForm::DeleteImageMedia, 3},    {ListForm::DeleteAllMedia, 2},      {ListForm::CheckVersionUpgrade, 7},
    {ListForm::CheckVersionCurrent, 8}, {ListForm::DeleteUsbConfig, 2},
};
// Intervals a server hands out; 30 s is taken as a minute.
constexpr int kIntervals[] = {30, 120, 300, 600, 600, 900, 1800};

class Planner {
public:
    Planner(std::uint64_t seed, double seconds) : rng_(seed), seconds_(seconds) {}

    double uniform(double low, double high)
    {
        return low + (high - low) * static_cast<double>(rng_() >> 11) / static_cast<double>(1ull << 53);
    }
    int pick(int low, int high) { return low + static_cast<int>(rng_() % static_cast<std::uint64_t>(high - low + 1)); }

    // One step of `kind` at `at`, with its parameters drawn.
    void add(Kind kind, double at)
    {
        Step s{at, kind, at, 0, ListForm::AddressAndInterval, "", ""};
        switch (kind) {
        case Kind::CorruptContent:
            plan_.push_back(s);
            add(Kind::NewContent, at + uniform(1, 3) * kHour);  // the server puts it right
            return;
        case Kind::CorruptConfig:
            plan_.push_back(s);
            add(Kind::NewConfig, at + uniform(1, 3) * kHour);
            return;
        case Kind::CommandList: {
            int total = 0;
            for (const auto& f : kForms) total += f.weight;
            int w = pick(0, total - 1);
            for (const auto& f : kForms) {
                if (w < f.weight) {
                    s.form = f.form;
                    break;
                }
                w -= f.weight;
            }
            s.number = kIntervals[pick(0, std::size(kIntervals) - 1)];
            plan_.push_back(s);
            // A player that lost its USB.CONF is set up again with a stick.
            if (s.form == ListForm::DeleteUsbConfig) add(Kind::UsbStick, at + uniform(1, 4) * kHour);
            return;
        }
        case Kind::ServerDown: s.until = at + uniform(5 * 60, 4 * kHour); break;
        case Kind::DocumentFault: {
            const char* paths[] = {"*/command.txt", "*/config.xml", "*/content.xml"};
            s.target = paths[pick(0, 2)];
            // A stall is for good (the agent gives up after 20 s); a delay stays well
            // below that, so that every answer either arrives whole or fails.
            const char* faults[] = {"status=401", "status=404", "status=500", "stall=64", "drop=40", "delay=4"};
            s.fault = faults[pick(0, 5)];
            s.until = at + uniform(10 * 60, 3 * kHour);
            break;
        }
        case Kind::MediaFault: {
            const char* faults[] = {"stall=20000", "drop=15000", "status=404", "status=500", "rate=20000"};
            s.target = "*/media/*";
            s.fault = std::string(faults[pick(0, 4)]) + ",times=" + std::to_string(pick(1, 3));
            s.until = at + uniform(10 * 60, 2 * kHour);
            break;
        }
        case Kind::UsbStick: s.number = pick(0, 1); break;  // the stick's media flag
        case Kind::ClockForward: s.number = static_cast<int>(uniform(5 * 60, 6 * kHour)); break;
        case Kind::ClockBack:
            s.number = -static_cast<int>(uniform(5 * 60, 3 * kHour));
            plan_.push_back(s);
            add(Kind::Reboot, at + uniform(1, 6) * kHour);
            return;
        case Kind::DiskFull:
            // In the video folder a cleanup may delete them; elsewhere it cannot.
            s.target = pick(0, 1) == 0 ? "/mnt/hd4/video" : "/mnt/hd4/other";
            s.until = at + uniform(1, 8) * kHour;
            break;
        default: break;
        }
        plan_.push_back(s);
    }

    Plan calm()
    {
        for (double at = uniform(20, 40) * 60; at < seconds_ - 600; at += uniform(20, 40) * 60)
            plan_.push_back({at, Kind::NewContent, at, 0, ListForm::AddressAndInterval, "", ""});
        return plan_;
    }

    Plan make()
    {
        // Ten quiet minutes for the first boot; nothing starts in the last ten.
        double from = 600, to = seconds_ - 600;
        if (to <= from) return {};
        for (int k = 0; k < kKinds; ++k) {
            Kind kind = static_cast<Kind>(k);
            if (kind != Kind::Reboot) add(kind, uniform(from, to));
        }
        for (const Rate& r : kRates) {
            double count = r.per_day * (to - from) / kDay;
            for (int n = static_cast<int>(count + uniform(0, 1)); n > 0; --n) add(r.kind, uniform(from, to));
        }
        std::erase_if(plan_, [&](const Step& s) { return s.at >= seconds_; });
        std::stable_sort(plan_.begin(), plan_.end(), [](const Step& a, const Step& b) { return a.at < b.at; });
        return plan_;
    }

private:
    std::mt19937_64 rng_;
    double seconds_;
    Plan plan_;
};

}  // namespace

const char* kind_name(Kind kind)
{
    switch (kind) {
    case Kind::NewContent: return "new content document";
    case Kind::CorruptContent: return "corrupt content document";
    case Kind::NewConfig: return "new configuration";
    case Kind::CorruptConfig: return "corrupt configuration";
    case Kind::CommandList: return "command list";
    case Kind::ServerDown: return "server down";
    case Kind::DocumentFault: return "document fault";
    case Kind::MediaFault: return "media fault";
    case Kind::CallNow: return "call now";
    case Kind::UsbStick: return "USB stick";
    case Kind::PowerCut: return "power cut";
    case Kind::ClockForward: return "clock stepped forward";
    case Kind::ClockBack: return "clock stepped back";
    case Kind::Reboot: return "reboot after the clock stepped back";
    case Kind::DiskFull: return "media disk filled";
    }
    return "?";
}

Plan make_plan(std::uint64_t seed, double seconds) { return Planner(seed, seconds).make(); }
Plan make_calm_plan(std::uint64_t seed, double seconds) { return Planner(seed, seconds).calm(); }

}  // namespace soak
