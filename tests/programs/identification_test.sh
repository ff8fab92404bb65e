#!/usr/bin/env bash
# identify_parameters on the simulated arm: the parameters that it finds must explain the torques of
# a motion that they were not estimated from. usage: identification_test.sh BUILD_DIR
# Status 77 when the machine starved the programs: nothing can be told then.
# shellcheck disable=SC2016 # the inner shell expands
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/program_test.sh"

watch_pauses
scripts/with-virtual-can bash -c '
  "$2/kelvara-simulated-arm" --interface can0 >"$1/ready" &
  until grep -qs ready "$1/ready"; do sleep 0.05; done
  status=0
  "$2/identify_parameters" can0 "$1/torques.csv" >"$1/out" 2>&1 || status=$?
  kill $!
  echo "status $status" >>"$1/out"' - "$work" "$build/bin"
cat "$work/out"
if grep -q "Communication lost" "$work/out"; then
  echo "not judged: the machine stood still until the motors let go"
  exit 77
fi
status=0
/usr/bin/python3 - "$work" <<'JUDGE' || status=$?
import csv, re, statistics, sys

out = open(sys.argv[1] + "/out").read()
assert out.endswith("status 0\n")
in_time = [int(a) / int(b) for a, b in re.findall(r"(\d+) of (\d+) instants", out)]
assert len(in_time) == 2
rows = list(csv.DictReader(open(sys.argv[1] + "/torques.csv")))
worst = 1.0
for joint in map(str, range(1, 7)):
    measured = [float(row["measured_" + joint]) for row in rows]
    error = [float(row["predicted_" + joint]) - value for row, value in zip(rows, measured)]
    explained = 1 - statistics.fmean(e * e for e in error) / statistics.pvariance(measured)
    print(f"joint {joint}: {explained:.2%} explained")
    worst = min(worst, explained)
if worst < 0.95 and min(in_time) < 0.9:
    print(f"not judged: the machine was late in {1 - min(in_time):.0%} of the time")
    sys.exit(77)
assert worst >= 0.95
JUDGE
[[ $status -eq 0 ]] || end_with "$status"
/usr/bin/python3 tools/identification/plot_torques.py "$work/torques.csv" "$work/torques.png"
[[ -s $work/torques.png ]] || end_with 1
end_with 0
