#!/usr/bin/env bash
# SIGTERM ends the program, also while a start-up dialog is open, and a normal end keeps the
# window's geometry. Usage: terminate.sh PROGRAM SCRATCH_DIR
set -u
PROG=$1 DIR=$2
rm -rf "$DIR"; mkdir -p "$DIR/cfg" "$DIR/home"
export QT_QPA_PLATFORM=offscreen XDG_CONFIG_HOME=$DIR/cfg NEWSDREDGE_HOME=$DIR/home
INI="$DIR/cfg/Newsdredge/Newsdredge!.ini"

ends_on_term() { # NAME: starts the program, sends SIGTERM after 2 s, expects exit 0 within 10 s
  "$PROG" >"$DIR/$1.log" 2>&1 &
  local pid=$! i
  sleep 2
  kill -0 $pid 2>/dev/null || { echo "$1: the program ended by itself"; cat "$DIR/$1.log"; exit 1; }
  kill -TERM $pid
  for i in $(seq 1 100); do
    kill -0 $pid 2>/dev/null || break
    sleep 0.1
  done
  if kill -0 $pid 2>/dev/null; then
    kill -9 $pid; echo "$1: still running 10 s after SIGTERM"; exit 1
  fi
  wait $pid; local rc=$?
  [ $rc -eq 0 ] || { echo "$1: exit status $rc"; cat "$DIR/$1.log"; exit 1; }
}

# first run: the quick help is open (modal) when the signal comes
ends_on_term first-run
grep -q '^Width=' "$INI" 2>/dev/null && { echo "first-run: geometry stored for a window never shown"; exit 1; }

# later run: no dialog, the main window is up; it ends the normal way and keeps its geometry
mkdir -p "$(dirname "$INI")"
printf '[Settings]\nQHShow=1\nNNTPServer=127.0.0.1:9\n' >"$INI"
ends_on_term main-window
grep -q '^Width=' "$INI" || { echo "main-window: geometry not stored"; cat "$INI"; exit 1; }
echo "terminate: ok"
