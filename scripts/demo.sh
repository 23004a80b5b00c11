#!/usr/bin/env bash
# The main job on the shipped software token; filled in as the CLI grows.
set -euo pipefail
BIN=${1:-build/bin}
"$BIN/twkey" version
"$BIN/twkey" list
