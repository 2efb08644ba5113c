#!/bin/bash
# Makes pictures of the operator guide anew, from the program itself in the virtual laboratory.
#
#   tools/guide_pictures.sh [FOLDER]   into the folder (docs/pictures)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
folder=${1:-docs/pictures}

cmake/install_missing.sh imagemagick
{ cmake --preset windows && cmake --build --preset windows; } >build/windows.log 2>&1 ||
    { tail -n 30 build/windows.log && exit 1; }

run=$PWD/build/guide
rm -rf "$run"
mkdir -p "$run/desk" "$run/screenshots"
cp build/windows/Lumascan.exe build/windows/laboratory/*.dll "$run/desk/"
windows_path() { echo "Z:${1//\//\\}"; }
tests/window/run_under_wine.sh --build build/windows --cable --keep "$run" \
    build/windows/guide_pictures.exe "$(windows_path "$run/desk")" \
    "$(windows_path "$run/screenshots")" &
player=$!
trap 'kill "$player" 2>/dev/null; wait "$player" || true' INT TERM
while kill -0 "$player" 2>/dev/null; do
    for request in "$run"/screenshots/*.request; do
        [[ -s $request ]] || continue
        name=${request##*/}
        import -display "$(<"$run/display")" -window root -crop "$(<"$request")" +repage \
            -colors 256 "PNG8:$folder/${name%.request}.png"
        rm "$request"
    done
    sleep 0.1
done
wait "$player"
