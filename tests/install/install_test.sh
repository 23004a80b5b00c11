#!/usr/bin/env bash
# Installs the build into a temporary prefix, then from there: a software
# token in a store of its own, twkey list on it, pkg-config, and the example
# host built with pkg-config and with find_package, each listing the token.
# Usage: install_test.sh BUILD_DIR SOURCE_DIR LIBDIR VERSION
set -uo pipefail
BUILD=$1 SRC=$2 LIBDIR=$3 VERSION=$4
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
P=$WORK/prefix
export SOFTTOKEN_STORE=$WORK/store PKG_CONFIG_PATH=$WORK/prefix/$LIBDIR/pkgconfig

# Commands that connect a token write the machine's /tmp/tw_device: under
# the lock the other tests take, put back as it was found.
device() (
  exec 9>>/tmp/tw_device.lock && chmod 666 /tmp/tw_device.lock 2>/dev/null; flock 9
  saved=0; [ -e /tmp/tw_device ] && cp -p /tmp/tw_device "$WORK/tw_device" && saved=1
  "$@"; rc=$?
  if [ $saved = 1 ]; then cp -p "$WORK/tw_device" /tmp/tw_device; else rm -f /tmp/tw_device; fi
  exit $rc
)

# NAME, a line the output must hold (grep -E), the command; it must succeed.
ROWS=(
  "install|Installing: $P/bin/twkey$|cmake --install $BUILD --prefix $P"
  "token|^created t1 |$P/bin/softtoken init t1 --container c1:sm2"
  "list|package path: +$P/$LIBDIR/twkey/kdp/softtoken$|device $P/bin/twkey list"
  "pkg-config|^$VERSION$|pkg-config --modversion twkey"
  "pc build|counthost|make -C $SRC/examples/counthost OUT=$WORK"
  "pc host|^0: t1 STK[0-9A-F]+ Software Token$|device $WORK/counthost"
  "cmake build|Built target counthost|cmake -S $SRC/examples/counthost -B $WORK/cm -DCMAKE_PREFIX_PATH=$P && cmake --build $WORK/cm"
  "cmake host|^0: t1 STK[0-9A-F]+ Software Token$|device $WORK/cm/counthost"
)
fail=0
for row in "${ROWS[@]}"; do
  IFS='|' read -r name pattern command <<<"$row"
  start=$SECONDS
  out=$(eval "$command" 2>&1); rc=$?
  if [ $rc -eq 0 ] && grep -qE -- "$pattern" <<<"$out"; then
    echo "ok   $name ($((SECONDS - start)) s)"
  else
    echo "FAIL $name: exit $rc, no line /$pattern/"; sed 's/^/   | /' <<<"$out"; fail=1
  fi
done
echo "installed: $(du -sh "$P" | cut -f1)"
exit $fail
