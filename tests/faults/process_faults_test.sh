#!/usr/bin/env bash
# Applications that end, or stand still, while the arm moves: what the motors do then, and that the
# next application finds them well. usage: process_faults_test.sh BUILD_DIR
# Status 77 when it failed on a machine that stood still.
# shellcheck disable=SC2016 # the inner shells expand
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/program_test.sh"
failures=0

# run_case NAME MODE ACTION STATUS PATTERN...: runs the application in a mode, lets the action happen to
# it ($application) while it moves, and compares its status and the patterns in what the arm printed
# (those that begin with ! must not be there). Then a well-behaved application must find the arm well.
run_case() {
  local name=$1 mode=$2 action=$3 wanted=$4 pattern status
  shift 4
  scripts/with-virtual-can --interface "rough${#name}" bash -c '
    bin=$1 interface=$2 mode=$3 action=$4
    "$bin/kelvara-simulated-arm" --interface "$interface" --no-gripper --show >"$work/arm" &
    until grep -qs ready "$work/arm"; do sleep 0.05; done
    "$bin/../tests/bin/rough_application" "$interface" "$mode" >"$work/out" 2>"$work/err" &
    application=$!
    until grep -qs moving "$work/out"; do sleep 0.01; done
    eval "$action"
    status=0
    wait "$application" 2>/dev/null || status=$?
    echo "$status" >"$work/status"
    sleep 0.3
    cp "$work/arm" "$work/arm_then"
    "$bin/../tests/bin/rough_application" "$interface" home >"$work/again" 2>&1
    kill %1' - "$build/bin" "rough${#name}" "$mode" "$action" 2>"$work/shell" || true
  status=$(cat "$work/status")
  if [[ $status -ne $wanted ]] || ! grep -q "^home within 0\.0[01]" "$work/again"; then
    echo "FAILED: $name: status $status; then:"
    tail -n 3 "$work/again"
    failures=$((failures + 1))
  fi
  for pattern in "$@"; do
    if [[ $pattern == !* ]]; then
      ! grep -q "${pattern#!}" "$work/arm_then" "$work/out" && continue
    elif grep -q "$pattern" "$work/arm_then" "$work/out"; then
      continue
    fi
    echo "FAILED: $name: expected $pattern"
    tail -n 5 "$work/arm_then"
    failures=$((failures + 1))
  done
  echo "$name: judged"
}

watch_pauses
let_go="motors 1-6 error 0xD"
run_case killed wait 'kill -KILL $application' 137 "$let_go"
run_case stopped wait 'kill -STOP $application; sleep 1; kill -CONT $application' 0 "$let_go" "joint 6 at"
run_case threw throw : 134 "$let_go"
run_case exited exit : 3 "$let_go"
run_case thread-ended end : 0 "!$let_go" "joint 6 at 0.\(79\|80\)"
end_with "$((failures > 0))"
