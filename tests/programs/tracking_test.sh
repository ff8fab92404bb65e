#!/usr/bin/env bash
# first_motion drives the simulated arm in real time; its frames are checked one by one, and the bus
# report judges the motion from the log alone.
# usage: tracking_test.sh BUILD_DIR [--pos-vel] [--fd]
# Status 77 when the machine starved the programs: nothing can be told then.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/program_test.sh"
shift

cat >"$work/judge.py" <<'JUDGE'
import json, sys

report = json.load(open(sys.argv[1]))
if report["period_ms"]["max"] > 25:
    print(f"not judged: the machine stood still for {report['period_ms']['max']:.0f} ms")
    sys.exit(77)
assert len(report["moves"]) == 3, "home, the move, and back"
assert abs(report["moves"][1]["joints"][5]["target"] - 0.8) < 0.001
for move in report["moves"]:
    assert len(move["joints"]) == 6
    for joint in move["joints"]:
        assert joint["peak_error"] < 0.06 and joint["end_error"] < 0.02, joint
        assert joint["overshoot"] < 0.02, joint
JUDGE

watch_pauses
status=0
scripts/with-virtual-can tests/programs/record_session.sh "$build/bin" can0 "$work/log" "$@" &&
  /usr/bin/python3 tools/bus_report/check_session.py "$work/log" "$@" &&
  /usr/bin/python3 tools/bus_report/bus_report.py "$work/log" --json "$work/report.json" &&
  /usr/bin/python3 "$work/judge.py" "$work/report.json" || status=$?
end_with "$status"
