#!/usr/bin/env bash
# The tour of the simulated arm: the results that it prints, and the commands of its waypoint moves
# against a second planner. usage: tour_test.sh BUILD_DIR
# Status 77 when the machine was too slow for a result.
# shellcheck disable=SC2317 # on_bus calls the exported functions
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/program_test.sh"

record_tour() {
  local recorder arm
  candump -L can0 >"$work/log" &
  recorder=$!
  start_arm can0 "$work/ready" --hand 0.05,0.15,0.05
  arm=$!
  "$bin/tour" can0
  kill "$arm" "$recorder"
}
export -f record_tour

watch_pauses
on_bus can0 record_tour 2>"$work/errors" | tee "$work/table"
if grep exception "$work/errors"; then
  exit 1
fi
/usr/bin/python3 tools/bus_report/bus_report.py "$work/log" --json "$work/report.json"
check /usr/bin/python3 tests/programs/check_tour.py "$work/table" "$work/log" "$work/report.json" || true
end_test
