#include "rules.h"

#include <cerrno>
#include <cstdlib>
#include <fnmatch.h>
#include <fstream>
#include <sstream>

namespace cms {
namespace {

// A count of bytes, with an optional k (1024) or m (1024 * 1024).
bool parse_bytes(const std::string& text, long long& out)
{
    errno = 0;
    char* end = nullptr;
    long long v = std::strtoll(text.c_str(), &end, 10);
    if (errno != 0 || end == text.c_str() || v < 0) return false;
    if (*end == 'k' || *end == 'K') {
        v *= 1024;
        ++end;
    } else if (*end == 'm' || *end == 'M') {
        v *= 1024 * 1024;
        ++end;
    }
    out = v;
    return *end == '\0';
}

bool parse_seconds(const std::string& text, double& out)
{
    char* end = nullptr;
    double v = std::strtod(text.c_str(), &end);
    if (end == text.c_str() || *end != '\0' || !(v >= 0 && v < 1e6)) return false;
    out = v;
    return true;
}

}  // namespace

std::optional<Fault> parse_fault(const std::string& text, std::string& error)
{
    Fault f;
    f.text = text;
    std::stringstream items(text);
    for (std::string item; std::getline(items, item, ',');) {
        auto eq = item.find('=');
        std::string name = item.substr(0, eq);
        std::string value = eq == std::string::npos ? "" : item.substr(eq + 1);
        bool ok = eq != std::string::npos;
        if (!ok) {
        } else if (name == "status") {
            long long v;
            ok = parse_bytes(value, v) && v >= 100 && v <= 599;
            f.status = static_cast<int>(v);
        } else if (name == "stall") {
            auto slash = value.find('/');
            ok = parse_bytes(value.substr(0, slash), f.stall_after) &&
                 (slash == std::string::npos || parse_seconds(value.substr(slash + 1), f.stall_seconds));
        } else if (name == "drop") {
            ok = parse_bytes(value, f.drop_after);
        } else if (name == "rate") {
            ok = parse_bytes(value, f.rate) && f.rate > 0;
        } else if (name == "delay") {
            ok = parse_seconds(value, f.delay);
        } else if (name == "extra") {
            ok = parse_bytes(value, f.extra);
        } else if (name == "auth") {
            f.auth = value;
            ok = value.find(':') != std::string::npos;
        } else if (name == "times") {
            long long v;
            ok = parse_bytes(value, v) && v > 0 && v < 1000000000;
            f.times = static_cast<int>(v);
        } else {
            error = "unknown fault '" + item + "'";
            return std::nullopt;
        }
        if (!ok) {
            error = "bad fault '" + item + "'";
            return std::nullopt;
        }
    }
    if (text.empty()) {
        error = "no faults";
        return std::nullopt;
    }
    return f;
}

bool Rules::add(const std::string& pattern, const std::string& faults, std::string& error)
{
    auto f = parse_fault(faults, error);
    if (!f) return false;
    std::lock_guard<std::mutex> lock(mu_);
    rules_.push_back({pattern, *f, 0, false});
    return true;
}

bool Rules::load_file(const std::string& path, std::string& error)
{
    std::ifstream in(path);
    if (!in) {
        error = path + ": cannot be read";
        return false;
    }
    std::vector<Rule> loaded;
    int number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        auto first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#') continue;
        auto last = line.find_last_not_of(" \t\r");
        line = line.substr(first, last - first + 1);
        // The faults are the last word; the pattern, which may hold blanks, the rest.
        auto gap = line.find_last_of(" \t");
        if (gap == std::string::npos) {
            error = path + ":" + std::to_string(number) + ": expected PATTERN FAULTS";
            return false;
        }
        std::string pattern = line.substr(0, line.find_last_not_of(" \t", gap) + 1);
        auto f = parse_fault(line.substr(gap + 1), error);
        if (!f) {
            error = path + ":" + std::to_string(number) + ": " + error;
            return false;
        }
        loaded.push_back({pattern, *f, 0, true});
    }
    std::lock_guard<std::mutex> lock(mu_);
    std::erase_if(rules_, [](const Rule& r) { return r.from_file; });
    rules_.insert(rules_.end(), loaded.begin(), loaded.end());
    return true;
}

std::optional<Fault> Rules::match(const std::string& path)
{
    std::lock_guard<std::mutex> lock(mu_);
    for (auto& r : rules_) {
        if (fnmatch(r.pattern.c_str(), path.c_str(), 0) != 0) continue;
        if (r.fault.times >= 0 && r.used >= r.fault.times) continue;
        ++r.used;
        return r.fault;
    }
    return std::nullopt;
}

}  // namespace cms
