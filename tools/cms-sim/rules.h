#pragma once
// cms-sim's fault rules: which requests it answers badly, and how.
//
//   parse_fault("stall=1000/2,rate=10k")   one rule's faults, or an error
//   Rules::load_file(path), Rules::add     the rules, command line first, then the file
//   Rules::match(path)                     the faults for one request (first rule that
//                                          matches and has uses left)
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace cms {

struct Fault {
    int status = 0;                // answer this status instead of the file
    long long stall_after = -1;    // stop sending after this many body bytes ...
    double stall_seconds = -1;     // ... for this long (-1: until the client or cms-sim ends)
    long long drop_after = -1;     // close the connection after this many body bytes
    long long rate = 0;            // body bytes per second (0: as fast as it goes)
    double delay = 0;              // seconds before the answer starts
    long long extra = 0;           // bytes sent beyond the declared Content-Length
    std::string auth;              // "user:password" that Basic authorisation must give
    int times = -1;                // only for the first N matching requests (-1: all)
    std::string text;              // as written, for the log
};

// Parses "name=value,..."; on an error returns nothing and says why in `error`.
std::optional<Fault> parse_fault(const std::string& text, std::string& error);

class Rules {
public:
    // A rule for the request paths that `pattern` matches (fnmatch: * ? [...], and *
    // also matches "/"); false with `error` set when the faults do not parse.
    bool add(const std::string& pattern, const std::string& faults, std::string& error);
    // Reads "PATTERN FAULTS" lines ('#' comments and blank lines skipped) and puts them
    // after the command line's rules, in place of those an earlier load read.
    bool load_file(const std::string& path, std::string& error);
    std::optional<Fault> match(const std::string& path);

private:
    struct Rule {
        std::string pattern;
        Fault fault;
        int used = 0;
        bool from_file = false;
    };
    std::mutex mu_;
    std::vector<Rule> rules_;
};

}  // namespace cms
