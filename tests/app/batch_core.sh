#!/usr/bin/env bash
# A batch run is the core alone: it lists the groups of the test server with no display and a
# made-up platform named, and loads no platform plugin at all (the dynamic loader's own record
# of every library it opens is read back).
# usage: batch_core.sh NEWSDREDGE INN_SCRIPT INN_DIR HOME
set -u
nd=$1; inn=$2; inndir=$3; home=$4
port=$(( ${ND_INN_BASE:-11930} + 1 ))
group=nd.batch.core$$
rm -rf "$home"; mkdir -p "$home"
bash "$inn" newgroup "$inndir" "$group" >/dev/null || { echo "batch core: no group"; exit 1; }
printf 'From: tester <t@example.invalid>\nNewsgroups: %s\nSubject: core\n\nbody\n' "$group" > "$home/article"
bash "$inn" post "$inndir" "$port" "$home/article" >/dev/null || { echo "batch core: not posted"; exit 1; }
out=$(env -u DISPLAY -u WAYLAND_DISPLAY QT_QPA_PLATFORM=no-such-platform \
      LD_DEBUG=files LD_DEBUG_OUTPUT="$home/loaded" XDG_CONFIG_HOME="$home/config" NEWSDREDGE_HOME="$home/data" \
      "$nd" --batch --server "127.0.0.1:$port" --groups 2>"$home/err")
status=$?
if [ $status -ne 0 ]; then
  echo "batch core: exit status $status"; cat "$home/err"; exit 1
fi
if ! printf '%s\n' "$out" | grep -qxP "$group\t[0-9]+"; then
  echo "batch core: $group not listed"; printf '%s\n' "$out" | head; cat "$home/err"; exit 1
fi
if ! ls "$home"/loaded.* >/dev/null 2>&1; then
  echo "batch core: the loader kept no record"; exit 1
fi
if grep -h "file=.*/platforms/" "$home"/loaded.*; then
  echo "batch core: a platform plugin was loaded"; exit 1
fi
echo "batch core: ok"
