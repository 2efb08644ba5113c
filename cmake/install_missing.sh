#!/bin/bash
# Installs those of the named Debian packages that are not there yet.
set -euo pipefail

missing=()
for package in "$@"; do
    status=$(dpkg-query -W -f '${Status}' "$package" 2>/dev/null || true)
    [[ $status == "install ok installed" ]] || missing+=("$package")
done
[[ ${#missing[@]} -gt 0 ]] || exit 0

echo "Installing ${missing[*]}"
as_root=()
[[ $(id -u) == 0 ]] || as_root=(sudo)
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
