#!/usr/bin/env bash
# Every example runs to its end on the simulated arm and says what it reached.
# usage: examples_test.sh BUILD_DIR. Status 77 when it failed on a machine that stood still.
# shellcheck disable=SC2016 # the inner shell expands
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/program_test.sh"

run_example() {
  local name=$1 pattern=$2
  scripts/with-virtual-can --interface "${name:0:15}" bash -c '
    bin=$1 name=$2
    "$bin/kelvara-simulated-arm" --interface "${name:0:15}" >"$work/$name" &
    until grep -qs ready "$work/$name"; do sleep 0.05; done
    "$bin/$name" "${name:0:15}" 2>&1 || echo "status $?"
    kill $!' - "$build/bin" "$name" >"$work/$name.out"
  if grep -q -E '^status|exception' "$work/$name.out" ||
    ! grep -q -E "$pattern" "$work/$name.out"; then
    echo "FAILED: $name"
    cat "$work/$name.out"
    return 1
  fi
}

watch_pauses
# Two at a time.
failures=0
run_pair() {
  run_example "$1" "$2" &
  run_example "$3" "$4" || failures=1
  wait $! || failures=1
}
run_pair waypoints '^in 3 s: .* rad$' gripper '^halfway: (39|40)[0-9.]* mm$'
run_pair gravity_compensation '^10 s: .* rad$' tool_pose '^tool at 0\.(49[89]|50[0-2]), -0\.(14[89]|15[0-2]), '
run_example streamed_circle '^largest distance' || failures=1
end_with "$failures"
