#!/bin/bash
# Copies several volumes at once on one host: one tamrix for each batch file that tamrix-plan -split=PLANS wrote.
#
#     many-drives.sh PLANS DRIVES
#
# At most DRIVES run at a time. The volumes are mounted where they were when the plan was made. What each run says
# goes to PLANS.logs/VOLUME.log, status and time of each to PLANS.logs/jobs. Ends with the number of volumes that
# failed.
set -euo pipefail

plans=$1
drives=$2
export logs=$plans.logs
mkdir -p "$logs"

copy() {
  tamrix -batchfile="$1" >"$logs/$(basename "$1" .xml).log" 2>&1
}
export -f copy

find "$plans" -name '*.xml' -print0 | sort -z |
  parallel --null --quote --jobs "$drives" --joblog "$logs/jobs" copy '{}'
