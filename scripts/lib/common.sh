# Functions and package lists of the scripts. Sourced by bash with set -euo pipefail.
# shellcheck shell=bash

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
script=$(basename "$0")

fail() {
  echo "$script: $1" >&2
  exit "${2:-1}"
}

heading() {
  printf '\n=== %s ===\n' "$1"
}

# print_help: prints the comment at the head of the script.
print_help() {
  sed -n '2,/^set/{/^#/s/^# \{0,1\}//p}' "${BASH_SOURCE[-1]}"
}

packages_library=(g++ cmake ninja-build pkg-config libyaml-cpp-dev liborocos-kdl-dev
  libtinyxml2-dev libeigen3-dev)
packages_collision=(libfcl-dev)
packages_simulation=(libmujoco-dev can-utils)
packages_report=(python3 python3-numpy python3-yaml python3-matplotlib)
packages_test=(libgtest-dev libgmock-dev)
packages_bench=(libbenchmark-dev)
packages_kernel=(iproute2 can-utils)
packages_user_mode_linux=(user-mode-linux kmod)
packages_lint=(clang-format-14 clang-tidy-14 shellcheck cppcheck universal-ctags)
packages_fuzz=(clang-14 libclang-rt-14-dev llvm-14) # llvm-14 symbolises stack traces
packages_memory=(valgrind)

# install_packages NAME...: installs those Debian packages that are missing.
install_packages() {
  local missing=() package sudo=()
  for package in "$@"; do
    if [[ $(dpkg-query -W -f '${Status}' "$package" 2>/dev/null) != "install ok installed" ]]; then
      missing+=("$package")
    fi
  done
  [[ ${#missing[@]} -gt 0 ]] || return 0
  command -v apt-get >/dev/null || fail "needs these Debian 12 packages: ${missing[*]}"
  if [[ $EUID -ne 0 ]]; then
    command -v sudo >/dev/null || fail "needs root, or sudo, to install: ${missing[*]}"
    sudo=(sudo)
  fi
  heading "Installing ${missing[*]}"
  "${sudo[@]}" apt-get update -q
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -q -y --no-install-recommends "${missing[@]}" >/dev/null ||
    fail "the packages could not be installed"
}

# Further CMake options, set by the script.
configure_options=()

# build_preset PRESET TARGET...: configures and builds with a preset of CMakePresets.json and the options in
# configure_options.
build_preset() {
  local preset=$1 launcher=()
  shift
  if command -v ccache >/dev/null; then
    launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  fi
  heading "Building ($preset)"
  (cd "$root" && cmake --preset "$preset" -G Ninja "${launcher[@]}" "${configure_options[@]}" \
    --log-level=WARNING >/dev/null && cmake --build "build/$preset" --target "$@")
}

# cxx_files FOLDER...: lists the C++ files in these folders, relative to the root, null-terminated.
cxx_files() {
  (cd "$root" && find "$@" \( -name '*.cpp' -o -name '*.hpp' \) -print0)
}
