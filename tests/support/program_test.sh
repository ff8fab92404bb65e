# What the tests of the programs share. Sourced first, with BUILD_DIR as the test's first argument: goes to
# the source tree; gives the programs a virtual CAN of their own, and the test $build and a folder $work,
# which vanish at its end together with what it left running.
# shellcheck shell=bash

build=$(cd "$1" && pwd)
cd "$(dirname "${BASH_SOURCE[0]}")/../.." || exit
KELVARA_BUILD_DIR=$build
KELVARA_VIRTUAL_CAN_DIR=$(mktemp -d)
work=$(mktemp -d)
export KELVARA_BUILD_DIR KELVARA_VIRTUAL_CAN_DIR work
trap 'kill $(jobs -p) 2>/dev/null || true; rm -rf "$work" "$KELVARA_VIRTUAL_CAN_DIR"' EXIT

# watch_pauses: from now on $work/pause tells why the machine cannot be relied on, if it cannot: a process
# that wants to run every 5 ms had to wait for longer than 25 ms, or more processes wanted to run, on the
# average, than there are processors. A failure of a timed test says nothing then.
watch_pauses() {
  : >"$work/pause"
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
    last = now' "$work/pause" &
}

# end_with STATUS: ends the test; with status 77 when it failed on such a machine.
end_with() {
  if [[ $1 -ne 0 && $1 -ne 77 && -s $work/pause ]]; then
    echo "not judged: $(<"$work/pause")"
    exit 77
  fi
  exit "$1"
}
