#!/usr/bin/env bash
# Sets everything up, builds, and starts the program as a demo: simulated Bluetooth lights, and a
# stand-in Hue bridge on loopback whose link button presses itself, all with a data folder of the
# demo's own (under the build folder) so that the user's lights and settings are never touched.
#
#   bash scripts/run.sh [program arguments]          the demo
#   bash scripts/run.sh --real [program arguments]   the program alone: Bluetooth through BlueZ, the
#                                                    public Hue discovery, the user's own data
# Demo settings: BRIVON_DEMO_DIR (default <build>/demo), BRIVON_DEMO_HUE_PORT (default 38443).
set -euo pipefail
cd "$(dirname "$0")/.."

real=0
args=()
for arg in "$@"; do
    if [ "$arg" = "--real" ]; then
        real=1
    else
        args+=("$arg")
    fi
done

bash scripts/build.sh
BUILD_DIR="${BRIVON_BUILD_DIR:-build}"
BIN="$PWD/$BUILD_DIR/bin"
if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ] && [ -z "${QT_QPA_PLATFORM:-}" ]; then
    echo "No display found: starting under the offscreen platform (nothing will appear on screen)."
    export QT_QPA_PLATFORM=offscreen
fi

if [ "$real" -eq 1 ]; then
    exec "$BIN/beamcrafter" "${args[@]}"
fi

# ---- the demo ----------------------------------------------------------------------------------
DEMO_DIR="${BRIVON_DEMO_DIR:-$PWD/$BUILD_DIR/demo}"
HUE_ADDRESS=127.0.0.1
HUE_PORT="${BRIVON_DEMO_HUE_PORT:-38443}"
mkdir -p "$DEMO_DIR/data" "$DEMO_DIR/config" "$DEMO_DIR/cache" "$DEMO_DIR/runtime" "$DEMO_DIR/bridge"
chmod 700 "$DEMO_DIR/runtime"

if [ ! -s "$DEMO_DIR/bridge/cert.pem" ] || [ ! -s "$DEMO_DIR/bridge/key.pem" ]; then
    openssl req -x509 -newkey rsa:2048 -nodes -days 3650 -subj /CN=fakehuebridge \
        -keyout "$DEMO_DIR/bridge/key.pem" -out "$DEMO_DIR/bridge/cert.pem" 2>/dev/null
fi

# The bridge forgets its application keys when it stops: give it back the keys of earlier pairings
# (values "<key>/<clientkey>" in the [bridge] group of the demo's Hue settings).
bridge_args=(--address "$HUE_ADDRESS" --port "$HUE_PORT" --cert "$DEMO_DIR/bridge/cert.pem"
             --key "$DEMO_DIR/bridge/key.pem" --link-button-after 3)
hue_settings="$DEMO_DIR/config/brivon/com.brivon.beamcrafter.philipshue.conf"
if [ -f "$hue_settings" ]; then
    while IFS= read -r key; do
        [ -n "$key" ] && bridge_args+=(--user "$key")
    done < <(sed -n '/^\[bridge\]/,/^\[/{s/^[^=[][^=]*=\([^/]*\)\/.*$/\1/p}' "$hue_settings")
fi

bridge_pid=""
app_pid=""
cleanup() {
    trap - EXIT INT TERM HUP
    if [ -n "$app_pid" ]; then kill "$app_pid" 2>/dev/null || true; fi
    if [ -n "$bridge_pid" ]; then
        kill "$bridge_pid" 2>/dev/null || true
        wait "$bridge_pid" 2>/dev/null || true
    fi
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
trap 'exit 129' HUP

"$BIN/fakehuebridge" "${bridge_args[@]}" >"$DEMO_DIR/bridge/requests.log" 2>&1 &
bridge_pid=$!
for _ in $(seq 100); do
    if grep -q '^listening' "$DEMO_DIR/bridge/requests.log" 2>/dev/null || ! kill -0 "$bridge_pid" 2>/dev/null; then
        break
    fi
    sleep 0.1
done
if ! grep -q '^listening' "$DEMO_DIR/bridge/requests.log" 2>/dev/null; then
    echo "error: the demo's Hue bridge did not start on $HUE_ADDRESS:$HUE_PORT:" >&2
    cat "$DEMO_DIR/bridge/requests.log" >&2
    echo "(another port: BRIVON_DEMO_HUE_PORT=<port> bash scripts/run.sh)" >&2
    exit 1
fi

echo "Demo: simulated lights (Add Device), a Hue bridge at $HUE_ADDRESS:$HUE_PORT (Add Device > Hue); data in $DEMO_DIR."
echo "Demo: the bridge's link button is pressed for you 3 s after the program first asks to pair."
echo "(bash scripts/run.sh --real starts the program on your own lights and data.)"

# Not exec: the script stays to stop the bridge when the program ends, however it ends.
env XDG_DATA_HOME="$DEMO_DIR/data" XDG_CONFIG_HOME="$DEMO_DIR/config" XDG_CACHE_HOME="$DEMO_DIR/cache" \
    XDG_RUNTIME_DIR="$DEMO_DIR/runtime" \
    BRIVON_BLE_PLUGIN="$BIN/libBrivonBleSim.so" BRIVON_SIM_CONTROL="brivon-ble-sim-demo" \
    BRIVON_HUE_DISCOVERY_URL="http://$HUE_ADDRESS:$HUE_PORT/discovery" \
    "$BIN/beamcrafter" "${args[@]}" &
app_pid=$!
status=0
wait "$app_pid" || status=$?
app_pid=""
exit "$status"
