#!/usr/bin/env bash
# The tour of the simulated arm, judged by what it says it reached; the commands of its waypoint
# moves against a second planner. usage: tour_test.sh BUILD_DIR
# Status 77 when the machine starved the programs: no distance can be judged then.
# shellcheck disable=SC2016 # the inner shell expands
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/program_test.sh"

watch_pauses
scripts/with-virtual-can bash -c '
  work=$1 bin=$2
  candump -L can0 >"$work/log" &
  "$bin/kelvara-simulated-arm" --interface can0 --hand 0.05,0.15,0.05 >"$work/ready" &
  until grep -qs ready "$work/ready"; do sleep 0.05; done
  "$bin/tour" can0
  kill $(jobs -p)' - "$work" "$build/bin" 2>"$work/errors" | tee "$work/table"
if grep -q exception "$work/errors"; then
  grep exception "$work/errors"
  exit 1
fi
/usr/bin/python3 tools/bus_report/bus_report.py "$work/log" --json "$work/report.json"
status=0
/usr/bin/python3 tests/programs/judge_tour.py "$work/table" "$work/log" "$work/report.json" || status=$?
end_with "$status"
