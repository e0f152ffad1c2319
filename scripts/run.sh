#!/usr/bin/env bash
# Builds Vorlix for Linux and runs the server in the console ("-x"). Settings, logs and output stay
# under ./out unless VORLIX_REGISTRY_DIR / VORLIX_HOME say otherwise. Arguments replace "-x".
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset linux >/dev/null
cmake --build --preset linux --target vorlix >/dev/null
export VORLIX_HOME="${VORLIX_HOME:-$PWD/out/home}"
export VORLIX_REGISTRY_DIR="${VORLIX_REGISTRY_DIR:-$PWD/out/registry}"
mkdir -p "$VORLIX_HOME" "$VORLIX_REGISTRY_DIR"
[ $# -eq 0 ] && set -- -x
exec build/linux/bin/vorlix "$@"
