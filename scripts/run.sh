#!/usr/bin/env bash
# make run: what the build serves. The web-API server comes in a later step; for now this
# lists the module and its methods.
set -euo pipefail
build=${1:-build}
module=$(ls "$build"/modules/*.so)
echo "Built module: $module"
echo "It serves QUOR.Core.SyslogClient.Log version 1: list, export, clear."
echo "Exported symbols:"
nm -D -C --defined-only "$module" | awk '{ $1=""; $2=""; print "  " substr($0,3) }'
