#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The package as the distribution's tools judge it: lintian (pedantic) finds no error and
# no warning, and every installed program carries the hardening of Debian's flags.
# Usage: package_checks.sh DEB_DIR; exit status 77 (skipped) without lintian or
# hardening-check (devscripts).
set -eu
if ! command -v lintian >/dev/null || ! command -v hardening-check >/dev/null; then
    echo "skipped: needs lintian and hardening-check (devscripts)" >&2
    exit 77
fi
for deb in "$1"/strata-launcher_*.deb; do :; done
for dbgsym in "$1"/strata-launcher-dbgsym_*.ddeb; do :; done
lintian --pedantic --fail-on error,warning "$deb" "$dbgsym"
tree=$(mktemp -d -p "$1")
trap 'rm -rf "$tree"' EXIT
dpkg-deb -x "$deb" "$tree"
# Control-flow protection would need C start files built for it, which Debian 12 does
# not ship. The two helpers' calls of functions with checked variants have sizes the
# compiler proves at build time or copy into heap storage of unknown size, neither of
# which gets a check; hardening-check cannot tell them from unprotected calls.
hardening-check --quiet --nocfprotection "$tree"/usr/bin/*
hardening-check --quiet --nocfprotection --nofortify "$tree"/usr/libexec/strata-launcher/*
