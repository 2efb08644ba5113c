#!/bin/bash
# Builds everything and runs all tests: units and simulations natively under sanitizers, the laser
# board's program in a simulator of its chip, the real program under Wine. Ends with "N passed, M failed" and fails when a test does.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

cmake/install_missing.sh cmake ninja-build g++ g++-mingw-w64-x86-64-posix googletest libgtest-dev \
    wine wine64 xvfb socat gwyddion gcc-avr avr-libc libsimavr-dev \
    python3-pyvisa python3-pyvisa-py python3-numpy python3-matplotlib \
    python3-xarray python3-netcdf4

mkdir -p build
for preset in firmware native windows; do
    echo "Building $preset, from $SECONDS s on"
    { cmake --preset "$preset" && cmake --build --preset "$preset"; } >"build/$preset.log" 2>&1 ||
        { tail -n 50 "build/$preset.log" && exit 1; }
done

failed=0
total=0
for preset in native windows; do
    log=build/$preset-tests.log
    ctest --preset "$preset" --parallel 2 --no-tests=error 2>&1 | tee "$log" || true
    # "98% tests passed, 1 tests failed out of 57"
    summary=$(grep -E 'tests passed, [0-9]+ tests failed out of [0-9]+' "$log") ||
        { echo "ctest $preset gave no result" && exit 1; }
    read -r preset_failed preset_total < <(
        sed -E 's/.* ([0-9]+) tests failed out of ([0-9]+)/\1 \2/' <<<"$summary"
    )
    failed=$((failed + preset_failed))
    total=$((total + preset_total))
done
echo "$((total - failed)) passed, $failed failed"
[[ $failed == 0 ]]
