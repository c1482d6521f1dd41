#!/usr/bin/env bash
# The folders under src/ are layers: a folder includes only folders below it; folders on one
# level may use one another, but never both ways nor round a circle. Reads every
# `#include "folder/module.h"` under SRC and fails, naming the file and line, for an include
# that points up, closes a circle, or comes from or goes to a folder the table does not place.
set -uo pipefail
cd "${1:?usage: layers_test.sh SRC}" || exit 1
# The one table of the layers, from the top down: level, folder, what it holds.
layers='
5 agent     start-up, main loop, dispatch, action files, reboot sequences
4 content   content check, playlist files, status report
3 actions   configuration, upgrades, deletions
2 download  transfers and the download manager
1 schedule  schedule evaluation and its records, player state
1 xml       document records and parsers
1 storage   file and storage utilities, cleanup
1 list      fixed-pool lists
0 core      seam, timer, control channel, quoting: includes nothing of ours
'
grep -rnE --include='*.h' --include='*.cpp' '^[[:space:]]*#[[:space:]]*include[[:space:]]*"' . | awk -v table="$layers" '
  BEGIN { n = split(table, rows, "\n"); for (i = 1; i <= n; i++) if (split(rows[i], f, " ") >= 2) level[f[2]] = f[1] }
  {
    split($0, p, ":"); file = substr(p[1], 3); where = "src/" file ":" p[2]  # ./folder/file.cpp:LINE:#include "x/y.h"
    match($0, /"[^"]*"/); target = substr($0, RSTART + 1, RLENGTH - 2)
    from = index(file, "/") ? file : "(no folder)/"; sub(/\/.*/, "", from)
    to = index(target, "/") ? target : from "/"; sub(/\/.*/, "", to)
    count++
    if (!(from in level) || !(to in level)) { print where ": \"" target "\" from or to a folder the table does not place"; bad++ }
    else if (level[to] > level[from]) { print where ": " from " includes " to ", a folder above it"; bad++ }
    else if (level[to] == level[from] && to != from && !((from, to) in edge)) edge[from, to] = reach[from, to] = where
  }
  END {
    if (!count) { print "no #include lines under the folder given: is it src/?"; exit 1 }
    for (k in level) for (i in level) for (j in level) if (reach[i, k] && reach[k, j]) reach[i, j] = 1
    for (e in edge) if (split(e, p, SUBSEP) && reach[p[2], p[1]]) { print edge[e] ": " p[1] " includes " p[2] ", which reaches back"; bad++ }
    if (bad) { print bad " include(s) against the layers"; exit 1 }
    print count " includes, each pointing down or to a peer, with no circle"
  }'
