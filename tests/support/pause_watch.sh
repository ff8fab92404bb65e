# Tells whether the machine stood still or was overloaded: a failure of a timed test says nothing then.
# Sourced.
# shellcheck shell=bash

# watch_pauses FILE: from now on it is kept there why the machine cannot be relied on, if it cannot: a
# process that wants to run every 5 ms had to wait for longer than 25 ms, or more processes wanted to run,
# on the average, than there are processors.
watch_pauses() {
  pause_file=$1
  : >"$pause_file"
  /usr/bin/python3 -c '
import os, sys, time
running, samples, last = 0, 0, time.monotonic()
def tell(why):
    with open(sys.argv[1], "w") as file:
        file.write(why)
    sys.exit()
while True:
    time.sleep(0.005)
    now = time.monotonic()
    running += int(open("/proc/loadavg").read().split()[3].split("/")[0]) - 1
    samples += 1
    if now - last > 0.030:
        tell(f"the machine stood still for {(now - last - 0.005) * 1000:.0f} ms")
    elif samples % 100 == 0 and running > samples * os.cpu_count():
        tell(f"{running / samples:.1f} other processes wanted to run all the time")
    last = now' "$pause_file" &
  pause_watch=$!
}

# end_with STATUS: ends the test; with status 77 when it failed on such a machine.
end_with() {
  kill "$pause_watch" 2>/dev/null || true
  if [[ $1 -ne 0 && $1 -ne 77 && -s $pause_file ]]; then
    echo "not judged: $(<"$pause_file")"
    exit 77
  fi
  exit "$1"
}
