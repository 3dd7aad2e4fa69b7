#!/usr/bin/env bash
# Installs what the build and the tests need on a Debian 12 machine, only when it is missing.
# Safe to run any number of times.
set -euo pipefail

need=()
command -v cmake      >/dev/null 2>&1 || need+=(cmake)
command -v g++        >/dev/null 2>&1 || need+=(g++)
command -v make       >/dev/null 2>&1 || need+=(make)
command -v pkg-config >/dev/null 2>&1 || need+=(pkg-config)
pkg-config --exists jsoncpp 2>/dev/null  || need+=(libjsoncpp-dev)
pkg-config --exists libpcap 2>/dev/null  || need+=(libpcap-dev)
[ -f /usr/include/gtest/gtest.h ]        || need+=(libgtest-dev)
[ -f /usr/include/CLI/CLI.hpp ]          || need+=(libcli11-dev)
[ -f /usr/include/pugixml.hpp ]         || need+=(libpugixml-dev)
# The .deb test: cpack's dependency list comes from dpkg-shlibdeps, which it runs on what file(1) says is ELF.
command -v dpkg-shlibdeps >/dev/null 2>&1 || need+=(dpkg-dev)
command -v file           >/dev/null 2>&1 || need+=(file)
# The Python module and its tests, for Debian's interpreter (the first python3 on a PATH may be another
# build, whose packages these are not).
py=/usr/bin/python3
$py -c 'import sysconfig, os, sys; sys.exit(not os.path.exists(sysconfig.get_paths()["include"] + "/Python.h"))' \
  2>/dev/null || need+=(python3-dev)
$py -c 'import pybind11' 2>/dev/null              || need+=(python3-pybind11)
$py -c 'import pytest' 2>/dev/null                || need+=(python3-pytest)
$py -c 'import dask, distributed' 2>/dev/null     || need+=(python3-dask python3-distributed)
# Frames (capture_frames) and the plotting example.
$py -c 'import numpy' 2>/dev/null                 || need+=(python3-numpy)
$py -c 'import pandas' 2>/dev/null                || need+=(python3-pandas)
$py -c 'import matplotlib' 2>/dev/null            || need+=(python3-matplotlib)
# The capture report's browser test: a headless browser opens the report.
command -v chromium >/dev/null 2>&1               || need+=(chromium)
# Fuzzing only (scripts/fuzz.sh sets SOMEIP_FUZZ=1): clang and its libFuzzer and sanitizer runtimes.
if [ -n "${SOMEIP_FUZZ:-}" ]; then
  command -v clang++ >/dev/null 2>&1 || need+=(clang)
  [ -f "$(clang -print-file-name="libclang_rt.fuzzer-$(uname -m).a" 2>/dev/null)" ] || need+=(libclang-rt-14-dev)
fi

if [ ${#need[@]} -eq 0 ]; then
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  SUDO="sudo"
fi
echo "install-deps: installing ${need[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${need[@]}"
