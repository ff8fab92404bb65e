# What the tests of the programs share: their set-up, sessions on a virtual bus, waiting, outcomes.
# Sourced first, with BUILD_DIR as the test's first argument. Changes to the source tree, sets $bin to the
# folder of the programs and $work to a temporary folder, and gives the programs virtual interfaces of
# their own. Everything temporary, and processes that still run, go at the test's end.
# shellcheck shell=bash

build=$(cd "$1" && pwd)
bin=$build/bin
cd "$(dirname "${BASH_SOURCE[0]}")/../.." || exit
KELVARA_BUILD_DIR=$build
KELVARA_VIRTUAL_CAN_DIR=$(mktemp -d)
work=$(mktemp -d)
export KELVARA_BUILD_DIR KELVARA_VIRTUAL_CAN_DIR bin work
trap 'kill $(jobs -p) 2>/dev/null || true; rm -rf "$work" "$KELVARA_VIRTUAL_CAN_DIR"' EXIT
failures=0

# ---- Sessions and waiting ----

# on_bus INTERFACE COMMAND ARGUMENT...: runs a command, or a function that is exported with export -f, on a
# virtual interface.
on_bus() {
  local interface=$1
  shift
  scripts/with-virtual-can --interface "$interface" bash -c '"$@"' - "$@"
}

# wait_for PATTERN FILE: waits for a line that matches.
wait_for() {
  until grep -qs -- "$1" "$2"; do sleep 0.01; done
}

# start_arm INTERFACE OUTPUT OPTION...: starts the simulated arm in the background, as $!, and waits until
# it is ready.
start_arm() {
  local interface=$1 output=$2
  shift 2
  "$bin/kelvara-simulated-arm" --interface "$interface" "$@" >"$output" &
  wait_for ready "$output"
}
export -f wait_for start_arm

# ---- Outcomes ----

# failed MESSAGE [FILE]: reports a failed check with the end of a file that explains it.
failed() {
  echo "FAILED: $1"
  if [[ -n ${2:-} ]]; then tail -n 20 "$2"; fi
  failures=$((failures + 1))
}

# skip REASON: ends the test without a result.
skip() {
  echo "skipped: $1"
  exit 77
}

# check COMMAND ARGUMENT...: a check that fails, or skips the test with status 77, by its status.
check() {
  local status=0
  "$@" || status=$?
  if [[ $status -eq 77 ]]; then exit 77; fi
  if [[ $status -ne 0 ]]; then failed "$* (status $status)"; fi
  return "$status"
}

# watch_pauses: writes to $work/pause the reason why timing on this machine is unreliable, if it is: a
# 5 ms sleeper was delayed by more than 25 ms, or on average more processes were runnable than there are
# processors.
watch_pauses() {
  : >"$work/pause"
  /usr/bin/python3 -c '
import os, sys, time
running, samples, last = 0, 0, time.monotonic()
def report(reason):
    with open(sys.argv[1], "w") as file:
        file.write(reason)
    sys.exit()
while True:
    time.sleep(0.005)
    now = time.monotonic()
    running += int(open("/proc/loadavg").read().split()[3].split("/")[0]) - 1
    samples += 1
    if now - last > 0.030:
        report(f"the machine stalled for {(now - last - 0.005) * 1000:.0f} ms")
    elif samples % 100 == 0 and running > samples * os.cpu_count():
        report(f"{running / samples:.1f} other processes were runnable on average")
    last = now' "$work/pause" &
}

# end_test: ends the test; a failure while timing was unreliable is no result.
end_test() {
  if [[ $failures -gt 0 && -s $work/pause ]]; then skip "$(<"$work/pause")"; fi
  exit "$((failures > 0))"
}
