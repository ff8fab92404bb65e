#!/usr/bin/env bash
# Runs on a kernel with vcan, as root of its own network namespace, for scripts/test-kernel: the tests of
# the bus, then sessions of first_motion, which it records in WORK_DIR/session*.log.
# usage: kernel_test.sh BUILD_DIR WORK_DIR
set -euo pipefail

build=$1 work=$2
export PATH=$PATH:/usr/sbin:/sbin

echo "Linux $(uname -r): tests of the bus"
"$build/tests/bin/kernel_bus_test" --gtest_brief=1 --gtest_color=no
ip link add can0 mtu 72 type vcan
ip link set can0 up
for options in "" --pos-vel --fd "--pos-vel --fd"; do
  echo "first_motion can0 $options"
  read -ra arguments <<<"$options"
  # A slow machine must not make the motors time out.
  ARM_OPTION=--wait-for-commands "$(dirname "$0")/record_session.sh" "$build/bin" can0 "$work/session${options// /}.log" \
    "${arguments[@]}" >"$work/output" 2>&1 || {
    cat "$work/output"
    exit 1
  }
done
