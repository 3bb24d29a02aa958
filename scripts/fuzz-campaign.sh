#!/usr/bin/env bash
# A long fuzzing campaign: every target in turn, on all cores (-fork), for
# HOURS in total (default 8), with the same memory limits as CI.  The grown
# corpora and any findings stay in OUT (default build-fuzz/campaign), so a
# later campaign goes on where this one stopped; the summary lists
# executions, coverage and findings per target.  docs/fuzzing.md says what to
# do with a finding and how to keep corpus inputs worth keeping.
#
#   scripts/fuzz-campaign.sh [HOURS] [OUT]
set -euo pipefail
cd "$(dirname "$0")/.."
hours=${1:-8}
out=${2:-build-fuzz/campaign}
total=$(awk -v h="$hours" 'BEGIN { print int(h * 3600) }')
echo "campaign: $hours h on $(nproc) cores, working folder $out"
exec scripts/fuzz.sh -T "$total" -f "$(nproc)" -o "$out"
