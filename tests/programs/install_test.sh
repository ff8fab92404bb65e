#!/usr/bin/env bash
# An installation never overwrites a robot description that was edited. usage: install_test.sh BUILD_DIR
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/program_test.sh"

prefix="$work/an arm"
settings=robot_kinematics.yaml

# install: installs under the prefix, and sets $config to the installed description's folder.
install() {
  cmake --install "$build/src" --prefix "$prefix" >"$work/log" 2>&1 || failed "the installation" "$work/log"
  config=$(dirname "$(find "${DESTDIR:-}$prefix" -name "$settings")")
}

# same FILE NAME...: whether the shipped file FILE is installed under each name.
same() {
  local file=$1 name
  shift
  for name in "$@"; do cmp "config/$file" "$config/$name" || failed "$name" "$work/log"; done
}

install
same "$settings" "$settings"
for file in "$settings" BrimloV2.SLDASM.urdf; do
  # As an earlier version shipped it: replaced.
  echo "# old" >>"$config/$file"
  sha256sum "$config/$file" | cut -c 1-64 >"$config/.$file.sha256"
  install
  same "$file" "$file"
  # Edited: kept, however often the new one is installed.
  echo "# edited" >>"$config/$file"
  for _ in 1 2; do
    install
    same "$file" "$file.new"
    tail -n 1 "$config/$file" | grep -q edited || failed "$file was overwritten"
    grep -q "Kept the edited file $config/$file; the shipped one is $config/$file.new" "$work/log" ||
      failed "no line about $file" "$work/log"
  done
done

# Without a record, every file that differs is an edited one.
rm "$config/.$settings.sha256"
install
tail -n 1 "$config/$settings" | grep -q edited || failed "$settings was overwritten"

DESTDIR="$work/a stage" install
same "$settings" "$settings"
[[ $config == "$work/a stage$prefix/"* ]] || failed "$config is not under DESTDIR"
end_test
