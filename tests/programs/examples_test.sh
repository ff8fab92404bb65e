#!/usr/bin/env bash
# Every example runs to its end on the simulated arm and prints what it reached.
# usage: examples_test.sh BUILD_DIR. Status 77 when it failed on a machine with unreliable timing.
# shellcheck disable=SC2317 # on_bus calls the exported functions
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/program_test.sh"

run_example() {
  local name=$1 interface=$2
  start_arm "$interface" "$work/$name"
  "$bin/$name" "$interface" 2>&1 || echo "status $?"
  kill $!
}
export -f run_example

# check_example NAME PATTERN: whether its output matches, without an exception or another status than 0.
check_example() {
  local output=$work/$1.out
  on_bus "${1:0:15}" run_example "$1" "${1:0:15}" >"$output"
  if grep -q -E '^status|exception' "$output" || ! grep -q -E "$2" "$output"; then
    cat "$output"
    return 1
  fi
}

# check_pair NAME PATTERN NAME PATTERN: two at a time.
check_pair() {
  check_example "$1" "$2" &
  check check_example "$3" "$4" || true
  check wait $! || true
}

watch_pauses
check_pair waypoints '^in 3 s: .* rad$' gripper '^halfway: (39|40)[0-9.]* mm$'
check_pair gravity_compensation '^10 s: .* rad$' tool_pose '^tool at 0\.(49[89]|50[0-2]), -0\.(14[89]|15[0-2]), '
check check_example streamed_circle '^largest distance' || true
end_test
