#!/bin/sh
# Installs the Debian packages named on the command line that are not installed yet.
# Nothing happens when all are present; otherwise apt-get runs as root (directly, or via sudo).
set -e
missing=""
for pkg in "$@"; do
    if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
        missing="$missing $pkg"
    fi
done
[ -z "$missing" ] && exit 0
echo "Installing missing Debian packages:$missing"
if [ "$(id -u)" -eq 0 ]; then
    SUDO=""
elif command -v sudo >/dev/null 2>&1; then
    SUDO="sudo"
else
    echo "error: need root (or sudo) to install:$missing" >&2
    exit 1
fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq || $SUDO apt-get update
# shellcheck disable=SC2086
$SUDO apt-get install -y -qq --no-install-recommends $missing
