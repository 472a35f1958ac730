#!/usr/bin/env bash
# Checks a built package the way a workshop meets it: lintian (no errors), the menu entry and
# the AppStream metainfo, then install it with apt, run the installed programs once (the window
# tool offscreen with its virtual controller, connecting it) and remove it again.
#   tools/check_package.sh build-package/veltro_<version>_amd64.deb
set -euo pipefail
deb=$(realpath "$1")
cd "$(dirname "$0")/.."
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"

echo "== lintian"
lintian --fail-on error --allow-root "$deb"
echo "== desktop-file-validate, appstreamcli validate"
desktop-file-validate packaging/veltro.desktop
appstreamcli validate --no-net packaging/de.veltro.ServiceTool.metainfo.xml

echo "== install"
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "$deb" >/dev/null
/usr/bin/veltro-cli --version
/usr/bin/veltro-cli --help >/dev/null
/usr/bin/veltro-sim --help >/dev/null
for page in veltro-cli veltro-sim; do test -s /usr/share/man/man1/$page.1.gz; done
# A fresh user: the program folder is made in the XDG data folder on first start.
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
HOME=$home XDG_DATA_HOME=$home/data QT_QPA_PLATFORM=offscreen timeout 120 /usr/bin/veltro --demo --self-check
HOME=$home XDG_DATA_HOME=$home/data /usr/bin/veltro-cli history 00000000 >/dev/null 2>&1 || true
test -d "$home/data/veltro"

echo "== remove"
DEBIAN_FRONTEND=noninteractive $sudo apt-get purge -y -qq veltro >/dev/null
for f in /usr/bin/veltro /usr/bin/veltro-cli /usr/bin/veltro-sim /usr/bin/veltro-vehicles /usr/share/veltro; do
  if [ -e "$f" ]; then echo "still there after removal: $f" >&2; exit 1; fi
done
if dpkg-query -W -f='${Status}' veltro 2>/dev/null | grep -q installed; then
  echo "veltro still installed after removal" >&2
  exit 1
fi
echo "package checks passed: $(basename "$deb")"
