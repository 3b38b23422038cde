#!/bin/sh
# A job that audits captures: captures.sh CAPTURE...
#
# Leaves in artifacts/ for each a test report, a page, a log and clips of what was found. The status
# is that of the last capture that did not pass: 3 for findings that korva.baseline does not allow.
# docs/ci.md tells how CI systems run it.
set -eu

mkdir -p artifacts
status=0
for capture; do
  name=$(basename -- "$capture")
  set -- --audit --exit-alerts -S "$name" --report="artifacts/$name.html" \
    --junit="artifacts/$name.xml" --clip="artifacts/$name.clips"
  test ! -e korva.baseline || set -- "$@" --baseline=korva.baseline
  korva "$@" -- "$capture" 2>"artifacts/$name.log" || status=$?
  echo "$name: $(grep -E '^(PASS|FAIL|INCOMPLETE|NOTHING CHECKED)' "artifacts/$name.log")"
done
exit $status
