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
# A first run without root cannot bind the LPD port 515: start it on 5515 instead (a setting the
# administrator can change in out/registry/HKLM.reg).
hive="$VORLIX_REGISTRY_DIR/HKLM.reg"
if [ ! -f "$hive" ] && [ "$(id -u)" -ne 0 ]; then
    printf 'Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\Software\\Zel\\Zellpd\\ZELLPD]\n"LPDPort"="5515"\n' >"$hive"
fi
[ $# -eq 0 ] && set -- -x
exec build/linux/bin/vorlix "$@"
