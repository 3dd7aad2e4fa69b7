#!/usr/bin/env bash
# One packaging check, run by ctest (cmake/SomeIPPackaging.cmake passes the settings in the environment):
#   install       cmake --install of the build tree into $WORK_DIR/prefix; the installed tool runs
#   find_package  the host in this directory, configured against that prefix
#   pkg_config    the host compiled by hand with pkg-config's flags for that prefix
#   subdirectory  the host with the source tree inside it, where GoogleTest, CLI11 and benchmark are absent
#   deb           cpack -G DEB, then the package's control fields and contents
# Each host must link the library it was pointed at and decode the same payload.
set -euo pipefail
mode=$1
here=$(cd "$(dirname "$0")" && pwd)
prefix=$WORK_DIR/prefix
out=$WORK_DIR/$mode
rm -rf "$out"
mkdir -p "$out"

fail() { echo "$mode: $*" >&2; exit 1; }
expect_file() { [ -f "$1" ] || fail "missing $1"; }

# Runs a host; it must load libsomeip_parser_vaq from the directory given, and report the version.
run_host() {
  local host=$1 from=$2
  local loads said
  loads=$(ldd "$host")
  grep -q "libsomeip_parser_vaq.so.$SOVERSION => $from/" <<<"$loads" ||
    fail "$host does not load the library from $from: $(grep someip <<<"$loads")"
  said=$(env -u LD_LIBRARY_PATH "$host" "$SOURCE_DIR/examples/formats")
  echo "$said"
  [[ $said == "someip_parser_vaq $VERSION "* ]] || fail "unexpected output"
}

configure_host() {
  "$CMAKE" -S "$here" -B "$out" -G "$GENERATOR" -DCMAKE_CXX_COMPILER="$CXX" -DCMAKE_CXX_FLAGS="$FLAGS" \
    -DWITH_CAPTURE="$WITH_CAPTURE" "$@" >"$out.configure.log" || { cat "$out.configure.log"; fail "configure"; }
}

case $mode in
install)
  rm -rf "$prefix"
  "$CMAKE" --install "$BUILD_DIR" --prefix "$prefix"
  if [ "$WITH_TOOL" = 1 ]; then
    said=$(env -u LD_LIBRARY_PATH "$prefix/bin/someip-json" --version) || fail "the installed someip-json does not run"
    grep -q "$VERSION" <<<"$said" || fail "someip-json --version says: $said"
  fi
  ;;
find_package)
  configure_host -DCMAKE_PREFIX_PATH="$prefix"
  "$CMAKE" --build "$out"
  run_host "$out/consumer" "$prefix/$LIBDIR"
  ;;
pkg_config)
  export PKG_CONFIG_PATH=$prefix/$LIBDIR/pkgconfig
  [ "$("$PKG_CONFIG" --modversion someip_parser_vaq)" = "$VERSION" ] || fail "wrong --modversion"
  pc_libdir=$("$PKG_CONFIG" --variable=libdir someip_parser_vaq)
  # shellcheck disable=SC2046,SC2086
  "$CXX" -std=c++17 $FLAGS "$here/main.cpp" $("$PKG_CONFIG" --cflags someip_parser_vaq) -o "$out/consumer" \
    $("$PKG_CONFIG" --libs someip_parser_vaq) -Wl,-rpath,"$pc_libdir"
  run_host "$out/consumer" "$(cd "$pc_libdir" && pwd)"
  ;;
subdirectory)
  configure_host -DSOMEIP_SOURCE_DIR="$SOURCE_DIR" -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON \
    -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON -DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON
  "$CMAKE" --build "$out" -j 2
  run_host "$out/consumer" "$out"
  ;;
deb)
  (cd "$out" && "$CPACK" -G DEB --config "$BUILD_DIR/CPackConfig.cmake" -B "$out" >"$out/cpack.log") ||
    { cat "$out/cpack.log"; fail "cpack"; }
  deb=$out/libsomeip-parser-vaq_${VERSION}_$(dpkg --print-architecture).deb
  expect_file "$deb"
  dpkg-deb -f "$deb" Package Version Maintainer Depends
  [ "$(dpkg-deb -f "$deb" Version)" = "$VERSION" ] || fail "wrong Version"
  [[ $(dpkg-deb -f "$deb" Depends) == *libjsoncpp25* ]] || fail "Depends lacks libjsoncpp25"
  [[ $(dpkg-deb -f "$deb" Maintainer) == *" <"*@*">" ]] || fail "no Maintainer with an address"

  root=$out/root
  dpkg-deb -x "$deb" "$root"
  lib=$root/usr/$LIBDIR
  expect_file "$lib/libsomeip_parser_vaq.so.$VERSION"
  [ "$(readlink "$lib/libsomeip_parser_vaq.so.$SOVERSION")" = "libsomeip_parser_vaq.so.$VERSION" ] ||
    fail "no SONAME link"
  [ "$(readlink "$lib/libsomeip_parser_vaq.so")" = "libsomeip_parser_vaq.so.$SOVERSION" ] || fail "no .so link"
  [[ $(readelf -d "$lib/libsomeip_parser_vaq.so.$VERSION") == *"(SONAME)"*"[libsomeip_parser_vaq.so.$SOVERSION]"* ]] ||
    fail "wrong SONAME"
  inc=$root/usr/include/someip_parser_vaq
  for h in ZQSomeIPParserAPI.h ZQSomeIPVersion.h ZQSomeIPParser.h Inner/Inner_someipSerializer.h \
           someip/zq_someip_log.h compiled/ZQSomeIPFormatSet.h; do
    expect_file "$inc/$h"
  done
  grep -q "SOMEIP_PARSER_VAQ_VERSION_STRING \"$VERSION\"" "$inc/ZQSomeIPVersion.h" || fail "wrong version header"
  for f in someip_parser_vaqConfig.cmake someip_parser_vaqConfigVersion.cmake someip_parser_vaqTargets.cmake; do
    expect_file "$lib/cmake/someip_parser_vaq/$f"
  done
  expect_file "$root/usr/share/doc/someip_parser_vaq/LICENSE"
  # The .pc names paths relative to itself, so the unpacked copy points into the unpacked tree.
  [ "$(PKG_CONFIG_PATH=$lib/pkgconfig "$PKG_CONFIG" --variable=includedir someip_parser_vaq)" -ef "$root/usr/include" ] ||
    fail "the .pc does not point at the package's headers"
  if [ "$WITH_TOOL" = 1 ]; then expect_file "$root/usr/bin/someip-json"; fi
  for f in "$lib/libsomeip_parser_vaq.so.$VERSION" $(find "$root/usr/bin" "$root/usr/lib" -name '*.so*' -type f) \
           $(find "$root/usr/bin" -type f); do
    [[ $(file -b "$f") != *"not stripped"* ]] || fail "$f is not stripped"
  done
  module=$(find "$root" -path '*dist-packages/someip_parser_vaq*.so' | head -1)
  if [ -n "$module" ]; then
    [[ $(dpkg-deb -f "$deb" Depends) == *"python3 (>= 3."* ]] || fail "the Python module's interpreter is not a dependency"
  fi
  if [ "$WITH_CAPTURE" = 1 ]; then
    expect_file "$lib/libsomeip_capture.so.$VERSION"
    expect_file "$inc/ZQSomeIPCapture.h"
  fi
  ;;
*) fail "unknown mode" ;;
esac
echo "$mode: ok"
