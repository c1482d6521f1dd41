#!/usr/bin/env bash
# bench/transfer_bench.sh [RUNS]: wget-compat against the curl command-line tool, each
# fetching the same 256 MiB file from cms-sim on loopback into /dev/null, RUNS times in
# turn (default 5); prints the medians of throughput and CPU seconds per 100 MiB.
# Needs the release build (tools/bench makes it); runs in a sandbox of its own, the file
# on a 300 MiB media partition. TRANSFER_BENCH_RAW=1 also prints every run (client, real,
# user and system seconds) on standard error.
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${1:-5}
build=build/release/tools
for program in "$build/wget-compat/wget-compat" "$build/cms-sim/cms-sim"; do
  [ -x "$program" ] || { echo "transfer_bench: no $program; run tools/bench" >&2; exit 2; }
done
command -v curl > /dev/null || { echo "transfer_bench: curl is missing; run tools/setup" >&2; exit 2; }

exec tools/sandbox --wget "$build/wget-compat/wget-compat" --hd4-size 300m --writable -- bash -c '
  set -euo pipefail
  runs=$1 cms=$2
  mkdir -p /mnt/hd4/www
  head -c $((256 * 1024 * 1024)) /dev/zero > /mnt/hd4/www/big.bin
  "$cms" --root /mnt/hd4/www --port 8080 --log /tmp/cms-sim.log &
  cms_pid=$!
  for _ in $(seq 100); do grep -q "^# start" /tmp/cms-sim.log 2>/dev/null && break; sleep 0.05; done
  url=http://127.0.0.1:8080/big.bin
  TIMEFORMAT="%3R %3U %3S"
  measure() {  # measure NAME COMMAND...: one line "NAME real user sys"
    local name=$1; shift
    { time "$@" > /dev/null 2>&1; } 2>&1 | sed "s/^/$name /"
  }
  for _ in $(seq "$runs"); do
    measure wget-compat wget "$url" -O /dev/null
    measure curl curl -s -o /dev/null "$url"
  done > /tmp/times
  [ -n "${TRANSFER_BENCH_RAW:-}" ] && cat /tmp/times >&2
  kill $cms_pid
  wait $cms_pid || true
  awk -v runs="$runs" "
    function median(a, n,   i, j, t) {
      for (i = 2; i <= n; i++) for (j = i; j > 1 && a[j-1] > a[j]; j--) { t = a[j]; a[j] = a[j-1]; a[j-1] = t }
      return n % 2 ? a[(n+1)/2] : (a[n/2] + a[n/2+1]) / 2
    }
    { n[\$1]++; rate[\$1, n[\$1]] = 256 / \$2; cpu[\$1, n[\$1]] = (\$3 + \$4) * 100 / 256 }
    END {
      printf \"256 MiB from cms-sim on loopback into /dev/null, median of %d runs each\n\", runs
      printf \"%-12s %12s %18s\n\", \"client\", \"MiB/s\", \"CPU s per 100 MiB\"
      for (c in n) {
        for (i = 1; i <= n[c]; i++) { r[i] = rate[c, i]; u[i] = cpu[c, i] }
        m[c] = median(r, n[c]); k[c] = median(u, n[c])
        printf \"%-12s %12.0f %18.3f\n\", c, m[c], k[c]
      }
      printf \"wget-compat / curl: throughput %.2f, CPU %.2f\n\", m[\"wget-compat\"] / m[\"curl\"], k[\"wget-compat\"] / k[\"curl\"]
    }" /tmp/times
' bench "$runs" "$(pwd)/$build/cms-sim/cms-sim"
