#!/usr/bin/env bash
# Records first_motion driving the simulated arm with candump, on an interface that exists and is up.
# usage: record_session.sh BIN_DIR INTERFACE LOG [--pos-vel] [--fd]
# The variable ARM_OPTION is one more option of the arm.
set -euo pipefail

bin=$1 interface=$2 log=$3
shift 3
work=$(mktemp -d)
arm_options=()
[[ " $* " == *" --fd "* ]] && arm_options=(--fd)
[[ -n ${ARM_OPTION:-} ]] && arm_options+=("$ARM_OPTION")

"$bin/kelvara-simulated-arm" --interface "$interface" --no-gripper \
  --start 0.4,-0.5,0.5,0.3,-0.4,0.5 "${arm_options[@]}" >"$work/ready" &
arm=$!
# With -d, candump logs missed frames; the large buffer makes them unlikely.
candump -L -d -r 16777216 "$interface" >"$log" 2>"$work/recorder" &
recorder=$!
trap 'kill "$arm" "$recorder" 2>/dev/null || true; cat "$work/recorder" >&2; rm -rf "$work"' EXIT

until grep -qs ready "$work/ready"; do
  kill -0 "$arm"
  sleep 0.05
done
# A frame that no program uses shows that the recorder listens.
until cansend "$interface" 7FE# && [[ -s $log ]]; do
  kill -0 "$recorder"
  sleep 0.05
done
"$bin/first_motion" "$interface" "$@"
# The recorder may lag behind; the last frames to the motors disable them.
for ((i = 0; i < 100; ++i)); do
  if [[ $(tail -n 50 "$log" | grep -c ' 00[1-6]#.*FFFFFFFFFFFFFFFD$') -eq 6 ]]; then
    break
  fi
  sleep 0.1
done
kill "$arm"
wait "$arm"
