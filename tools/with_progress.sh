#!/bin/bash
# Runs a command with its output in a log and says every few seconds how far that is; shows the end
# of the log when the command fails.
#
#   tools/with_progress.sh LOG COMMAND [ARGUMENT...]
set -uo pipefail

log=$1
shift
mkdir -p "$(dirname -- "$log")"
"$@" > "$log" 2>&1 < /dev/null &
command=$!
trap 'kill "$command"' INT TERM

said=$SECONDS
while kill -0 "$command" 2> /dev/null; do
  sleep 1
  [ $((SECONDS - said)) -ge 4 ] || continue
  said=$SECONDS
  printf '%5d s  %.90s\n' "$SECONDS" "$(tail -n 1 "$log" | tr -dc '[:print:]')"
done
wait "$command"
status=$?
[ $status = 0 ] || tail -n 50 "$log" >&2
exit $status
