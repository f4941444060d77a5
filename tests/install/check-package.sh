#!/usr/bin/env bash
# Checks a built Velotape .deb: what it installs and what it depends on.
#   check-package.sh PACKAGE.deb APP_ID
set -euo pipefail
deb=$1 id=$2
fail() { echo "check-package: $*" >&2; exit 1; }

[ "$(dpkg-deb -f "$deb" Package)" = velotape ] || fail "the package is not called velotape"
[ -n "$(dpkg-deb -f "$deb" Maintainer)" ] || fail "no maintainer"
[ -n "$(dpkg-deb -f "$deb" Description)" ] || fail "no description"

contents=$(dpkg-deb -c "$deb" | awk '{print $NF}')
for f in ./usr/bin/velotape ./usr/libexec/velotape/velotape-app "./usr/share/applications/$id.desktop" "./usr/share/metainfo/$id.metainfo.xml" \
  "./usr/share/icons/hicolor/scalable/apps/$id.svg" "./usr/share/icons/hicolor/symbolic/apps/$id-symbolic.svg" \
  ./usr/share/man/man1/velotape.1 ./usr/share/bash-completion/completions/velotape; do
  grep -qxF "$f" <<<"$contents" || fail "the package lacks $f"
done
# Nothing of the build tree: no tests, benchmarks or static libraries.
if grep -E '\.a$|_tests$|bench' <<<"$contents"; then fail "the package carries build leftovers"; fi

# What dpkg-shlibdeps found in the binary, and the OCR data, which is loaded by name at run time.
depends=$(dpkg-deb -f "$deb" Depends)
for dep in tesseract-ocr-eng libqt6widgets6 libqt6dbus6 libavformat59 libavcodec59 libtesseract5 libpulse0 libxcb1 \
  libc6; do
  grep -qE "(^|, )$dep( |,|$)" <<<"$depends" || fail "Depends lacks $dep: $depends"
done
echo "check-package: $deb passed"
echo "Depends: $depends"
