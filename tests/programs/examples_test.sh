#!/usr/bin/env bash
# Every example runs to its end on the simulated arm and prints what it reached; Ctrl-C brings the arm to
# rest before the motors are disabled.
# usage: examples_test.sh BUILD_DIR. Status 77 when it failed on a machine with unreliable timing.
# shellcheck disable=SC2317 # on_bus calls the exported functions
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/program_test.sh"

run_example() {
  local name=$1 interface=$2 program=$bin/$1
  start_arm "$interface" "$work/$name"
  [[ $name == *_page ]] && program=$bin/../tests/bin/$name
  "$program" "$interface" 2>&1 || echo "status $?"
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

# interrupt_example INTERFACE: sends SIGINT in the middle of the second move of first_motion.
interrupt_example() {
  local recorder arm status=0
  candump -L "$1" >"$work/log" &
  recorder=$!
  start_arm "$1" "$work/interrupted" --no-gripper --show
  arm=$!
  "$bin/first_motion" "$1" 2>"$work/interrupt.err" &
  until grep -q 'joints   0\.[123]' "$work/interrupted"; do sleep 0.01; done
  kill -INT $!
  wait $! || status=$?
  echo "$status" >"$work/interrupt.status"
  wait_for "motors 1-6 off" "$work/interrupted"
  sleep 0.1
  kill "$arm" "$recorder"
}
export -f interrupt_example

cat >"$work/check_stop.py" <<'CHECK'
import sys
from bus_log import read_frames, read_log

record = read_log(sys.argv[1], [1] * 6)
disables = [f for f in read_frames(sys.argv[1]) if f.data == b"\xff" * 7 + b"\xfd"]
assert len(disables) == 6, disables
for commands, replies in zip(record.commands, record.replies):
    steps = abs(commands[1:, 1] - commands[:-1, 1])
    assert steps.max() < 0.02, f"a commanded position steps by {steps.max()} rad"
    assert abs(replies[-1, 2]) < 0.1, "disabled in motion"
assert 0.05 < abs(record.replies[0][-1, 1]) < 0.55, "stopped on the way"
CHECK

check_interrupt() {
  on_bus interrupt0 interrupt_example interrupt0
  [[ $(<"$work/interrupt.status") -eq 130 ]] && grep -q 'it sinks' "$work/interrupt.err" &&
    PYTHONPATH=tools:tools/bus_report /usr/bin/python3 "$work/check_stop.py" "$work/log"
}

# A plan without a bus: the table, a refusal by name, and a picture of the samples.
check_preview() {
  "$bin/preview" "$work/plan.csv" >"$work/preview.out" &&
    grep -q '^refused (out of reach): .* % of segment 1' "$work/preview.out" &&
    [[ $(wc -l <"$work/plan.csv") -eq $(($(grep -oE '^[0-9]+ samples' "$work/preview.out" | cut -d' ' -f1) + 1)) ]] &&
    /usr/bin/python3 tools/preview/plot_plan.py "$work/plan.csv" "$work/plan.png" && [[ -s $work/plan.png ]]
}

watch_pauses
check_pair waypoints '^in 3 s: .* rad$' gripper '^halfway: (39|40)[0-9.]* mm$'
check_pair gravity_compensation '^10 s: .* rad$' tool_pose '^tool at 0\.(49[89]|50[0-2]), -0\.(14[89]|15[0-2]), '
check_pair streamed_circle '^largest distance' straight_line '^measured at most [01]\.[0-9]* mm from the line, [01]\.'
check check_preview || true
if [[ -x $bin/../tests/bin/moving_page ]]; then  # not without the collision component
  check check_example moving_page "^link6 touches 'table'" || true
fi
check check_interrupt || true
end_test
