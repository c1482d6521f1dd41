#include "report.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <set>

namespace soak {
namespace {

constexpr double kDay = 86400;

[[gnu::format(printf, 1, 2)]] std::string format(const char* f, ...)
{
    char text[256];
    va_list args;
    va_start(args, f);
    std::vsnprintf(text, sizeof text, f, args);
    va_end(args);
    return text;
}

// Device time as "day N hh:mm:ss" from the first boot.
std::string when(double at)
{
    long s = static_cast<long>(at);
    char text[48];
    std::snprintf(text, sizeof text, "day %ld %02ld:%02ld:%02ld", s / 86400 + 1, s / 3600 % 24, s / 60 % 60, s % 60);
    return text;
}

std::string escape(const std::string& text)
{
    std::string out;
    for (char c : text) {
        if (c == '<') out += "&lt;";
        else if (c == '>') out += "&gt;";
        else if (c == '&') out += "&amp;";
        else if (c == '"') out += "&quot;";
        else out += c;
    }
    return out;
}

// A colour per kind of fault, and per playlist index.
const char* const kPalette[] = {"#1f77b4", "#ff7f0e", "#2ca02c", "#d62728", "#9467bd", "#8c564b", "#e377c2",
                                "#7f7f7f", "#bcbd22", "#17becf", "#393b79", "#637939", "#8c6d31", "#843c39",
                                "#7b4173"};

}  // namespace

std::string report_text(const Run& run, const Checks& checks)
{
    std::string out;
    auto line = [&out](const std::string& text) { out += text + "\n"; };
    line("Soak of signage-agent: " + format("%.2f", run.seconds / kDay) + " device days (asked " +
         std::to_string(run.days_asked) + "), seed " + std::to_string(run.seed));
    line("  device clock   from " + run.start + " (" + run.tz + "), " + std::to_string(run.speed) +
         " times faster than real time");
    line("  build          " + run.build);
    line("  wall time      " + format("%.0f s (%.1f min)", run.wall_seconds, run.wall_seconds / 60));
    line("  load average   " + run.load_before + " before, " + run.load_after + " after (1, 5, 15 min)");
    line("");

    line("Faults injected");
    std::map<std::string, int> by_kind;
    for (const Step& s : run.applied) ++by_kind[kind_name(s.kind)];
    for (const auto& [kind, n] : by_kind) line(format("  %5d  ", n) + kind);
    if (!run.list_forms.empty()) {
        line("  command lists by form:");
        for (const auto& [form, n] : run.list_forms) line(format("    %5d  ", n) + form);
    }
    line("  reboots played:");
    for (const auto& [cause, n] : run.reboots) line(format("    %5d  ", n) + cause);
    line("");

    line("Invariants                                 checks  suspended  violations");
    for (const Invariant& inv : checks.invariants()) {
        char text[160];
        std::snprintf(text, sizeof text, "  %-40s %7ld  %9ld  %10zu", inv.name.c_str(), inv.checks, inv.suspended,
                      inv.violations.size());
        line(text);
    }
    line("  total violations: " + std::to_string(checks.violations()));
    line("");
    line("What each invariant holds");
    for (const Invariant& inv : checks.invariants()) line("  " + inv.name + ": " + inv.rule + ".");
    line("");

    if (checks.violations() > 0) {
        line("Violations");
        for (const Invariant& inv : checks.invariants())
            for (const Violation& v : inv.violations) {
                line("- " + when(v.at) + " (device second " + format("%.0f", v.at) + ", on the device's clock " +
                     v.local + "), " + inv.name + ": " + v.what);
                line("  the logs around it (device seconds):");
                int shown = 0;
                for (const LogLine& l : run.logs)
                    if (l.at >= v.at - 90 && l.at <= v.at + 30 && shown++ < 60)
                        line(format("    %9.1f ", l.at) + l.source + " " + l.text);
            }
        if (!run.agent_output.empty()) line("The agent's output (last lines):\n" + run.agent_output);
        line("");
    }

    line("Calls home and downloads per device day");
    // A run ends a moment after its last device second: no row for that moment's day.
    int days = static_cast<int>(std::ceil(run.seconds / kDay - 60.0 / kDay));
    for (int d = 0; d < days; ++d) {
        auto calls = checks.calls_per_day().find(d);
        auto downloads = checks.downloads_per_day().find(d);
        line(format("  day %2d  calls home %5d  downloads %5d", d + 1,
                    calls == checks.calls_per_day().end() ? 0 : calls->second,
                    downloads == checks.downloads_per_day().end() ? 0 : downloads->second));
    }
    line("");

    // Median and worst of a set of device-second figures.
    auto spread = [&](const char* what, std::vector<double> v) {
        std::sort(v.begin(), v.end());
        if (v.empty()) {
            line(std::string(what) + ": none");
            return;
        }
        double median = v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
        line(format("%s: %zu, median %.1f, worst %.1f device s", what, v.size(), median, v.back()));
    };
    std::vector<double> switches, contents;
    for (const Latency& l : checks.switch_latencies()) switches.push_back(l.seconds);
    for (const Latency& l : checks.content_latencies()) contents.push_back(l.seconds);
    line("Device-time figures");
    spread("  switches: a schedule event or display on/off time to the player's switch", switches);
    spread("  new content: its document fetched to its first start", contents);
    spread("  calls home: the gap beyond the interval in force (negative: early)", checks.call_lateness());
    line(format("  media transfers cut short with no fault of the server's: %d", checks.failed_transfers()));
    line("");

    line("Footprint of the agent (least and most over each window)");
    const char* names[] = {"first", "last"};
    for (std::size_t i = 0; i < checks.windows().size(); ++i) {
        const auto& w = checks.windows()[i];
        char text[300];
        std::snprintf(text, sizeof text,
                      "  %-5s %s .. %s: resident memory %ld kB at most; descriptors %d to %d, threads %d to %d, "
                      "lingering child processes %d to %d",
                      names[i], when(w.from).c_str(), when(w.to).c_str(), w.max.rss_kb, w.min.descriptors,
                      w.max.descriptors, w.min.threads, w.max.threads, w.min.children, w.max.children);
        line(text);
    }
    long rss_min = 0, rss_max = 0;
    for (const auto& [t, s] : checks.samples())
        if (s.alive) {
            rss_min = rss_min == 0 ? s.rss_kb : std::min(rss_min, s.rss_kb);
            rss_max = std::max(rss_max, s.rss_kb);
        }
    line("  over the whole run: " + std::to_string(checks.samples().size()) + " samples, resident memory " +
         std::to_string(rss_min) + " to " + std::to_string(rss_max) + " kB");
    line("");
    line(checks.violations() == 0 ? "Result: no violation" : "Result: " + std::to_string(checks.violations()) + " violation(s)");
    return out;
}

std::string report_svg(const Run& run, const Checks& checks)
{
    const double width = 1400, left = 90, right = 20, plot = width - left - right;
    const double span = std::max(run.seconds, 1.0);
    auto x = [&](double at) { return left + plot * std::clamp(at, 0.0, span) / span; };

    // Two panels (resident memory, descriptors), the two layers' bands, the faults.
    const double mem_top = 50, mem_h = 200, fd_top = 290, fd_h = 120, band_top = 450, band_h = 22, fault_top = 520;
    std::vector<Kind> kinds;
    for (const Step& s : run.applied)
        if (std::find(kinds.begin(), kinds.end(), s.kind) == kinds.end()) kinds.push_back(s.kind);
    const double height = fault_top + 30 + 18 * static_cast<double>(kinds.size()) + 40;

    std::string svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + format("%.0f", width) + "\" height=\"" +
                      format("%.0f", height) + "\" font-family=\"sans-serif\" font-size=\"12\">\n";
    svg += "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
    svg += "<text x=\"" + format("%.0f", left) + "\" y=\"24\" font-size=\"16\">signage-agent soak: " +
           format("%.2f", span / kDay) + " device days, seed " + std::to_string(run.seed) + ", " +
           std::to_string(checks.violations()) + " violation(s)</text>\n";

    // Day lines.
    for (double d = 0; d <= span; d += kDay) {
        svg += "<line x1=\"" + format("%.1f", x(d)) + "\" y1=\"" + format("%.0f", mem_top) + "\" x2=\"" +
               format("%.1f", x(d)) + "\" y2=\"" + format("%.0f", fault_top) + "\" stroke=\"#ddd\"/>\n";
        svg += "<text x=\"" + format("%.1f", x(d) + 3) + "\" y=\"" + format("%.0f", mem_top - 4) + "\" fill=\"#666\">day " +
               format("%.0f", d / kDay + 1) + "</text>\n";
    }

    // A panel: the samples' maximum per pixel column, as a line.
    auto panel = [&](double top, double h, const char* label, auto value, const char* colour) {
        double high = 1;
        for (const auto& [t, s] : checks.samples())
            if (s.alive) high = std::max(high, static_cast<double>(value(s)));
        high *= 1.15;
        svg += "<rect x=\"" + format("%.0f", left) + "\" y=\"" + format("%.0f", top) + "\" width=\"" +
               format("%.0f", plot) + "\" height=\"" + format("%.0f", h) + "\" fill=\"none\" stroke=\"#999\"/>\n";
        svg += "<text x=\"8\" y=\"" + format("%.0f", top + 14) + "\">" + label + "</text>\n";
        svg += "<text x=\"8\" y=\"" + format("%.0f", top + 30) + "\" fill=\"#666\">0 .. " + format("%.0f", high) + "</text>\n";
        std::map<int, double> column;
        for (const auto& [t, s] : checks.samples())
            if (s.alive) {
                int c = static_cast<int>(x(t));
                column[c] = std::max(column[c], static_cast<double>(value(s)));
            }
        std::string points;
        for (const auto& [c, v] : column) points += format("%d,%.1f ", c, top + h - h * v / high);
        svg += "<polyline fill=\"none\" stroke=\"" + std::string(colour) + "\" stroke-width=\"1.2\" points=\"" + points +
               "\"/>\n";
    };
    panel(mem_top, mem_h, "resident kB", [](const Sample& s) { return s.rss_kb; }, "#1f77b4");
    panel(fd_top, fd_h, "descriptors", [](const Sample& s) { return s.descriptors; }, "#2ca02c");

    // What each layer showed: a bar per stretch, coloured by playlist index, the
    // content's number written in when there is room.
    for (int layer = 0; layer < 2; ++layer) {
        double top = band_top + layer * (band_h + 6);
        svg += "<text x=\"8\" y=\"" + format("%.0f", top + 15) + "\">" + (layer ? "browser" : "video") + "</text>\n";
        for (std::size_t i = 0; i < run.shown.size(); ++i) {
            const Shown& s = run.shown[i];
            if (s.layer != layer || s.name.empty()) continue;
            double end = span;
            for (std::size_t j = i + 1; j < run.shown.size(); ++j)
                if (run.shown[j].layer == layer) {
                    end = run.shown[j].at;
                    break;
                }
            int index = std::atoi(s.name.c_str() + s.name.rfind('*') + 1);
            double w = std::max(0.5, x(end) - x(s.at));
            svg += "<rect x=\"" + format("%.1f", x(s.at)) + "\" y=\"" + format("%.0f", top) + "\" width=\"" +
                   format("%.1f", w) + "\" height=\"" + format("%.0f", band_h) + "\" fill=\"" +
                   kPalette[index % std::size(kPalette)] + "\"><title>" + escape(s.name) + " from " + when(s.at) +
                   "</title></rect>\n";
        }
    }

    // Faults: a mark per step, a row per kind; violations in red across the panels.
    for (std::size_t k = 0; k < kinds.size(); ++k) {
        double y = fault_top + 18 * static_cast<double>(k);
        const char* colour = kPalette[static_cast<int>(kinds[k]) % std::size(kPalette)];
        svg += "<text x=\"8\" y=\"" + format("%.0f", y + 11) + "\" font-size=\"10\">" + escape(kind_name(kinds[k])) +
               "</text>\n";
        for (const Step& s : run.applied)
            if (s.kind == kinds[k]) {
                double w = std::max(2.0, x(s.until) - x(s.at));
                svg += "<rect x=\"" + format("%.1f", x(s.at)) + "\" y=\"" + format("%.0f", y) + "\" width=\"" +
                       format("%.1f", w) + "\" height=\"12\" fill=\"" + colour + "\"><title>" +
                       escape(kind_name(s.kind)) + " at " + when(s.at) + "</title></rect>\n";
                svg += "<line x1=\"" + format("%.1f", x(s.at)) + "\" y1=\"" + format("%.0f", mem_top) + "\" x2=\"" +
                       format("%.1f", x(s.at)) + "\" y2=\"" + format("%.0f", fd_top + fd_h) + "\" stroke=\"" + colour +
                       "\" stroke-opacity=\"0.25\"/>\n";
            }
    }
    for (const Invariant& inv : checks.invariants())
        for (const Violation& v : inv.violations)
            svg += "<line x1=\"" + format("%.1f", x(v.at)) + "\" y1=\"" + format("%.0f", mem_top) + "\" x2=\"" +
                   format("%.1f", x(v.at)) + "\" y2=\"" + format("%.0f", band_top + 2 * band_h + 6) +
                   "\" stroke=\"red\" stroke-width=\"2\"><title>" + escape(inv.name + ": " + v.what) + "</title></line>\n";
    svg += "<text x=\"" + format("%.0f", left) + "\" y=\"" + format("%.0f", height - 12) +
           "\" fill=\"#666\">Device time from the first boot. Bars: what each layer played, coloured by playlist "
           "index; faded lines: faults; red lines: violations.</text>\n";
    svg += "</svg>\n";
    return svg;
}

}  // namespace soak
