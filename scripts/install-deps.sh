#!/usr/bin/env bash
# Installs what Newsdredge needs to build and test on Debian. Safe to run again.
set -euo pipefail
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi

PKGS=(build-essential cmake pkg-config qt6-base-dev qt6-base-dev-tools libqt6opengl6-dev
      qt6-image-formats-plugins qt6-qpa-plugins libgl1-mesa-dev libgmime-3.0-dev libdeflate-dev
      xvfb xauth openssl par2 qtkeychain-qt6-dev)
if [ "${WITH_TEST_PEERS:-1}" = "1" ]; then
  PKGS+=(sharutils mpack nzbget)
  # some machines carry a nodejs that bundles npm and conflicts with Debian's npm
  command -v node >/dev/null 2>&1 || PKGS+=(nodejs)
  command -v npm >/dev/null 2>&1 || PKGS+=(npm)
fi
# clang with libFuzzer for the decoder fuzz targets (cmake -DND_FUZZ=ON)
if [ "${WITH_FUZZ:-1}" = "1" ]; then
  PKGS+=(clang libclang-rt-14-dev)
fi

missing=()
for p in "${PKGS[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

# inn2 refuses to configure without a domain in inn.conf; give it one before install.
need_inn=0
if [ "${WITH_TEST_PEERS:-1}" = "1" ]; then
  dpkg-query -W -f='${Status}' inn2 2>/dev/null | grep -q "install ok installed" || need_inn=1
fi

if [ ${#missing[@]} -gt 0 ] || [ $need_inn -eq 1 ]; then
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  if [ ${#missing[@]} -gt 0 ]; then
    $SUDO apt-get install -y -qq --no-install-recommends \
      -o Dpkg::Options::=--force-confold -o Dpkg::Options::=--force-confdef "${missing[@]}" </dev/null \
      || $SUDO dpkg --force-confold --configure -a </dev/null
  fi
  if [ $need_inn -eq 1 ]; then
    $SUDO mkdir -p /etc/news
    if [ ! -f /etc/news/inn.conf ] || ! grep -q '^domain:' /etc/news/inn.conf; then
      echo "domain: localdomain" | $SUDO tee -a /etc/news/inn.conf >/dev/null
    fi
    # keep our inn.conf (the tests run INN on a private configuration anyway)
    $SUDO apt-get install -y -qq --no-install-recommends \
      -o Dpkg::Options::=--force-confold -o Dpkg::Options::=--force-confdef inn2 </dev/null || {
      # our stub inn.conf was kept: take the packaged one and give it the domain
      if [ -f /etc/news/inn.conf.dpkg-dist ]; then $SUDO cp /etc/news/inn.conf.dpkg-dist /etc/news/inn.conf; fi
      grep -q '^domain:' /etc/news/inn.conf || echo "domain: localdomain" | $SUDO tee -a /etc/news/inn.conf >/dev/null
      $SUDO dpkg --force-confold --configure -a </dev/null
    }
    # the package starts innd on port 119 where it can; the tests run their own
    $SUDO service inn2 stop >/dev/null 2>&1 || true
  fi
fi

# nyuu (yEnc poster) for the end-to-end tests and benchmarks, kept inside the build tree
if [ "${WITH_TEST_PEERS:-1}" = "1" ]; then
  TOOLS_DIR="${NEWSDREDGE_TOOLS:-$(cd "$(dirname "$0")/.." && pwd)/build/tools}"
  if [ ! -x "$TOOLS_DIR/node_modules/.bin/nyuu" ]; then
    mkdir -p "$TOOLS_DIR"
    ( cd "$TOOLS_DIR" && [ -f package.json ] || echo '{"name":"nd-tools","private":true}' > package.json
      npm install --no-audit --no-fund --silent nyuu yencode >/dev/null 2>&1 || true
      npm install-scripts approve yencode >/dev/null 2>&1 || true
      npm rebuild yencode >/dev/null 2>&1 || true ) || true
  fi
fi
