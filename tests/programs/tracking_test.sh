#!/usr/bin/env bash
# first_motion drives the simulated arm in real time: every frame of the session is checked, and the
# motion by the bus report of the log.
# usage: tracking_test.sh BUILD_DIR [--pos-vel] [--fd]
# Status 77 when the machine was too slow for a result.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/program_test.sh"
shift

cat >"$work/check_motion.py" <<'CHECK'
import json, sys

report = json.load(open(sys.argv[1]))
if report["period_ms"]["max"] > 25:
    print(f"skipped: the machine stalled for {report['period_ms']['max']:.0f} ms")
    sys.exit(77)
assert len(report["moves"]) == 3, "home, the move, and back"
assert abs(report["moves"][1]["joints"][5]["target"] - 0.8) < 0.001
for move in report["moves"]:
    assert len(move["joints"]) == 6
    for joint in move["joints"]:
        assert joint["peak_error"] < 0.06 and joint["end_error"] < 0.02, joint
        assert joint["overshoot"] < 0.02, joint
CHECK

watch_pauses
check on_bus can0 tests/programs/record_session.sh "$bin" can0 "$work/log" "$@" || end_test
check /usr/bin/python3 tools/bus_report/check_session.py "$work/log" "$@" || end_test
check /usr/bin/python3 tools/bus_report/bus_report.py "$work/log" --json "$work/report.json" || end_test
check /usr/bin/python3 "$work/check_motion.py" "$work/report.json" || end_test
end_test
