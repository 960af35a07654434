#!/usr/bin/env bash
# Runs a private INN news server on loopback for the tests.
#
#   inn.sh start DIR      build a private configuration under DIR, start innd and the readers
#   inn.sh stop DIR       stop everything started from DIR
#   inn.sh start-reader DIR PORT NAME READ_PATTERN ACCESS [AUTH]
#                         one more nnrpd reader (ACCESS: RPA or R; AUTH "user:password")
#   inn.sh stop-reader DIR PORT   stop the reader listening on PORT (one started by start-reader)
#   inn.sh newgroup DIR GROUP
#   inn.sh post DIR PORT FILE   post an article file through a reader (NNTP POST)
#
# Ports (env): ND_INN_BASE (default 11930): innd BASE, reader A BASE+1 (anonymous, posting),
# reader B BASE+2 (AUTHINFO "tester" / "s3cret|pw"), reader C BASE+3 (no posting).
# Everything runs as the "news" user and listens on 127.0.0.1 only.
set -euo pipefail

NEWSBIN=/usr/lib/news/bin
BASE=${ND_INN_BASE:-11930}
AUTH_USER=tester
AUTH_PASS='s3cret|pw'
TEST_GROUPS=(alt.binaries.newsdredge.test alt.binaries.newsdredge.big alt.test.newsdredge alt.newsdredge.text
        misc.test.empty misc.test.untouched comp.lang.newsdredge de.test.newsdredge alt.binaries.pictures.newsdredge
        rec.arts.newsdredge sci.newsdredge.misc)

die() { echo "inn.sh: $*" >&2; exit 1; }

conf_for() { # DIR NAME -> prints the inn.conf path of that configuration
  echo "$1/etc-$2/inn.conf"
}

make_conf() { # DIR NAME PORT
  local R=$1 N=$2 P=$3 E="$1/etc-$2"
  rm -rf "$E"; mkdir -p "$E"
  cp -a /etc/news/. "$E/"
  [ -f "$E/inn.conf.dpkg-dist" ] && cp "$E/inn.conf.dpkg-dist" "$E/inn.conf"
  sed -i -E "/^(pathetc|pathdb|pathspool|patharticles|pathoverview|pathincoming|pathoutgoing|patharchive|pathlog|pathrun|pathtmp|port|maxartsize|bindaddress|domain|pathhost|server|extraoverviewadvertised):/d" "$E/inn.conf"
  cat >> "$E/inn.conf" <<CONF
domain: localdomain
pathhost: news.newsdredge.test
server: 127.0.0.1
pathetc: $E
pathdb: $R/db
pathspool: $R/spool
patharticles: $R/spool/articles
pathoverview: $R/spool/overview
pathincoming: $R/spool/incoming
pathoutgoing: $R/spool/outgoing
patharchive: $R/spool/archive
pathlog: $R/log
pathrun: $R/run
pathtmp: $R/tmp
port: $P
bindaddress: 127.0.0.1
maxartsize: 0
CONF
}

reader_conf() { # ETC ACCESS PATTERN [AUTH]
  local E=$1 A=$2 PAT=$3 AU=${4:-}
  if [ -n "$AU" ]; then
    local u=${AU%%:*} p=${AU#*:}
    python3 -c 'import crypt,sys; print(sys.argv[1]+":"+crypt.crypt(sys.argv[2], crypt.mksalt(crypt.METHOD_SHA512)))' "$u" "$p" 2>/dev/null > "$E/passwd.nntp.test"
    cat > "$E/readers.conf" <<RC
auth "local" {
    hosts: "localhost, 127.0.0.1, ::1"
    auth: "ckpasswd -f $E/passwd.nntp.test"
}
access "users" {
    users: "$u"
    newsgroups: "$PAT"
    access: $A
}
RC
  else
    cat > "$E/readers.conf" <<RC
auth "local" {
    hosts: "localhost, 127.0.0.1, ::1"
    default: "<local>"
}
access "local" {
    users: "<local>"
    newsgroups: "$PAT"
    access: $A
}
RC
  fi
}

wait_port() { # PORT
  for _ in $(seq 1 100); do
    (exec 3<>/dev/tcp/127.0.0.1/"$1") 2>/dev/null && return 0
    sleep 0.1
  done
  return 1
}

start_reader() { # DIR PORT NAME PATTERN ACCESS [AUTH]
  local R=$1 P=$2 N=$3 PAT=$4 A=$5 AU=${6:-}
  make_conf "$R" "$N" "$BASE"
  reader_conf "$R/etc-$N" "$A" "$PAT" "$AU"
  chown -R news:news "$R/etc-$N"
  su news -s /bin/sh -c "INNCONF='$(conf_for "$R" "$N")' $NEWSBIN/nnrpd -D -p $P -b 127.0.0.1" \
    || die "nnrpd $N did not start"
  wait_port "$P" || die "reader $N not listening on $P"
  echo "$P" >> "$R/reader-ports"
}

cmd=${1:-}; shift || true
case "$cmd" in
start)
  R=${1:?DIR}; mkdir -p "$R"; R=$(cd "$R" && pwd)
  [ "$(id -u)" -eq 0 ] || die "must run as root (INN runs as user news)"
  [ -x $NEWSBIN/innd ] || die "INN is not installed (scripts/install-deps.sh)"
  "$0" stop "$R" >/dev/null 2>&1 || true
  rm -rf "$R"; mkdir -p "$R"/{db,spool/articles,spool/overview,spool/incoming/tmp,spool/incoming/bad,spool/outgoing,spool/archive,log,run,tmp}
  make_conf "$R" innd "$BASE"
  {
    echo "control 0000000000 0000000001 n"
    echo "control.cancel 0000000000 0000000001 n"
    echo "junk 0000000000 0000000001 y"
    for g in "${TEST_GROUPS[@]}"; do echo "$g 0000000000 0000000001 y"; done
  } > "$R/db/active"
  : > "$R/db/active.times"; : > "$R/db/newsgroups"; : > "$R/db/history"
  chown -R news:news "$R"
  su news -s /bin/sh -c "INNCONF='$(conf_for "$R" innd)' $NEWSBIN/makedbz -i -o" || die "makedbz failed"
  su news -s /bin/sh -c "INNCONF='$(conf_for "$R" innd)' nohup $NEWSBIN/innd -d -f >'$R/log/innd.out' 2>&1 &"
  wait_port "$BASE" || { cat "$R/log/innd.out" >&2; die "innd not listening on $BASE"; }
  for _ in $(seq 1 50); do [ -S "$R/run/control" ] && break; sleep 0.1; done
  : > "$R/reader-ports"
  start_reader "$R" $((BASE + 1)) a '*' RPA
  start_reader "$R" $((BASE + 2)) b '*' RPA "$AUTH_USER:$AUTH_PASS"
  start_reader "$R" $((BASE + 3)) c '*' R
  echo "INN running under $R: innd $BASE, readers $((BASE + 1)) $((BASE + 2)) $((BASE + 3))"
  ;;
start-reader)
  R=$(cd "${1:?DIR}" && pwd); start_reader "$R" "${2:?PORT}" "${3:?NAME}" "${4:?PATTERN}" "${5:?ACCESS}" "${6:-}"
  ;;
stop-reader)
  R=$(cd "${1:?DIR}" && pwd); P=${2:?PORT}
  grep -qx "$P" "$R/reader-ports" 2>/dev/null || exit 0
  fuser -k -n tcp "$P" >/dev/null 2>&1 || true
  for _ in $(seq 1 50); do (exec 3<>/dev/tcp/127.0.0.1/"$P") 2>/dev/null || exit 0; sleep 0.1; done
  die "reader on $P did not stop"
  ;;
stop)
  R=${1:?DIR}
  [ -d "$R" ] || exit 0
  R=$(cd "$R" && pwd)
  if [ -S "$R/run/control" ]; then
    su news -s /bin/sh -c "INNCONF='$(conf_for "$R" innd)' $NEWSBIN/ctlinnd -t 5 shutdown test-done" >/dev/null 2>&1 || true
  fi
  # readers and innd started from this directory
  for pid in $(pgrep -u news -f "INNCONF=$R/" 2>/dev/null; pgrep -u news 'nnrpd|innd' 2>/dev/null); do
    if grep -qz "$R/" "/proc/$pid/environ" 2>/dev/null; then kill "$pid" 2>/dev/null || true; fi
  done
  if [ -f "$R/reader-ports" ]; then
    while read -r p; do
      fuser -k -n tcp "$p" >/dev/null 2>&1 || true
    done < "$R/reader-ports"
  fi
  fuser -k -n tcp "$BASE" >/dev/null 2>&1 || true
  ;;
newgroup)
  R=$(cd "${1:?DIR}" && pwd)
  su news -s /bin/sh -c "INNCONF='$(conf_for "$R" innd)' $NEWSBIN/ctlinnd -s newgroup '${2:?GROUP}' y"
  ;;
post)
  R=${1:?DIR}; P=${2:?PORT}; F=${3:?FILE}
  python3 - "$P" "$F" <<'PY'
import socket, sys
port, path = int(sys.argv[1]), sys.argv[2]
data = open(path, 'rb').read().replace(b'\r\n', b'\n')
s = socket.create_connection(('127.0.0.1', port), timeout=30)
f = s.makefile('rwb')
def status():
    line = f.readline()
    return int(line[:3]), line
code, _ = status()
f.write(b'POST\r\n'); f.flush()
code, line = status()
if code != 340: sys.exit('POST refused: %r' % line)
out = bytearray()
for l in data.split(b'\n')[:-1] if data.endswith(b'\n') else data.split(b'\n'):
    if l.startswith(b'.'): l = b'.' + l
    out += l + b'\r\n'
f.write(bytes(out) + b'.\r\n'); f.flush()
code, line = status()
if code != 240: sys.exit('article refused: %r' % line)
f.write(b'QUIT\r\n'); f.flush()
print(line.decode('latin-1').strip())
PY
  ;;
*)
  sed -n '2,15p' "$0"; exit 2
  ;;
esac
