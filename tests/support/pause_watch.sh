# Tells whether the machine stood still: a failure of a timed test says nothing then. Sourced.
# shellcheck shell=bash

long_pause_ms=25

# watch_pauses FILE: from now on the longest pause of a process that wants to run every 5 ms is kept there.
watch_pauses() {
  pause_file=$1
  /usr/bin/python3 -c '
import sys, time
longest, last = 0.0, time.monotonic()
while True:
    time.sleep(0.005)
    now = time.monotonic()
    if now - last - 0.005 > longest:
        longest = now - last - 0.005
        open(sys.argv[1], "w").write(f"{longest * 1000:.0f}")
    last = now' "$pause_file" &
  pause_watch=$!
}

# end_with STATUS: ends the test; with status 77 when it failed while the machine stood still.
end_with() {
  kill "$pause_watch" 2>/dev/null || true
  if [[ $1 -ne 0 && $(cat "$pause_file") -gt $long_pause_ms ]]; then
    echo "not judged: the machine stood still for $(cat "$pause_file") ms"
    exit 77
  fi
  exit "$1"
}
