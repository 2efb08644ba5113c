#!/bin/bash
# Runs a Windows program under Wine on a screen, a desktop folder and a serial line of its own.
#
#   run_under_wine.sh [--build FOLDER] [--cable | --firmware] [--documents] [--show]
#                     [--screen WIDTHxHEIGHT] [--dpi N] [--keep FOLDER] PROGRAM [ARGUMENT...]
#
#   --build FOLDER  the Windows build tree (build/windows); its prefix is made here once and copied
#   --cable         lay the null-modem cable: COM10 on one end, COM11 on the other
#   --firmware      COM10 is the laser board's own program in the simulator, which opening the port
#                   resets, and COM11 is what lies at its pins; both come from the native build
#   --documents     fail when the program has left no .gwy file, or one that Gwyddion cannot open
#                   and make a picture of
#   --night         docs/examples/night.py is the program's script, at the port of $LUMASCAN_PORT;
#                   what it makes lies in the folder of $LUMASCAN_NIGHT. Then its scans must be the
#                   same in the netCDF file that docs/examples/gwy_to_netcdf.py makes of them
#   --show          use the display of $DISPLAY where there is one
#   --screen WxH    the screen's size in pixels (2600x1400)
#   --dpi N         its resolution, where Windows scales the text (96)
#   --keep FOLDER   run in this folder and keep it; the default is a new one that goes when the
#                   program has ended well
#
# Prints what the program prints and ends with its exit code. Everything that Wine, Xvfb and socat
# say goes into files of the folder.
# shellcheck disable=SC2030,SC2031 # each subshell has its own WINEPREFIX on purpose
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build=$root/build/windows
cable=no
firmware=no
documents=no
night=no
show=no
screen=2600x1400
dpi=96
folder=
while [[ ${1:-} == --* ]]; do
    case $1 in
    --build) build=$(cd "$2" && pwd) && shift 2 ;;
    --cable) cable=yes && shift ;;
    --firmware) firmware=yes && shift ;;
    --documents) documents=yes && shift ;;
    --night) night=yes && shift ;;
    --show) show=yes && shift ;;
    --screen) screen=$2 && shift 2 ;;
    --dpi) dpi=$2 && shift 2 ;;
    --keep) mkdir -p "$2" && folder=$(cd "$2" && pwd) && shift 2 ;;
    *) echo "unknown option $1" >&2 && exit 2 ;;
    esac
done
[[ $# -gt 0 ]] || { echo "which program?" >&2 && exit 2; }

export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml="

temporary=no
if [[ -z $folder ]]; then
    mkdir -p "$build/runs"
    folder=$(mktemp -d "$build/runs/run.XXXXXX")
    temporary=yes
fi

own=()
# shellcheck disable=SC2317 # called by the trap
finish() {
    local code=$?
    WINEPREFIX=$folder/prefix wineserver -k >/dev/null 2>&1 || true
    WINEPREFIX=$folder/prefix timeout 20 wineserver -w >/dev/null 2>&1 || true
    for pid in "${own[@]}"; do
        kill "$pid" 2>/dev/null || true
    done
    wait
    if [[ $temporary == yes && $code == 0 ]]; then
        rm -rf "$folder"
    elif [[ $code != 0 ]]; then
        echo "the run's files are in $folder" >&2
    fi
    exit "$code"
}
trap finish EXIT
trap 'exit 143' TERM INT HUP

# A new prefix, without crash dialogs and debugger; its desktop is a folder inside it, not the
# user's home.
make_prefix() {
    local new=$build/prefix.new
    rm -rf "$new"
    (
        export WINEPREFIX=$new
        unset DISPLAY
        timeout 300 wineboot -i
        wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f
        wine reg add 'HKLM\Software\Microsoft\Windows NT\CurrentVersion\AeDebug' \
            /v Debugger /d false /f
        wine reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f
        timeout 60 wineserver -w
    ) >"$build/wineboot.log" 2>&1
    local link
    for link in "$new"/drive_c/users/*/*; do
        if [[ -L $link ]]; then
            rm "$link"
            mkdir "$link"
        fi
    done
    mv "$new" "$build/prefix"
}

(
    flock 9
    [[ -d $build/prefix ]] || make_prefix
) 9>"$build/prefix.lock"

managed=N # without a window manager, closing a managed box can take seconds
if [[ ! -d $folder/prefix ]]; then
    mkdir "$folder/prefix"
    # The system's files are shared by hard links; the registry and the user's folders are copies.
    cp -al "$build/prefix/drive_c" "$folder/prefix/drive_c"
    rm -rf "$folder/prefix/drive_c/users"
    cp -a "$build/prefix/drive_c/users" "$folder/prefix/drive_c/users"
    cp -a "$build/prefix/dosdevices" "$build/prefix"/*.reg "$build/prefix/.update-timestamp" \
        "$folder/prefix/"
fi
export WINEPREFIX=$folder/prefix

# Waits until the file has content.
await_file() {
    local tries
    for ((tries = 0; tries < 500; tries++)); do
        [[ -s $1 ]] && return 0
        sleep 0.02
    done
    echo "nothing came into $1" >&2
    return 1
}

if [[ $show == no || -z ${DISPLAY:-} ]]; then
    rm -f "$folder/display"
    Xvfb -displayfd 3 -screen 0 "${screen}x24" -dpi 96 -nolisten tcp \
        3>"$folder/display" >"$folder/xvfb.log" 2>&1 &
    own+=($!)
    await_file "$folder/display"
    DISPLAY=:$(tr -d '[:space:]' <"$folder/display")
    export DISPLAY
else
    managed=Y # a person's windows get frames and a place in the task bar
fi
echo "$DISPLAY" >"$folder/display"
if [[ $dpi != 96 ]]; then
    wine reg add 'HKCU\Control Panel\Desktop' /v LogPixels /t REG_DWORD /d "$dpi" /f \
        >"$folder/dpi.log" 2>&1
fi
if [[ $temporary == no ]]; then
    wine reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /d "$managed" /f \
        >"$folder/managed.log" 2>&1
fi

rm -f "$WINEPREFIX/dosdevices/com10" "$WINEPREFIX/dosdevices/com11"
rm -f "$folder/com10" "$folder/com11"
line=() # what makes the two ports
if [[ $cable == yes ]]; then
    line=(socat "pty,raw,echo=0,link=$folder/com10" "pty,raw,echo=0,link=$folder/com11")
elif [[ $firmware == yes ]]; then
    native=$root/build/native
    line=("$native/tests/firmware/board_simulator" "$native/firmware/laser_board.hex" --deaf 1500
        --line "$folder/com10" --light "$folder/com11")
    [[ -x ${line[0]} && -e ${line[1]} ]] || { echo "build the preset native first" >&2 && exit 2; }
fi
if [[ ${#line[@]} -gt 0 ]]; then
    "${line[@]}" >"$folder/line.log" 2>&1 &
    own+=($!)
    for end in com10 com11; do
        for ((tries = 0; tries < 500; tries++)); do
            [[ -e $folder/$end ]] && break
            sleep 0.02
        done
        ln -s "$folder/$end" "$WINEPREFIX/dosdevices/$end"
    done
fi

# A program of this computer, no Windows: it begins when the port is open.
if [[ $night == yes ]]; then
    LUMASCAN_PORT=$((20000 + RANDOM % 10000))
    export LUMASCAN_PORT LUMASCAN_NIGHT="Z:$folder/night"
    (
        until (exec 3<>"/dev/tcp/127.0.0.1/$LUMASCAN_PORT"); do sleep 0.2; done
        /usr/bin/python3 "$root/tests/window/reconnect_check.py" "$LUMASCAN_PORT" || exit
        /usr/bin/python3 "$root/docs/examples/night.py" --out "$folder/night" --area 10,-20,32,20 --step 4 \
            --powers 8,16 --resource "TCPIP::127.0.0.1::$LUMASCAN_PORT::SOCKET"
    ) >"$folder/night.log" 2>&1 &
    own+=($!)
fi

: >"$folder/program.log" # there before it is followed
wine "$@" >"$folder/program.log" 2>"$folder/wine.log" &
program=$!
# Waiting in the background lets a signal end the run at once.
tail --pid="$program" -s 0.2 -n +1 -f "$folder/program.log" > >(sed -u 's|\r$||') &
teller=$!
own+=("$teller")
code=0
wait "$program" || code=$?
wait "$teller" || true
if [[ $documents == yes && $code == 0 ]]; then
    opened=0
    while IFS= read -r -d '' document; do
        picture=$folder/document$((++opened)).png
        if ! gwyddion --convert-to-gwy="$folder/opened.gwy" "$document" ||
            ! gwyddion-thumbnailer gnome2 256 "$document" "$picture" || [[ ! -s $picture ]]; then
            echo "Gwyddion does not open $document" >&3
            code=1
        fi 3>&1 >>"$folder/gwyddion.log" 2>&1
    done < <(find "$WINEPREFIX/drive_c/users" -name '*.gwy' -print0)
    ((opened)) || { echo "no .gwy file to open" && code=1; }
fi
if [[ $night == yes && $code == 0 ]]; then
    data=$(find "$WINEPREFIX/drive_c/users" -type d -name KST_Data)
    /usr/bin/python3 "$root/tests/window/netcdf_check.py" "$data" "$folder/night" 2>&1 || code=1
fi
exit "$code"
