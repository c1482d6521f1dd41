#include "schedule-inspect/check.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "schedule-inspect/common.h"
#include "schedule-inspect/week.h"
#include "xml/tokenizer.h"

namespace inspect {
namespace {

// One element of the document as the agent's tokenizer reads it. Offsets are where the
// tokenizer stood just after the token (xt_input_offset), which gives its line.
struct Node {
    long at = 0;
    std::string name;            // its name attribute, or an f_item's file
    std::string size;            // an f_item's size, as written
    std::vector<long> children;  // a playlist's pl_items, a schedule item's day_items, a layout's lo_files
    std::vector<long> pages;     // a layout's lo_pl_items
};

struct Open {
    std::string tag;
    long at;
};

// The document read token by token with the agent's tokenizer, independently of the
// parser: the elements as they stand in the text, for comparison with what the parser
// kept, and where each token ended, to name what the parser stopped at.
struct Walk {
    std::string root;
    long root_at = -1;
    std::vector<Node> playlists, files, schedItems, servers, layouts;
    std::vector<Open> open;         // elements still open where the input ended
    const char* section = nullptr;  // a comment or the like the input ended inside
    long section_at = -1;
    long error_at = -1;  // where the tokenizer found a syntax error
    long end_at = 0;     // where the input ended
    // Each tag and attribute, by where it ended.
    std::vector<std::pair<long, std::string>> marks;
};

Walk walk(const char* path)
{
    Walk w;
    XmlDocument doc(path);
    if (!doc.ok()) return w;
    std::vector<Open> stack;
    auto inside = [&stack](std::string_view tag) {
        return std::any_of(stack.begin(), stack.end(), [tag](const Open& o) { return o.tag == tag; });
    };
    Node* current = nullptr;  // the element whose attributes come next
    for (;;) {
        int kind = xt_get_token();
        long at = xt_input_offset();
        switch (kind) {
        case XT_ERROR: w.error_at = at; [[fallthrough]];
        case XT_END:
            w.end_at = at;
            w.open = stack;
            return w;
        case XT_START_TAG: {
            std::string tag = xt_get_tag_name();
            w.marks.emplace_back(at, "<" + tag + ">");
            bool declarations_only =
                std::all_of(stack.begin(), stack.end(), [](const Open& o) { return o.tag[0] == '!'; });
            if (w.root_at < 0 && declarations_only && tag[0] != '!') {
                w.root = tag;
                w.root_at = at;
            }
            bool inSection = inside("playlist") || inside("files") || inside("schedule") || inside("servers") ||
                             inside("layout");
            auto add = [&](std::vector<Node>& to) {
                to.push_back(Node{at, {}, {}, {}, {}});
                current = &to.back();
            };
            current = nullptr;
            if (tag == "playlist" && !inSection)
                add(w.playlists);
            else if (tag == "pl_item" && inside("playlist") && !w.playlists.empty())
                w.playlists.back().children.push_back(at);
            else if (tag == "f_item" && inside("files"))
                add(w.files);
            else if (tag == "sched_item" && inside("schedule"))
                add(w.schedItems);
            else if (tag == "day_item" && inside("sched_item") && !w.schedItems.empty())
                w.schedItems.back().children.push_back(at);
            else if (tag == "server_item" && inside("servers"))
                add(w.servers);
            else if (tag == "layout" && !inSection)
                add(w.layouts);
            else if (tag == "lo_file" && inside("layout_files") && !w.layouts.empty())
                w.layouts.back().children.push_back(at);
            else if (tag == "lo_pl_item" && inside("layout_playlist") && !w.layouts.empty())
                w.layouts.back().pages.push_back(at);
            stack.push_back({tag, at});
            break;
        }
        case XT_ATTRIBUTE: {
            std::string name = xt_get_attr_name();
            w.marks.emplace_back(
                at, "the attribute " + name + (stack.empty() ? "" : " of <" + stack.back().tag + ">"));
            if (current == nullptr) break;
            if (name == "name" || name == "file")
                current->name = xt_get_value();
            else if (name == "size")
                current->size = xt_get_value();
            break;
        }
        case XT_END_TAG: {
            std::string tag = xt_get_tag_name();
            w.marks.emplace_back(at, "</" + tag + ">");
            current = nullptr;
            // The innermost open element of that name ends, with whatever is open in it.
            for (std::size_t k = stack.size(); k-- > 0;)
                if (stack[k].tag == tag) {
                    stack.resize(k);
                    break;
                }
            break;
        }
        case XT_COMMENT_START: w.section = "comment", w.section_at = at; break;
        case XT_CDATA_START: w.section = "CDATA section", w.section_at = at; break;
        case XT_PI_START: w.section = "processing instruction", w.section_at = at; break;
        case XT_ENTITY_DECL_START: w.section = "entity declaration", w.section_at = at; break;
        case XT_COMMENT_END:
        case XT_CDATA_END:
        case XT_PI_END:
        case XT_ENTITY_DECL_END: w.section = nullptr, w.section_at = -1; break;
        default: break;
        }
    }
}

class Findings {
public:
    explicit Findings(const std::string& text) : text_(text) {}

    void add(const std::string& line) { lines_.push_back(line); }
    const std::vector<std::string>& lines() const { return lines_; }

    // The line of the text at which a token ending at `offset` stands.
    int line_of(long offset) const
    {
        auto end = text_.begin() + std::clamp<long>(offset - 1, 0, static_cast<long>(text_.size()));
        return 1 + static_cast<int>(std::count(text_.begin(), end, '\n'));
    }
    std::string at_line(long offset) const { return "line " + std::to_string(line_of(offset)); }

    // "playlist 2 "Lunch menu" (line 9)": an element by its position, its name and,
    // where the walk saw it, its line.
    std::string element(const char* kind, int index, const std::vector<Node>& nodes,
                        std::string_view name = {}) const
    {
        std::string s = std::string(kind) + " " + std::to_string(index);
        if (!name.empty()) s += " " + quoted(name);
        if (index >= 0 && static_cast<std::size_t>(index) < nodes.size())
            s += " (" + at_line(nodes[index].at) + ")";
        return s;
    }

private:
    const std::string& text_;
    std::vector<std::string> lines_;
};

// "the document has playlists 0 to 2", "... playlist 0 only", "... no playlists".
std::string range_of(int count, const std::string& kind)
{
    if (count <= 0) return "the document has no " + kind + "s";
    if (count == 1) return "the document has " + kind + " 0 only";
    return "the document has " + kind + "s 0 to " + std::to_string(count - 1);
}

// "line 12", or "lines 12 to 14".
std::string lines(const Findings& f, long first, long last)
{
    int a = f.line_of(first), b = f.line_of(last);
    return a == b ? "line " + std::to_string(a) : "lines " + std::to_string(a) + " to " + std::to_string(b);
}

// Entries the document has beyond what the record kept, when the record is full: the
// parser read them and had no room.
void dropped(Findings& f, const char* kind, const std::vector<Node>& nodes, int kept, int capacity)
{
    if (kept != capacity || static_cast<int>(nodes.size()) <= capacity) return;
    const Node& first = nodes[capacity];
    const Node& last = nodes.back();
    auto named = [](int index, const Node& n) {
        return std::to_string(index) + (n.name.empty() ? "" : " " + quoted(n.name));
    };
    std::string what = std::string(kind) +
                       (nodes.size() == static_cast<std::size_t>(capacity) + 1 ? " " : "s ") +
                       named(capacity, first);
    if (&first != &last) what += " to " + named(static_cast<int>(nodes.size()) - 1, last);
    f.add(what + " (" + lines(f, first.at, last.at) + "): beyond the " + std::to_string(capacity) + " " + kind +
          "s the player keeps: dropped");
}

// The same for the entries inside one element.
void dropped_inside(Findings& f, const std::string& owner, const char* kind, const char* in,
                    const std::vector<long>& at, int kept, int capacity)
{
    if (kept != capacity || static_cast<int>(at.size()) <= capacity) return;
    std::string which =
        at.size() == static_cast<std::size_t>(capacity) + 1
            ? std::string(kind) + " " + std::to_string(capacity)
            : std::string(kind) + "s " + std::to_string(capacity) + " to " + std::to_string(at.size() - 1);
    f.add(owner + ": " + which + " (" + lines(f, at[capacity], at.back()) + ") beyond the " +
          std::to_string(capacity) + " " + kind + "s " + in + " keeps: dropped");
}

// Why the parse failed, where it did: at a syntax error, at the end of the input with
// something left open, or at a token the parser does not accept.
std::string parse_failure(const Findings& f, const Walk& w, long stop)
{
    const std::string rejected = ": the player rejects the whole document and keeps what it plays";
    if (w.error_at >= 0 && stop == w.error_at)
        return f.at_line(stop) + ": the player's reader finds malformed XML here" + rejected;
    if (stop >= w.end_at) {
        if (w.section != nullptr)
            return f.at_line(w.section_at) + ": the " + w.section + " begun here never ends for the player" +
                   rejected;
        for (const Open& o : w.open)
            if (o.tag[0] == '!')
                return f.at_line(o.at) + ": <" + o.tag +
                       "> is not read as a declaration: the player takes it for an element and looks for "
                       "its end until the document ends" +
                       rejected;
        std::string open;
        for (const Open& o : w.open)
            open += (open.empty() ? "" : ", ") + ("<" + o.tag + "> (" + f.at_line(o.at) + ")");
        return f.at_line(w.end_at) + ": the document ends" + (open.empty() ? "" : " inside " + open) + rejected;
    }
    std::string what = "this point";
    for (const auto& [at, mark] : w.marks)
        if (at <= stop) what = mark;
    return f.at_line(stop) + ": the player's parser gives up at " + what + rejected;
}

// Whether the text holds anything but blanks and NUL bytes from `offset` on.
bool anything_after(const std::string& text, long offset)
{
    for (std::size_t i = static_cast<std::size_t>(std::max(offset, 0L)); i < text.size(); ++i)
        if (!is_space(text[i]) && text[i] != '\0') return true;
    return false;
}

// A number as written, digit by digit, without the 32 bits the player reads it into.
bool written_number(const std::string& text, long long* value)
{
    std::string_view s = trim_space(text);
    bool negative = !s.empty() && s[0] == '-';
    if (!s.empty() && (s[0] == '-' || s[0] == '+')) s.remove_prefix(1);
    if (s.empty() || s.find_first_not_of("0123456789") != std::string_view::npos) return false;
    long long v = 0;
    for (char c : s) v = v > (INT64_MAX - 9) / 10 ? INT64_MAX : v * 10 + (c - '0');
    *value = negative ? -v : v;
    return true;
}

// Whether schedule item `i` alone gives the agent's evaluation any event on a day of
// its period. The days inside a long period differ only by weekday, so its first and
// last nine days stand for it all.
bool gives_an_event(const DRAVIK_CONTENT& c, int i, std::time_t st, std::time_t et)
{
    static DRAVIK_CONTENT alone;  // tens of kilobytes: static storage
    alone = c;
    alone.schedule.itemCount = 1;
    alone.schedule.schedItems[0] = c.schedule.schedItems[i];
    std::tm a{};
    localtime_r(&st, &a);
    long span = static_cast<long>(std::max(static_cast<long long>(et) - st, 0LL) / kDay) + 2;
    for (long k = -1; k <= span; ++k) {
        if (span > 20 && k == 9) k = span - 9;
        std::time_t midnight = local_midnight(a.tm_year + 1900, a.tm_mon + 1, a.tm_mday + static_cast<int>(k));
        if (midnight == -1) continue;
        // Before and after any change of the clock's offset that day, within the agent's
        // 32-bit seconds.
        for (long long t : {static_cast<long long>(midnight), midnight + 23LL * 3600}) {
            if (t > INT32_MAX) continue;
            ClockAt clock(static_cast<std::time_t>(t));
            PL_EVENT ev{};
            content_get_pl_event(&alone, &ev);
            if (content_event_count() > 0) return true;
        }
    }
    return false;
}

void check_playlists(Findings& f, const DRAVIK_CONTENT& c, const Walk& w)
{
    int files = clamp_count(c.filecount, kMaxFiles);
    dropped(f, "playlist", w.playlists, c.plcount, kMaxPlaylists);
    for (int p = 0; p < clamp_count(c.plcount, kMaxPlaylists); ++p) {
        const DRAVIK_PLAYLIST& pl = c.playlists[p];
        std::string self = f.element("playlist", p, w.playlists, text_of(pl.name));
        if (static_cast<std::size_t>(p) < w.playlists.size())
            dropped_inside(f, self, "item", "a playlist", w.playlists[p].children, pl.itemCount,
                           kMaxPlaylistItems);
        if (pl.pindex != p)
            f.add(self + ": pindex " + std::to_string(pl.pindex) +
                  ", but the player finds playlists by position: schedule items with pindex " +
                  std::to_string(p) + " play it");
        for (int k = 0; k < clamp_count(pl.itemCount, kMaxPlaylistItems); ++k) {
            int fi = pl.PlItems[k].findex;
            if (fi >= 0 && fi < files) continue;
            f.add(self + ", item " + std::to_string(k) + ": findex " + std::to_string(fi) + " names no file (" +
                  range_of(files, "file") + "): the playlist is never complete, so the player never plays it");
        }
    }
}

void check_files(Findings& f, const DRAVIK_CONTENT& c, const Walk& w)
{
    dropped(f, "file", w.files, c.filecount, kMaxFiles);
    int servers = clamp_count(c.servercount, kMaxServers);
    for (int i = 0; i < clamp_count(c.filecount, kMaxFiles); ++i) {
        const DRAVIK_FILE_ITEM& file = c.files[i];
        std::string self = f.element("file", i, w.files, text_of(file.fname));
        if (file.findex != i)
            f.add(self + ": findex " + std::to_string(file.findex) +
                  ", but the player finds files by position: items with findex " + std::to_string(i) +
                  " mean it");
        // A file's server is a position in the document's servers, not a server's id.
        int s = file.server_id;
        if (s < 0 || s >= servers) {
            f.add(self + ": server_id " + std::to_string(s) +
                  " names no server (the player takes servers by position and " + range_of(servers, "server") +
                  "): it never downloads the file");
        } else if (c.servers[s].id != s) {
            for (int k = 0; k < servers; ++k)
                if (c.servers[k].id == s)
                    f.add(self + ": server_id " + std::to_string(s) + " is the id of server " +
                          std::to_string(k) +
                          ", but the player takes servers by position: it downloads from server " +
                          std::to_string(s) + " " + quoted(text_of(c.servers[s].address)));
        }
        long long written = 0;
        if (static_cast<std::size_t>(i) < w.files.size() && written_number(w.files[i].size, &written) &&
            written != static_cast<long long>(file.fsize))
            f.add(self + ": size " + std::to_string(written) + " reads as " + std::to_string(file.fsize) +
                  " on the player" + (written > INT32_MAX ? " (2 GiB or more does not fit its 32 bits)" : "") +
                  ": the file never counts as complete, so it is fetched again and again");
        if (file.type == 2 && file.md5[0] == '\0')
            f.add(self +
                  ": a web page without an md5 digest: the player never finds it complete and fetches it "
                  "again at every content check");
    }
    dropped(f, "server", w.servers, c.servercount, kMaxServers);
}

void check_schedule(Findings& f, const DRAVIK_CONTENT& c, const Walk& w)
{
    const DRAVIK_SCHEDULE& s = c.schedule;
    int playlists = clamp_count(c.plcount, kMaxPlaylists), layouts = clamp_count(c.layoutcount, kMaxLayouts);
    auto names_playlist = [&](int p) { return p >= 0 && p < playlists; };
    auto names_layout = [&](int l) { return l == -1 || (l >= 0 && l < layouts); };
    if (s.defaultpl_index >= 0 && !names_playlist(s.defaultpl_index))
        f.add("schedule: default_pindex " + std::to_string(s.defaultpl_index) + " names no playlist (" +
              range_of(playlists, "playlist") + "): whenever nothing is scheduled, nothing new starts");
    if (!names_layout(s.defaultlo_index))
        f.add("schedule: default_lindex " + std::to_string(s.defaultlo_index) + " names no layout (" +
              range_of(layouts, "layout") + "): whenever nothing is scheduled, nothing new starts");
    dropped(f, "schedule item", w.schedItems, s.itemCount, kMaxScheduleItems);

    for (int i = 0; i < clamp_count(s.itemCount, kMaxScheduleItems); ++i) {
        const SCHEDULE_ITEM& it = s.schedItems[i];
        std::string self = f.element("schedule item", i, w.schedItems);
        if (static_cast<std::size_t>(i) < w.schedItems.size())
            dropped_inside(f, self, "day item", "a schedule item", w.schedItems[i].children, it.dayItemCount,
                           kMaxDayItems);
        if (it.pindex != -1 && !names_playlist(it.pindex))
            f.add(self + ": pindex " + std::to_string(it.pindex) + " names no playlist (" +
                  range_of(playlists, "playlist") + "): while it is scheduled, " +
                  (it.pindex >= 0 ? "the default playlist stands in, or with a layout nothing starts"
                                  : "the video layer is stopped"));
        if (!names_layout(it.lindex))
            f.add(self + ": lindex " + std::to_string(it.lindex) + " names no layout (" +
                  range_of(layouts, "layout") + "): while it is scheduled, nothing starts");
        for (int d = 0; d < clamp_count(it.dayItemCount, kMaxDayItems); ++d)
            if (it.dayItems[d].day < 0 || it.dayItems[d].day > 6)
                f.add(self + ", day item " + std::to_string(d) +
                      (static_cast<std::size_t>(i) < w.schedItems.size() &&
                               static_cast<std::size_t>(d) < w.schedItems[i].children.size()
                           ? " (" + f.at_line(w.schedItems[i].children[d]) + ")"
                           : "") +
                      ": not a day the player reads: the entry never applies");

        // Both ends as the evaluation reads them, in winter and in summer time.
        bool counted = true;
        const struct {
            std::string_view end, text;
        } ends[] = {{"start", text_of(it.stime)}, {"end", text_of(it.etime)}};
        for (const auto& [end, text] : ends) {
            // Terminated within its array by the parser; a copy all the same.
            std::string t(text);
            std::time_t winter = MakeTime(t.c_str(), 0), summer = MakeTime(t.c_str(), 1);
            std::string said = std::string(end) + " " + quoted(text);
            if (winter == 0) {
                f.add(self + ": " + said +
                      " is not a date and time of the form 2026-03-01T08:00:00: the item is ignored");
                counted = false;
            } else if (winter == -1 || summer == -1) {
                f.add(self + ": " + said +
                      " lies outside 1901-12-13 .. 2038-01-19, which the player's 32-bit clock cannot count: " +
                      (end == "start" ? "it takes the item as started long before" : "the item never plays"));
                counted = false;
            }
        }
        if (counted && !gives_an_event(c, i, MakeTime(it.stime, 0), MakeTime(it.etime, 0)))
            f.add(self + ": gives the player no event on any day from " + std::string(text_of(it.stime)) +
                  " to " + std::string(text_of(it.etime)) +
                  (it.dayItemCount > 0 ? " (its day items fall on no day and time of that period)" : "") +
                  ": it never plays");
    }
}

void check_layouts(Findings& f, const DRAVIK_CONTENT& c, const Walk& w)
{
    int files = clamp_count(c.filecount, kMaxFiles);
    dropped(f, "layout", w.layouts, c.layoutcount, kMaxLayouts);
    for (int l = 0; l < clamp_count(c.layoutcount, kMaxLayouts); ++l) {
        const DRAVIK_LAYOUT& lo = c.layouts[l];
        std::string self = f.element("layout", l, w.layouts, text_of(lo.name));
        if (static_cast<std::size_t>(l) < w.layouts.size()) {
            dropped_inside(f, self, "file", "a layout", w.layouts[l].children, lo.fileCount, kMaxLayoutFiles);
            dropped_inside(f, self, "playlist item", "a layout", w.layouts[l].pages, lo.plItemCount,
                           kMaxLayoutPlItems);
        }
        if (lo.lindex != l)
            f.add(self + ": lindex " + std::to_string(lo.lindex) +
                  ", but the player finds layouts by position: schedule items with lindex " +
                  std::to_string(l) + " show it");
        for (int k = 0; k < clamp_count(lo.fileCount, kMaxLayoutFiles); ++k) {
            int fi = lo.layoutFiles[k].findex;
            if (fi >= 0 && fi < files) continue;
            f.add(self + ", file " + std::to_string(k) + ": findex " + std::to_string(fi) + " names no file (" +
                  range_of(files, "file") + "): the layout is never complete, so the player never shows it");
        }
    }
}

}  // namespace

int check(std::FILE* out, const char* path)
{
    // Read through the stream buffer: g++ 12's optimiser takes the istreambuf_iterator
    // form for a possible null dereference, an error in the -O1 and -O2 builds.
    std::ostringstream read;
    read << std::ifstream(path, std::ios::binary).rdbuf();
    const std::string text = read.str();

    dA_Initialize();
    bool parsed = dA_ParseContent(path) == 0 && dA_IsContentValid();
    long stop = xt_input_offset();
    const Walk w = walk(path);
    const DRAVIK_CONTENT& c = *dA_Content();
    Findings f(text);

    if (!parsed) {
        f.add(parse_failure(f, w, stop));
    } else {
        // What ends the document early without failing it: a NUL byte, or a comment or
        // the like that the tokenizer never sees end.
        if (stop < static_cast<long>(text.size()) && anything_after(text, stop))
            f.add(f.at_line(stop + 1) + ": a NUL byte ends the document for the player: the rest is ignored");
        else if (w.section != nullptr)
            f.add(f.at_line(w.section_at) + ": the " + w.section +
                  " begun here never ends for the player: everything after it is ignored");
        if (w.root_at >= 0 && w.root != "content")
            f.add(f.at_line(w.root_at) + ": the root element is <" + w.root + ">, not <content>" +
                  (c.plcount == 0 && c.filecount == 0 && c.schedule.itemCount == 0
                       ? ": the player finds nothing in it"
                       : ""));
        if (c.id[0] == '\0')
            f.add("the document has no id: the player does not take it up and keeps what it plays");
        check_playlists(f, c, w);
        check_files(f, c, w);
        check_schedule(f, c, w);
        check_layouts(f, c, w);
    }

    for (const std::string& line : f.lines()) std::fprintf(out, "%s\n", line.c_str());
    if (f.lines().empty()) std::fprintf(out, "%s: nothing to report: the player reads it as written\n", path);
    return static_cast<int>(f.lines().size());
}

}  // namespace inspect
