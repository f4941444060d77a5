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
for f in bin/velotape libexec/velotape/velotape-app "share/applications/$id.desktop" "share/metainfo/$id.metainfo.xml" \
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

# The command answers control commands by itself, without the GUI's libraries, and hands the rest to
# the installed program: an empty journal is the program's answer.
runtime=$(mktemp -d)
status=0
out=$(env -u DISPLAY -u WAYLAND_DISPLAY XDG_RUNTIME_DIR="$runtime" "$prefix/bin/velotape" status 2>&1) || status=$?
[ "$status" = 1 ] && grep -q "not running" <<<"$out" || fail "status without an instance: exit $status, '$out'"
libs=$(env -u DISPLAY -u WAYLAND_DISPLAY XDG_RUNTIME_DIR="$runtime" LD_DEBUG=files "$prefix/bin/velotape" status 2>&1 |
  grep -o 'file=[^ ]*' | sort -u || true)
if grep -qE 'Widgets|Gui|libav|libxcb|libpulse|tesseract' <<<"$libs"; then
  fail "the control command loads the program's libraries: $(tr '\n' ' ' <<<"$libs")"
fi
out=$(env -u DISPLAY -u WAYLAND_DISPLAY "$prefix/bin/velotape" journal --folder "$runtime" --json) ||
  fail "journal through the installed program failed: $out"
grep -q '"compassScore"' <<<"$out" || fail "journal through the installed program says '$out'"
rm -rf "$runtime"
echo "check-install: $prefix passed"
