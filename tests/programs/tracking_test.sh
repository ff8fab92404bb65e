#!/usr/bin/env bash
# first_motion drives the simulated arm in real time; the bus report judges it from the log alone.
# usage: tracking_test.sh BUILD_DIR [--pos-vel] [--fd]
# Status 77 when the machine starved the programs: nothing can be told then.
# shellcheck disable=SC2016 # the inner shells expand
set -euo pipefail

build=$(cd "$1" && pwd)
shift
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
KELVARA_BUILD_DIR=$build
KELVARA_VIRTUAL_CAN_DIR=$(mktemp -d)
export KELVARA_BUILD_DIR KELVARA_VIRTUAL_CAN_DIR
work=$(mktemp -d)
trap 'rm -rf "$work" "$KELVARA_VIRTUAL_CAN_DIR"' EXIT

arm_options=()
[[ " $* " == *" --fd "* ]] && arm_options=(--fd)
scripts/with-virtual-can bash -c '
  work=$1 bin=$2; shift 2
  candump -L can0 >"$work/log" &
  "$bin/kelvara-simulated-arm" --interface can0 --no-gripper \
    --start 0.4,-0.5,0.5,0.3,-0.4,0.5 '"${arm_options[*]}"' >"$work/ready" &
  until grep -qs ready "$work/ready"; do sleep 0.05; done
  "$bin/first_motion" can0 "$@"
  kill $(jobs -p)' - "$work" "$build/bin" "$@"
/usr/bin/python3 tools/bus_report/bus_report.py "$work/log" --json "$work/report.json"
/usr/bin/python3 - "$work/report.json" <<'JUDGE'
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
