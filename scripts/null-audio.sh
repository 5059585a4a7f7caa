#!/usr/bin/env bash
# A sound device for machines without a sound card: a private PulseAudio server whose only sink
# is a null sink, paced by the system clock, so that PortAudio (through ALSA's pulse plugin)
# plays at real speed and what it plays can be recorded back from the sink's monitor.
#
#   null-audio.sh [start] [DIR]   start (or reuse) the server, print the environment to use
#   null-audio.sh env [DIR]       print the environment of a running server
#   null-audio.sh stop [DIR]      end the server started in DIR and remove DIR
#
# DIR defaults to $KAVOT_NULL_AUDIO_DIR, else /tmp/kavot-null-audio-<uid>. The printed lines are
# "export NAME=value" (eval-able): HOME (holds the .asoundrc), XDG_RUNTIME_DIR, PULSE_SERVER,
# and KAVOT_NULL_SINK (the sink's name; record "<sink>.monitor" to hear what was played).
# KAVOT_NULL_AUDIO_RATE sets the sink's rate (default 48000). With KAVOT_NULL_AUDIO_OWNER=<pid>
# the server is also stopped (and DIR removed) once that process has gone, so a test that
# crashes leaves nothing running.
set -euo pipefail

action=start
case "${1:-}" in
  start|stop|env) action=$1; shift ;;
esac
dir=${1:-${KAVOT_NULL_AUDIO_DIR:-/tmp/kavot-null-audio-$(id -u)}}
rate=${KAVOT_NULL_AUDIO_RATE:-48000}
sink=kavot_null

run="$dir/run"
home="$dir/home"
socket="$run/native"
pidfile="$dir/pulseaudio.pid"
logfile="$dir/pulseaudio.log"

die() { echo "null-audio: $*" >&2; exit 1; }

print_env() {
  echo "export HOME=$home"
  echo "export XDG_RUNTIME_DIR=$run"
  echo "export PULSE_SERVER=unix:$socket"
  echo "export KAVOT_NULL_SINK=$sink"
}

# Talks to our server only: never autospawns, never falls back to another server.
server_answers() {
  [ -S "$socket" ] || return 1
  HOME="$home" XDG_RUNTIME_DIR="$run" PULSE_SERVER="unix:$socket" \
    timeout 5 pactl info >/dev/null 2>&1
}

our_pid() {
  [ -f "$pidfile" ] || return 1
  local pid
  pid=$(cat "$pidfile")
  [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null || return 1
  # The pid must still be the server we started (pids are reused).
  grep -q "pulseaudio" "/proc/$pid/cmdline" 2>/dev/null || return 1
  echo "$pid"
}

stop_server() {
  local pid
  if pid=$(our_pid); then
    kill "$pid" 2>/dev/null || true
    for _ in $(seq 1 50); do
      kill -0 "$pid" 2>/dev/null || break
      sleep 0.1
    done
    kill -0 "$pid" 2>/dev/null && kill -9 "$pid" 2>/dev/null || true
  fi
  # Only remove a folder that looks like ours.
  if [ -d "$dir" ] && [ -f "$dir/server.pa" ]; then
    rm -rf "$dir"
  fi
}

watch_owner() {
  local owner=${KAVOT_NULL_AUDIO_OWNER:-}
  [ -n "$owner" ] || return 0
  local self
  self=$(readlink -f "$0")
  # Detached from the caller's session and output, so the caller's wait ends now.
  setsid bash -c '
    while kill -0 "$1" 2>/dev/null; do sleep 1; done
    exec bash "$2" stop "$3"
  ' watch "$owner" "$self" "$dir" </dev/null >/dev/null 2>&1 &
}

start_server() {
  command -v pulseaudio >/dev/null || die "pulseaudio is not installed (scripts/install-deps.sh)"
  command -v pactl >/dev/null || die "pactl is not installed (pulseaudio-utils)"

  if our_pid >/dev/null && server_answers; then
    print_env
    return 0
  fi
  stop_server

  mkdir -p "$run" "$home/.config/pulse"
  chmod 700 "$dir" "$run"

  # ALSA clients (PortAudio among them) reach the server through the pulse plugin.
  cat >"$home/.asoundrc" <<EOF
pcm.!default { type pulse }
ctl.!default { type pulse }
EOF
  # Clients must never start a server of their own with the user's configuration.
  cat >"$home/.config/pulse/client.conf" <<EOF
autospawn = no
EOF
  # No default script (-n): only the null sink and the local socket, no hardware probing.
  cat >"$dir/server.pa" <<EOF
load-module module-null-sink sink_name=$sink rate=$rate channels=2 format=s16le sink_properties=device.description=KavotNull
load-module module-native-protocol-unix auth-anonymous=1 socket=$socket
set-default-sink $sink
set-default-source $sink.monitor
EOF

  # As root PulseAudio warns but runs in per-user mode when the runtime and state folders are
  # private and given explicitly; --system is not wanted (it needs the pulse user and D-Bus).
  HOME="$home" XDG_RUNTIME_DIR="$run" XDG_CONFIG_HOME="$home/.config" \
    XDG_STATE_HOME="$home/.state" PULSE_RUNTIME_PATH="$run/pulse" \
    PULSE_STATE_PATH="$home/.config/pulse" DBUS_SESSION_BUS_ADDRESS=disabled: \
    setsid pulseaudio -n --daemonize=no --exit-idle-time=-1 --disallow-exit \
      --disallow-module-loading=no --use-pid-file=no --system=no \
      --realtime=no --high-priority=no \
      -F "$dir/server.pa" --log-target=stderr --log-level=warning \
      </dev/null >"$logfile" 2>&1 &
  echo $! >"$pidfile"

  local started
  started=$(cat "$pidfile")
  for _ in $(seq 1 100); do
    if server_answers; then
      watch_owner
      print_env
      return 0
    fi
    # Only whether it still runs: until the forked shell has exec'd pulseaudio, its command
    # line is not yet the server's, and that is no failure.
    kill -0 "$started" 2>/dev/null || break
    sleep 0.1
  done
  echo "null-audio: the server did not come up; its log:" >&2
  cat "$logfile" >&2 || true
  stop_server
  exit 1
}

case "$action" in
  start) start_server ;;
  stop) stop_server ;;
  env)
    server_answers || die "no server running in $dir"
    print_env
    ;;
esac
