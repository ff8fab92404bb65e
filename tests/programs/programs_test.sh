#!/usr/bin/env bash
# The programs from a user's side: Debian's CAN tools on the virtual bus, and one clear line for every
# mistake. usage: programs_test.sh BUILD_DIR
# shellcheck disable=SC2317 # on_bus calls the exported functions
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/program_test.sh"

# expect STATUS PATTERN COMMAND...: checks the status, and that one line on standard error matches.
expect() {
  local status=0 wanted=$1 pattern=$2
  shift 2
  "$@" >/dev/null 2>"$work/error" </dev/null || status=$?
  if [[ $status -ne $wanted || $(wc -l <"$work/error") -ne 1 ]] || ! grep -q "$pattern" "$work/error"; then
    failed "$* (status $status)" "$work/error"
  fi
}

# Debian's tools, unmodified: one records the frames that the others send.
use_can_tools() {
  local recorder log=$work/log
  candump -L can0 >"$log" &
  recorder=$!
  until cansend can0 001#00 && [[ -s $log ]]; do sleep 0.05; done
  cansend can0 123#DEADBEEF
  cansend can0 124##3112233
  cangen can0 -n 20 -g 1 -I 700 -L 8
  until [[ $(grep -c " 700#" "$log") -ge 20 ]]; do sleep 0.05; done
  kill "$recorder"
  canplayer -I "$log"
}
export -f use_can_tools

on_bus can0 use_can_tools
for frame in "can0 123#DEADBEEF" "can0 124##[37]112233"; do
  grep -q "$frame" "$work/log" || failed "no $frame in the log"
done

expect 2 "usage: first_motion" "$bin/first_motion"
expect 2 "usage: first_motion" "$bin/first_motion" can0 --fast
expect 1 "Failed to initialize socket for interface: can9" on_bus can0 "$bin/first_motion" can9
expect 2 "interface NAME is missing" "$bin/kelvara-simulated-arm"
expect 2 "unknown option" "$bin/kelvara-simulated-arm" --interface can0 --quick
expect 2 "start needs 6 numbers" "$bin/kelvara-simulated-arm" --interface can0 --start 1,2
expect 2 "not a number" "$bin/kelvara-simulated-arm" --interface can0 --load heavy
expect 1 "no interface can9" on_bus can0 "$bin/kelvara-simulated-arm" --interface can9
expect 2 "needs a --scene" "$bin/kelvara-simulated-arm" --interface can0 --report-bodies "$work/bodies"
echo "tables: {}" >"$work/scene.yaml"
expect 1 "scene.yaml: line 1, tables: unknown key" \
  "$bin/kelvara-simulated-arm" --interface can0 --scene "$work/scene.yaml"
expect 2 "usage: kelvara-virtual-can" "$bin/kelvara-virtual-can" fly
expect 2 "not an interface name" "$bin/kelvara-virtual-can" run "can 0"
expect 1 "no interface can9" "$bin/kelvara-virtual-can" down can9
expect 2 "unknown argument" scripts/demo --slow
expect 2 "unknown preset" scripts/test --preset fast
expect 2 "unknown argument" scripts/test-kernel --fast
expect 2 "usage: with-virtual-can" scripts/with-virtual-can

# Commands that start at once share one interface, which ends with the last of them.
use_one_bus() {
  local process processes=()
  for _ in 1 2 3 4; do
    on_bus can1 cansend can1 123#00 &
    processes+=($!)
  done
  for process in "${processes[@]}"; do wait "$process"; done
}
for _ in 1 2 3 4 5; do
  if ! use_one_bus 2>"$work/error" || [[ -s $work/error ]]; then
    failed "starts at once" "$work/error"
  fi
done

# LD_PRELOAD separates its entries with spaces and colons.
ln -s "$build" "$work/a b:c"
KELVARA_BUILD_DIR="$work/a b:c" on_bus can0 cansend can0 123#00 2>"$work/error" ||
  failed "a path with a space and a colon" "$work/error"
mkdir -m 0777 "$work/open"
expect 1 "other users may write to it" env KELVARA_VIRTUAL_CAN_DIR="$work/open" \
  scripts/with-virtual-can true

until [[ -z $("$bin/kelvara-virtual-can" list) ]]; do sleep 0.01; done

# A busy interface, one that is down, and a second arm.
"$bin/kelvara-virtual-can" run can0 >"$work/ready" &
wait_for ready "$work/ready"
expect 1 "can0 is busy" "$bin/kelvara-virtual-can" run can0
"$bin/kelvara-virtual-can" down can0
expect 1 "can0 is down" on_bus can0 "$bin/kelvara-simulated-arm" --interface can0
"$bin/kelvara-virtual-can" up can0
on_bus can0 "$bin/kelvara-simulated-arm" --interface can0 >"$work/arm_ready" &
wait_for ready "$work/arm_ready"
expect 1 "an arm answers there already" on_bus can0 "$bin/kelvara-simulated-arm" --interface can0
expect 1 "holds no commands" /usr/bin/python3 tools/bus_report/bus_report.py "$work/log"
# Six motors answer once, rest for a second, and stay silent while commands move them.
/usr/bin/python3 - >"$work/silent" <<'LOG'
for k in range(600):
    for joint in range(1, 7):
        if k == 0 or k > 400:
            print(f"({k * 0.0025:.6f}) can0 {joint:03X}#{0x8000 + 20 * k:04X}7FF1F4000800")
        if k == 0:
            print(f"(0.001000) can0 {joint + 16:03X}#1{joint}80008008001E1C")
LOG
for options in "" --joints; do
  # shellcheck disable=SC2086 # none or one
  /usr/bin/python3 tools/bus_report/bus_report.py "$work/silent" $options >"$work/report" 2>&1 || true
  grep -q "no enabled motor answered" "$work/report" || failed "bus_report $options" "$work/report"
done
grep -v ' 01[1-6]#' "$work/silent" >"$work/dead"
expect 1 "holds no answers" /usr/bin/python3 tools/bus_report/bus_report.py "$work/dead"
expect 1 "no frame 7FE" /usr/bin/python3 tools/bus_report/check_session.py "$work/log"
end_test
