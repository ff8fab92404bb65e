#!/usr/bin/env bash
# Applications that end or stall while the arm moves: the motors' reaction, and that the next application
# can use the arm. usage: process_faults_test.sh BUILD_DIR
# Status 77 when it failed on a machine with unreliable timing.
# shellcheck disable=SC2317 # on_bus calls the exported functions
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/program_test.sh"

# rough_session INTERFACE MODE ACTION: runs the application in a mode, and the action on it once the arm
# moves; then an application that takes care. Leaves their results in $work.
rough_session() {
  local interface=$1 mode=$2 action=$3 application status=0
  local program=$bin/../tests/bin/rough_application
  start_arm "$interface" "$work/arm" --no-gripper --show
  "$program" "$interface" "$mode" >"$work/out" 2>"$work/err" &
  application=$!
  wait_for moving "$work/out"
  "$action" "$application"
  wait "$application" 2>/dev/null || status=$?
  echo "$status" >"$work/status"
  sleep 0.3
  cp "$work/arm" "$work/arm_then"
  "$program" "$interface" home >"$work/again" 2>&1
  jobs -p | xargs -r kill 2>/dev/null
}
nothing() { :; }
kill_it() { kill -KILL "$1"; }
stop_it_for_ten_seconds() {
  candump -L -r 16777216 "$interface" >"$work/log" &
  kill -STOP "$1"
  sleep 10
  kill -CONT "$1"
}
export -f rough_session nothing kill_it stop_it_for_ten_seconds

# check_case NAME MODE ACTION STATUS PATTERN...: checks the application's status and the patterns in the
# output of the arm and the application (a pattern that begins with ! must not match).
check_case() {
  local name=$1 wanted=$4 pattern status
  on_bus "rough${#name}" rough_session "rough${#name}" "$2" "$3" 2>"$work/shell" || true
  shift 4
  status=$(cat "$work/status")
  [[ $status -eq $wanted ]] || failed "$name: status $status" "$work/err"
  grep -q "^home within 0\.0[01]" "$work/again" || failed "$name: the next application" "$work/again"
  for pattern in "$@"; do
    if [[ $pattern == !* ]]; then
      ! grep -q "${pattern#!}" "$work/arm_then" "$work/out" && continue
    elif grep -q "$pattern" "$work/arm_then" "$work/out"; then
      continue
    fi
    failed "$name: expected $pattern" "$work/arm_then"
  done
  echo "$name: checked"
}

# check_backlog: 240 commands are due in the first 100 ms after the stop; those of the ten seconds before it
# must not be sent.
check_backlog() {
  local count
  count=$(awk -F '[() #]+' '$4 ~ /^00[1-6]$/ {
      if ($2 - last > 5) start = $2
      if (start && $2 < start + 0.1) count++
      last = $2
    } END { print count + 0 }' "$work/log")
  [[ $count -gt 0 && $count -le 300 ]] || failed "stopped: $count commands in the first 100 ms" "$work/log"
  echo "stopped: $count commands in the first 100 ms"
}

watch_pauses
disabled="motors 1-6 error 0xD"
check_case killed wait kill_it 137 "$disabled"
check_case stopped wait stop_it_for_ten_seconds 0 "$disabled" "joint 6 at"
check_backlog
check_case threw throw nothing 134 "$disabled"
check_case exited exit nothing 3 "$disabled"
check_case thread-ended end nothing 0 "!$disabled" "joint 6 at 0.\(79\|80\)"
end_test
