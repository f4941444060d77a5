#!/usr/bin/env bash
# Installs the build tree into a temporary prefix and checks what a user's desktop reads of it:
# the launcher entry, the AppStream metainfo, the icons, the man page, the completion, and the
# installed binary's --version and --help.
#   check-install.sh BUILD_DIR APP_ID VERSION
set -euo pipefail
build=$1 id=$2 version=$3
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
fail() { echo "check-install: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" >/dev/null

share=$prefix/share
for f in bin/velotape "share/applications/$id.desktop" "share/metainfo/$id.metainfo.xml" \
  "share/icons/hicolor/scalable/apps/$id.svg" "share/icons/hicolor/symbolic/apps/$id-symbolic.svg" \
  share/man/man1/velotape.1 share/bash-completion/completions/velotape; do
  [ -f "$prefix/$f" ] || fail "not installed: $f"
done

desktop-file-validate "$share/applications/$id.desktop" || fail "the desktop entry does not validate"
appstreamcli validate --no-net --pedantic "$share/metainfo/$id.metainfo.xml" || fail "the metainfo does not validate"

# The man page renders with every groff warning on, and says nothing.
warnings=$(MANPAGER=cat MANWIDTH=80 man --warnings=w -l "$share/man/man1/velotape.1" 2>&1 >/dev/null)
[ -z "$warnings" ] || fail "man -l warns: $warnings"
warnings=$(groff -ww -z -man "$share/man/man1/velotape.1" 2>&1)
[ -z "$warnings" ] || fail "groff -ww warns: $warnings"
MANPAGER=cat man -l "$share/man/man1/velotape.1" | grep -q "EXIT STATUS" || fail "the man page lost its sections"

bash -n "$share/bash-completion/completions/velotape" || fail "the completion is not valid bash"

# The installed binary, as a user runs it: no display is needed for these two.
out=$(env -u DISPLAY -u WAYLAND_DISPLAY "$prefix/bin/velotape" --version)
[ "$out" = "velotape $version" ] || fail "--version says '$out'"
out=$(env -u DISPLAY -u WAYLAND_DISPLAY "$prefix/bin/velotape" --help)
for word in "Usage:" "--headless" "--background" "toggle" "journal" "detect" "Exit status"; do
  grep -q -e "$word" <<<"$out" || fail "--help does not mention $word"
done
status=0
env -u DISPLAY -u WAYLAND_DISPLAY "$prefix/bin/velotape" --frobnicate >/dev/null 2>&1 || status=$?
[ "$status" = 2 ] || fail "a bad option exits $status, not 2"
echo "check-install: $prefix passed"
