#pragma once
// schedule-inspect: what a content document's schedule plays at a given moment, or day
// by day over a week, worked out by the agent's own parser and schedule evaluation, and
// explained for the people who author content. The week view is week.h.
//
//   inspect::run(argc, argv, out, err)   the whole program; returns its exit status
//   inspect::parse_local_time(text, &t)  "YYYY-MM-DDTHH:MM:SS" in the zone TZ names
//   inspect::explain(out, content, t)    the first line and the explanation
//   inspect::dump_json(content)          the parsed record as JSON
#include <cstdio>
#include <ctime>
#include <string>

#include "xml/dravikAPI.h"

namespace inspect {

// Exit statuses.
constexpr int kOk = 0;
constexpr int kBadDocument = 1;
constexpr int kUsage = 2;

int run(int argc, char** argv, std::FILE* out, std::FILE* err);

// A local date and time to calendar seconds. A moment the clock skips (spring forward)
// counts with the offset in force before the change; a moment it passes twice (fall
// back) is the first of the two. False, with a reason in *error, when the text is not
// a real date and time or lies beyond the agent's 32-bit clock.
bool parse_local_time(const char* text, std::time_t* out, std::string* error);

// Evaluates the schedule at `at` with the agent's own code and writes the result: first
// "now=.. playlist=.. layout=.. next=.." then an explanation for people. The clock is
// a fixed one installed in the seam for the evaluation; the real one is back afterwards.
void explain(std::FILE* out, DRAVIK_CONTENT& content, std::time_t at);

// The record as one JSON object with its own field names; only used array entries.
std::string dump_json(const DRAVIK_CONTENT& content);

}  // namespace inspect
