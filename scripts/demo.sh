#!/usr/bin/env bash
# The main job on the shipped software token, step by step: make a token in
# a store of its own, log in, make an SM2 key pair, then, through the token's
# SKF face and again through its native face: list it, sign a message on the
# token (eccSimpleSign), check the signature on the token (eccSimpleVerify)
# and with the openssl program against the exported public key. Exits 0 only
# when every step holds.
#
# Usage: scripts/demo.sh [BIN_DIR]     (default: build/bin)
set -uo pipefail

BIN=$(cd "${1:-build/bin}" 2>/dev/null && pwd) || { echo "demo: no such folder: ${1:-build/bin}" >&2; exit 2; }
TWKEY="$BIN/twkey"
SOFTTOKEN="$BIN/softtoken"
for tool in "$TWKEY" "$SOFTTOKEN"; do
  [ -x "$tool" ] || { echo "demo: $tool is not built" >&2; exit 2; }
done
command -v openssl >/dev/null || { echo "demo: the openssl program is needed" >&2; exit 2; }

PIN=12345678
CONTAINER=demo-sm2
WORK=$(mktemp -d)
# The library records the last token it connected in this file; leave it as
# it was found.
DEVICE_FILE=/tmp/tw_device
HAD_DEVICE_FILE=0
if [ -e "$DEVICE_FILE" ]; then
  cp -p "$DEVICE_FILE" "$WORK/tw_device.saved" && HAD_DEVICE_FILE=1
fi
cleanup() {
  if [ "$HAD_DEVICE_FILE" = 1 ]; then
    cp -p "$WORK/tw_device.saved" "$DEVICE_FILE" 2>/dev/null
  else
    rm -f "$DEVICE_FILE"
  fi
  rm -rf "$WORK"
}
trap cleanup EXIT

export SOFTTOKEN_STORE="$WORK/store"
mkdir -p "$SOFTTOKEN_STORE"
cd "$WORK" || exit 2

STEP=0
# run EXPECT TITLE COMMAND...: runs the command and shows what it printed;
# EXPECT is "ok" (must succeed) or "refused" (must fail). The demo stops at
# the first step that does not hold.
run() {
  local expect=$1 title=$2
  shift 2
  STEP=$((STEP + 1))
  echo "[$STEP] $title"
  echo "    \$ ${*/#$BIN\//}"
  local rc=0
  "$@" >"$WORK/out" 2>&1 || rc=$?
  sed 's/^/    /' "$WORK/out"
  if [ "$expect" = ok ] && [ $rc -eq 0 ]; then
    echo "    -> ok"
  elif [ "$expect" = refused ] && [ $rc -ne 0 ]; then
    echo "    -> ok (refused)"
  else
    if [ "$expect" = ok ]; then echo "    -> FAILED (exit $rc)"; else echo "    -> FAILED (accepted)"; fi
    echo "demo: failed at step $STEP: $title"
    exit 1
  fi
}
step() { run ok "$@"; }
refused() { run refused "$@"; }
hex_of() {
  od -An -v -tx1 "$@" | tr -d ' \n'
}
# The 64-byte r||s and what it holds.
show_compact() {
  local n
  n=$(wc -c <"$1")
  echo "$1: $n bytes"
  [ "$n" -eq 64 ] || return 1
  echo "r = $(hex_of -N32 "$1")"
  echo "s = $(hex_of -j32 -N32 "$1")"
}
# The same r and s as a DER ECDSA-Sig, put together by openssl itself.
compact_to_der() {
  printf 'asn1=SEQUENCE:sig\n[sig]\nr=INTEGER:0x%s\ns=INTEGER:0x%s\n' \
    "$(hex_of -N32 "$1")" "$(hex_of -j32 -N32 "$1")" >sig.cnf
  openssl asn1parse -genconf sig.cnf -out "$2" -noout && openssl asn1parse -inform DER -in "$2"
}

printf 'The software token signs this line.\n' >msg.txt
printf 'The software token signs this line!\n' >changed.txt

# road FACE TWKEY...: the signing road through one face of the token, from
# listing to the openssl program's verdict.
road() {
  local face=$1
  shift
  step "[$face] list the keys" "$@" list
  step "[$face] sign the message on the token (eccSimpleSign, SM3 with Z)" \
    "$@" sign --container "$CONTAINER" --pin "$PIN" --in msg.txt --out "sig-$face.bin"
  step "[$face] the signature is the compact r||s" show_compact "sig-$face.bin"
  step "[$face] verify it on the token (eccSimpleVerify)" \
    "$@" verify --container "$CONTAINER" --in msg.txt --sig "sig-$face.bin"
  step "[$face] export the public key as PEM" "$@" pubkey --container "$CONTAINER" --pem --out "pub-$face.pem"
  step "[$face] show the public key" openssl pkey -pubin -in "pub-$face.pem" -noout -text
  step "[$face] the same signature as DER, written by openssl" compact_to_der "sig-$face.bin" "sig-$face.der"
  step "[$face] verify that signature with openssl (SM3, id 1234567812345678)" \
    openssl dgst -sm3 -sigopt distid:1234567812345678 -verify "pub-$face.pem" -signature "sig-$face.der" msg.txt
  refused "[$face] a changed message is refused by the token" \
    "$@" verify --container "$CONTAINER" --in changed.txt --sig "sig-$face.bin"
  refused "[$face] a changed message is refused by openssl" \
    openssl dgst -sm3 -sigopt distid:1234567812345678 -verify "pub-$face.pem" -signature "sig-$face.der" changed.txt
}

step "make a software token in a fresh store" "$SOFTTOKEN" init demo1 --container sign1:sm2
step "library version" "$TWKEY" version
step "log in with the user PIN" "$TWKEY" login --pin "$PIN"
step "generate an SM2 key pair on the token" "$TWKEY" keygen sm2 --container "$CONTAINER" --pin "$PIN"
# The shipped packages serve the SKF face first; a package folder with the
# native package alone shows the same token through its native face.
road skf "$TWKEY"
mkdir -p native/kdp && ln -s "$BIN/kdp/softtoken-native" native/kdp/softtoken-native
road native "$TWKEY" --bin-path "$WORK/native"

echo "demo: all $STEP steps hold"
