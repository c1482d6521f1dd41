#!/usr/bin/env bash
# The folders under src/ are layers. A folder includes only folders below it; folders on
# one level may use one another, but never both ways, nor round a circle. Reads every
# `#include "folder/module.h"` under SRC and fails, naming the file and line, for an
# include that points up, closes a circle, or names a folder the table does not place.
set -uo pipefail
src=${1:?usage: layers_test.sh SRC}

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

cd "$src" || exit 1
grep -rnE --include='*.h' --include='*.cpp' '^[[:space:]]*#[[:space:]]*include[[:space:]]*"' . |
awk -v table="$layers" '
  BEGIN {
    n = split(table, rows, "\n")
    for (i = 1; i <= n; i++)
      if (split(rows[i], f, " ") >= 2) { level[f[2]] = f[1]; folders[++nf] = f[2] }
  }
  {
    # ./folder/file.cpp:LINE:#include "other/module.h"
    colon = index($0, ":"); file = substr($0, 3, colon - 3); rest = substr($0, colon + 1)
    line = substr(rest, 1, index(rest, ":") - 1)
    match(rest, /"[^"]*"/); target = substr(rest, RSTART + 1, RLENGTH - 2)
    where = "src/" file ":" line
    from = file; sub(/\/.*/, "", from)
    to = (index(target, "/") ? target : from "/" target); sub(/\/.*/, "", to)
    count++
    if (file !~ /\//) { print where ": a file outside every folder"; bad++; next }
    if (!(from in level)) {
      if (!(from in told)) { print "src/" from "/: a folder the layer table does not place"; told[from]; bad++ }
      next
    }
    if (!(to in level)) { print where ": includes \"" target "\", in no folder of the layer table"; bad++; next }
    if (to == from) next
    if (level[to] > level[from]) {
      print where ": " from " includes " to ", a folder above it (\"" target "\")"; bad++; next
    }
    if (level[to] == level[from] && !((from, to) in edge)) { edge[from, to] = where; reach[from, to] = 1 }
  }
  END {
    if (count == 0) { print "no #include lines under the folder given: is it src/?"; exit 1 }
    # Which peer reaches which through includes, to find any circle among peers.
    for (k = 1; k <= nf; k++) for (i = 1; i <= nf; i++) for (j = 1; j <= nf; j++)
      if (reach[folders[i], folders[k]] && reach[folders[k], folders[j]]) reach[folders[i], folders[j]] = 1
    for (e in edge) {
      split(e, p, SUBSEP)
      if (!reach[p[2], p[1]]) continue
      if (((p[2], p[1]) in edge) && p[1] > p[2]) continue  # a pair is told once
      how = ((p[2], p[1]) in edge) ? p[2] " includes " p[1] " (" edge[p[2], p[1]] ")" \
                                   : p[2] " reaches " p[1] " through other folders"
      print edge[e] ": " p[1] " includes " p[2] ", and " how; bad++
    }
    if (bad) { print bad " include(s) against the layers"; exit 1 }
    print count " includes, each pointing down or to a peer, with no circle"
  }'
