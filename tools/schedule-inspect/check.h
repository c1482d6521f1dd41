#pragma once
// --check: every way the player reads a content document differently from what its
// author likely meant, found with the agent's own tokenizer, parser, records, limits
// and schedule evaluation.
//
//   inspect::check(out, path)   one line per finding, naming the element and what the
//                               player does, or one line saying there is nothing to
//                               report; returns the number of findings
#include <cstdio>

namespace inspect {

int check(std::FILE* out, const char* path);

}  // namespace inspect
