#!/bin/bash
# Builds Lumascan and maps the sample of the virtual laboratory.
#
#   ./run.sh         with a display: opens the window for a person and waits until it is closed;
#                    without one: plays the operator on a screen of its own
#   ./run.sh --demo  plays the operator, on the display where there is one
#
# Everything of the runs is in build/run; the data stay from run to run.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

demo=no
case ${1:-} in
--demo) demo=yes ;;
'') ;;
*) sed -n '2,8s/^# \{0,1\}//p' "$0" && exit 2 ;;
esac
[[ -n ${DISPLAY:-} ]] || demo=yes

cmake/install_missing.sh cmake ninja-build g++ g++-mingw-w64-x86-64-posix googletest wine wine64 \
    xvfb socat imagemagick

mkdir -p build/run
echo "Building (build/run/build.log)"
{ cmake --preset windows && cmake --build --preset windows; } >build/run/build.log 2>&1 ||
    { tail -n 30 build/run/build.log && exit 1; }

run=$PWD/build/run
desk=$run/desk
mkdir -p "$desk"
cp build/windows/Lumascan.exe build/windows/laboratory/*.dll "$desk/"
: >"$desk/virtual_lab.txt"
# Wine shows the whole file system as drive Z:.
windows_path() { echo "Z:${1//\//\\}"; }
under_wine=(tests/window/run_under_wine.sh --build build/windows --cable --show --keep "$run")

if [[ $demo == no ]]; then
    echo "The laboratory's faults are in $desk/virtual_lab.txt (docs/development.md)."
    "${under_wine[@]}" build/windows/operator.exe "$(windows_path "$desk")"
else
    screenshots=$run/screenshots
    rm -rf "$screenshots"
    mkdir -p "$screenshots"
    rm -f "$run/display"
    "${under_wine[@]}" build/windows/operator.exe "$(windows_path "$desk")" \
        "$(windows_path "$screenshots")" &
    player=$!
    trap 'kill "$player" 2>/dev/null; wait "$player" || true' INT TERM
    # The player asks for a picture with a file and waits until it is gone.
    while kill -0 "$player" 2>/dev/null; do
        for request in "$screenshots"/*.request; do
            [[ -e $request ]] || continue
            import -display "$(<"$run/display")" -window root "${request%.request}.png"
            rm "$request"
        done
        sleep 0.1
    done
    wait "$player"
fi

# The newest map, as its scan has named it, and what lies beside it.
data=("$run"/prefix/drive_c/users/*/Desktop/KST_Data)
map=$(find "${data[@]}" -mindepth 2 -maxdepth 2 -name 'Kestrel(*.txt' -newer build/run/build.log \
    -printf '%T@ %p\n' 2>/dev/null | sort -n | tail -n 1 | cut -d ' ' -f 2-)
if [[ -n $map ]]; then
    session=${map%/*}
    echo "The scan's folder: $session"
    find "$session" -type f -printf '  %f\n' | sort
    picture=$(find "$session" -name 'KST(*.jpg' -printf '%T@ %p\n' | sort -n | tail -n 1 |
        cut -d ' ' -f 2-)
    echo "The map: $map"
    echo "Its picture to look at: ${picture:-not saved}"
fi
[[ $demo == no ]] || echo "Screenshots: $run/screenshots"
[[ $demo == no || -n $map ]] || { echo "No map was saved" && exit 1; }
