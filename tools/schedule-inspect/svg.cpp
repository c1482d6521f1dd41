// The week as a picture: a row per day, the hours across, a bar per stretch coloured
// per playlist, the browser layer's layout as a band below it, the display's off times
// hatched, and a legend. Plain SVG, no script: any browser shows it.
#include <map>
#include <string_view>

#include "schedule-inspect/common.h"
#include "schedule-inspect/week.h"

namespace inspect {
namespace {

constexpr double kLeft = 175;  // day labels to the left of the hours
constexpr double kHour = 40;   // pixels per hour
constexpr double kTop = 70;    // the first row
constexpr double kRow = 40;
constexpr double kBar = 20;
constexpr double kBand = 7;
constexpr double kWidth = kLeft + 24 * kHour + 20;
constexpr double kCharWidth = 6.4;  // an estimate for 11-pixel sans-serif text

constexpr const char* kPlaylistColours[] = {"#4e79a7", "#f28e2b", "#59a14f", "#e15759", "#76b7b2",
                                            "#edc948", "#b07aa1", "#ff9da7", "#9c755f", "#86bcb6"};
constexpr const char* kLayoutColours[] = {"#2f4b7c", "#a05195", "#d45087", "#665191", "#003f5c",
                                          "#f95d6a", "#ff7c43", "#ffa600", "#488f31", "#de425b"};
constexpr const char* kMissing = "#bab0ac";  // an index the document has no entry for

// The text as XML character data: markup characters escaped, and anything that is not
// a character XML allows in well-formed UTF-8 (a document's names are bytes as the
// server sent them) shown as U+FFFD.
std::string xml_text(std::string_view s)
{
    std::string out;
    for (std::size_t i = 0; i < s.size();) {
        auto c = static_cast<unsigned char>(s[i]);
        std::size_t len = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
        char32_t cp = len == 1 ? c : len == 2 ? c & 0x1F : len == 3 ? c & 0x0F : c & 0x07;
        bool ok = len > 0 && i + len <= s.size();
        for (std::size_t k = 1; ok && k < len; ++k) {
            auto b = static_cast<unsigned char>(s[i + k]);
            ok = (b & 0xC0) == 0x80;
            cp = (cp << 6) | (b & 0x3F);
        }
        static constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
        ok = ok && cp >= kLeast[len] &&
             (cp == 0x9 || cp == 0xA || cp == 0xD || (cp >= 0x20 && cp < 0xD800) ||
              (cp >= 0xE000 && cp <= 0xFFFD) || (cp >= 0x10000 && cp <= 0x10FFFF));
        if (!ok) {
            out += "\xEF\xBF\xBD";
            ++i;
            continue;
        }
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        default: out.append(s.substr(i, len));
        }
        i += len;
    }
    return out;
}

// Characters, not bytes, for the width a label needs.
double text_width(std::string_view s)
{
    std::size_t n = 0;
    for (char c : s) n += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    return static_cast<double>(n) * kCharWidth;
}

std::string num(double v)
{
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.1f", v);
    return buf;
}

bool in_document(int index, int count, int capacity)
{
    return index >= 0 && index < clamp_count(count, capacity);
}

std::string playlist_colour(const DRAVIK_CONTENT& c, int pl)
{
    if (pl < 0) return "#ffffff";
    if (!in_document(pl, c.plcount, kMaxPlaylists)) return kMissing;
    return kPlaylistColours[pl % std::size(kPlaylistColours)];
}

std::string layout_colour(const DRAVIK_CONTENT& c, int layout)
{
    if (!in_document(layout, c.layoutcount, kMaxLayouts)) return kMissing;
    return kLayoutColours[layout % std::size(kLayoutColours)];
}

std::string playlist_name(const DRAVIK_CONTENT& c, int pl)
{
    if (pl < 0) return "no playlist";
    if (!in_document(pl, c.plcount, kMaxPlaylists))
        return "playlist " + std::to_string(pl) + " (not in the document)";
    return std::string(text_of(c.playlists[pl].name));
}

// Where a moment of the day lies across the row: by the clock, so that the same clock
// time lines up on every day. A stretch the clock runs back through (the hour repeated
// when summer time ends) is drawn at its length from where it begins.
double x_of(const Day& day, std::time_t t)
{
    if (t >= day.end) return kLeft + 24 * kHour;
    std::tm tm{};
    localtime_r(&t, &tm);
    return kLeft + (tm.tm_hour + tm.tm_min / 60.0 + tm.tm_sec / 3600.0) * kHour;
}

struct Extent {
    double x, width;
};

Extent extent(const Day& day, std::time_t from, std::time_t to)
{
    double x0 = x_of(day, from), x1 = x_of(day, to);
    if (x1 <= x0) x1 = x0 + static_cast<double>(to - from) / 3600.0 * kHour;
    return {x0, x1 - x0};
}

void rect(std::string& svg, const char* cls, Extent e, double y, double h, const std::string& fill,
          const std::string& title, const std::string& extra = "")
{
    svg += "<rect class=\"" + std::string(cls) + "\" x=\"" + num(e.x) + "\" y=\"" + num(y) + "\" width=\"" +
           num(e.width) + "\" height=\"" + num(h) + "\" fill=\"" + fill + "\"" + extra + "><title>" +
           xml_text(title) + "</title></rect>\n";
}

void label(std::string& svg, double x, double y, std::string_view text, const char* attrs = "")
{
    svg += "<text x=\"" + num(x) + "\" y=\"" + num(y) + "\"" + attrs + ">" + xml_text(text) + "</text>\n";
}

}  // namespace

std::string svg_week(const DRAVIK_CONTENT& c, const std::vector<Day>& days,
                     const DRAVIK_CONFIGURATION_CH* config)
{
    std::string title = std::string(text_of(c.name)) + ": what plays, in the time zone " + zone_name();
    if (!days.empty()) {
        char range[64];
        std::tm a{}, b{};
        localtime_r(&days.front().start, &a);
        localtime_r(&days.back().start, &b);
        std::snprintf(range, sizeof range, ", %04d-%02d-%02d to %04d-%02d-%02d", a.tm_year + 1900, a.tm_mon + 1,
                      a.tm_mday, b.tm_year + 1900, b.tm_mon + 1, b.tm_mday);
        title += range;
    }
    double rowsEnd = kTop + static_cast<double>(days.size()) * kRow;

    std::string body;
    // The hours across, with a line at each.
    for (int h = 0; h <= 24; ++h) {
        double x = kLeft + h * kHour;
        char hh[8];
        std::snprintf(hh, sizeof hh, "%02d", h);
        label(body, x, kTop - 8, hh, " text-anchor=\"middle\" font-size=\"10\" fill=\"#555\"");
        body += "<line x1=\"" + num(x) + "\" y1=\"" + num(kTop - 4) + "\" x2=\"" + num(x) + "\" y2=\"" +
                num(rowsEnd) + "\" stroke=\"#e4e4e4\"/>\n";
    }

    std::map<int, bool> playlists, layouts;  // those drawn, for the legend
    bool anyOff = false;
    for (std::size_t i = 0; i < days.size(); ++i) {
        const Day& day = days[i];
        double y = kTop + static_cast<double>(i) * kRow;
        std::string dayName = day_label(day);
        std::size_t paren = dayName.find(" (");
        label(body, 8, y + 15, dayName.substr(0, paren), " font-size=\"12\"");
        if (paren != std::string::npos)
            label(body, 8, y + 28, dayName.substr(paren + 2, dayName.size() - paren - 3),
                  " font-size=\"9\" fill=\"#555\"");

        for (const Stretch& s : day.stretches) {
            Extent e = extent(day, s.from, s.to);
            std::string text = day_label(day) + " " + stretch_text(c, day, s, config != nullptr);
            // The defaults paler than what a schedule item starts.
            rect(body, "stretch", e, y + 4, kBar, playlist_colour(c, s.playlist), text,
                 std::string(s.item < 0 ? " fill-opacity=\"0.55\"" : "") +
                     " stroke=\"#ffffff\" stroke-width=\"0.5\"" +
                     (s.playlist < 0 ? " stroke-dasharray=\"2 2\"" : ""));
            playlists[s.playlist] = true;
            std::string name = playlist_name(c, s.playlist);
            if (text_width(name) + 6 <= e.width)
                label(body, e.x + 3, y + 18, name,
                      " font-size=\"11\" fill=\"#1a1a1a\" pointer-events=\"none\"");
            if (s.layout != -1) {
                rect(body, "layout", e, y + 6 + kBar, kBand, layout_colour(c, s.layout),
                     "browser: " + layout_label(c, s.layout));
                layouts[s.layout] = true;
            }
        }
        // The display's off times over the row, one shape per run of stretches.
        for (std::size_t k = 0; k < day.stretches.size(); ++k) {
            if (!day.stretches[k].display_off) continue;
            std::size_t last = k;
            while (last + 1 < day.stretches.size() && day.stretches[last + 1].display_off) ++last;
            const Stretch& first = day.stretches[k];
            const Stretch& end = day.stretches[last];
            Extent e = extent(day, first.from, end.to);
            rect(body, "display-off", e, y + 1, kRow - 6, "url(#off)",
                 day_label(day) + " " + clock_range(day, first.from, end.to) + ": display off");
            anyOff = true;
            k = last;
        }
    }

    // The legend, flowing over as many lines as it needs.
    double lx = 8, ly = rowsEnd + 22;
    auto entry = [&](const std::string& fill, const std::string& text, const std::string& extra) {
        double w = 18 + text_width(text) + 18;
        if (lx + w > kWidth && lx > 8) {
            lx = 8;
            ly += 20;
        }
        body += "<rect x=\"" + num(lx) + "\" y=\"" + num(ly - 10) + "\" width=\"12\" height=\"12\" fill=\"" +
                fill + "\"" + extra + "/>\n";
        label(body, lx + 18, ly, text, " font-size=\"11\"");
        lx += w;
    };
    for (const auto& [pl, _] : playlists)
        entry(playlist_colour(c, pl), pl < 0 ? "no playlist" : playlist_label(c, pl),
              pl < 0 ? " stroke=\"#888\" stroke-dasharray=\"2 2\"" : "");
    for (const auto& [layout, _] : layouts)
        entry(layout_colour(c, layout), "browser: " + layout_label(c, layout), "");
    if (anyOff) entry("url(#off)", "display off", " stroke=\"#888\"");
    lx = 8;
    ly += 20;
    label(body, lx, ly,
          "Paler bars: the schedule's defaults. The band below a bar: the browser layer's layout. "
          "Point at a bar for its details.",
          " font-size=\"10\" fill=\"#555\"");
    double height = ly + 14;

    std::string svg = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    svg += "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + num(kWidth) + "\" height=\"" + num(height) +
           "\" viewBox=\"0 0 " + num(kWidth) + " " + num(height) + "\" font-family=\"sans-serif\">\n";
    svg += "<title>" + xml_text(title) + "</title>\n";
    svg +=
        "<defs><pattern id=\"off\" width=\"6\" height=\"6\" patternUnits=\"userSpaceOnUse\" "
        "patternTransform=\"rotate(45)\"><rect width=\"6\" height=\"6\" fill=\"#000000\" "
        "fill-opacity=\"0.12\"/>"
        "<line x1=\"0\" y1=\"0\" x2=\"0\" y2=\"6\" stroke=\"#000000\" stroke-opacity=\"0.5\" "
        "stroke-width=\"2\"/>"
        "</pattern></defs>\n";
    svg += "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
    label(svg, 8, 24, title, " font-size=\"15\" font-weight=\"bold\"");
    label(
        svg, 8, 42,
        std::string("Each row a day, the hours across; each bar a stretch of what the player plays") +
            (config != nullptr ? "; hatched: the display is off by configuration " + quoted(text_of(config->id))
                               : ""),
        " font-size=\"11\" fill=\"#333\"");
    svg += body;
    svg += "</svg>\n";
    return svg;
}

}  // namespace inspect
